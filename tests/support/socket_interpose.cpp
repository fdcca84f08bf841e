// The process's socket calls, offered to the installed interposers first.
#include "support/socket_interpose.h"

#include <dlfcn.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <vector>

namespace qira::test {

namespace {

std::mutex& registry_mutex() {
  static std::mutex mutex;
  return mutex;
}

std::vector<SocketInterposer*>& registry() {
  static std::vector<SocketInterposer*> interposers;
  return interposers;
}

// Newest first, copied so an interposer may install or remove others (or
// itself) while it answers.
std::vector<SocketInterposer*> installed() {
  std::lock_guard<std::mutex> lock(registry_mutex());
  return std::vector<SocketInterposer*>(registry().rbegin(), registry().rend());
}

template <typename Function>
Function next_symbol(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// Calls libc's `name`; ENOSYS if it cannot be found.
#define QIRA_LIBC_CALL(type, name, ...)                  \
  static const auto function = next_symbol<type>(#name); \
  if (function == nullptr) {                             \
    errno = ENOSYS;                                      \
    return -1;                                           \
  }                                                      \
  return function(__VA_ARGS__)

// Offers a call to every interposer, then to libc.
#define QIRA_INTERPOSE(hook, libc_call, ...)           \
  for (SocketInterposer * interposer : installed()) {  \
    if (auto answer = interposer->hook(__VA_ARGS__)) { \
      return *answer;                                  \
    }                                                  \
  }                                                    \
  return libc_call(__VA_ARGS__)

}  // namespace

SocketInterposer::SocketInterposer() {
  std::lock_guard<std::mutex> lock(registry_mutex());
  registry().push_back(this);
}

SocketInterposer::~SocketInterposer() {
  std::lock_guard<std::mutex> lock(registry_mutex());
  auto& interposers = registry();
  interposers.erase(std::remove(interposers.begin(), interposers.end(), this), interposers.end());
}

namespace libc {
int socket(int domain, int type, int protocol) {
  QIRA_LIBC_CALL(int (*)(int, int, int), socket, domain, type, protocol);
}
int bind(int fd, const sockaddr* address, socklen_t length) {
  QIRA_LIBC_CALL(int (*)(int, const sockaddr*, socklen_t), bind, fd, address, length);
}
int connect(int fd, const sockaddr* address, socklen_t length) {
  QIRA_LIBC_CALL(int (*)(int, const sockaddr*, socklen_t), connect, fd, address, length);
}
int getsockname(int fd, sockaddr* address, socklen_t* length) {
  QIRA_LIBC_CALL(int (*)(int, sockaddr*, socklen_t*), getsockname, fd, address, length);
}
int setsockopt(int fd, int level, int name, const void* value, socklen_t length) {
  QIRA_LIBC_CALL(int (*)(int, int, int, const void*, socklen_t), setsockopt, fd, level, name, value,
                 length);
}
int getsockopt(int fd, int level, int name, void* value, socklen_t* length) {
  QIRA_LIBC_CALL(int (*)(int, int, int, void*, socklen_t*), getsockopt, fd, level, name, value,
                 length);
}
ssize_t send(int fd, const void* buffer, size_t length, int flags) {
  QIRA_LIBC_CALL(ssize_t(*)(int, const void*, size_t, int), send, fd, buffer, length, flags);
}
ssize_t sendto(int fd, const void* buffer, size_t length, int flags, const sockaddr* address,
               socklen_t address_length) {
  QIRA_LIBC_CALL(ssize_t(*)(int, const void*, size_t, int, const sockaddr*, socklen_t), sendto, fd,
                 buffer, length, flags, address, address_length);
}
ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  QIRA_LIBC_CALL(ssize_t(*)(int, const msghdr*, int), sendmsg, fd, message, flags);
}
ssize_t recv(int fd, void* buffer, size_t length, int flags) {
  QIRA_LIBC_CALL(ssize_t(*)(int, void*, size_t, int), recv, fd, buffer, length, flags);
}
ssize_t recvfrom(int fd, void* buffer, size_t length, int flags, sockaddr* address,
                 socklen_t* address_length) {
  QIRA_LIBC_CALL(ssize_t(*)(int, void*, size_t, int, sockaddr*, socklen_t*), recvfrom, fd, buffer,
                 length, flags, address, address_length);
}
ssize_t recvmsg(int fd, msghdr* message, int flags) {
  QIRA_LIBC_CALL(ssize_t(*)(int, msghdr*, int), recvmsg, fd, message, flags);
}
int close(int fd) {
  QIRA_LIBC_CALL(int (*)(int), close, fd);
}
}  // namespace libc

}  // namespace qira::test

using qira::test::installed;
using qira::test::SocketInterposer;

// Declared exactly as glibc's headers declare them.
extern "C" {

int socket(int domain, int type, int protocol) __THROW {
  QIRA_INTERPOSE(on_socket, qira::test::libc::socket, domain, type, protocol);
}

int bind(int fd, const sockaddr* address, socklen_t length) __THROW {
  QIRA_INTERPOSE(on_bind, qira::test::libc::bind, fd, address, length);
}

int connect(int fd, const sockaddr* address, socklen_t length) {
  QIRA_INTERPOSE(on_connect, qira::test::libc::connect, fd, address, length);
}

int getsockname(int fd, sockaddr* address, socklen_t* length) __THROW {
  QIRA_INTERPOSE(on_getsockname, qira::test::libc::getsockname, fd, address, length);
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t length) __THROW {
  QIRA_INTERPOSE(on_setsockopt, qira::test::libc::setsockopt, fd, level, name, value, length);
}

int getsockopt(int fd, int level, int name, void* value, socklen_t* length) __THROW {
  QIRA_INTERPOSE(on_getsockopt, qira::test::libc::getsockopt, fd, level, name, value, length);
}

ssize_t send(int fd, const void* buffer, size_t length, int flags) {
  QIRA_INTERPOSE(on_send, qira::test::libc::send, fd, buffer, length, flags);
}

ssize_t sendto(int fd, const void* buffer, size_t length, int flags, const sockaddr* address,
               socklen_t address_length) {
  QIRA_INTERPOSE(on_sendto, qira::test::libc::sendto, fd, buffer, length, flags, address,
                 address_length);
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  QIRA_INTERPOSE(on_sendmsg, qira::test::libc::sendmsg, fd, message, flags);
}

ssize_t recv(int fd, void* buffer, size_t length, int flags) {
  QIRA_INTERPOSE(on_recv, qira::test::libc::recv, fd, buffer, length, flags);
}

ssize_t recvfrom(int fd, void* buffer, size_t length, int flags, sockaddr* address,
                 socklen_t* address_length) {
  QIRA_INTERPOSE(on_recvfrom, qira::test::libc::recvfrom, fd, buffer, length, flags, address,
                 address_length);
}

ssize_t recvmsg(int fd, msghdr* message, int flags) {
  QIRA_INTERPOSE(on_recvmsg, qira::test::libc::recvmsg, fd, message, flags);
}

int close(int fd) {
  QIRA_INTERPOSE(on_close, qira::test::libc::close, fd);
}

}  // extern "C"
