// Control client round trips against the simulated wpa_supplicant (a real
// Unix datagram server on its own thread, in the sandbox's /var/run): a bare
// request and reply, and a request whose reply comes after an event that the
// client parses and dispatches first. Allocations are counted on the
// client's thread only.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "qira/network/event_type.h"
#include "qira/network/wpa_client.h"
#include "support/alloc_counter.h"
#include "support/bench_checks.h"
#include "support/measurement.h"
#include "support/wpa_supplicant_sim.h"

namespace qira::bench {
namespace {

using namespace qira::network;
using qira::test::WpaSupplicantSim;

constexpr const char* kInterface = "wlan0";
constexpr unsigned long long kTimeoutMs = 1000;
constexpr const char kConnected[] =
    "<3>CTRL-EVENT-CONNECTED - Connection to 00:11:22:33:44:55 completed [id=0 id_str=]";
constexpr const char kStatus[] =
    "bssid=00:11:22:33:44:55\nfreq=2437\nssid=camera-net\nid=0\nmode=station\n"
    "pairwise_cipher=CCMP\ngroup_cipher=CCMP\nkey_mgmt=WPA2-PSK\nwpa_state=COMPLETED\n"
    "ip_address=192.168.1.20\naddress=02:11:22:aa:bb:cc\n";

struct EventCount {
  std::uint64_t connected = 0;
  std::uint64_t other = 0;
  static void callback(event_type type, const qira::variant::Variant& /*payload*/, void* user) {
    auto* count = static_cast<EventCount*>(user);
    if (type == connected_to_ap) {
      ++count->connected;
    } else {
      ++count->other;
    }
  }
};

void ping_benchmark(benchmark::State& state) {
  WpaSupplicantSim daemon(kInterface);
  WpaClient client;
  const LogWatch log;
  if (!client.Init(kInterface)) {
    fail(state, "the client does not reach the simulated wpa_supplicant");
    return;
  }
  std::string reply;
  const Measurement measurement;
  for (auto _ : state) {
    bool answered = false;
    {
      const CountedRegion counted;
      answered = client.Request("PING", reply, kTimeoutMs);
    }
    if (!answered || reply != "PONG\n") {
      fail(state, "PING was answered with \"" + reply + "\"");
      return;
    }
  }
  client.Close();
  if (log.check(state)) {
    state.SetItemsProcessed(state.iterations());
    measurement.finish(state, "wpa_client/ping");
  }
}

void event_then_reply_benchmark(benchmark::State& state) {
  WpaSupplicantSim daemon(kInterface);
  WpaClient client;
  const LogWatch log;
  EventCount events;
  if (!client.Init(kInterface) || !client.Subscribe(EventCount::callback, &events)) {
    fail(state, "the client does not attach to the simulated wpa_supplicant");
    return;
  }
  WpaSupplicantSim::Answer answer;
  answer.events_before = {kConnected};
  answer.reply = kStatus;
  std::string reply;
  const Measurement measurement;
  for (auto _ : state) {
    // The daemon's script for this request (its own work, not counted).
    daemon.script("STATUS", answer);
    bool answered = false;
    {
      const CountedRegion counted;
      answered = client.Request("STATUS", reply, kTimeoutMs);
    }
    if (!answered || reply != kStatus) {
      fail(state, "STATUS was answered with \"" + reply + "\"");
      return;
    }
  }
  client.Close();
  if (!log.check(state)) {
    return;
  }
  if (events.connected != static_cast<std::uint64_t>(state.iterations()) || events.other != 0) {
    fail(state, std::to_string(events.connected) + " connected events (and " +
                    std::to_string(events.other) + " others) for " +
                    std::to_string(state.iterations()) + " requests");
    return;
  }
  state.SetItemsProcessed(state.iterations());
  measurement.finish(state, "wpa_client/event_then_reply");
}

BENCHMARK(ping_benchmark)->Apply(fixed_iterations);
BENCHMARK(event_then_reply_benchmark)->Apply(fixed_iterations);

}  // namespace
}  // namespace qira::bench
