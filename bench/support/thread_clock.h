// CPU time of the calling thread. The benchmark machine is shared: a wall
// clock around a few microseconds of work also counts the time the thread
// waited for a processor, this clock does not.
#ifndef QIRA_BENCH_SUPPORT_THREAD_CLOCK_H
#define QIRA_BENCH_SUPPORT_THREAD_CLOCK_H

#include <time.h>

namespace qira::bench {

inline double thread_cpu_seconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

}  // namespace qira::bench

#endif  // QIRA_BENCH_SUPPORT_THREAD_CLOCK_H
