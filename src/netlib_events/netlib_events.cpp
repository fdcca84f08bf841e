// nl80211 event module: one non-blocking generic netlink socket joined to
// nl80211's multicast groups on first service, whose notifications are
// decoded and handed to the subscribers, last one per service call.
#include "qira/network/netlib_events.h"

#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/handlers.h>
#include <netlink/socket.h>

#include <cstddef>
#include <new>
#include <vector>

#include "frame/context.h"
#include "frame/module_log.h"
#include "netlib_events/events_state.h"
#include "netlib_events/nl_owners.h"
#include "netlib_events/notification.h"
#include "netlib_events/receive_result.h"
#include "qira/network/nl_helpers.h"

namespace qira::network {

namespace {

using events::events_state;
using frame::kLogError;

constexpr const char kNl80211Family[] = "nl80211";
// Joined in this order; a failure stops at the group that failed.
constexpr const char* kMulticastGroups[] = {"config", "scan", "regulatory", "mlme"};
constexpr int kSocketBufferSize = 8192;
// Subscribers whose identifiers a dispatch lists without allocating.
constexpr std::size_t kSubscribersOnStack = 8;

events_state* state_of(void* ctx) {
  return static_cast<events_state*>(frame::as_context(ctx)->wireless_events);
}

// The event module's context test: false, after one log line, when the
// context or the events state is missing or not initialised.
bool check(void* ctx) {
  if (ctx == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  const events_state* state = state_of(ctx);
  if (state == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  if (state->initialised == 0) {
    NETLIB_LOG(kLogError, 0, "library is not initialized");
    return false;
  }
  return true;
}

// Every notification, handled or not, reaches the subscribers: the kind
// starts as unspec and the pending flag is set before decoding.
int handle_notification(nl_msg* msg, void* ctx) {
  events_state* state = state_of(ctx);
  state->event_type = unspec;
  state->payload.Reset();
  state->event_pending = 1;
  state->event_type = events::decode_notification(msg, state->payload);
  return NL_SKIP;
}

// The NL_CB_VALID callback: a context that is no longer usable gets no
// decoding.
int notification_callback(nl_msg* msg, void* ctx) {
  if (!check(ctx)) {
    return NL_OK;
  }
  return handle_notification(msg, ctx);
}

bool prepare_listen_events(void* ctx) {
  if (!check(ctx)) {
    return false;
  }
  events_state* state = state_of(ctx);
  // Memberships joined before a failing step stay joined; the next service
  // starts again from the first group.
  for (const char* group : kMulticastGroups) {
    const int id = nl_get_multicast_id(state->sock, kNl80211Family, group);
    if (id < 0) {
      NETLIB_LOG(kLogError, 0, "nl_get_multicast_id() failed: %d", id);
      return false;
    }
    const int joined = nl_socket_add_memberships(state->sock, id, 0);
    if (joined != 0) {
      NETLIB_LOG(kLogError, 0, "nl_socket_add_membership() failed: %d", joined);
      return false;
    }
  }
  nl_cb* cb = nl_cb_alloc(NL_CB_DEFAULT);
  if (cb == nullptr) {
    NETLIB_LOG(kLogError, 0, "netlib: failed to allocate netlink callback");
    return false;
  }
  // Notifications carry no sequence number of ours.
  nl_cb_set(cb, NL_CB_SEQ_CHECK, NL_CB_CUSTOM, no_seq_check, nullptr);
  nl_cb_set(cb, NL_CB_VALID, NL_CB_CUSTOM, notification_callback, ctx);
  state->cb = cb;
  state->prepared = 1;
  return true;
}

bool receive_event(void* ctx) {
  if (!check(ctx)) {
    return false;
  }
  events_state* state = state_of(ctx);
  if (state->prepared == 0) {
    NETLIB_LOG(kLogError, 0, "netlib: cannot receive events until prepared");
    return false;
  }
  const int received = nl_recvmsgs(state->sock, state->cb);
  if (received != 0 && !events::nothing_to_read(received)) {
    NETLIB_LOG(kLogError, 0, "netlib: nl_recvmsg() failed: %d", received);
    return false;
  }
  return true;
}

}  // namespace

bool netlib_libevents_wireless_init(void* ctx) {
  // Entry rule of init and close: a context, and a call made by the host.
  if (ctx == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  if (frame::as_context(ctx)->internal_call == 0) {
    NETLIB_LOG(kLogError, 0, "netlib: you may not call this function directly");
    return false;
  }
  qira::netlib::library_context* context = frame::as_context(ctx);
  auto* state = new (std::nothrow) events_state();
  if (state == nullptr) {
    context->wireless_events = nullptr;
    NETLIB_LOG(kLogError, 0, "netlib: memory allocation error");
    return false;
  }
  context->wireless_events = state;

  // On every failure below the state is freed but the events slot is
  // deliberately left pointing at it, as the camera's host expects: after a
  // failed init the host calls nothing of this module again.
  events::socket_ptr sock(nl_socket_alloc());
  if (!sock) {
    NETLIB_LOG(kLogError, 0, "netlib: failed to allocate netlink socket");
    delete state;
    return false;
  }
  // Asked for before the socket is connected, so libnl keeps its own sizes;
  // the result is deliberately not examined.
  nl_socket_set_buffer_size(sock.get(), kSocketBufferSize, kSocketBufferSize);
  if (genl_connect(sock.get()) != 0) {
    NETLIB_LOG(kLogError, 0, "netlib: failed to connect to generic netlink");
    delete state;
    return false;
  }
  state->nl80211_id = genl_ctrl_resolve(sock.get(), kNl80211Family);
  if (state->nl80211_id < 0) {
    NETLIB_LOG(kLogError, 0, "netlib: nl80211 not found");
    delete state;
    return false;
  }
  if (nl_socket_set_nonblocking(sock.get()) != 0) {
    NETLIB_LOG(kLogError, 0, "netlib: failed to set socket to non-blocking mode");
    delete state;
    return false;
  }
  state->sock = sock.release();
  state->next_subscription_id = 0;
  state->prepared = 0;
  state->initialised = 1;
  return true;
}

bool netlib_libevents_wireless_close(void* ctx) {
  // The same entry rule as init.
  if (ctx == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  if (frame::as_context(ctx)->internal_call == 0) {
    NETLIB_LOG(kLogError, 0, "netlib: you may not call this function directly");
    return false;
  }
  qira::netlib::library_context* context = frame::as_context(ctx);
  events_state* state = state_of(ctx);
  if (state == nullptr || state->initialised == 0) {
    return true;
  }
  nl_socket_free(state->sock);
  // The receive callback set of prepare_listen_events is deliberately not
  // released here: the camera's host has always closed without it.
  delete state;
  context->wireless_events = nullptr;
  return true;
}

bool netlib_libevents_wireless_subscribe(void* ctx,
                                         void (*callback)(event_type, const qira::variant::Variant&,
                                                          void*),
                                         unsigned int& id, void* user) {
  if (!check(ctx)) {
    return false;
  }
  events_state* state = state_of(ctx);
  const unsigned int new_id = state->next_subscription_id++;
  id = new_id;
  // Only after the counter wrapped can the identifier already be taken.
  state->subscribers[new_id] = events::subscriber(callback, user);
  return true;
}

bool netlib_libevents_wireless_unsubscribe(void* ctx, unsigned int id) {
  if (!check(ctx)) {
    return false;
  }
  state_of(ctx)->subscribers.erase(id);
  return true;
}

bool netlib_libevents_wireless_service(void* ctx) {
  if (!check(ctx)) {
    return false;
  }
  events_state* state = state_of(ctx);
  if (state->prepared == 0 && !prepare_listen_events(ctx)) {
    return false;
  }
  state->event_pending = 0;
  if (!receive_event(ctx)) {
    NETLIB_LOG(kLogError, 0, "netlib: Failed to receive an event");
    return false;
  }
  if (state->event_pending != 0) {
    // A subscriber may unsubscribe itself or another from its callback: the
    // identifiers to call are fixed first, and each is looked up again just
    // before its call, so a removed subscriber is not called any more and
    // one added during the dispatch waits for the next event. The
    // identifiers of a few subscribers (the usual case: the scan module and
    // one application) are kept on the stack, so that an event allocates
    // nothing for its dispatch.
    const std::size_t count = state->subscribers.size();
    unsigned int few[kSubscribersOnStack];
    std::vector<unsigned int> many;
    unsigned int* ids = few;
    if (count > kSubscribersOnStack) {
      many.resize(count);
      ids = many.data();
    }
    std::size_t listed = 0;
    for (const auto& entry : state->subscribers) {
      ids[listed++] = entry.first;
    }
    for (std::size_t i = 0; i < listed; ++i) {
      const auto found = state->subscribers.find(ids[i]);
      if (found != state->subscribers.end()) {
        const events::subscriber call = found->second;
        call.first(state->event_type, state->payload, call.second);
      }
    }
  }
  return true;
}

}  // namespace qira::network
