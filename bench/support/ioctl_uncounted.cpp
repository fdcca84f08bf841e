// The process's ioctl() as the benchmark programs see it: qira_bench_support
// comes first in their symbol search order, so every ioctl arrives here and
// goes on to the next definition (the simulated driver's interposer of
// tests/support, else libc). What happens below that call is the kernel's
// work (the simulated driver's buffers included) and is not counted among
// the module's allocations.
#include <dlfcn.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdarg>

#include "support/alloc_counter.h"

namespace {

using IoctlFunction = int (*)(int, unsigned long, ...);

// Where a 32-bit target is built with a 64-bit time_t, <sys/ioctl.h> gives
// ioctl the symbol name __ioctl_time64, and so to the definition below: the
// next one is looked up by that name too.
#if defined(__USE_TIME_BITS64) && __TIMESIZE == 32
constexpr char kIoctlSymbol[] = "__ioctl_time64";
#else
constexpr char kIoctlSymbol[] = "ioctl";
#endif

IoctlFunction next_ioctl() {
  static const IoctlFunction next = reinterpret_cast<IoctlFunction>(dlsym(RTLD_NEXT, kIoctlSymbol));
  return next;
}

}  // namespace

// Declared exactly as <sys/ioctl.h> declares it; the third argument is one
// word for every request and is passed on as is.
extern "C" int ioctl(int fd, unsigned long request, ...) __THROW {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  const IoctlFunction next = next_ioctl();
  if (next == nullptr) {
    errno = ENOSYS;
    return -1;
  }
  const qira::bench::UncountedRegion kernel_work;
  return next(fd, request, argument);
}
