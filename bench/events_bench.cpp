// The event path: one notification queued by the simulated nl80211 kernel,
// then one netlib_libevents_wireless_service call that reads, decodes and
// dispatches it to a subscriber; notifications per second, and the heap
// allocations the service call makes for each one.
#include <benchmark/benchmark.h>
#include <linux/nl80211.h>

#include <cstdint>
#include <string>
#include <vector>

#include "notifications.h"
#include "qira/host/loader.h"
#include "qira/network/event_type.h"
#include "qira/network/netlib_events.h"
#include "qira/variant/variant.h"
#include "support/alloc_counter.h"
#include "support/bench_checks.h"
#include "support/measurement.h"
#include "support/nl80211_sim.h"

namespace qira::bench {
namespace {

using namespace qira::network;
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

// The event kind the module reports for each measured command.
event_type type_of(std::uint8_t command) {
  switch (command) {
    case NL80211_CMD_NEW_SCAN_RESULTS:
      return new_scan_results;
    case NL80211_CMD_CONNECT:
      return connect;
    case NL80211_CMD_REG_CHANGE:
      return reg_change;
    default:
      return deauthenticate;
  }
}

void service_benchmark(benchmark::State& state, std::uint8_t command) {
  SimulatedNl80211 kernel;
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
  subscriber.expected = type_of(command);
  unsigned int id = 0;
  // The first service joins the multicast groups.
  if (!netlib_libevents_wireless_subscribe(ctx, CountingSubscriber::callback, id, &subscriber) ||
      !netlib_libevents_wireless_service(ctx)) {
    fail(state, "the event module does not start");
    return;
  }
  const int fd = listening_socket(kernel);
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

  const Measurement measurement;
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
      return;
    }
  }
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
  measurement.finish(state, std::string("events/") + notification.name);
}

BENCHMARK_CAPTURE(service_benchmark, new_scan_results,
                  static_cast<std::uint8_t>(NL80211_CMD_NEW_SCAN_RESULTS))
    ->Apply(fixed_iterations);
BENCHMARK_CAPTURE(service_benchmark, connect_with_payload,
                  static_cast<std::uint8_t>(NL80211_CMD_CONNECT))
    ->Apply(fixed_iterations);
BENCHMARK_CAPTURE(service_benchmark, reg_change, static_cast<std::uint8_t>(NL80211_CMD_REG_CHANGE))
    ->Apply(fixed_iterations);
BENCHMARK_CAPTURE(service_benchmark, deauthenticate_frame,
                  static_cast<std::uint8_t>(NL80211_CMD_DEAUTHENTICATE))
    ->Apply(fixed_iterations);

}  // namespace
}  // namespace qira::bench
