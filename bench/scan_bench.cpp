// The scan path end to end through the simulated scanning kernel, for dumps
// of 1, 10, 100 and 150 BSS entries: trigger, the kernel's acknowledgement
// and notifications, the dump read and decoded into the scan list, then
// netlib_libscan_results (de-duplication, ranking, conversion to ap_info).
// The simulation's own share of the processor time (answering the trigger,
// building the dump) is printed beside it, and its allocations are not
// counted.
#include <benchmark/benchmark.h>
#include <net/if.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "qira/host/loader.h"
#include "qira/network/ap_info.h"
#include "qira/network/netlib_scan.h"
#include "scan_table.h"
#include "support/accounted_kernel.h"
#include "support/alloc_counter.h"
#include "support/bench_checks.h"
#include "support/measurement.h"
#include "support/scan_kernel.h"

namespace qira::bench {
namespace {

using namespace qira::network;
using qira::test::scan::ScanKernel;

// The interface scanned: the loopback interface exists on every machine.
constexpr const char* kInterface = "lo";
// Service calls a scan may take before it counts as stuck.
constexpr int kServiceLimit = 20;

// One whole scan; the number of records, or -1 when a step fails.
long scan_once(void* ctx, const std::string& ifname, std::vector<ap_info>& out) {
  bool in_progress = true;
  if (!netlib_libscan_trigger(ctx, ifname, nullptr, 0, in_progress) || in_progress) {
    return -1;
  }
  scan_status status{};
  for (int call = 0; call < kServiceLimit && !status.finished; ++call) {
    if (!netlib_libscan_service(ctx, ifname, status)) {
      return -1;
    }
  }
  if (!status.finished || status.aborted) {
    return -1;
  }
  if (!netlib_libscan_results(ctx, ifname, out, false)) {
    return -1;
  }
  return static_cast<long>(out.size());
}

void scan_benchmark(benchmark::State& state) {
  const int entries = static_cast<int>(state.range(0));
  AccountedKernel<ScanKernel> kernel;
  kernel.set_bss_table(generated_table(entries));
  kernel.end_scans_at_once();
  qira::host::WirelessModule module;
  std::string error;
  if (!module.open("", &error, qira::host::kScanSubsystem)) {
    fail(state, "the module does not load: " + error);
    return;
  }
  void* ctx = module.context();
  const std::string ifname = kInterface;
  const LogWatch log;

  // One scan outside the measurement: the event module joins its groups and
  // the scan module subscribes; its record count is what every scan gives.
  std::vector<ap_info> first;
  const long expected = scan_once(ctx, ifname, first);
  // Pairs of radios of one network merge; a full list (100 nodes) keeps
  // only the strongest further entries.
  const long merged = (std::min(entries, 100) + 1) / 2;
  if (expected <= 0 || (entries <= 100 && expected != merged)) {
    fail(state, "the first scan gave " + std::to_string(expected) + " records, not " +
                    std::to_string(merged));
    return;
  }

  const std::uint64_t lines_before = log.lines();
  const double simulation_before = kernel.simulation_seconds();
  const Measurement measurement;
  for (auto _ : state) {
    std::vector<ap_info> out;
    long records = 0;
    {
      const CountedRegion counted;
      records = scan_once(ctx, ifname, out);
    }
    if (records != expected) {
      fail(state,
           "a scan gave " + std::to_string(records) + " records, not " + std::to_string(expected));
      return;
    }
  }
  const double simulation_us = (kernel.simulation_seconds() - simulation_before) * 1e6;
  if (!log.check(state)) {
    return;
  }
  state.SetItemsProcessed(state.iterations() * entries);
  state.counters["aps"] = static_cast<double>(expected);
  state.counters["sim_us"] = benchmark::Counter(simulation_us, benchmark::Counter::kAvgIterations);
  // The module's debug lines, each formatted by the host's logger.
  state.counters["log_lines"] = benchmark::Counter(static_cast<double>(log.lines() - lines_before),
                                                   benchmark::Counter::kAvgIterations);
  // Instructions and allocations per BSS of the dump.
  measurement.finish(state, "scan/bss:" + std::to_string(entries), entries);
}

BENCHMARK(scan_benchmark)->Apply(table_sizes)->Apply(fixed_iterations);

}  // namespace
}  // namespace qira::bench
