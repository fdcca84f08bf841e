// The ioctl() that comes after an interposer's own in the process's symbol
// search order, for the interposers of the test support (the simulated
// driver) and of the benchmarks (the allocation counter's boundary).
#ifndef QIRA_TESTS_SUPPORT_NEXT_IOCTL_H
#define QIRA_TESTS_SUPPORT_NEXT_IOCTL_H

#include <dlfcn.h>
#include <sys/ioctl.h>

#include <cerrno>

namespace qira::test {

using IoctlFunction = int (*)(int, unsigned long, ...);

// Where a 32-bit target is built with a 64-bit time_t (_TIME_BITS=64),
// <sys/ioctl.h> gives ioctl the symbol name __ioctl_time64: an interposer's
// definition then takes that name too, and the next one is looked up by it.
#if defined(__USE_TIME_BITS64) && __TIMESIZE == 32
inline constexpr char kIoctlSymbol[] = "__ioctl_time64";
#else
inline constexpr char kIoctlSymbol[] = "ioctl";
#endif

// Passes one request on to the next definition; ENOSYS when there is none.
// The third argument is one word (a pointer or an integer) for every
// request and goes on as it came. Internal linkage on purpose: RTLD_NEXT
// means "after the object that calls dlsym", so each interposing library
// needs its own copy of this function and of the pointer it keeps (an
// inline function's static would be one object shared by all of them).
static int call_next_ioctl(int fd, unsigned long request, void* argument) {
  static const IoctlFunction next = reinterpret_cast<IoctlFunction>(dlsym(RTLD_NEXT, kIoctlSymbol));
  if (next == nullptr) {
    errno = ENOSYS;
    return -1;
  }
  return next(fd, request, argument);
}

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_NEXT_IOCTL_H
