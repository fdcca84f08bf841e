// The text tables of nl80211 event decoding as the tables' own static texts.
// The exported functions (command_name, get_status_str, get_reason_str,
// reg_initiator_to_string) return them as std::string; the event decoder
// hands these pointers straight to the payload, which keeps its own copy, so
// that no intermediate string is built and copied per event.
#ifndef QIRA_SRC_NETLIB_EVENTS_EVENT_TEXT_TABLE_H
#define QIRA_SRC_NETLIB_EVENTS_EVENT_TEXT_TABLE_H

namespace qira::network::events {

// The texts of the exported functions, for any code (the tables' fallbacks
// included); never null, static.
const char* command_text(unsigned int command);
const char* status_text(unsigned short status);
const char* reason_text(unsigned short reason);
const char* initiator_text(unsigned char initiator);

}  // namespace qira::network::events

#endif  // QIRA_SRC_NETLIB_EVENTS_EVENT_TEXT_TABLE_H
