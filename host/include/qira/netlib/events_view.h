// The host's view of the events state that the wireless events module keeps
// in the library context's `wireless_events` slot. The module exports no
// descriptor, but the leading members of that state are part of the layout it
// shares with the host: the initialised byte, the prepared byte and the
// generic netlink socket its notifications arrive on. A host that waits for
// events in poll() reads the socket's descriptor through this view and calls
// the module's service once the descriptor is readable.
#ifndef QIRA_NETLIB_EVENTS_VIEW_H
#define QIRA_NETLIB_EVENTS_VIEW_H

#include <netlink/socket.h>

#include <cstdint>

#include "qira/netlib/context.h"

namespace qira::netlib {

// Only these leading members: the rest of the state is the module's own.
struct events_view {
  std::uint8_t initialised;  // 1 once the module's init succeeded
  std::uint8_t prepared;     // 1 once the first service joined nl80211's groups
  nl_sock* sock;             // owned by the module; a host only polls it
};

// The descriptor of the events module's socket in library context `ctx`, or
// -1 when `ctx` is null, its events slot is empty or the module is not
// initialised. The descriptor stays the module's: never read, written or
// closed by the host, and valid until the module's close. Never blocks.
inline int wireless_events_fd(void* ctx) {
  if (ctx == nullptr) {
    return -1;
  }
  const auto* events =
      static_cast<const events_view*>(static_cast<const library_context*>(ctx)->wireless_events);
  if (events == nullptr || events->initialised == 0 || events->sock == nullptr) {
    return -1;
  }
  return nl_socket_get_fd(events->sock);
}

}  // namespace qira::netlib

#endif  // QIRA_NETLIB_EVENTS_VIEW_H
