// main() of every benchmark program: the sandbox comes first, as for the
// unit tests, so that the module's paths (/var/run, /tmp, /etc) are those of
// a private root; then Google Benchmark runs, and a benchmark that failed
// makes the program fail.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "support/bench_checks.h"
#include "support/sandbox.h"

int main(int argc, char** argv) {
  qira::test::enter_sandbox();
  qira::bench::install_log_counter();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  const int failed = qira::bench::failure_count();
  if (failed != 0) {
    std::fprintf(stderr, "bench: %d benchmark(s) failed\n", failed);
    return 1;
  }
  return 0;
}
