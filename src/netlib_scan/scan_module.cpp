// Scan module lifecycle: its state in the library context's scan slot, and
// the libnl callback set through which the results dump reaches the scan
// list. Reserved to the host, which calls both with the internal-call flag
// set, after the event module (whose socket the scan module borrows).
#include <netlink/handlers.h>

#include <new>

#include "frame/context.h"
#include "frame/module_log.h"
#include "netlib_events/events_state.h"
#include "netlib_scan/scan_state.h"
#include "qira/network/ap_selection.h"
#include "qira/network/netlib_events.h"
#include "qira/network/netlib_scan.h"
#include "qira/network/nl_helpers.h"

namespace qira::network {

namespace {

using frame::kLogError;
using scan::scan_state;

events::events_state* events_of(void* ctx) {
  return static_cast<events::events_state*>(frame::as_context(ctx)->wireless_events);
}

scan_state* state_of(void* ctx) {
  return static_cast<scan_state*>(frame::as_context(ctx)->wireless_scan);
}

}  // namespace

bool netlib_libscan_wireless_init(void* ctx) {
  // The context itself is not tested: this routine is the host's alone, and
  // the host never passes null. The scan module cannot exist without the
  // event module, whose socket and nl80211 family it uses.
  const events::events_state* events = events_of(ctx);
  if (events == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  if (events->initialised == 0) {
    NETLIB_LOG(kLogError, 0, "library is not initialized");
    return false;
  }
  if (frame::as_context(ctx)->internal_call == 0) {
    NETLIB_LOG(kLogError, 0, "netlib: you may not call this function directly");
    return false;
  }
  auto* state = new (std::nothrow) scan_state{};
  if (state == nullptr) {
    NETLIB_LOG(kLogError, 0, "netlib: memory allocation error");
    return false;
  }
  frame::as_context(ctx)->wireless_scan = state;
  state->scan_list = nullptr;
  state->subscribed = 0;
  state->scan_acked = 0;
  state->scan_finished = 0;
  state->scan_aborted = 0;
  state->recovery_enabled = 1;
  state->callbacks = nl_cb_alloc(NL_CB_DEFAULT);
  if (state->callbacks == nullptr) {
    NETLIB_LOG(kLogError, 0, "netlib: failed to allocate netlink callback");
    // Deliberately, the slot keeps the freed state's address: the host does
    // not call the module again after a failed init.
    delete state;
    return false;
  }
  // The dump's replies carry the request's sequence number, but the same
  // socket also receives multicast notifications that carry none.
  nl_cb_set(state->callbacks, NL_CB_SEQ_CHECK, NL_CB_CUSTOM, no_seq_check, nullptr);
  nl_cb_set(state->callbacks, NL_CB_VALID, NL_CB_CUSTOM, get_scanlist_cb, &state->scan_list);
  state->initialised = 1;
  return true;
}

bool netlib_libscan_wireless_close(void* ctx) {
  if (ctx == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  if (frame::as_context(ctx)->internal_call == 0) {
    NETLIB_LOG(kLogError, 0, "netlib: you may not call this function directly");
    return false;
  }
  scan_state* state = state_of(ctx);
  if (state == nullptr || state->initialised == 0) {
    return true;
  }
  if (state->subscribed != 0) {
    state->subscribed = 0;
    netlib_libevents_wireless_unsubscribe(ctx, state->subscription_id);
  }
  if (state->scan_list != nullptr) {
    free_scanlist(&state->scan_list);
  }
  if (state->callbacks != nullptr) {
    nl_cb_put(state->callbacks);
  }
  delete state;
  frame::as_context(ctx)->wireless_scan = nullptr;
  return true;
}

}  // namespace qira::network
