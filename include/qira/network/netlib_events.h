// nl80211 event module: one generic netlink socket joined to nl80211's
// "config", "scan", "regulatory" and "mlme" multicast groups, polled by the
// host. Notifications become an event_type and a payload map for subscribers.
#ifndef QIRA_NETWORK_NETLIB_EVENTS_H
#define QIRA_NETWORK_NETLIB_EVENTS_H

#include "qira/network/event_type.h"
#include "qira/network/export.h"

namespace qira::network {

// Reserved to the host (internal-call flag set): creates the module state
// and its non-blocking socket.
QIRA_WIRELESS_API bool netlib_libevents_wireless_init(void* ctx);
// Reserved to the host: releases the state and the socket.
QIRA_WIRELESS_API bool netlib_libevents_wireless_close(void* ctx);

// Registers `callback`; its identifier (numbered from 0, never reused) is
// written to `id`.
QIRA_WIRELESS_API bool netlib_libevents_wireless_subscribe(
    void* ctx, void (*callback)(event_type, const qira::variant::Variant&, void*), unsigned int& id,
    void* user);
// Removes subscription `id`; true also when it does not exist.
QIRA_WIRELESS_API bool netlib_libevents_wireless_unsubscribe(void* ctx, unsigned int id);
// Joins the multicast groups on first use, reads what is waiting (never
// blocks) and calls every subscriber with the last notification read.
QIRA_WIRELESS_API bool netlib_libevents_wireless_service(void* ctx);

}  // namespace qira::network

#endif  // QIRA_NETWORK_NETLIB_EVENTS_H
