// Interposed socket calls of the test process.
//
// qira_test_support comes before libc in every test binary's symbol search
// order, so the socket calls that the module, the host and libnl make arrive
// at the definitions in socket_interpose.cpp. Each call is offered to the
// installed interposers, newest first; the first one that answers (returns a
// value) decides the result, and a call nobody answers goes to libc. This is
// how the simulated kernels take over only the descriptors they own (for
// example generic netlink sockets) while every other socket stays real.
#ifndef QIRA_TESTS_SUPPORT_SOCKET_INTERPOSE_H
#define QIRA_TESTS_SUPPORT_SOCKET_INTERPOSE_H

#include <sys/socket.h>
#include <sys/types.h>

#include <optional>

namespace qira::test {

// libc's own entry points, for interposers and for tests.
namespace libc {
int socket(int domain, int type, int protocol);
int bind(int fd, const sockaddr* address, socklen_t length);
int connect(int fd, const sockaddr* address, socklen_t length);
int getsockname(int fd, sockaddr* address, socklen_t* length);
int setsockopt(int fd, int level, int name, const void* value, socklen_t length);
int getsockopt(int fd, int level, int name, void* value, socklen_t* length);
ssize_t send(int fd, const void* buffer, size_t length, int flags);
ssize_t sendto(int fd, const void* buffer, size_t length, int flags, const sockaddr* address,
               socklen_t address_length);
ssize_t sendmsg(int fd, const msghdr* message, int flags);
ssize_t recv(int fd, void* buffer, size_t length, int flags);
ssize_t recvfrom(int fd, void* buffer, size_t length, int flags, sockaddr* address,
                 socklen_t* address_length);
ssize_t recvmsg(int fd, msghdr* message, int flags);
int close(int fd);
}  // namespace libc

// Base of an interposer: registers itself on construction, unregisters on
// destruction. Every hook returns std::nullopt to pass the call on; an
// answer of -1 must come with errno set.
class SocketInterposer {
 public:
  SocketInterposer();
  virtual ~SocketInterposer();
  SocketInterposer(const SocketInterposer&) = delete;
  SocketInterposer& operator=(const SocketInterposer&) = delete;

  virtual std::optional<int> on_socket(int /*domain*/, int /*type*/, int /*protocol*/) {
    return std::nullopt;
  }
  virtual std::optional<int> on_bind(int /*fd*/, const sockaddr* /*address*/,
                                     socklen_t /*length*/) {
    return std::nullopt;
  }
  virtual std::optional<int> on_connect(int /*fd*/, const sockaddr* /*address*/,
                                        socklen_t /*length*/) {
    return std::nullopt;
  }
  virtual std::optional<int> on_getsockname(int /*fd*/, sockaddr* /*address*/,
                                            socklen_t* /*length*/) {
    return std::nullopt;
  }
  virtual std::optional<int> on_setsockopt(int /*fd*/, int /*level*/, int /*name*/,
                                           const void* /*value*/, socklen_t /*length*/) {
    return std::nullopt;
  }
  virtual std::optional<int> on_getsockopt(int /*fd*/, int /*level*/, int /*name*/, void* /*value*/,
                                           socklen_t* /*length*/) {
    return std::nullopt;
  }
  virtual std::optional<ssize_t> on_send(int /*fd*/, const void* /*buffer*/, size_t /*length*/,
                                         int /*flags*/) {
    return std::nullopt;
  }
  virtual std::optional<ssize_t> on_sendto(int /*fd*/, const void* /*buffer*/, size_t /*length*/,
                                           int /*flags*/, const sockaddr* /*address*/,
                                           socklen_t /*address_length*/) {
    return std::nullopt;
  }
  virtual std::optional<ssize_t> on_sendmsg(int /*fd*/, const msghdr* /*message*/, int /*flags*/) {
    return std::nullopt;
  }
  virtual std::optional<ssize_t> on_recv(int /*fd*/, void* /*buffer*/, size_t /*length*/,
                                         int /*flags*/) {
    return std::nullopt;
  }
  virtual std::optional<ssize_t> on_recvfrom(int /*fd*/, void* /*buffer*/, size_t /*length*/,
                                             int /*flags*/, sockaddr* /*address*/,
                                             socklen_t* /*address_length*/) {
    return std::nullopt;
  }
  virtual std::optional<ssize_t> on_recvmsg(int /*fd*/, msghdr* /*message*/, int /*flags*/) {
    return std::nullopt;
  }
  // Seen before libc closes `fd` (the descriptor is closed in any case
  // unless an interposer answers).
  virtual std::optional<int> on_close(int /*fd*/) { return std::nullopt; }
};

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_SOCKET_INTERPOSE_H
