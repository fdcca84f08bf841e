// Failure bookkeeping of the benchmark programs. A benchmark whose calls do
// not give the expected answer is marked failed and makes its program exit
// with status 1, so that figures of a broken path are never read as real.
// The module's log lines go to a counting sink instead of stderr and syslog.
#ifndef QIRA_BENCH_SUPPORT_BENCH_CHECKS_H
#define QIRA_BENCH_SUPPORT_BENCH_CHECKS_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

namespace qira::bench {

// Marks the benchmark of `state` as failed with `what` (printed with it);
// the caller leaves its loop.
void fail(benchmark::State& state, const std::string& what);
// Benchmarks failed so far in this process.
int failure_count();

// Replaces the host's log sink with one that only counts lines, and keeps
// the text of the first warning or error line.
void install_log_counter();

struct LogTotals {
  std::uint64_t lines = 0;
  std::uint64_t problems = 0;  // warning and error lines (level 4 and below)
};
LogTotals log_totals();

// Fails the benchmark when a warning or error line was logged between its
// construction and check().
class LogWatch {
 public:
  LogWatch();
  // True when nothing went wrong; otherwise fails `state` and returns false.
  bool check(benchmark::State& state) const;
  // Lines logged since construction, of any level.
  std::uint64_t lines() const;

 private:
  LogTotals start_;
};

}  // namespace qira::bench

#endif  // QIRA_BENCH_SUPPORT_BENCH_CHECKS_H
