// Names of the module's event kinds, as qira-wifi prints them.
#ifndef QIRA_TOOLS_QIRA_WIFI_EVENT_NAMES_H
#define QIRA_TOOLS_QIRA_WIFI_EVENT_NAMES_H

#include <string>

namespace qira::wifi {

// The member name of an event_type value ("connect"), "reserved" for 1 to 5
// and "unknown" for any other number.
std::string event_type_name(int type);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_EVENT_NAMES_H
