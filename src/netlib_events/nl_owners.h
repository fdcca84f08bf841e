// Owners of libnl objects in the event module's private code, so that every
// early return releases what it should.
#ifndef QIRA_SRC_NETLIB_EVENTS_NL_OWNERS_H
#define QIRA_SRC_NETLIB_EVENTS_NL_OWNERS_H

#include <netlink/handlers.h>
#include <netlink/msg.h>
#include <netlink/socket.h>

#include <memory>

namespace qira::network::events {

struct message_release {
  void operator()(nl_msg* msg) const { nlmsg_free(msg); }
};
struct callback_release {
  void operator()(nl_cb* cb) const { nl_cb_put(cb); }
};
struct socket_release {
  void operator()(nl_sock* sock) const { nl_socket_free(sock); }
};

using message_ptr = std::unique_ptr<nl_msg, message_release>;
using callback_ptr = std::unique_ptr<nl_cb, callback_release>;
using socket_ptr = std::unique_ptr<nl_sock, socket_release>;

}  // namespace qira::network::events

#endif  // QIRA_SRC_NETLIB_EVENTS_NL_OWNERS_H
