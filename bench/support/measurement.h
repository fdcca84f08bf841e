// The figures of one benchmark's measured loop, for the table of Google
// Benchmark and for the instruction counts of scripts/bench.sh.
//
// A benchmark creates a Measurement just before its loop and finishes it
// just after. finish() sets the counters "allocs", "alloc_bytes" and
// "kernel_calls" (per iteration) and, when the program runs under callgrind,
// closes one callgrind dump named after the row of the instruction table:
//   qira row=<row> operations=<n> allocs=<calls> alloc_bytes=<bytes> kernel_calls=<calls>
// with the totals of the loop, so that scripts/bench.sh can divide the
// instructions collected in the counted regions by the operations made.
//
// QIRA_BENCH_ITERATIONS=<n> in the environment makes every benchmark
// registered with ->Apply(fixed_iterations) run exactly n iterations, once:
// callgrind runs a program about fifty times slower, and two runs of known
// lengths let the script take away whatever a run does only once.
#ifndef QIRA_BENCH_SUPPORT_MEASUREMENT_H
#define QIRA_BENCH_SUPPORT_MEASUREMENT_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "support/alloc_counter.h"

namespace qira::bench {

class Measurement {
 public:
  // Takes the totals so far, and clears what callgrind collected before.
  Measurement();
  // `operations_per_iteration`: what one iteration does, in the units of
  // the table's row (one scan of 150 BSSes is 150 operations of the row
  // "scan/bss:150", per BSS). Call it once, after the loop, only when the
  // loop ran to its end without a failure.
  void finish(benchmark::State& state, const std::string& row,
              std::int64_t operations_per_iteration = 1) const;

 private:
  AllocationCount allocations_;
  std::uint64_t kernel_calls_;
};

// For ->Apply(): a fixed number of iterations from QIRA_BENCH_ITERATIONS.
void fixed_iterations(benchmark::internal::Benchmark* benchmark);

}  // namespace qira::bench

#endif  // QIRA_BENCH_SUPPORT_MEASUREMENT_H
