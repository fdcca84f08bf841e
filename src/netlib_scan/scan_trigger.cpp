// Scan module at work: the trigger request, the event handler that follows
// the scan through the kernel's notifications, the results dump and the
// service call that reports where the scan stands.
#include <net/if.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>

#include <linux/nl80211.h>

#include "frame/context.h"
#include "frame/module_log.h"
#include "netlib_events/events_state.h"
#include "netlib_events/nl_owners.h"
#include "netlib_scan/scan_dump.h"
#include "netlib_scan/scan_state.h"
#include "qira/network/event_type.h"
#include "qira/network/netlib_events.h"
#include "qira/network/netlib_scan.h"

namespace qira::network {

namespace {

using events::message_ptr;
using frame::kLogDebug;
using frame::kLogError;
using frame::kLogInfo;
using frame::kLogWarning;
using scan::scan_state;

// Attribute type of the one SSID inside NL80211_ATTR_SCAN_SSIDS: the nest is
// a list whose entries are numbered from 1.
constexpr int kFirstScanSsid = 1;

events::events_state* events_of(void* ctx) {
  return static_cast<events::events_state*>(frame::as_context(ctx)->wireless_events);
}

scan_state* state_of(void* ctx) {
  return static_cast<scan_state*>(frame::as_context(ctx)->wireless_scan);
}

// The scan module's context test: the context, then the event module whose
// socket it borrows, then its own state.
bool check(void* ctx) {
  if (ctx == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  const events::events_state* events = events_of(ctx);
  if (events == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  if (events->initialised == 0) {
    NETLIB_LOG(kLogError, 0, "library is not initialized");
    return false;
  }
  const scan_state* state = state_of(ctx);
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

// Dumps the kernel's BSS table of the last trigger's interface into the
// scan list, through the module's own callback set: one request, then reads
// on to the dump's end past the notifications that share the event socket
// (scan_dump.h says why one read is not enough). A read that answers
// anything but 0 before the end fails the request, as would a negative
// result of a single read; nothing waits.
bool receive_results(void* ctx) {
  const message_ptr msg(nlmsg_alloc());
  if (!msg) {
    NETLIB_LOG(kLogError, 0, "Failed to allocate netlink message");
    return false;
  }
  events::events_state* events = events_of(ctx);
  scan_state* state = state_of(ctx);
  if (genlmsg_put(msg.get(), NL_AUTO_PORT, NL_AUTO_SEQ, events->nl80211_id, 0, NLM_F_DUMP,
                  NL80211_CMD_GET_SCAN, 0) == nullptr ||
      nla_put_u32(msg.get(), NL80211_ATTR_IFINDEX, static_cast<std::uint32_t>(state->ifindex)) !=
          0) {
    NETLIB_LOG(kLogError, 0, "Failed to retrieve scan results");
    return false;
  }
  // Unlike the trigger, a send that reports 0 bytes is not a failure here.
  if (nl_send_auto_complete(events->sock, msg.get()) < 0) {
    NETLIB_LOG(kLogError, 0, "Failed to retrieve scan results");
    return false;
  }
  const scan::dump_end_watch watch(state->callbacks);
  const int received = scan::read_to_dump_end(events->sock, state->callbacks, watch);
  if (received < 0 || !watch.ended()) {
    NETLIB_LOG(kLogError, 0, "Failed to retrieve scan results");
    return false;
  }
  return true;
}

// Subscriber of the event module; `user` is the library context. Runs
// inside netlib_libevents_wireless_service, after its read, so the results
// dump may use the same socket.
void event_handler(event_type type, const qira::variant::Variant& /*payload*/, void* user) {
  if (user == nullptr) {
    return;
  }
  scan_state* state = state_of(user);
  if (state->scan_finished != 0) {
    return;
  }
  if (state->subscribed == 0) {
    NETLIB_LOG(kLogWarning, 0, "Event handler is called, but we're not subscribed");
    return;
  }
  switch (type) {
    case event_type::trigger_scan:
      NETLIB_LOG(kLogDebug, 0, "Scan trigger ack");
      state->scan_acked = 1;
      return;
    case event_type::scan_aborted:
      NETLIB_LOG(kLogWarning, 0, "Scan was aborted");
      state->scan_finished = 1;
      state->scan_aborted = 1;
      break;
    case event_type::new_scan_results:
      NETLIB_LOG(kLogDebug, 0, "Scan was finished");
      state->scan_finished = 1;
      state->scan_aborted = 0;
      break;
    default:
      return;
  }
  // The scan ended, normally or not: what the kernel holds is collected
  // either way.
  if (!check(user) || !receive_results(user)) {
    NETLIB_LOG(kLogError, 0, "Failed to retrieve scan results");
  }
}

}  // namespace

bool netlib_libscan_trigger(void* ctx, const std::string& ifname, const unsigned char* ies,
                            unsigned int ies_len, bool& in_progress) {
  if (!check(ctx)) {
    return false;
  }
  scan_state* state = state_of(ctx);
  // Only an acknowledged scan counts as running: a request the kernel has not
  // confirmed may be repeated.
  if (state->scan_acked == 1 && state->scan_finished == 0) {
    NETLIB_LOG(kLogInfo, 0, "Another scan is in process, cannot trigger another scan...");
    in_progress = true;
    return true;
  }
  in_progress = false;
  state->scan_acked = 0;
  state->scan_finished = 0;
  state->scan_aborted = 0;
  if (!netlib_libevents_wireless_service(ctx)) {
    return false;
  }
  if (state->subscribed == 0) {
    // Kept until close, across every later scan.
    if (!netlib_libevents_wireless_subscribe(ctx, event_handler, state->subscription_id, ctx)) {
      NETLIB_LOG(kLogError, 0, "Failed to subscribe for wireless events");
      return false;
    }
    state->subscribed = 1;
  }
  state->ifindex = static_cast<std::int32_t>(if_nametoindex(ifname.c_str()));
  if (state->ifindex < 1) {
    NETLIB_LOG(kLogError, 0, "Failed to get interface index (%s)", ifname.c_str());
    return false;
  }
  const message_ptr msg(nlmsg_alloc());
  const message_ptr ssids(nlmsg_alloc());
  if (!msg || !ssids) {
    NETLIB_LOG(kLogError, 0, "Failed to allocate netlink message");
    return false;
  }
  events::events_state* events = events_of(ctx);
  genlmsg_put(msg.get(), NL_AUTO_PORT, NL_AUTO_SEQ, events->nl80211_id, 0, 0,
              NL80211_CMD_TRIGGER_SCAN, 0);
  nla_put_u32(msg.get(), NL80211_ATTR_IFINDEX, static_cast<std::uint32_t>(state->ifindex));
  if (ies_len != 0 && nla_put(msg.get(), NL80211_ATTR_IE, static_cast<int>(ies_len), ies) != 0) {
    NETLIB_LOG(kLogWarning, 0, "failed to add IEs");
  }
  // One empty SSID, the wildcard: always an active scan for any network.
  nla_put(ssids.get(), kFirstScanSsid, 0, "");
  nla_put_nested(msg.get(), NL80211_ATTR_SCAN_SSIDS, ssids.get());
  // The kernel's acknowledgement and its trigger_scan notification are read
  // by later service calls.
  if (nl_send_auto_complete(events->sock, msg.get()) <= 0) {
    NETLIB_LOG(kLogError, 0, "Failed to send a SCAN_TRIGGER message");
    return false;
  }
  NETLIB_LOG(kLogDebug, 0, "Scan was triggered. Waiting ack");
  return true;
}

bool netlib_libscan_service(void* ctx, const std::string& /*ifname*/, scan_status& status) {
  if (!check(ctx)) {
    return false;
  }
  // Events read here run event_handler, which may end the scan.
  if (!netlib_libevents_wireless_service(ctx)) {
    return false;
  }
  const scan_state* state = state_of(ctx);
  status.finished = state->scan_finished != 0;
  status.aborted = state->scan_aborted != 0;
  return true;
}

}  // namespace qira::network
