// The process's socket calls, ioctl, select and poll as the benchmark
// programs see them: qira_bench_support comes first in their symbol search
// order, so each call arrives here and goes on to the next definition (the
// simulated kernels' and driver's interposers of tests/support, else libc)
// outside the counted region. What happens below that call is the kernel's
// work, the simulations' buffers and bookkeeping included.
#include "support/kernel_boundary.h"

#include <dlfcn.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>

#include "support/alloc_counter.h"
#include "support/next_ioctl.h"

namespace qira::bench {
namespace {

std::atomic<std::uint64_t> counted_kernel_calls{0};

template <typename Function>
Function next_definition(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

std::uint64_t kernel_calls() {
  return counted_kernel_calls.load();
}

void note_kernel_call() {
  counted_kernel_calls.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace qira::bench

// Passes one call on to the next definition of `name`, outside the counted
// region; ENOSYS when there is none.
#define QIRA_KERNEL_CALL(type, name, ...)                             \
  const qira::bench::UncountedRegion kernel_work;                     \
  if (kernel_work.paused()) {                                         \
    qira::bench::note_kernel_call();                                  \
  }                                                                   \
  static const auto next = qira::bench::next_definition<type>(#name); \
  if (next == nullptr) {                                              \
    errno = ENOSYS;                                                   \
    return -1;                                                        \
  }                                                                   \
  return next(__VA_ARGS__)

// Declared exactly as glibc's headers declare them.
extern "C" {

int socket(int domain, int type, int protocol) __THROW {
  QIRA_KERNEL_CALL(int (*)(int, int, int), socket, domain, type, protocol);
}

int bind(int fd, const sockaddr* address, socklen_t length) __THROW {
  QIRA_KERNEL_CALL(int (*)(int, const sockaddr*, socklen_t), bind, fd, address, length);
}

int connect(int fd, const sockaddr* address, socklen_t length) {
  QIRA_KERNEL_CALL(int (*)(int, const sockaddr*, socklen_t), connect, fd, address, length);
}

int getsockname(int fd, sockaddr* address, socklen_t* length) __THROW {
  QIRA_KERNEL_CALL(int (*)(int, sockaddr*, socklen_t*), getsockname, fd, address, length);
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t length) __THROW {
  QIRA_KERNEL_CALL(int (*)(int, int, int, const void*, socklen_t), setsockopt, fd, level, name,
                   value, length);
}

int getsockopt(int fd, int level, int name, void* value, socklen_t* length) __THROW {
  QIRA_KERNEL_CALL(int (*)(int, int, int, void*, socklen_t*), getsockopt, fd, level, name, value,
                   length);
}

ssize_t send(int fd, const void* buffer, size_t length, int flags) {
  QIRA_KERNEL_CALL(ssize_t(*)(int, const void*, size_t, int), send, fd, buffer, length, flags);
}

ssize_t sendto(int fd, const void* buffer, size_t length, int flags, const sockaddr* address,
               socklen_t address_length) {
  QIRA_KERNEL_CALL(ssize_t(*)(int, const void*, size_t, int, const sockaddr*, socklen_t), sendto,
                   fd, buffer, length, flags, address, address_length);
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  QIRA_KERNEL_CALL(ssize_t(*)(int, const msghdr*, int), sendmsg, fd, message, flags);
}

ssize_t recv(int fd, void* buffer, size_t length, int flags) {
  QIRA_KERNEL_CALL(ssize_t(*)(int, void*, size_t, int), recv, fd, buffer, length, flags);
}

ssize_t recvfrom(int fd, void* buffer, size_t length, int flags, sockaddr* address,
                 socklen_t* address_length) {
  QIRA_KERNEL_CALL(ssize_t(*)(int, void*, size_t, int, sockaddr*, socklen_t*), recvfrom, fd, buffer,
                   length, flags, address, address_length);
}

ssize_t recvmsg(int fd, msghdr* message, int flags) {
  QIRA_KERNEL_CALL(ssize_t(*)(int, msghdr*, int), recvmsg, fd, message, flags);
}

int close(int fd) {
  QIRA_KERNEL_CALL(int (*)(int), close, fd);
}

int select(int count, fd_set* read_set, fd_set* write_set, fd_set* error_set, timeval* timeout) {
  QIRA_KERNEL_CALL(int (*)(int, fd_set*, fd_set*, fd_set*, timeval*), select, count, read_set,
                   write_set, error_set, timeout);
}

int poll(pollfd* fds, nfds_t count, int timeout) {
  QIRA_KERNEL_CALL(int (*)(pollfd*, nfds_t, int), poll, fds, count, timeout);
}

// The third argument is one word for every request and is passed on as is.
int ioctl(int fd, unsigned long request, ...) __THROW {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  const qira::bench::UncountedRegion kernel_work;
  if (kernel_work.paused()) {
    qira::bench::note_kernel_call();
  }
  return qira::test::call_next_ioctl(fd, request, argument);
}

}  // extern "C"
