// The client against Debian's real wpa_supplicant: the wired driver on one
// end of a veth pair in a private network namespace, its control interface
// under the sandbox's /var/run/wpa_supplicant. Everything it needs is on
// every machine that runs the suite (CI runs it as root), so anything that
// keeps it from running is a failure, never a skip.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "qira/host/seams.h"
#include "qira/network/wpa_client.h"
#include "qira/utils/file.h"
#include "qira/utils/process.h"
#include "support/sandbox.h"
#include "unit/wpa_client/wpa_test_util.h"

namespace qira::test::wpa {
namespace {

using namespace qira::network;

constexpr const char kWpaSupplicant[] = "/usr/sbin/wpa_supplicant";
constexpr const char kIp[] = "/usr/sbin/ip";
constexpr const char kConfig[] = "/etc/qira-wired.conf";
constexpr const char kDaemonLog[] = "/var/log/wpa_supplicant.log";
constexpr const char kStation[] = "qw0";
constexpr const char kControlSocket[] = "/var/run/wpa_supplicant/qw0";

// Runs `body` on a thread of its own network namespace: the veth pair and
// the daemon started from there see only that namespace.
template <typename Body>
void in_private_network(Body body) {
  std::thread thread([&body] {
    ASSERT_EQ(0, ::unshare(CLONE_NEWNET)) << std::strerror(errno);
    body();
  });
  thread.join();
}

bool is_socket(const char* path) {
  struct stat status {};
  return ::stat(path, &status) == 0 && S_ISSOCK(status.st_mode);
}

template <typename Condition>
bool poll_until(Condition condition, unsigned int deadline_ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(deadline_ms);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

// The daemon, started in the calling thread's namespace; stopped (SIGTERM,
// then reaped) by the destructor if it still runs.
class WiredSupplicant {
 public:
  WiredSupplicant() {
    write_file(kConfig, "ctrl_interface=/var/run/wpa_supplicant\nap_scan=0\n");
    make_dirs("/var/log");
    pid_ = ::fork();
    if (pid_ == 0) {
      const int log = ::open(kDaemonLog, O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (log >= 0) {
        ::dup2(log, 1);
        ::dup2(log, 2);
      }
      const char* argv[] = {kWpaSupplicant, "-D",     "wired",
                            "-i",           kStation, "-c",
                            kConfig,        "-C",     "/var/run/wpa_supplicant",
                            nullptr};
      ::execv(kWpaSupplicant, const_cast<char* const*>(argv));
      ::_exit(127);
    }
  }
  ~WiredSupplicant() {
    if (pid_ > 0 && !wait_for_exit(0)) {
      ::kill(pid_, SIGTERM);
      wait_for_exit(10000);
    }
  }
  WiredSupplicant(const WiredSupplicant&) = delete;
  WiredSupplicant& operator=(const WiredSupplicant&) = delete;

  pid_t pid() const { return pid_; }
  // True once the daemon has exited (reaped), polling up to `deadline_ms`.
  bool wait_for_exit(unsigned int deadline_ms) {
    if (exited_) {
      return true;
    }
    exited_ = poll_until(
        [this] {
          int status = 0;
          const pid_t result = ::waitpid(pid_, &status, WNOHANG);
          if (result == pid_) {
            exit_status_ = status;
          }
          return result == pid_ || result < 0;
        },
        deadline_ms);
    return exited_;
  }
  int exit_status() const { return exit_status_; }

 private:
  pid_t pid_ = -1;
  bool exited_ = false;
  int exit_status_ = -1;
};

std::string daemon_log() {
  std::string text;
  qira::utils::File::ReadStringAll(kDaemonLog, text);
  return text;
}

TEST(RealWpaSupplicant, ControlInterface) {
  ASSERT_EQ(0, ::access(kWpaSupplicant, X_OK))
      << kWpaSupplicant << " is missing: install Debian's wpasupplicant (scripts/deps.sh)";
  in_private_network([] {
    ASSERT_EQ(0, qira::utils::sysExecSimple(
                     kIp, {"link", "add", kStation, "type", "veth", "peer", "name", "qw1"}));
    ASSERT_EQ(0, qira::utils::sysExecSimple(kIp, {"link", "set", "qw1", "up"}));
    ASSERT_EQ(0, qira::utils::sysExecSimple(kIp, {"link", "set", kStation, "up"}));
    make_dirs("/var/run");
    WiredSupplicant daemon;
    ASSERT_GT(daemon.pid(), 0) << std::strerror(errno);
    ASSERT_TRUE(poll_until([] { return is_socket(kControlSocket); }, 10000))
        << "no control socket; daemon log:\n"
        << daemon_log();
    EXPECT_TRUE(WpaClient::WpaSupplicantIsRunning());

    WpaClient client;
    ASSERT_TRUE(client.Init(kStation));
    std::string reply;
    EXPECT_TRUE(client.Request("PING", reply, 2000));
    EXPECT_EQ(reply, "PONG\n");

    EventRecorder recorder;
    EXPECT_TRUE(client.Subscribe(&EventRecorder::callback, recorder.subscriber("all")));
    EXPECT_TRUE(client_bytes(client).subscribed);
    EXPECT_TRUE(client.Unsubscribe());
    EXPECT_FALSE(client_bytes(client).subscribed);
    EXPECT_TRUE(client.Subscribe());

    EXPECT_TRUE(client.Request("RECONNECT", reply, 2000));
    EXPECT_EQ(reply, "OK\n");
    EXPECT_TRUE(client.Request("DISCONNECT", reply, 2000));
    EXPECT_EQ(reply, "OK\n");

    // wpa_supplicant answers TERMINATE, then announces its shutdown to its
    // monitors; that event closes the client.
    qira::host::LogCapture log;
    EXPECT_TRUE(client.Request("TERMINATE", reply, 2000));
    EXPECT_EQ(reply, "OK\n");
    EXPECT_TRUE(poll_until(
        [&client] {
          client.Service(100);
          return !client.IsInitialized();
        },
        10000))
        << "no CTRL-EVENT-TERMINATING; daemon log:\n"
        << daemon_log();
    EXPECT_FALSE(client.IsInitialized());
    const std::vector<std::string> lines = log.messages();
    // wpa_supplicant sends the name followed by one space.
    EXPECT_NE(std::find(lines.begin(), lines.end(), "Event received: <3>CTRL-EVENT-TERMINATING "),
              lines.end())
        << ::testing::PrintToString(lines);
    EXPECT_TRUE(recorder.deliveries.empty());
    EXPECT_EQ(client_fd(client), -1);
    EXPECT_TRUE(client_socket_files().empty());
    EXPECT_TRUE(daemon.wait_for_exit(10000)) << daemon_log();
    EXPECT_TRUE(WIFEXITED(daemon.exit_status()));
    EXPECT_EQ(WEXITSTATUS(daemon.exit_status()), 0);
  });
}

}  // namespace
}  // namespace qira::test::wpa
