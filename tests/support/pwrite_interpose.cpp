// The process's pwrite() and pwrite64(): offered to the active
// PwriteInterposer first, then passed to libc.
#include "support/pwrite_interpose.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

namespace {

using PwriteFunction = ssize_t (*)(int, const void*, size_t, off_t);
// A separate type: where off_t is 32 bits (armhf), pwrite64's offset is a
// 64-bit argument passed in other registers.
using Pwrite64Function = ssize_t (*)(int, const void*, size_t, off64_t);

std::mutex& active_mutex() {
  static std::mutex mutex;
  return mutex;
}

qira::test::PwriteInterposer*& active() {
  static qira::test::PwriteInterposer* interposer = nullptr;
  return interposer;
}

template <typename Function>
Function libc_function(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// The active interposer's answer to a call, if it gives one.
std::optional<ssize_t> offer(int fd, const void* buffer, size_t count, off_t offset) {
  qira::test::PwriteInterposer* interposer = nullptr;
  {
    std::lock_guard<std::mutex> lock(active_mutex());
    interposer = active();
  }
  if (interposer == nullptr) {
    return std::nullopt;
  }
  return interposer->on_pwrite(fd, buffer, count, offset);
}

template <typename Function, typename Offset>
ssize_t interposed(const char* libc_name, int fd, const void* buffer, size_t count, Offset offset) {
  if (std::optional<ssize_t> answer = offer(fd, buffer, count, static_cast<off_t>(offset))) {
    return *answer;
  }
  const Function next = libc_function<Function>(libc_name);
  if (next == nullptr) {
    errno = ENOSYS;
    return -1;
  }
  return next(fd, buffer, count, offset);
}

}  // namespace

namespace qira::test {

ssize_t libc_pwrite(int fd, const void* buffer, size_t count, off_t offset) {
  static const PwriteFunction next = libc_function<PwriteFunction>("pwrite");
  if (next == nullptr) {
    errno = ENOSYS;
    return -1;
  }
  return next(fd, buffer, count, offset);
}

PwriteInterposer::PwriteInterposer() {
  std::lock_guard<std::mutex> lock(active_mutex());
  previous_ = active();
  active() = this;
}

PwriteInterposer::~PwriteInterposer() {
  std::lock_guard<std::mutex> lock(active_mutex());
  active() = previous_;
}

}  // namespace qira::test

// Declared exactly as <unistd.h> declares them. An interposer sees pwrite64's
// offset as an off_t: the tests write far below 2 GiB.
extern "C" ssize_t pwrite(int fd, const void* buffer, size_t count, off_t offset) {
  return interposed<PwriteFunction>("pwrite", fd, buffer, count, offset);
}

extern "C" ssize_t pwrite64(int fd, const void* buffer, size_t count, off64_t offset) {
  return interposed<Pwrite64Function>("pwrite64", fd, buffer, count, offset);
}
