// The event path: one notification queued by the simulated nl80211 kernel,
// then one netlib_libevents_wireless_service call that reads, decodes and
// dispatches it to a subscriber; notifications per second, and the heap
// allocations the service call makes for each one.
#include <benchmark/benchmark.h>
#include <linux/nl80211.h>
#include <net/if.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "qira/host/loader.h"
#include "qira/network/event_type.h"
#include "qira/network/netlib_events.h"
#include "qira/variant/variant.h"
#include "support/accounted_kernel.h"
#include "support/alloc_counter.h"
#include "support/bench_checks.h"
#include "support/management_frame.h"
#include "support/nl80211_sim.h"

namespace qira::bench {
namespace {

using namespace qira::network;
using qira::test::attr_bytes;
using qira::test::attr_string;
using qira::test::attr_u16;
using qira::test::attr_u32;
using qira::test::attr_u64;
using qira::test::attr_u8;
using qira::test::management_frame;
using qira::test::NlAttribute;
using qira::test::SimulatedNl80211;

// A subscriber that counts what it is given and remembers the last payload's
// event name (outside the measured loop only: copying it allocates).
struct CountingSubscriber {
  event_type expected = unspec;
  std::uint64_t seen = 0;
  std::uint64_t unexpected = 0;
  bool keep_name = false;
  std::string name;

  static void callback(event_type type, const qira::variant::Variant& payload, void* user) {
    auto* subscriber = static_cast<CountingSubscriber*>(user);
    ++subscriber->seen;
    if (type != subscriber->expected) {
      ++subscriber->unexpected;
    }
    if (subscriber->keep_name) {
      subscriber->name = static_cast<const std::string&>(payload["eventName"]);
    }
  }
};

struct Notification {
  std::uint8_t command;
  event_type type;
  const char* name;  // the payload's "eventName"
  std::vector<NlAttribute> attributes;
};

// The notification the kernel sends for each case, on the loopback
// interface (present on every machine, so the payload names it).
Notification notification_of(std::uint8_t command) {
  const std::uint32_t ifindex = if_nametoindex("lo");
  const std::vector<std::uint8_t> station = {0x02, 0x11, 0x22, 0xaa, 0xbb, 0xcc};
  switch (command) {
    case NL80211_CMD_NEW_SCAN_RESULTS:
      return {command,
              new_scan_results,
              "new_scan_results",
              {attr_u32(NL80211_ATTR_WIPHY, 0), attr_u32(NL80211_ATTR_IFINDEX, ifindex),
               attr_u64(NL80211_ATTR_WDEV, 0x1ull)}};
    case NL80211_CMD_CONNECT:
      return {command,
              connect,
              "connect",
              {attr_u32(NL80211_ATTR_WIPHY, 0), attr_u32(NL80211_ATTR_IFINDEX, ifindex),
               attr_u64(NL80211_ATTR_WDEV, 0x1ull), attr_bytes(NL80211_ATTR_MAC, station),
               attr_u16(NL80211_ATTR_STATUS_CODE, 0),
               attr_bytes(NL80211_ATTR_REQ_IE, std::vector<std::uint8_t>(40, 0xdd)),
               attr_bytes(NL80211_ATTR_RESP_IE, std::vector<std::uint8_t>(60, 0xdd))}};
    case NL80211_CMD_REG_CHANGE:
      return {command,
              reg_change,
              "reg_change",
              {attr_u8(NL80211_ATTR_REG_INITIATOR, 1), attr_u8(NL80211_ATTR_REG_TYPE, 0),
               attr_string(NL80211_ATTR_REG_ALPHA2, "DE")}};
    case NL80211_CMD_DEAUTHENTICATE:
    default:
      return {NL80211_CMD_DEAUTHENTICATE,
              deauthenticate,
              "deauthenticate",
              {attr_u32(NL80211_ATTR_WIPHY, 0), attr_u32(NL80211_ATTR_IFINDEX, ifindex),
               attr_bytes(NL80211_ATTR_FRAME, management_frame(0xC0, 26, 24, 3))}};
  }
}

// The event module's socket: the one simulated socket that joined groups.
int module_socket(const SimulatedNl80211& kernel) {
  for (const auto& entry : kernel.sockets()) {
    if (!entry.second.memberships.empty()) {
      return entry.first;
    }
  }
  return -1;
}

void service_benchmark(benchmark::State& state, std::uint8_t command) {
  AccountedKernel<SimulatedNl80211> kernel;
  qira::host::WirelessModule module;
  std::string error;
  if (!module.open("", &error, qira::host::kEventsSubsystem)) {
    fail(state, "the module does not load: " + error);
    return;
  }
  void* ctx = module.context();
  const LogWatch log;
  const Notification notification = notification_of(command);
  CountingSubscriber subscriber;
  subscriber.expected = notification.type;
  unsigned int id = 0;
  // The first service joins the multicast groups.
  if (!netlib_libevents_wireless_subscribe(ctx, CountingSubscriber::callback, id, &subscriber) ||
      !netlib_libevents_wireless_service(ctx)) {
    fail(state, "the event module does not start");
    return;
  }
  const int fd = module_socket(kernel);
  // The datagram as the kernel sends it, built once: the loop measures the
  // module, not the simulation's message building.
  const std::vector<std::uint8_t> datagram = qira::test::genl_message(
      kernel.family("nl80211").id, notification.command, notification.attributes);

  // One notification outside the measurement, its event name checked.
  subscriber.keep_name = true;
  if (fd < 0 || !kernel.send_raw(fd, datagram) || !netlib_libevents_wireless_service(ctx) ||
      subscriber.seen != 1 || subscriber.unexpected != 0 || subscriber.name != notification.name) {
    fail(state,
         "the notification does not reach the subscriber as " + std::string(notification.name));
    return;
  }
  subscriber.keep_name = false;
  subscriber.seen = 0;

  const AllocationCount before = allocations();
  const std::uint64_t dispatches_before = kernel.dispatch_allocations();
  for (auto _ : state) {
    // The kernel's side: one datagram queued on the module's socket.
    kernel.send_raw(fd, datagram);
    bool serviced = false;
    {
      const CountedRegion counted;
      serviced = netlib_libevents_wireless_service(ctx);
    }
    if (!serviced) {
      fail(state, "netlib_libevents_wireless_service failed");
      break;
    }
  }
  const AllocationCount after = allocations();
  // The test harness's socket call dispatcher allocates for each call; a
  // kernel would not.
  const std::uint64_t dispatches = kernel.dispatch_allocations() - dispatches_before;
  if (!log.check(state)) {
    return;
  }
  if (subscriber.seen != static_cast<std::uint64_t>(state.iterations()) ||
      subscriber.unexpected != 0) {
    fail(state, "the subscriber saw " + std::to_string(subscriber.seen) + " events (" +
                    std::to_string(subscriber.unexpected) + " of another kind) for " +
                    std::to_string(state.iterations()) + " notifications");
    return;
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(datagram.size()));
  state.counters["allocs"] =
      benchmark::Counter(static_cast<double>(after.calls - before.calls - dispatches),
                         benchmark::Counter::kAvgIterations);
  state.counters["alloc_bytes"] = benchmark::Counter(
      static_cast<double>(after.bytes - before.bytes - dispatches * sizeof(void*)),
      benchmark::Counter::kAvgIterations);
  state.counters["socket_calls"] =
      benchmark::Counter(static_cast<double>(dispatches), benchmark::Counter::kAvgIterations);
}

BENCHMARK_CAPTURE(service_benchmark, new_scan_results,
                  static_cast<std::uint8_t>(NL80211_CMD_NEW_SCAN_RESULTS));
BENCHMARK_CAPTURE(service_benchmark, connect_with_payload,
                  static_cast<std::uint8_t>(NL80211_CMD_CONNECT));
BENCHMARK_CAPTURE(service_benchmark, reg_change, static_cast<std::uint8_t>(NL80211_CMD_REG_CHANGE));
BENCHMARK_CAPTURE(service_benchmark, deauthenticate_frame,
                  static_cast<std::uint8_t>(NL80211_CMD_DEAUTHENTICATE));

}  // namespace
}  // namespace qira::bench
