// Heap allocations, and under callgrind instructions, inside a measured
// region.
//
// qira_bench_support comes before libc in every benchmark program's symbol
// search order, so the malloc, calloc and realloc calls of the module, of
// libnl, of the reference host and of libstdc++'s operator new all arrive at
// its definitions. They count the calls made by the thread that holds a
// CountedRegion and pass every call on to libc's allocator. The simulated
// peers' own threads (the simulated wpa_supplicant) are never counted.
//
// Run under valgrind's callgrind with --collect-atstart=no, the same regions
// switch the collection of the thread's instructions on and off (callgrind
// keeps that switch per thread), so that what callgrind counts is exactly
// the work of the counted regions, minus their uncounted parts (the kernel's
// side of every system call, see kernel_boundary.cpp). Outside valgrind the
// switch is a few no-op instructions.
#ifndef QIRA_BENCH_SUPPORT_ALLOC_COUNTER_H
#define QIRA_BENCH_SUPPORT_ALLOC_COUNTER_H

#include <valgrind/callgrind.h>

#include <cstddef>
#include <cstdint>

namespace qira::bench {

namespace detail {
// Whether this thread is being counted. The flag lives in the program's own
// thread-local storage (initial-exec: an offset from the thread pointer), so
// reading it costs one load and never allocates, which reaching a shared
// library's thread-local storage could. Inline, so that the switches below
// add as few instructions as possible to what they measure.
__attribute__((tls_model("initial-exec"))) inline thread_local bool counted_here = false;
}  // namespace detail

struct AllocationCount {
  std::uint64_t calls = 0;  // malloc, calloc and realloc calls
  std::uint64_t bytes = 0;  // bytes asked for by those calls
};

// Totals counted so far in this process.
AllocationCount allocations();
// Whether the calling thread's allocations are being counted now.
inline bool counting() {
  return detail::counted_here;
}

// Adds one call of `bytes` to the totals when the calling thread is counted
// (used by the allocation functions).
void note_allocation(std::size_t bytes);

// Counts the calling thread's allocations (and collects its instructions)
// while alive. Regions do not nest.
class CountedRegion {
 public:
  CountedRegion();
  ~CountedRegion();
  CountedRegion(const CountedRegion&) = delete;
  CountedRegion& operator=(const CountedRegion&) = delete;
};

// Stops counting and collecting while alive (the simulated kernel's work
// inside a counted module call), and resumes on destruction if a region was
// counting. Nested inside another UncountedRegion it does nothing.
class UncountedRegion {
 public:
  // Each thread's regions touch only its own flag: another thread's
  // uncounted work never pauses or resumes the counted one.
  UncountedRegion() : resumed_(detail::counted_here) {
    if (resumed_) {
      CALLGRIND_TOGGLE_COLLECT;
      detail::counted_here = false;
    }
  }
  ~UncountedRegion() {
    if (resumed_) {
      detail::counted_here = true;
      CALLGRIND_TOGGLE_COLLECT;
    }
  }
  UncountedRegion(const UncountedRegion&) = delete;
  UncountedRegion& operator=(const UncountedRegion&) = delete;

  // Whether this region paused a counting one.
  bool paused() const { return resumed_; }

 private:
  bool resumed_;  // a region was counting on entry
};

}  // namespace qira::bench

#endif  // QIRA_BENCH_SUPPORT_ALLOC_COUNTER_H
