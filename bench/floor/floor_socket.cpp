#include "floor/floor_socket.h"

#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>

namespace qira::bench::floor {
namespace {

// The event module's socket buffer sizes.
constexpr int kSocketBufferSize = 8192;

int accept_any_sequence(nl_msg* /*msg*/, void* /*arg*/) {
  return NL_OK;
}

}  // namespace

Nl80211Socket open_nl80211_socket(const std::vector<const char*>& groups, std::string& error) {
  Nl80211Socket result;
  SocketPtr sock(nl_socket_alloc());
  if (!sock) {
    error = "nl_socket_alloc failed";
    return result;
  }
  nl_socket_set_buffer_size(sock.get(), kSocketBufferSize, kSocketBufferSize);
  if (genl_connect(sock.get()) != 0) {
    error = "genl_connect failed";
    return result;
  }
  const int family = genl_ctrl_resolve(sock.get(), "nl80211");
  if (family < 0) {
    error = "nl80211 not found: " + std::to_string(family);
    return result;
  }
  if (nl_socket_set_nonblocking(sock.get()) != 0) {
    error = "nl_socket_set_nonblocking failed";
    return result;
  }
  for (const char* group : groups) {
    const int id = genl_ctrl_resolve_grp(sock.get(), "nl80211", group);
    if (id < 0 || nl_socket_add_memberships(sock.get(), id, 0) != 0) {
      error = std::string("cannot join the group ") + group;
      return result;
    }
  }
  result.sock = std::move(sock);
  result.family = family;
  return result;
}

CallbackPtr notification_callbacks(nl_recvmsg_msg_cb_t valid, void* arg) {
  CallbackPtr callbacks(nl_cb_alloc(NL_CB_DEFAULT));
  if (callbacks) {
    nl_cb_set(callbacks.get(), NL_CB_SEQ_CHECK, NL_CB_CUSTOM, accept_any_sequence, nullptr);
    nl_cb_set(callbacks.get(), NL_CB_VALID, NL_CB_CUSTOM, valid, arg);
  }
  return callbacks;
}

}  // namespace qira::bench::floor
