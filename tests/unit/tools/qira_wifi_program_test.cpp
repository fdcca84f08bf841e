// The built qira-wifi program, run as a user runs it, against the real
// kernel's loopback interface: lo has no wireless extensions, so every query
// but the noise level fails with the kernel's errno, and the program prints
// the module's own log line for each.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/wireless.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "qira/variant/variant.h"
#include "unit/tools/child_process.h"

namespace qira::test {
namespace {

using qira::variant::Variant;

constexpr unsigned int kDeadlineMs = 20000;

ChildResult run_qira_wifi(const std::vector<std::string>& args) {
  std::vector<std::string> argv = {QIRA_WIFI_PROGRAM};
  argv.insert(argv.end(), args.begin(), args.end());
  ChildResult result = run_child(argv, kDeadlineMs);
  EXPECT_TRUE(result.finished) << "qira-wifi did not finish within " << kDeadlineMs << " ms";
  return result;
}

// What this machine's kernel answers to a wireless-extension request on lo:
// EOPNOTSUPP where the kernel has wireless extensions (lo has no handler),
// ENOTTY where it has none at all. The program must report the same.
int kernel_errno_on_loopback() {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  EXPECT_GE(fd, 0);
  iwreq request{};
  std::strncpy(request.ifr_name, "lo", sizeof(request.ifr_name));
  errno = 0;
  const int result = ioctl(fd, SIOCGIWMODE, &request);
  const int error_number = errno;
  close(fd);
  EXPECT_EQ(result, -1);
  return error_number;
}

std::string ioctl_failure(const char* request, int error_number) {
  return std::string("failed (netlib: ioctl(") + request +
         ") failed: " + std::strerror(error_number) + ")";
}

// Under qemu-user (a cross-built suite, QIRA_TEST_EMULATOR set) the requests
// never reach the kernel: qemu answers ENOSYS to every ioctl it cannot
// translate, wireless extensions among them, for the test and for the
// program alike.
TEST(QiraWifiProgram, LoopbackKernelErrnoIsOneOfTheKnownTwo) {
  const int error_number = kernel_errno_on_loopback();
  if (std::getenv("QIRA_TEST_EMULATOR") != nullptr) {
    EXPECT_EQ(error_number, ENOSYS);
  } else {
    EXPECT_TRUE(error_number == EOPNOTSUPP || error_number == ENOTTY) << error_number;
  }
}

TEST(QiraWifiProgram, InfoOnLoopbackPrintsEachFailureLine) {
  const int e = kernel_errno_on_loopback();
  const ChildResult result = run_qira_wifi({"info", "lo"});
  EXPECT_EQ(result.exit_status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "essid:         " + ioctl_failure("8B1B", e) + "\n" + "bssid:         " +
                ioctl_failure("8B15", e) + "\n" + "freq:          " + ioctl_failure("8B05", e) +
                "\n" + "channel:       " + ioctl_failure("8B05", e) + "\n" + "bitrate:       " +
                ioctl_failure("8B21", e) + "\n" + "txpower:       " + ioctl_failure("8B27", e) +
                "\n" + "quality:       " + ioctl_failure("8B0F", e) + "\n" +
                "quality_max:   " + ioctl_failure("8B0B", e) + "\n" +
                "signal_level:  " + ioctl_failure("8B0F", e) + "\n" + "noise_level:   -96\n" +
                "wireless_mode: " + ioctl_failure("8B07", e) + "\n");
}

TEST(QiraWifiProgram, InfoOnLoopbackAsJson) {
  const int e = kernel_errno_on_loopback();
  const ChildResult result = run_qira_wifi({"--json", "info", "lo"});
  EXPECT_EQ(result.exit_status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  Variant json;
  std::string error;
  ASSERT_TRUE(Variant::FromJSON(result.out, json, &error)) << error << "\n" << result.out;
  EXPECT_EQ(json.Size(), 3u);
  EXPECT_EQ(static_cast<const std::string&>(json["ifname"]), "lo");
  EXPECT_FALSE(static_cast<const std::string&>(json["module"]).empty());

  const Variant& queries = json["queries"];
  ASSERT_NE(queries.AsMap(), nullptr);
  const std::vector<std::pair<std::string, std::string>> failing = {
      {"essid", "8B1B"},        {"bssid", "8B15"},       {"freq", "8B05"},
      {"channel", "8B05"},      {"bitrate", "8B21"},     {"txpower", "8B27"},
      {"quality", "8B0F"},      {"quality_max", "8B0B"}, {"signal_level", "8B0F"},
      {"wireless_mode", "8B07"}};
  EXPECT_EQ(queries.Size(), failing.size() + 1);
  for (const auto& [name, request] : failing) {
    SCOPED_TRACE(name);
    const Variant& query = queries[name.c_str()];
    EXPECT_EQ(query.Size(), 2u);
    EXPECT_EQ(query["ok"].Type(), qira::variant::V_BOOL);
    EXPECT_FALSE(query["ok"].AsBool());
    ASSERT_NE(query["log"].AsArray(), nullptr);
    ASSERT_EQ(query["log"].Size(), 1u);
    const Variant& line = (*query["log"].AsArray())[0];
    EXPECT_EQ(static_cast<const std::string&>(line["message"]),
              "netlib: ioctl(" + request + ") failed");
    EXPECT_EQ(static_cast<long long>(line["errno"]), e);
    EXPECT_EQ(static_cast<const std::string&>(line["error"]), std::strerror(e));
    EXPECT_EQ(static_cast<long long>(line["level"]), 3);
    EXPECT_EQ(static_cast<const std::string&>(line["module"]), "qira_network_utils_wireless");
    EXPECT_EQ(static_cast<const std::string&>(line["file"]), "src/netlib_iface/netlib_iface.cpp");
    EXPECT_FALSE(static_cast<const std::string&>(line["function"]).empty());
    EXPECT_GT(static_cast<long long>(line["line"]), 0);
  }
  const Variant& noise = queries["noise_level"];
  EXPECT_EQ(noise.Size(), 2u);
  EXPECT_TRUE(noise["ok"].AsBool());
  EXPECT_EQ(static_cast<long long>(noise["value"]), -96);
}

TEST(QiraWifiProgram, VerboseEchoesEveryModuleLogLineOnStderr) {
  const ChildResult result = run_qira_wifi({"--verbose", "info", "lo"});
  EXPECT_EQ(result.exit_status, 0) << result.err;
  std::size_t echoed = 0;
  for (std::size_t at = result.err.find("netlib: ioctl("); at != std::string::npos;
       at = result.err.find("netlib: ioctl(", at + 1)) {
    ++echoed;
  }
  EXPECT_EQ(echoed, 10u) << result.err;
  EXPECT_EQ(result.err.rfind("qira-wifi: loading module ", 0), 0u) << result.err;
}

TEST(QiraWifiProgram, ExplicitModulePathIsLoaded) {
  const ChildResult result = run_qira_wifi({"--json", "--module", QIRA_MODULE_FILE, "info", "lo"});
  EXPECT_EQ(result.exit_status, 0) << result.err;
  Variant json;
  ASSERT_TRUE(Variant::FromJSON(result.out, json));
  EXPECT_EQ(static_cast<const std::string&>(json["module"]), QIRA_MODULE_FILE);
}

// A second file of the module (here a copy in the sandbox's /tmp) is the one
// whose functions run, not the copy the program was linked against.
TEST(QiraWifiProgram, ModuleCopyAtAnotherPathIsLoaded) {
  const std::string copy = "/tmp/libqira_network_utils_wireless_copy.so";
  {
    std::ifstream source(QIRA_MODULE_FILE, std::ios::binary);
    std::ofstream target(copy, std::ios::binary);
    target << source.rdbuf();
    ASSERT_TRUE(target.good());
  }
  const ChildResult result = run_qira_wifi({"--module", copy, "info", "lo"});
  EXPECT_EQ(result.exit_status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_NE(result.out.find("noise_level:   -96\n"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("essid:         failed (netlib: ioctl(8B1B) failed: "),
            std::string::npos)
      << result.out;
}

// The "loading module" line of `qira-wifi --verbose info lo` run from a
// copy of the program at `copy` with `mode`, by the user nobody, with
// QIRA_WIRELESS_MODULE naming another library.
std::string module_chosen_by(const std::string& copy, mode_t mode) {
  {
    std::ifstream source(QIRA_WIFI_PROGRAM, std::ios::binary);
    std::ofstream target(copy, std::ios::binary);
    target << source.rdbuf();
    EXPECT_TRUE(target.good());
  }
  EXPECT_EQ(0, ::chown(copy.c_str(), 0, 0));
  EXPECT_EQ(0, ::chmod(copy.c_str(), mode));
  int pipe_fds[2];
  EXPECT_EQ(0, ::pipe(pipe_fds));
  const pid_t child = ::fork();
  if (child == 0) {
    constexpr uid_t kNobody = 65534;
    ::dup2(pipe_fds[1], STDERR_FILENO);
    ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
    if (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) {
      ::_exit(126);
    }
    ::setenv("QIRA_WIRELESS_MODULE", "/tmp/chosen-by-the-caller.so", 1);
    ::execl(copy.c_str(), "qira-wifi", "--verbose", "info", "lo", static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(pipe_fds[1]);
  std::string err;
  char buffer[4096];
  ssize_t length = 0;
  while ((length = ::read(pipe_fds[0], buffer, sizeof(buffer))) > 0) {
    err.append(buffer, static_cast<std::size_t>(length));
  }
  ::close(pipe_fds[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 126 && WEXITSTATUS(status) != 127) << err;
  return err.substr(0, err.find('\n'));
}

// A root program run by another user (set-user-ID) must not let that
// user's environment choose the library it loads: QIRA_WIRELESS_MODULE is
// read with secure_getenv, which the loader's secure mode empties. The same
// copy without the set-user-ID bit takes the variable, so the difference is
// the secure mode's.
TEST(QiraWifiProgram, ASetUserIdProgramIgnoresTheModuleEnvironment) {
  if (std::getenv("QIRA_TEST_EMULATOR") != nullptr) {
    GTEST_SKIP() << "under qemu-user the kernel runs the emulator, which is not set-user-ID: "
                    "the loader's secure mode cannot be made";
  }
  if (::geteuid() != 0) {
    GTEST_SKIP() << "making a set-user-ID root program needs root";
  }
  EXPECT_EQ(module_chosen_by("/tmp/qira-wifi-plain", 0755),
            "qira-wifi: loading module /tmp/chosen-by-the-caller.so");
  EXPECT_EQ(module_chosen_by("/tmp/qira-wifi-setuid", 04755),
            "qira-wifi: loading module libqira_network_utils_wireless.so.1");
}

TEST(QiraWifiProgram, MissingModuleExitsWithOne) {
  const ChildResult result =
      run_qira_wifi({"--module", "/nonexistent/libmissing.so", "info", "lo"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err.rfind("qira-wifi: cannot load /nonexistent/libmissing.so: ", 0), 0u)
      << result.err;
}

TEST(QiraWifiProgram, UsageErrorExitsWithTwo) {
  const ChildResult result = run_qira_wifi({"info"});
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "usage: qira-wifi info IFNAME\n");
}

TEST(QiraWifiProgram, HelpExitsWithZero) {
  const ChildResult result = run_qira_wifi({"--help"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out.rfind("usage: qira-wifi [--json] [--verbose] [--module PATH] COMMAND", 0),
            0u)
      << result.out;
  EXPECT_EQ(result.err, "");
}

}  // namespace
}  // namespace qira::test
