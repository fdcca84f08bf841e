// `qira-wifi wpa IFNAME COMMAND...` and `qira-wifi wpa-events IFNAME`: the
// module's wpa_supplicant client used the way a host application uses it.
// `wpa` prints the reply as it came (--json: {"ifname", "command", "reply"});
// `wpa-events` one line per event as `events` prints them
// (render_event_line: "TYPE NAME PAYLOAD", or JSON Lines with --json).
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

// The control command: the words joined by single spaces.
std::string join_command(const std::vector<std::string>& words);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_WPA_COMMAND_H
