// dedup_scanlist alone, on the scan list that a dump of 1, 10, 100 or 150
// BSS entries leaves: the lists are built outside the measurement by the
// module's own dump handler (get_scanlist_cb, with the host's decoder) from
// ready-made messages, and only the de-duplication is timed.
//
// One call takes from a fraction of a microsecond to a few, about what
// pausing and resuming the benchmark's timers costs, so each iteration
// de-duplicates a batch of lists: the time column is per batch, "per_list"
// the processor time of one call, items per second are nodes de-duplicated.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "qira/network/ap_selection.h"
#include "scan_table.h"
#include "support/alloc_counter.h"
#include "support/bench_checks.h"
#include "support/bss_message.h"
#include "support/measurement.h"

namespace qira::bench {
namespace {

using qira::test::MessagePtr;

constexpr int kBatch = 64;
// A dump's list holds at most this many nodes.
constexpr int kListBound = 100;

// Same access points of the generated tables come in pairs.
std::uint16_t expected_after_dedup(std::uint16_t nodes_in) {
  return static_cast<std::uint16_t>((nodes_in + 1) / 2);
}

void dedup_benchmark(benchmark::State& state) {
  const int entries = static_cast<int>(state.range(0));
  std::vector<MessagePtr> messages;
  for (const qira::test::BssAttributes& bss : generated_table(entries)) {
    messages.push_back(qira::test::make_scan_result_message(bss));
  }
  std::vector<scan_list*> lists(kBatch, nullptr);
  std::vector<std::uint16_t> counts(kBatch, 0);
  std::uint64_t nodes_in = 0;
  std::uint64_t nodes_out = 0;
  const Measurement measurement;
  for (auto _ : state) {
    state.PauseTiming();
    for (std::size_t i = 0; i < lists.size(); ++i) {
      for (const MessagePtr& message : messages) {
        get_scanlist_cb(message.get(), &lists[i]);
      }
      counts[i] = lists[i] != nullptr ? lists[i]->count : 0;
    }
    state.ResumeTiming();
    {
      const CountedRegion counted;
      for (scan_list*& list : lists) {
        dedup_scanlist(&list);
      }
    }
    state.PauseTiming();
    bool as_expected = true;
    for (std::size_t i = 0; i < lists.size(); ++i) {
      const std::uint16_t kept = lists[i] != nullptr ? lists[i]->count : 0;
      if (entries <= kListBound &&
          (counts[i] != entries || kept != expected_after_dedup(counts[i]))) {
        as_expected = false;
      }
      nodes_in += counts[i];
      nodes_out += kept;
      free_scanlist(&lists[i]);
    }
    state.ResumeTiming();
    if (!as_expected) {
      fail(state, "a list of " + std::to_string(entries) + " entries was not halved");
      return;
    }
  }
  const double list_count = static_cast<double>(state.iterations()) * kBatch;
  state.SetItemsProcessed(static_cast<std::int64_t>(nodes_in));
  state.counters["per_list"] =
      benchmark::Counter(list_count, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["nodes_in"] = static_cast<double>(nodes_in) / list_count;
  state.counters["nodes_out"] = static_cast<double>(nodes_out) / list_count;
  // Instructions and allocations per list; "allocs" is per batch.
  measurement.finish(state, "dedup/bss:" + std::to_string(entries), kBatch);
}

BENCHMARK(dedup_benchmark)->Apply(table_sizes)->Apply(fixed_iterations);

}  // namespace
}  // namespace qira::bench
