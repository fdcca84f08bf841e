// Per-call cost of each interface query over the simulated wireless-extension
// driver, with the ioctls each call issues and the heap allocations it makes.
// The module is loaded the way the camera's host loads it.
#include <benchmark/benchmark.h>
#include <linux/wireless.h>

#include <cstdint>
#include <string>
#include <vector>

#include "qira/host/loader.h"
#include "qira/network/netlib_iface.h"
#include "support/alloc_counter.h"
#include "support/bench_checks.h"
#include "support/wext_sim.h"

namespace qira::bench {
namespace {

using namespace qira::network;
using qira::test::SimulatedWext;
using qira::test::WextInterfaceModel;

constexpr const char* kInterface = "wlan0";

iw_freq make_freq(std::int32_t mantissa, std::int16_t exponent, std::uint8_t index = 0) {
  iw_freq freq{};
  freq.m = mantissa;
  freq.e = exponent;
  freq.i = index;
  return freq;
}

// How the driver reports its frequency: in Hz, or as a channel number that
// the module must look up in the range table (a second ioctl).
enum class FrequencyReport { kHertz, kChannel };

// A station on channel 6 of a 2.4 GHz network, with the 13 channels of the
// band in its range table.
void describe_station(WextInterfaceModel& model, FrequencyReport report) {
  model.essid = "camera-net";
  model.bssid = {0x02, 0x1a, 0xbc, 0xde, 0xf0, 0x09};
  model.freq = report == FrequencyReport::kHertz ? make_freq(243700000, 1) : make_freq(6, 0);
  model.range_frequencies.clear();
  for (int channel = 1; channel <= 13; ++channel) {
    model.range_frequencies.push_back(
        make_freq(241200000 + (channel - 1) * 500000, 1, static_cast<std::uint8_t>(channel)));
  }
  model.max_quality = 70;
  model.bitrate = 65000000;
  model.txpower = 20;
  model.quality.qual = 52;
  model.quality.level = 0xC4;  // -60 dBm
  model.quality.updated = IW_QUAL_DBM | IW_QUAL_LEVEL_UPDATED;
  model.mode = IW_MODE_INFRA;
}

template <typename Output>
using Query = bool (*)(void*, const std::string&, Output&);

// Runs `query` on the station, checking every answer against `expected`.
template <typename Output>
void query_benchmark(benchmark::State& state, Query<Output> query, Output expected, Output sentinel,
                     FrequencyReport report) {
  SimulatedWext driver;
  describe_station(driver.interface(kInterface), report);
  qira::host::WirelessModule module;
  std::string error;
  if (!module.open("", &error)) {
    fail(state, "the module does not load: " + error);
    return;
  }
  const std::string ifname = kInterface;
  void* ctx = module.context();
  const LogWatch log;

  // One call outside the measurement: the driver's request record reaches
  // its capacity, and the answer is checked once more in full.
  Output first = sentinel;
  if (!query(ctx, ifname, first) || first != expected) {
    fail(state, "the query does not give the expected answer");
    return;
  }
  driver.clear_requests();

  std::uint64_t ioctls = 0;
  const AllocationCount allocations_before = allocations();
  for (auto _ : state) {
    Output output = sentinel;
    bool answered = false;
    {
      const CountedRegion counted;
      answered = query(ctx, ifname, output);
    }
    benchmark::DoNotOptimize(output);
    if (!answered || output != expected) {
      fail(state, "the query does not give the expected answer");
      break;
    }
    ioctls += driver.requests().size();
    driver.clear_requests();
  }
  const AllocationCount allocations_after = allocations();
  if (!log.check(state)) {
    return;
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["ioctls"] =
      benchmark::Counter(static_cast<double>(ioctls), benchmark::Counter::kAvgIterations);
  state.counters["allocs"] =
      benchmark::Counter(static_cast<double>(allocations_after.calls - allocations_before.calls),
                         benchmark::Counter::kAvgIterations);
}

// BENCHMARK_CAPTURE names a plain function: one per output type.
void string_query(benchmark::State& state, Query<std::string> query, const char* expected) {
  query_benchmark<std::string>(state, query, expected, "before", FrequencyReport::kHertz);
}
void int_query(benchmark::State& state, Query<int> query, int expected, FrequencyReport report) {
  query_benchmark<int>(state, query, expected, -1, report);
}
void mode_query(benchmark::State& state, Query<unsigned char> query, unsigned char expected) {
  query_benchmark<unsigned char>(state, query, expected, 0xA5, FrequencyReport::kHertz);
}

constexpr FrequencyReport kHertz = FrequencyReport::kHertz;
constexpr FrequencyReport kChannel = FrequencyReport::kChannel;

BENCHMARK_CAPTURE(string_query, essid, &netlib_iface_iw_get_essid, "camera-net");
BENCHMARK_CAPTURE(string_query, bssid, &netlib_iface_iw_get_bssid, "02:1a:bc:de:f0:09");
BENCHMARK_CAPTURE(int_query, freq_reported_in_hz, &netlib_iface_iw_get_freq, 2437, kHertz);
BENCHMARK_CAPTURE(int_query, freq_reported_as_channel, &netlib_iface_iw_get_freq, 2437, kChannel);
BENCHMARK_CAPTURE(int_query, channel, &netlib_iface_iw_get_channel, 6, kHertz);
BENCHMARK_CAPTURE(int_query, bitrate, &netlib_iface_iw_get_bitrate, 65, kHertz);
BENCHMARK_CAPTURE(int_query, txpower, &netlib_iface_iw_get_txpower, 20, kHertz);
BENCHMARK_CAPTURE(int_query, quality, &netlib_iface_iw_get_quality, 52, kHertz);
BENCHMARK_CAPTURE(int_query, quality_max, &netlib_iface_iw_get_quality_max, 70, kHertz);
BENCHMARK_CAPTURE(int_query, signal_level, &netlib_iface_iw_get_signal_level, -60, kHertz);
BENCHMARK_CAPTURE(int_query, noise_level, &netlib_iface_iw_get_noise_level, -96, kHertz);
BENCHMARK_CAPTURE(mode_query, wireless_mode, &netlib_iface_iw_get_wireless_mode,
                  static_cast<unsigned char>(IW_MODE_INFRA));

}  // namespace
}  // namespace qira::bench
