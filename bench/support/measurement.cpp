#include "support/measurement.h"

#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>

#include "support/kernel_boundary.h"

namespace qira::bench {

Measurement::Measurement() : allocations_(allocations()), kernel_calls_(kernel_calls()) {
  CALLGRIND_ZERO_STATS;
}

void Measurement::finish(benchmark::State& state, const std::string& row,
                         std::int64_t operations_per_iteration) const {
  const AllocationCount now = allocations();
  const std::uint64_t calls = now.calls - allocations_.calls;
  const std::uint64_t bytes = now.bytes - allocations_.bytes;
  const std::uint64_t kernel = kernel_calls() - kernel_calls_;
  state.counters["allocs"] =
      benchmark::Counter(static_cast<double>(calls), benchmark::Counter::kAvgIterations);
  state.counters["alloc_bytes"] =
      benchmark::Counter(static_cast<double>(bytes), benchmark::Counter::kAvgIterations);
  state.counters["kernel_calls"] =
      benchmark::Counter(static_cast<double>(kernel), benchmark::Counter::kAvgIterations);
  const std::string label =
      "qira row=" + row +
      " operations=" + std::to_string(state.iterations() * operations_per_iteration) +
      " allocs=" + std::to_string(calls) + " alloc_bytes=" + std::to_string(bytes) +
      " kernel_calls=" + std::to_string(kernel);
  CALLGRIND_DUMP_STATS_AT(label.c_str());
}

void fixed_iterations(benchmark::internal::Benchmark* benchmark) {
  const char* text = std::getenv("QIRA_BENCH_ITERATIONS");
  if (text == nullptr) {
    return;
  }
  char* end = nullptr;
  const long long iterations = std::strtoll(text, &end, 10);
  if (end == text || *end != '\0' || iterations <= 0) {
    std::fprintf(stderr, "bench: QIRA_BENCH_ITERATIONS must be a positive count, not \"%s\"\n",
                 text);
    std::exit(2);
  }
  benchmark->Iterations(iterations);
}

}  // namespace qira::bench
