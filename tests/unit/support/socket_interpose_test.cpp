// The socket call registry: interposers see calls first, newest first, and
// whatever nobody answers reaches the kernel.
#include "support/socket_interpose.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace qira::test {
namespace {

// Refuses sends on one descriptor with EAGAIN, counting them.
class RefuseSends : public SocketInterposer {
 public:
  explicit RefuseSends(int fd) : fd_(fd) {}
  std::optional<ssize_t> on_send(int fd, const void*, size_t, int) override {
    if (fd != fd_) {
      return std::nullopt;
    }
    ++refused;
    errno = EAGAIN;
    return -1;
  }
  int refused = 0;

 private:
  int fd_;
};

// Answers every send with a fixed length.
class AcceptAllSends : public SocketInterposer {
 public:
  std::optional<ssize_t> on_send(int, const void*, size_t, int) override { return 42; }
};

class SocketPair : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, fds_), 0); }
  void TearDown() override {
    close(fds_[0]);
    close(fds_[1]);
  }
  int fds_[2] = {-1, -1};
};

TEST_F(SocketPair, CallsNobodyAnswersReachTheKernel) {
  ASSERT_EQ(send(fds_[0], "ping", 4, 0), 4);
  char buffer[8] = {};
  EXPECT_EQ(recv(fds_[1], buffer, sizeof(buffer), 0), 4);
  EXPECT_EQ(std::string(buffer, 4), "ping");
}

TEST_F(SocketPair, AnInterposerAnswersOnlyItsDescriptor) {
  RefuseSends refuse(fds_[0]);
  errno = 0;
  EXPECT_EQ(send(fds_[0], "ping", 4, 0), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(refuse.refused, 1);
  // The other end is not its business.
  EXPECT_EQ(send(fds_[1], "pong", 4, 0), 4);
  EXPECT_EQ(refuse.refused, 1);
}

TEST_F(SocketPair, TheNewestInterposerIsAskedFirst) {
  RefuseSends refuse(fds_[0]);
  {
    AcceptAllSends accept;
    EXPECT_EQ(send(fds_[0], "ping", 4, 0), 42);
    EXPECT_EQ(refuse.refused, 0);
  }
  EXPECT_EQ(send(fds_[0], "ping", 4, 0), -1);
  EXPECT_EQ(refuse.refused, 1);
}

TEST_F(SocketPair, LibcEntryPointsBypassTheInterposers) {
  RefuseSends refuse(fds_[0]);
  EXPECT_EQ(libc::send(fds_[0], "ping", 4, 0), 4);
  EXPECT_EQ(refuse.refused, 0);
}

}  // namespace
}  // namespace qira::test
