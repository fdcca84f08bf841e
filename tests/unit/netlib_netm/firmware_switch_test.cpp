// Disconnect of the setup access point on the bcmdhd board: the scan
// module's recovery switched off, "wlan0" taken down, and the driver's
// firmware parameter written with the station image path and its zero byte.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "netlib_scan/scan_state.h"
#include "qira/network/netlib_netm.h"
#include "support/pwrite_interpose.h"
#include "support/sandbox.h"
#include "unit/netlib_netm/netm_test_util.h"

namespace qira::test::netm {
namespace {

using qira::network::netlib_netm_wireless_disconnect;
using Lines = std::vector<std::string>;

constexpr const char* kConnectFile = "src/netlib_netm/connect.cpp";
constexpr const char* kParameters = "/sys/module/bcmdhd/parameters";
constexpr const char* kParameter = "/sys/module/bcmdhd/parameters/firmware_path";
const std::string kImage = "/lib/firmware/broadcom/ap6234/fw_bcm43341b0_ag.bin";
// The image path and its terminating zero byte.
const std::string kWritten = kImage + std::string(1, '\0');
const Lines kStops = {"signal 15 hostapd", "signal 15 dnsmasq", "signal 15 udhcpc",
                      "run /bin/iw dev ap0 del"};
const Lines kWlan0Down = {"netlib_iface_set_up(wlan0, false)"};

// One positioned write as the driver's parameter saw it.
struct WriteCall {
  int fd;
  std::size_t count;
  off_t offset;
};

// Answers each pwrite by a planned step: a short write of `partial` bytes
// (written for real) with `error` in errno, a failure with `error`, or (when
// the plan is used up) the real write.
class PlannedWrites : public PwriteInterposer {
 public:
  struct Step {
    std::optional<std::size_t> partial;  // std::nullopt: fail with -1
    int error;
  };
  explicit PlannedWrites(std::vector<Step> steps) : steps_(std::move(steps)) {}

  std::optional<ssize_t> on_pwrite(int fd, const void* buffer, size_t count,
                                   off_t offset) override {
    calls.push_back({fd, count, offset});
    if (steps_.empty()) {
      return std::nullopt;
    }
    const Step step = steps_.front();
    steps_.erase(steps_.begin());
    ssize_t result = -1;
    if (step.partial) {
      result = libc_pwrite(fd, buffer, *step.partial, offset);
    }
    errno = step.error;
    return result;
  }

  std::vector<WriteCall> calls;

 private:
  std::vector<Step> steps_;
};

// The file a descriptor of this process refers to, or "" when it is closed.
std::string descriptor_target(int fd) {
  char target[PATH_MAX] = {};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const ssize_t length = readlink(link.c_str(), target, sizeof target - 1);
  return length < 0 ? std::string() : std::string(target, static_cast<std::size_t>(length));
}

class FirmwareSwitch : public NetmTest {
 protected:
  void SetUp() override {
    NetmTest::SetUp();
    set_identity(0x62B7, "Cam", "00000000ABCD");
    make_dirs(kParameters);
    remove_path(kParameter);
    scan_.recovery_enabled = 1;
  }

  bool disconnect() { return netlib_netm_wireless_disconnect(ctx(), "ap0", true, false); }

  static ExpectedLine line(const std::string& message, int error_number = 0) {
    return {kConnectFile, "netlib_netm_wireless_disconnect", error_number, message};
  }

  qira::network::scan::scan_state scan_{};
};

TEST_F(FirmwareSwitch, WritesTheImagePathWithItsZeroByteAndClosesTheFile) {
  context_.wireless_scan = &scan_;
  PlannedWrites writes({});
  EXPECT_TRUE(disconnect());
  EXPECT_EQ(process_calls(), kStops);
  EXPECT_EQ(netlib_calls(), kWlan0Down);
  EXPECT_EQ(read_file(kParameter), kWritten);
  EXPECT_EQ(kWritten.size(), 51u);
  ASSERT_EQ(writes.calls.size(), 1u);
  EXPECT_EQ(writes.calls[0].count, 51u);
  EXPECT_EQ(writes.calls[0].offset, 0);
  EXPECT_EQ(descriptor_target(writes.calls[0].fd), "");
  EXPECT_EQ(scan_.recovery_enabled, 0);
  expect_lines(log_, {});
}

TEST_F(FirmwareSwitch, WithoutScanModuleStateTheSwitchStillRuns) {
  ASSERT_EQ(context_.wireless_scan, nullptr);
  EXPECT_TRUE(disconnect());
  EXPECT_EQ(process_calls(), kStops);
  EXPECT_EQ(read_file(kParameter), kWritten);
  expect_lines(log_, {});
}

TEST_F(FirmwareSwitch, OtherBoardsKeepRecoveryAndWriteNothing) {
  set_identity(0x62E5, "Cam", "00000000ABCD");
  context_.wireless_scan = &scan_;
  EXPECT_TRUE(disconnect());
  EXPECT_EQ(scan_.recovery_enabled, 1);
  EXPECT_EQ(netlib_calls(), Lines{});
  EXPECT_NE(access(kParameter, F_OK), 0);
}

TEST_F(FirmwareSwitch, CreatesTheParameterWithMode0666AndTruncatesIt) {
  write_file(kParameter, std::string(100, 'x'));
  const mode_t previous_umask = umask(0);
  EXPECT_TRUE(disconnect());
  umask(previous_umask);
  EXPECT_EQ(read_file(kParameter), kWritten);
  remove_path(kParameter);
  umask(0);
  EXPECT_TRUE(disconnect());
  umask(previous_umask);
  struct stat status {};
  ASSERT_EQ(stat(kParameter, &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0666u);
}

TEST_F(FirmwareSwitch, Wlan0ThatCannotBeTakenDownLeavesTheFirmwareAlone) {
  context_.wireless_scan = &scan_;
  netlib_.set_result("netlib_iface_set_up", false);
  EXPECT_FALSE(disconnect());
  EXPECT_EQ(process_calls(), kStops);
  EXPECT_EQ(netlib_calls(), kWlan0Down);
  EXPECT_NE(access(kParameter, F_OK), 0);
  EXPECT_EQ(scan_.recovery_enabled, 0);
  expect_lines(log_, {line("Failed to change interface \"wlan0\" state")});
}

// "Failed to open proc entry" reports a failed open(), a system call, so the
// open's errno goes into the errno slot, as the module's logging convention
// has it for every failed system call; the one case where no call failed
// (descriptor 0, refused by the module itself) passes 0.
TEST_F(FirmwareSwitch, MissingParameterFolderFailsTheOpenWithItsErrno) {
  remove_path(kParameters);
  EXPECT_FALSE(disconnect());
  EXPECT_EQ(process_calls(), kStops);
  EXPECT_EQ(netlib_calls(), kWlan0Down);
  expect_lines(log_, {line("Failed to open proc entry "
                           "'/sys/module/bcmdhd/parameters/firmware_path'",
                           ENOENT)});
}

TEST_F(FirmwareSwitch, ReadOnlyParameterFolderFailsTheOpenWithItsErrno) {
  ScopedMount read_only(kParameters, MS_RDONLY, "size=64k");
  ASSERT_TRUE(read_only.mounted());
  EXPECT_FALSE(disconnect());
  expect_lines(log_, {line("Failed to open proc entry "
                           "'/sys/module/bcmdhd/parameters/firmware_path'",
                           EROFS)});
}

TEST_F(FirmwareSwitch, DescriptorZeroCountsAsAFailedOpenAndIsNotClosed) {
  const int saved_input = dup(0);
  ASSERT_GE(saved_input, 0);
  ASSERT_EQ(close(0), 0);
  const bool result = disconnect();
  const std::string zero_target = descriptor_target(0);
  ASSERT_EQ(dup2(saved_input, 0), 0);
  close(saved_input);
  EXPECT_FALSE(result);
  EXPECT_EQ(zero_target, kParameter);
  EXPECT_EQ(read_file(kParameter), "");
  // The open worked: no system call failed, so errno 0.
  expect_lines(log_, {line("Failed to open proc entry "
                           "'/sys/module/bcmdhd/parameters/firmware_path'",
                           0)});
}

TEST_F(FirmwareSwitch, FiftyBytesWrittenIsAFailureAndTheDescriptorStaysOpen) {
  PlannedWrites writes({{50, ENOSPC}});
  EXPECT_FALSE(disconnect());
  ASSERT_EQ(writes.calls.size(), 1u);
  const int fd = writes.calls[0].fd;
  EXPECT_EQ(writes.calls[0].count, 51u);
  EXPECT_EQ(descriptor_target(fd), kParameter);
  EXPECT_EQ(read_file(kParameter), kImage);
  char message[160];
  std::snprintf(message, sizeof message, "Failed to write '%s' to proc entry 0x%x", kImage.c_str(),
                static_cast<unsigned int>(fd));
  expect_lines(log_, {line(message, ENOSPC)});
  close(fd);
}

TEST_F(FirmwareSwitch, FailedWriteCarriesItsErrno) {
  PlannedWrites writes({{std::nullopt, EIO}});
  EXPECT_FALSE(disconnect());
  ASSERT_EQ(writes.calls.size(), 1u);
  const int fd = writes.calls[0].fd;
  EXPECT_EQ(descriptor_target(fd), kParameter);
  char message[160];
  std::snprintf(message, sizeof message, "Failed to write '%s' to proc entry 0x%x", kImage.c_str(),
                static_cast<unsigned int>(fd));
  expect_lines(log_, {line(message, EIO)});
  close(fd);
}

TEST_F(FirmwareSwitch, InterruptedWriteIsRepeated) {
  PlannedWrites writes({{std::nullopt, EINTR}, {std::nullopt, EINTR}});
  EXPECT_TRUE(disconnect());
  ASSERT_EQ(writes.calls.size(), 3u);
  for (const WriteCall& call : writes.calls) {
    EXPECT_EQ(call.fd, writes.calls[0].fd);
    EXPECT_EQ(call.count, 51u);
    EXPECT_EQ(call.offset, 0);
  }
  EXPECT_EQ(read_file(kParameter), kWritten);
  EXPECT_EQ(descriptor_target(writes.calls[0].fd), "");
  expect_lines(log_, {});
}

}  // namespace
}  // namespace qira::test::netm
