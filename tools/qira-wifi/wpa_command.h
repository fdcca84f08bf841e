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
// `wpa-events` waits for the daemon at most this long in one go (a day).
constexpr unsigned long long kLongestWaitMs = 24ULL * 3600 * 1000;

// One line of `wpa-events`: "<number> <name> <payload as JSON>\n".
std::string format_event_line(qira::network::event_type type,
                              const qira::variant::Variant& payload);
// The control command: the words joined by single spaces.
std::string join_command(const std::vector<std::string>& words);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_WPA_COMMAND_H
