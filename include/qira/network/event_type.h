// Wireless events delivered to subscribers by the nl80211 event module and by
// the wpa_supplicant control client.
#ifndef QIRA_NETWORK_EVENT_TYPE_H
#define QIRA_NETWORK_EVENT_TYPE_H

#include "qira/variant/variant.h"

namespace qira::network {

// Kinds of event. The numbers are part of the interface; 1 to 5 are reserved
// and never produced. nl80211-derived members carry the command's text name.
enum event_type {
  unspec = 0,  // an nl80211 notification without a kind of its own
  new_wiphy = 6,
  del_wiphy = 7,
  trigger_scan = 8,
  new_scan_results = 9,
  scan_aborted = 10,
  scan_failed = 11,  // wpa_supplicant
  reg_change = 12,
  network_not_found = 13,   // wpa_supplicant
  ssid_temp_disabled = 14,  // wpa_supplicant
  new_station = 15,
  del_station = 16,
  authenticate = 17,
  associate = 18,
  deauthenticate = 19,
  disassociate = 20,
  unprot_deauthenticate = 21,
  unprot_disassociate = 22,
  connect = 23,
  disconnect = 24,
  connected_to_ap = 25,       // wpa_supplicant
  disconnected_from_ap = 26,  // wpa_supplicant
};

// Subscriber callback: the event kind, its payload (a map owned by the
// producer, valid only during the call; copy what you keep) and the user
// pointer given when subscribing. Runs on the thread that services the
// producer.
using event_callback = void (*)(event_type type, const qira::variant::Variant& payload, void* user);

}  // namespace qira::network

#endif  // QIRA_NETWORK_EVENT_TYPE_H
