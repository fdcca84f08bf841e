// The process's ioctl(): this library comes before libc in the symbol search
// order of every test binary, so the module's (and the host's) ioctl calls
// arrive here. Wireless-extension requests go to the active simulated driver;
// everything else, and everything while no driver is active, goes to libc.
#include <linux/wireless.h>
#include <sys/ioctl.h>

#include <cstdarg>

#include "support/next_ioctl.h"
#include "support/wext_sim.h"

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
  return qira::test::call_next_ioctl(fd, request, argument);
}
