// The floor programs' generic netlink socket: set up as the event module
// sets up its own (buffer sizes, non-blocking mode, the nl80211 family and
// the multicast groups asked for) but with libnl's own helpers only, so
// that the floor measures what any libnl consumer of nl80211 must do.
#ifndef QIRA_BENCH_FLOOR_FLOOR_SOCKET_H
#define QIRA_BENCH_FLOOR_FLOOR_SOCKET_H

#include <netlink/handlers.h>
#include <netlink/msg.h>
#include <netlink/socket.h>

#include <memory>
#include <string>
#include <vector>

namespace qira::bench::floor {

struct SocketRelease {
  void operator()(nl_sock* sock) const { nl_socket_free(sock); }
};
struct CallbackRelease {
  void operator()(nl_cb* cb) const { nl_cb_put(cb); }
};
struct MessageRelease {
  void operator()(nl_msg* msg) const { nlmsg_free(msg); }
};
using SocketPtr = std::unique_ptr<nl_sock, SocketRelease>;
using CallbackPtr = std::unique_ptr<nl_cb, CallbackRelease>;
using MessagePtr = std::unique_ptr<nl_msg, MessageRelease>;

struct Nl80211Socket {
  SocketPtr sock;
  int family = -1;  // nl80211's generic netlink family identifier
};

// A connected, non-blocking socket that joined nl80211's `groups`; a null
// socket, with `error` set, when a step fails.
Nl80211Socket open_nl80211_socket(const std::vector<const char*>& groups, std::string& error);

// A callback set of kind NL_CB_DEFAULT with the sequence check off (the
// notifications carry no sequence number of ours) and `valid` as the valid
// message handler, given `arg`; null when it cannot be allocated.
CallbackPtr notification_callbacks(nl_recvmsg_msg_cb_t valid, void* arg);

}  // namespace qira::bench::floor

#endif  // QIRA_BENCH_FLOOR_FLOOR_SOCKET_H
