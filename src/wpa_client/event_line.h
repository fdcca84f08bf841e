// The text side of wpa_supplicant's unsolicited messages: splitting one
// "<priority>NAME args" line into its name and arguments, the names this
// client translates, and the payload built for each. No I/O.
#ifndef QIRA_SRC_WPA_CLIENT_EVENT_LINE_H
#define QIRA_SRC_WPA_CLIENT_EVENT_LINE_H

#include <optional>
#include <string>

#include "qira/network/event_type.h"
#include "qira/variant/variant.h"

namespace qira::network::wpa {

// wpa_supplicant's own event names.
constexpr const char kEventConnected[] = "CTRL-EVENT-CONNECTED";
constexpr const char kEventDisconnected[] = "CTRL-EVENT-DISCONNECTED";
constexpr const char kEventScanFailed[] = "CTRL-EVENT-SCAN-FAILED";
constexpr const char kEventNetworkNotFound[] = "CTRL-EVENT-NETWORK-NOT-FOUND";
constexpr const char kEventSsidTempDisabled[] = "CTRL-EVENT-SSID-TEMP-DISABLED";
constexpr const char kEventTerminating[] = "CTRL-EVENT-TERMINATING";

struct event_line {
  std::string name;
  std::string args;
};

// Splits one event message. std::nullopt when it has no ">" or nothing
// after its first ">".
//  - The name runs from just after the first ">" up to and including the
//    first space of the message when that space lies after the ">", else to
//    the end; trailing white space is then trimmed.
//  - The arguments are the text after the first space of the message. A
//    message without any space yields the whole message (priority prefix
//    included): the position after "no space" wraps to the start. Kept as
//    is; callers of this client see that text for events without arguments.
std::optional<event_line> parse_event_line(const std::string& message);

// The kind a wpa_supplicant event name translates to (exact, case-sensitive),
// or std::nullopt for names this client ignores.
std::optional<event_type> translate_event_name(const std::string& name);

// The "eventName" of a translated kind ("connected_to_ap", ...); empty for
// kinds this client does not produce.
std::string translated_event_name(event_type type);

// The payload of a translated event of `type` on interface `ifname`.
// ssid_temp_disabled also carries every key=value pair of `args` as a string
// member, and "ssid" without its surrounding quotes. The pairs are split at
// every space, so an SSID that contains spaces arrives cut short; kept simple
// on purpose.
qira::variant::Variant build_event_payload(event_type type, const std::string& ifname,
                                           const std::string& args);

}  // namespace qira::network::wpa

#endif  // QIRA_SRC_WPA_CLIENT_EVENT_LINE_H
