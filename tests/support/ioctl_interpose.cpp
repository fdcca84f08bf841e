// The process's ioctl(): this library comes before libc in the symbol search
// order of every test binary, so the module's (and the host's) ioctl calls
// arrive here. Wireless-extension requests go to the active simulated driver;
// everything else, and everything while no driver is active, goes to libc.
#include <dlfcn.h>
#include <linux/wireless.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdarg>

#include "support/wext_sim.h"

namespace {

using IoctlFunction = int (*)(int, unsigned long, ...);

// Where a 32-bit target is built with a 64-bit time_t (_TIME_BITS=64),
// <sys/ioctl.h> gives ioctl the symbol name __ioctl_time64: the definition
// below then takes that name too, and libc's own is looked up by it.
#if defined(__USE_TIME_BITS64) && __TIMESIZE == 32
constexpr char kLibcIoctl[] = "__ioctl_time64";
#else
constexpr char kLibcIoctl[] = "ioctl";
#endif

IoctlFunction libc_ioctl() {
  static const IoctlFunction next = reinterpret_cast<IoctlFunction>(dlsym(RTLD_NEXT, kLibcIoctl));
  return next;
}

}  // namespace

// Declared exactly as <sys/ioctl.h> declares it. The third argument is one
// word (a pointer or an integer) for every request; it is passed on as is.
extern "C" int ioctl(int fd, unsigned long request, ...) __THROW {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  if (request >= SIOCIWFIRST && request <= SIOCIWLAST) {
    if (qira::test::SimulatedWext* driver = qira::test::SimulatedWext::active()) {
      return driver->answer(fd, request, static_cast<iwreq*>(argument));
    }
  }
  const IoctlFunction next = libc_ioctl();
  if (next == nullptr) {
    errno = ENOSYS;
    return -1;
  }
  return next(fd, request, argument);
}
