// State of the nl80211 event module, owned by the library context's events
// slot. The scan module reads `sock` and `nl80211_id` to send its own
// requests, so the members keep this order.
#ifndef QIRA_SRC_NETLIB_EVENTS_EVENTS_STATE_H
#define QIRA_SRC_NETLIB_EVENTS_EVENTS_STATE_H

#include <netlink/handlers.h>
#include <netlink/socket.h>

#include <cstdint>
#include <map>
#include <utility>

#include "qira/network/event_type.h"
#include "qira/variant/variant.h"

namespace qira::network::events {

using subscriber = std::pair<event_callback, void*>;

struct events_state {
  std::uint8_t initialised = 0;  // 1 after a successful init (set last)
  std::uint8_t prepared = 0;     // 1 once the groups are joined and cb is made
  nl_sock* sock = nullptr;       // owned
  nl_cb* cb = nullptr;           // receive callbacks; null until prepared
  std::int32_t nl80211_id = 0;   // generic netlink family of "nl80211"
  std::uint32_t next_subscription_id = 0;
  std::map<unsigned int, subscriber> subscribers;  // by identifier, ascending
  qira::network::event_type event_type = unspec;   // of the notification being handled
  std::int32_t event_pending = 0;                  // a notification was decoded in this receive
  qira::variant::Variant payload;                  // reused for every notification
};

}  // namespace qira::network::events

#endif  // QIRA_SRC_NETLIB_EVENTS_EVENTS_STATE_H
