#include "event_names.h"

#include <iterator>

namespace qira::wifi {

namespace {

// By value: the numbers are fixed by the module's interface.
constexpr const char* kEventTypeNames[] = {
    "unspec",
    "reserved",
    "reserved",
    "reserved",
    "reserved",
    "reserved",
    "new_wiphy",
    "del_wiphy",
    "trigger_scan",
    "new_scan_results",
    "scan_aborted",
    "scan_failed",
    "reg_change",
    "network_not_found",
    "ssid_temp_disabled",
    "new_station",
    "del_station",
    "authenticate",
    "associate",
    "deauthenticate",
    "disassociate",
    "unprot_deauthenticate",
    "unprot_disassociate",
    "connect",
    "disconnect",
    "connected_to_ap",
    "disconnected_from_ap",
};

}  // namespace

std::string event_type_name(int type) {
  constexpr int kNames = static_cast<int>(std::size(kEventTypeNames));
  return type >= 0 && type < kNames ? kEventTypeNames[type] : "unknown";
}

}  // namespace qira::wifi
