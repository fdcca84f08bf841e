// Texts of nl80211 event decoding and the management frame decoder.
#ifndef QIRA_NETWORK_EVENT_TEXT_H
#define QIRA_NETWORK_EVENT_TEXT_H

#include <linux/nl80211.h>
#include <netlink/attr.h>

#include <string>

#include "qira/network/export.h"
#include "qira/variant/variant.h"

// nl80211 command name without its prefix, in lower case; "unknown" otherwise.
QIRA_WIRELESS_API std::string command_name(nl80211_commands cmd);
// IEEE 802.11 status code text; "<unknown>" otherwise.
QIRA_WIRELESS_API std::string get_status_str(unsigned short status);
// IEEE 802.11 reason code text; "<unknown>" otherwise.
QIRA_WIRELESS_API std::string get_reason_str(unsigned short reason);
// Who asked for a regulatory change; "BUG" for unknown values.
QIRA_WIRELESS_API std::string reg_initiator_to_string(unsigned char initiator);
// Adds "from", "to" and the status or reason of the management frame carried
// by the nl80211 frame attribute `frame` (may be null) to `payload`.
QIRA_WIRELESS_API void parse_frame(nlattr* frame, qira::variant::Variant& payload);

#endif  // QIRA_NETWORK_EVENT_TEXT_H
