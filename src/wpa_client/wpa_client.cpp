// WpaClient's transport: the client socket bound under "/tmp" and connected
// to wpa_supplicant's control socket, and the send / receive / request
// primitives with their time-outs.
#include "qira/network/wpa_client.h"

#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/module_log.h"
#include "qira/host_globals.h"
#include "qira/utils/fd.h"

namespace qira::network {

namespace {

using frame::kLogError;
using frame::kLogWarning;

constexpr const char kControlDirectory[] = "/var/run/wpa_supplicant";
// The folder plus its separator, which the control path puts before the
// interface name.
constexpr const char kControlPathPrefix[] = "/var/run/wpa_supplicant/";
constexpr std::size_t kControlPathPrefixLength = sizeof(kControlPathPrefix) - 1;
constexpr const char kClientPathTemplate[] = "/tmp/wpacl-XXXXXX";
// sun_path's size; every path (with its NUL) must fit in it.
constexpr std::size_t kSocketPathSize = sizeof(sockaddr_un::sun_path);
// Both addresses are given with the full structure's length.
constexpr socklen_t kAddressLength = sizeof(sockaddr_un);
// A second name is tried only when the first is taken by another socket.
constexpr int kBindAttempts = 2;
constexpr std::size_t kReceiveBufferSize = 65536;

static_assert(kSocketPathSize == 108, "unexpected sockaddr_un path size");
static_assert(kAddressLength == 110, "unexpected sockaddr_un size");
static_assert(kControlPathPrefixLength == 24, "unexpected control folder length");

bool is_retryable(int error_number) {
  return error_number == EBUSY || error_number == EAGAIN || error_number == EINTR;
}

// Undoes a half-made connection when Init fails after the client socket was
// bound: removes the socket file and closes the descriptor. The descriptor
// number stays in the member (see Init), so only the closing is owned here.
class bound_socket_cleanup {
 public:
  bound_socket_cleanup(int fd, const char* path) : fd_(fd), path_(path) {}
  ~bound_socket_cleanup() {
    if (armed_) {
      ::unlink(path_);
      ::close(fd_);
    }
  }
  bound_socket_cleanup(const bound_socket_cleanup&) = delete;
  bound_socket_cleanup& operator=(const bound_socket_cleanup&) = delete;
  void release() { armed_ = false; }

 private:
  int fd_;
  const char* path_;
  bool armed_ = true;
};

}  // namespace

// The descriptor starts at 0, not -1: Close is the only place that sets -1.
// Deliberate and kept; a fresh client reads 0 there.
WpaClient::WpaClient() : initialised_(false), subscribed_(false), socket_fd_(0), local_address_() {}

WpaClient::~WpaClient() {
  Close();
}

bool WpaClient::WpaSupplicantIsRunning() {
  return fileExists(kControlDirectory, false);
}

bool WpaClient::IsInitialized() const {
  return initialised_;
}

bool WpaClient::Init(const std::string& ifname) {
  if (initialised_) {
    return true;
  }
  socket_fd_ = ::socket(AF_UNIX, SOCK_DGRAM, 0);
  if (socket_fd_ < 0) {
    NETLIB_LOG(kLogError, errno, "socket() failed");
    return false;
  }
  local_address_.sun_family = AF_UNIX;
  // On a failure below the descriptor number stays in socket_fd_ although it
  // is closed; only Close resets it.
  for (int attempt = 0; attempt < kBindAttempts; ++attempt) {
    char unique_path[sizeof(kClientPathTemplate)];
    std::memcpy(unique_path, kClientPathTemplate, sizeof(kClientPathTemplate));
    const int file_fd = ::mkstemp(unique_path);
    if (file_fd < 0) {
      NETLIB_LOG(kLogError, errno, "mkstemp failed");
      ::close(socket_fd_);
      return false;
    }
    // Only the unique name is wanted; the socket takes its place.
    if (::close(file_fd) != 0) {
      NETLIB_LOG(kLogWarning, errno, "close failed");
    }
    if (::unlink(unique_path) != 0) {
      NETLIB_LOG(kLogWarning, errno, "unlink failed");
    }
    const int written = std::snprintf(local_address_.sun_path, kSocketPathSize, "%s", unique_path);
    if (written < 1) {
      NETLIB_LOG(kLogError, errno, "snprintf() failed");
      ::close(socket_fd_);
      return false;
    }
    if (static_cast<std::size_t>(written) > kSocketPathSize - 1) {
      NETLIB_LOG(kLogError, 0, "Control path is too long");
      ::close(socket_fd_);
      return false;
    }
    if (::bind(socket_fd_, reinterpret_cast<const sockaddr*>(&local_address_), kAddressLength) ==
        0) {
      break;
    }
    if (errno != EADDRINUSE) {
      NETLIB_LOG(kLogError, errno, "bind() failed");
      ::close(socket_fd_);
      return false;
    }
    ::unlink(local_address_.sun_path);
    // Deliberately lenient: when the second name is taken too, set-up goes
    // on with an unbound socket instead of failing.
  }

  bound_socket_cleanup cleanup(socket_fd_, local_address_.sun_path);
  sockaddr_un remote_address{};
  remote_address.sun_family = AF_UNIX;
  if (ifname.size() + kControlPathPrefixLength >= kSocketPathSize) {
    NETLIB_LOG(kLogError, 0, "Control path is too long");
    return false;
  }
  std::snprintf(remote_address.sun_path, kSocketPathSize, "/var/run/wpa_supplicant/%s",
                ifname.c_str());
  if (::connect(socket_fd_, reinterpret_cast<const sockaddr*>(&remote_address), kAddressLength) !=
      0) {
    NETLIB_LOG(kLogError, errno, "connect() failed");
    return false;
  }
  if (!qira::utils::SetFdNonBlock(socket_fd_)) {
    NETLIB_LOG(kLogError, 0, "Failed to switch to non-blocking mode");
    return false;
  }
  cleanup.release();
  initialised_ = true;
  ifname_ = ifname;
  return true;
}

bool WpaClient::Send(const std::string& msg, unsigned long long timeout) {
  if (!initialised_) {
    return false;
  }
  errno = 0;
  unsigned long long remaining = timeout;
  unsigned long long start = 0;
  bool retrying = false;
  for (;;) {
    if (::send(socket_fd_, msg.data(), msg.size(), 0) >= 0) {
      return true;
    }
    const int error_number = errno;
    if (!is_retryable(error_number)) {
      NETLIB_LOG(kLogError, error_number, "send() failed");
      return false;
    }
    if (!retrying) {
      retrying = true;
      start = nowMs();
    } else {
      // Gives up once the deadline as it stands (start + remaining, before
      // this round reduces it) lies behind the clock. Otherwise the remaining
      // time is reduced by the whole time since the first retry on every
      // round, so after the second retry the deadline comes sooner than the
      // time-out. Required behaviour; the arithmetic is unsigned, as the types
      // give it.
      const unsigned long long now = nowMs();
      if (remaining + start < now) {
        return false;
      }
      remaining = remaining + start - now;
    }
    sleepMs(static_cast<unsigned int>(remaining));
  }
}

bool WpaClient::Receive(std::string& out, unsigned long long timeout) {
  if (!initialised_) {
    return false;
  }
  errno = 0;
  // One timeval for every select of this call: select leaves in it what is
  // left of the wait, so events cannot stretch the time-out.
  timeval wait{};
  wait.tv_sec = static_cast<time_t>(timeout / 1000);
  wait.tv_usec = static_cast<suseconds_t>((timeout % 1000) * 1000);
  for (;;) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(socket_fd_, &readable);
    const int ready = ::select(socket_fd_ + 1, &readable, nullptr, nullptr, &wait);
    if (ready < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    if (!FD_ISSET(socket_fd_, &readable)) {
      return true;
    }
    std::array<char, kReceiveBufferSize> buffer{};
    const ssize_t received = ::recv(socket_fd_, buffer.data(), buffer.size(), 0);
    if (received < 0) {
      return false;
    }
    if (received == 0) {
      return true;
    }
    const std::size_t length = static_cast<std::size_t>(received);
    // wpa_supplicant prefixes unsolicited events with "<priority>".
    if (buffer[0] == '<') {
      ProcessEvent(std::string(buffer.data(), length));
      if (!initialised_) {
        return true;
      }
      continue;
    }
    out.assign(buffer.data(), length);
    return true;
  }
}

bool WpaClient::Request(const std::string& cmd, std::string& reply, unsigned long long timeout) {
  if (!initialised_) {
    return false;
  }
  reply.clear();
  if (!Send(cmd, timeout)) {
    return false;
  }
  return Receive(reply, timeout);
}

bool WpaClient::Service(unsigned long long timeout) {
  std::string discarded;
  return Receive(discarded, timeout);
}

void WpaClient::Close() {
  if (!initialised_) {
    return;
  }
  Unsubscribe();
  subscribed_ = false;
  // The per-event subscribers stay until destruction, on purpose.
  event_subscribers_.clear();
  ::unlink(local_address_.sun_path);
  if (socket_fd_ >= 0) {
    ::close(socket_fd_);
    socket_fd_ = -1;
  }
  initialised_ = false;
}

}  // namespace qira::network
