// The process's ioctl() as the benchmark programs see it: qira_bench_support
// comes first in their symbol search order, so every ioctl arrives here and
// goes on to the next definition (the simulated driver's interposer of
// tests/support, else libc). What happens below that call is the kernel's
// work (the simulated driver's buffers included) and is not counted among
// the module's allocations.
#include <sys/ioctl.h>

#include <cstdarg>

#include "support/alloc_counter.h"
#include "support/next_ioctl.h"

// Declared exactly as <sys/ioctl.h> declares it; the third argument is one
// word for every request and is passed on as is.
extern "C" int ioctl(int fd, unsigned long request, ...) __THROW {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  const qira::bench::UncountedRegion kernel_work;
  return qira::test::call_next_ioctl(fd, request, argument);
}
