// The host's view of a qira::network::WpaClient's leading data members. The
// client exports no descriptor, but its data members and their order are
// part of its interface (its users construct it): the initialised flag, the
// subscribed flag and the control socket's descriptor. A host that waits for
// wpa_supplicant's events in poll(), beside other descriptors, reads the
// descriptor through this view and calls the client's Service once it is
// readable.
#ifndef QIRA_NETLIB_WPA_CLIENT_VIEW_H
#define QIRA_NETLIB_WPA_CLIENT_VIEW_H

#include <cstring>

#include "qira/network/wpa_client.h"

namespace qira::netlib {

// Only these leading members: the rest of the client is the module's own.
struct wpa_client_view {
  bool initialised;  // true between a successful Init and Close
  bool subscribed;   // true while an ATTACH is in force
  int socket_fd;     // the control socket; 0 before the first Init, -1 after Close
};

// The descriptor of `client`'s control socket, or -1 when the client is not
// initialised. The descriptor stays the client's: never read, written or
// closed by the host, and valid until the client's Close (which a
// "CTRL-EVENT-TERMINATING" event runs inside Service). Never blocks.
inline int wpa_client_fd(const qira::network::WpaClient& client) {
  wpa_client_view view{};
  std::memcpy(&view, &client, sizeof(view));
  return view.initialised ? view.socket_fd : -1;
}

}  // namespace qira::netlib

#endif  // QIRA_NETLIB_WPA_CLIENT_VIEW_H
