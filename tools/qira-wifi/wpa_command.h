// `qira-wifi wpa IFNAME COMMAND...` and `qira-wifi wpa-events IFNAME`: the
// module's wpa_supplicant client used the way a host application uses it.
// The text pieces below are pure, for the tests.
#ifndef QIRA_TOOLS_QIRA_WIFI_WPA_COMMAND_H
#define QIRA_TOOLS_QIRA_WIFI_WPA_COMMAND_H

#include <string>
#include <vector>

#include "qira/network/event_type.h"
#include "qira/variant/variant.h"

namespace qira::wifi {

// How long `wpa` waits for the reply without --timeout (wpa_cli's own wait).
constexpr unsigned long long kDefaultWpaReplyTimeoutMs = 10000;
// `wpa-events` pumps the client in slices this long, so that an interrupt
// or the time-out is noticed promptly.
constexpr unsigned long long kEventSliceMs = 100;
// `wpa-events` follows the interface's wpa_supplicant across restarts: it
// asks for a PING this often (a killed daemon says nothing), waits this long
// for the PONG, and while the daemon is away tries to attach again after
// each pause.
constexpr unsigned long long kPingIntervalMs = 1000;
constexpr unsigned long long kPingTimeoutMs = 1000;
constexpr unsigned long long kReattachPauseMs = 250;

// One line of `wpa-events`: "<number> <name> <payload as JSON>\n".
std::string format_event_line(qira::network::event_type type,
                              const qira::variant::Variant& payload);
// The control command: the words joined by single spaces.
std::string join_command(const std::vector<std::string>& words);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_WPA_COMMAND_H
