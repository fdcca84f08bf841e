// Decoding of one nl80211 notification into an event kind and its payload.
// Pure: reads only the message, writes only the payload.
#ifndef QIRA_SRC_NETLIB_EVENTS_NOTIFICATION_H
#define QIRA_SRC_NETLIB_EVENTS_NOTIFICATION_H

#include <netlink/msg.h>

#include "qira/network/event_type.h"
#include "qira/variant/variant.h"

namespace qira::network::events {

// Fills `payload` (which the caller has emptied) with the common keys and the
// keys of the notification's command, and returns its event kind (unspec for
// commands without one).
qira::network::event_type decode_notification(nl_msg* msg, qira::variant::Variant& payload);

}  // namespace qira::network::events

#endif  // QIRA_SRC_NETLIB_EVENTS_NOTIFICATION_H
