// Requests the simulated driver does not own reach the kernel unchanged: the
// interposed ioctl() gives exactly what the raw system call gives.
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "support/wext_sim.h"

namespace qira::test {
namespace {

struct Outcome {
  long result;
  int error_number;
};

class IoctlForwarding : public testing::Test {
 protected:
  void SetUp() override {
    socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(socket_, 0);
  }
  void TearDown() override { close(socket_); }

  Outcome through_ioctl(unsigned long request, void* argument) {
    errno = 0;
    const int result = ioctl(socket_, request, argument);
    return {result, errno};
  }
  Outcome through_syscall(unsigned long request, void* argument) {
    errno = 0;
    const long result = syscall(SYS_ioctl, socket_, request, argument);
    return {result, errno};
  }

  int socket_ = -1;
};

ifreq interface_request(const char* name) {
  ifreq request{};
  std::strncpy(request.ifr_name, name, IFNAMSIZ - 1);
  return request;
}

TEST_F(IoctlForwarding, InterfaceFlagsOfLoopbackComeFromTheKernel) {
  SimulatedWext driver;
  ifreq forwarded = interface_request("lo");
  ifreq direct = interface_request("lo");
  const Outcome interposed = through_ioctl(SIOCGIFFLAGS, &forwarded);
  const Outcome raw = through_syscall(SIOCGIFFLAGS, &direct);
  EXPECT_EQ(interposed.result, 0);
  EXPECT_EQ(raw.result, 0);
  EXPECT_NE(forwarded.ifr_flags & IFF_LOOPBACK, 0);
  EXPECT_EQ(forwarded.ifr_flags, direct.ifr_flags);
  EXPECT_TRUE(driver.requests().empty());
}

TEST_F(IoctlForwarding, KernelErrorsComeBackUnchanged) {
  SimulatedWext driver;
  ifreq forwarded = interface_request("qira-none0");
  ifreq direct = interface_request("qira-none0");
  const Outcome interposed = through_ioctl(SIOCGIFFLAGS, &forwarded);
  const Outcome raw = through_syscall(SIOCGIFFLAGS, &direct);
  EXPECT_EQ(interposed.result, -1);
  EXPECT_EQ(interposed.error_number, ENODEV);
  EXPECT_EQ(raw.error_number, ENODEV);
  EXPECT_TRUE(driver.requests().empty());
}

TEST_F(IoctlForwarding, WirelessRequestWithoutADriverReachesTheKernel) {
  ASSERT_EQ(SimulatedWext::active(), nullptr);
  // Loopback has no wireless extensions on any kernel: the request fails
  // there, and the interposed call must fail exactly the same way.
  iwreq forwarded{};
  iwreq direct{};
  std::strncpy(forwarded.ifr_name, "lo", IFNAMSIZ - 1);
  std::strncpy(direct.ifr_name, "lo", IFNAMSIZ - 1);
  const Outcome interposed = through_ioctl(SIOCGIWNAME, &forwarded);
  const Outcome raw = through_syscall(SIOCGIWNAME, &direct);
  EXPECT_EQ(interposed.result, -1);
  EXPECT_EQ(raw.result, -1);
  EXPECT_EQ(interposed.error_number, raw.error_number);
  EXPECT_NE(interposed.error_number, 0);
}

}  // namespace
}  // namespace qira::test
