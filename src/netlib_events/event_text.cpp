// The exported text functions of nl80211 event decoding, over the tables of
// event_text_table.cpp.
#include "qira/network/event_text.h"

#include <cstring>

#include "netlib_events/event_text_table.h"

std::string command_name(nl80211_commands cmd) {
  // Callers pass any command number in the enum, also numbers past the ones
  // this header names (a newer kernel's, 300, or ~0u): read the number the
  // object holds instead of loading it as an enumerator it may not be.
  static_assert(sizeof cmd == sizeof(unsigned int), "nl80211_commands holds an unsigned int");
  unsigned int code = 0;
  std::memcpy(&code, &cmd, sizeof code);
  return qira::network::events::command_text(code);
}

std::string get_status_str(unsigned short status) {
  return qira::network::events::status_text(status);
}

std::string get_reason_str(unsigned short reason) {
  return qira::network::events::reason_text(reason);
}

std::string reg_initiator_to_string(unsigned char initiator) {
  return qira::network::events::initiator_text(initiator);
}
