// The system calls of a benchmark program, as the kernel's boundary.
//
// On the camera, what lies below a socket call or an ioctl is the kernel's
// work and costs the module nothing in user space; in the benchmarks the
// simulated kernels and driver of tests/support do that work inside the
// process. kernel_boundary.cpp interposes those calls in front of the
// simulations, so that everything below them is left out of the measured
// region (allocations and instructions alike), and counts the calls made
// inside a counted region.
#ifndef QIRA_BENCH_SUPPORT_KERNEL_BOUNDARY_H
#define QIRA_BENCH_SUPPORT_KERNEL_BOUNDARY_H

#include <cstdint>

namespace qira::bench {

// System calls made through the interposed entry points (socket calls,
// ioctl, select, poll) by the counted thread inside counted regions so far.
std::uint64_t kernel_calls();
// Counts one such call (the interposed entry points call it for the calls
// they take out of a counted region).
void note_kernel_call();

}  // namespace qira::bench

#endif  // QIRA_BENCH_SUPPORT_KERNEL_BOUNDARY_H
