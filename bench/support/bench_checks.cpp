#include "support/bench_checks.h"

#include <atomic>
#include <mutex>

#include "qira/host/seams.h"

namespace qira::bench {
namespace {

// syslog's LOG_WARNING: this level and the ones below it are problems.
constexpr int kWarningLevel = 4;

std::atomic<int> failures{0};
std::atomic<std::uint64_t> line_count{0};
std::atomic<std::uint64_t> problem_count{0};

std::mutex& first_problem_mutex() {
  static std::mutex mutex;
  return mutex;
}

std::string& first_problem() {
  static std::string text;
  return text;
}

}  // namespace

void fail(benchmark::State& state, const std::string& what) {
  ++failures;
  state.SkipWithError(what.c_str());
}

int failure_count() {
  return failures.load();
}

void install_log_counter() {
  qira::host::set_log_sink([](const qira::host::LogRecord& record) {
    line_count.fetch_add(1, std::memory_order_relaxed);
    if (record.level <= kWarningLevel) {
      problem_count.fetch_add(1, std::memory_order_relaxed);
      std::lock_guard<std::mutex> lock(first_problem_mutex());
      if (first_problem().empty()) {
        first_problem() = record.function + "(): " + record.message;
      }
    }
  });
}

LogTotals log_totals() {
  LogTotals totals;
  totals.lines = line_count.load();
  totals.problems = problem_count.load();
  return totals;
}

LogWatch::LogWatch() : start_(log_totals()) {}

bool LogWatch::check(benchmark::State& state) const {
  const LogTotals now = log_totals();
  if (now.problems == start_.problems) {
    return true;
  }
  std::string first;
  {
    std::lock_guard<std::mutex> lock(first_problem_mutex());
    first = first_problem();
  }
  fail(state, std::to_string(now.problems - start_.problems) +
                  " warning or error line(s) logged; the first in this program: " + first);
  return false;
}

std::uint64_t LogWatch::lines() const {
  return log_totals().lines - start_.lines;
}

}  // namespace qira::bench
