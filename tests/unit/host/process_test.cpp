// Process functions against real child processes, and the ProcessRecorder.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "qira/host/seams.h"
#include "qira/utils/file.h"
#include "qira/utils/process.h"
#include "qira/utils/strings.h"
#include "support/sandbox.h"
#include "support/syscall_interpose.h"

extern char** environ;

namespace {

using qira::host::ProcessCall;
using qira::utils::runDaemon;
using qira::utils::sysExecSimple;

unsigned long long monotonic_ms() {
  struct timespec now {};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<unsigned long long>(now.tv_sec) * 1000ULL +
         static_cast<unsigned long long>(now.tv_nsec) / 1000000ULL;
}

// Polls for `path` (written by another process with a final rename) until a
// deadline; the content, or "" after the deadline.
std::string wait_for_file(const std::string& path) {
  const unsigned long long deadline = monotonic_ms() + 10000;
  std::string content;
  while (monotonic_ms() < deadline) {
    if (qira::utils::File::ReadStringAll(path, content)) {
      return content;
    }
    struct timespec pause {
      0, 5 * 1000 * 1000
    };
    ::nanosleep(&pause, nullptr);
  }
  ADD_FAILURE() << "no " << path << " before the deadline";
  return "";
}

// Starts `program` with argv[0] `argv0` and `args`, directly (not through the host).
pid_t spawn(const std::string& program, const std::string& argv0,
            const std::vector<std::string>& args) {
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(argv0.c_str()));
  for (const std::string& arg : args) {
    argv.push_back(const_cast<char*>(arg.c_str()));
  }
  argv.push_back(nullptr);
  pid_t pid = -1;
  EXPECT_EQ(0, ::posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv.data(), environ));
  return pid;
}

// Waits until the exec of `pid` is complete: /proc/<pid>/comm reads `comm`
// and the command line is set (the kernel sets it after the name).
void wait_for_comm(pid_t pid, const std::string& comm) {
  const unsigned long long deadline = monotonic_ms() + 10000;
  const std::string proc = "/proc/" + std::to_string(pid);
  std::string text;
  std::string cmdline;
  while (monotonic_ms() < deadline) {
    if (qira::utils::File::ReadStringAll(proc + "/comm", text) && text == comm + "\n" &&
        qira::utils::File::ReadStringAll(proc + "/cmdline", cmdline) && !cmdline.empty()) {
      return;
    }
    struct timespec pause {
      0, 2 * 1000 * 1000
    };
    ::nanosleep(&pause, nullptr);
  }
  ADD_FAILURE() << "process " << pid << " never became " << comm;
}

int wait_for_signal(pid_t pid) {
  int status = 0;
  EXPECT_EQ(pid, ::waitpid(pid, &status, 0));
  return WIFSIGNALED(status) ? WTERMSIG(status) : -1;
}

TEST(SysExecSimpleTest, ShellFormReturnsTheExitStatus) {
  EXPECT_EQ(0, sysExecSimple("/bin/true"));
  EXPECT_EQ(1, sysExecSimple("/bin/false"));
  EXPECT_EQ(3, sysExecSimple("/bin/sh -c 'exit 3'"));
  EXPECT_EQ(127, sysExecSimple("/no/such/program"));
  EXPECT_EQ(-1, sysExecSimple(nullptr));
}

TEST(SysExecSimpleTest, ProgramFormPassesArgumentsWithoutAShell) {
  EXPECT_EQ(0, sysExecSimple("/bin/true", {}));
  EXPECT_EQ(1, sysExecSimple("/bin/false", {}));
  EXPECT_EQ(7, sysExecSimple("/bin/sh", {"-c", "exit 7"}));
  ASSERT_EQ(0, sysExecSimple("/bin/sh", {"-c", "printf '%s|' \"$0\" \"$@\" > /tmp/args", "name",
                                         "a b", "$HOME", ""}));
  EXPECT_EQ("name|a b|$HOME||", qira::test::read_file("/tmp/args"));
}

TEST(SysExecSimpleTest, MissingProgramIsAFailure) {
  EXPECT_EQ(-1, sysExecSimple("/no/such/program", {"x"}));
  EXPECT_EQ(-1, sysExecSimple(nullptr, {}));
}

TEST(SysExecSimpleTest, KilledChildReportsTheSignal) {
  EXPECT_EQ(128 + SIGKILL, sysExecSimple("/bin/sh", {"-c", "kill -9 $$"}));
}

TEST(RunDaemonTest, StartsADetachedDaemonWithStdioOnDevNull) {
  int pid = 0;
  ASSERT_NE(0, runDaemon(nullptr, nullptr, &pid, "/bin/sh", 2, "-c",
                         "read -r p c s pp pg sid rest < /proc/$$/stat; "
                         "echo \"$$ $sid $(readlink /proc/$$/fd/0) $(readlink /proc/$$/fd/1)\" "
                         "> /tmp/daemon.tmp; mv /tmp/daemon.tmp /tmp/daemon.out"));
  std::istringstream fields(wait_for_file("/tmp/daemon.out"));
  int reported_pid = 0;
  int session = 0;
  std::string stdin_target;
  std::string stdout_target;
  fields >> reported_pid >> session >> stdin_target >> stdout_target;
  EXPECT_EQ(pid, reported_pid);
  EXPECT_NE(::getsid(0), session);   // its own session
  EXPECT_NE(reported_pid, session);  // not the session leader: forked twice
  EXPECT_EQ("/dev/null", stdin_target);
  EXPECT_EQ("/dev/null", stdout_target);
}

TEST(RunDaemonTest, PassesArgumentsAndWorkingDirectory) {
  qira::test::make_dirs("/tmp/workdir");
  const std::string directory = "/tmp/workdir";
  ASSERT_NE(0,
            runDaemon(&directory, nullptr, nullptr, "/bin/sh", 5, "-c",
                      "echo \"$(pwd) $1 $2\" > out.tmp; mv out.tmp out", "sh", "first", "second"));
  EXPECT_EQ("/tmp/workdir first second\n", wait_for_file("/tmp/workdir/out"));
}

TEST(RunDaemonTest, DaemonDoesNotInheritTheHostsDescriptors) {
  int fd = ::open("/tmp/held", O_WRONLY | O_CREAT, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(57, ::dup2(fd, 57));  // dup2 clears close-on-exec
  ::close(fd);
  ASSERT_NE(0, runDaemon(nullptr, nullptr, nullptr, "/bin/sh", 2, "-c",
                         "if [ -e /proc/$$/fd/57 ]; then r=leaked; else r=closed; fi; "
                         "echo $r > /tmp/fd.tmp; mv /tmp/fd.tmp /tmp/fd.out"));
  EXPECT_EQ("closed\n", wait_for_file("/tmp/fd.out"));
  ::close(57);
}

// ---- What a child holds: standard input, output and error, nothing else ------------------

// Descriptors the test process holds without close-on-exec, as a host holds
// those it inherited or that a library opened: a file, both ends of a pipe
// and a socket, at high and low numbers.
class HeldDescriptors {
 public:
  HeldDescriptors() {
    const int file = ::open("/tmp/held", O_WRONLY | O_CREAT, 0600);
    int pipe_fds[2];
    EXPECT_EQ(0, ::pipe(pipe_fds));
    const int socket_fd = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    for (int fd : {file, pipe_fds[0], pipe_fds[1], socket_fd}) {
      EXPECT_GE(fd, 0);
      held_.push_back(fd);
    }
    EXPECT_EQ(57, ::dup2(file, 57));  // dup2 clears close-on-exec
    EXPECT_EQ(1000, ::dup2(socket_fd, 1000));
    held_.push_back(57);
    held_.push_back(1000);
  }
  ~HeldDescriptors() {
    for (int fd : held_) {
      ::close(fd);
    }
  }
  HeldDescriptors(const HeldDescriptors&) = delete;
  HeldDescriptors& operator=(const HeldDescriptors&) = delete;

 private:
  std::vector<int> held_;
};

// The descriptor numbers of process `pid`, sorted as text, one per line.
std::string descriptors_of(const std::string& pid) {
  std::vector<std::string> names;
  if (DIR* directory = ::opendir(("/proc/" + pid + "/fd").c_str())) {
    while (const dirent* entry = ::readdir(directory)) {
      if (entry->d_name[0] != '.') {
        names.emplace_back(entry->d_name);
      }
    }
    ::closedir(directory);
  }
  std::sort(names.begin(), names.end());
  std::string text;
  for (const std::string& name : names) {
    text += name + "\n";
  }
  return text;
}

// Runs `run` with this process's standard output going to a file, and
// answers what was written there.
template <typename Run>
std::string output_of(Run run) {
  const int saved = ::dup(STDOUT_FILENO);
  const int file = ::open("/tmp/fds.out", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  EXPECT_GE(file, 0);
  ::fflush(stdout);
  ::dup2(file, STDOUT_FILENO);
  ::close(file);
  run();
  ::dup2(saved, STDOUT_FILENO);
  ::close(saved);
  return qira::test::read_file("/tmp/fds.out");
}

// Both on a kernel with close_range and on one without it (Linux before
// 5.9), where the host walks /proc/self/fd instead.
class ChildDescriptorsTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (GetParam()) {
      refusal_ = std::make_unique<qira::test::CloseRangeRefusal>();
    }
  }
  std::unique_ptr<qira::test::CloseRangeRefusal> refusal_;
  HeldDescriptors held_;
};

// ls lists its own descriptors: standard input, output and error, and the
// directory it reads, which takes the lowest free number. A descriptor
// left open by the host would show, and push the directory's number up.
TEST_P(ChildDescriptorsTest, AProgramRunToCompletionGetsOnlyStandardDescriptors) {
  const std::string own = "0\n1\n2\n3\n";
  EXPECT_EQ(own, output_of([] { EXPECT_EQ(0, sysExecSimple("/bin/ls", {"/proc/self/fd"})); }));
  EXPECT_EQ(own, output_of([] { EXPECT_EQ(0, sysExecSimple("exec /bin/ls /proc/self/fd")); }));
}

// sleep opens files of its own while it starts (the locale): the listing
// is read until it settles, and a descriptor the host left open never goes.
TEST_P(ChildDescriptorsTest, ADaemonGetsOnlyStandardDescriptors) {
  int pid = 0;
  ASSERT_NE(0, runDaemon(nullptr, nullptr, &pid, "/bin/sleep", 1, "30"));
  wait_for_comm(pid, "sleep");
  const std::string standard = "0\n1\n2\n";
  std::string listed = descriptors_of(std::to_string(pid));
  for (const unsigned long long deadline = monotonic_ms() + 5000;
       listed != standard && monotonic_ms() < deadline;
       listed = descriptors_of(std::to_string(pid))) {
    struct timespec pause {
      0, 2 * 1000 * 1000
    };
    ::nanosleep(&pause, nullptr);
  }
  EXPECT_EQ(standard, listed);
  ::kill(pid, SIGKILL);
}

INSTANTIATE_TEST_SUITE_P(Kernels, ChildDescriptorsTest, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) {
                           return info.param ? std::string("WithoutCloseRange")
                                             : std::string("WithCloseRange");
                         });

// The blocked-signal set of `pid`, as /proc/<pid>/status shows it.
std::string blocked_signals(int pid) {
  std::string status;
  EXPECT_TRUE(qira::utils::File::ReadStringAll("/proc/" + std::to_string(pid) + "/status", status));
  std::size_t at = status.find("SigBlk:\t");
  return at == std::string::npos ? "" : status.substr(at + 8, 16);
}

TEST(RunDaemonTest, SignalMaskIsApplied) {
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGUSR2);
  int pid = 0;
  ASSERT_NE(0, runDaemon(nullptr, &mask, &pid, "/bin/sleep", 1, "30"));
  wait_for_comm(pid, "sleep");
  // SIGUSR2 is signal 12: bit 11 of the blocked set.
  EXPECT_EQ("0000000000000800", blocked_signals(pid));
  EXPECT_EQ(0, ::kill(pid, SIGKILL));
}

TEST(RunDaemonTest, WithoutMaskNothingIsBlockedEvenIfTheCallerBlocks) {
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  sigset_t previous;
  ASSERT_EQ(0, ::pthread_sigmask(SIG_BLOCK, &blocked, &previous));
  int pid = 0;
  int started = runDaemon(nullptr, nullptr, &pid, "/bin/sleep", 1, "30");
  ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  ASSERT_NE(0, started);
  wait_for_comm(pid, "sleep");
  EXPECT_EQ("0000000000000000", blocked_signals(pid));
  EXPECT_EQ(0, ::kill(pid, SIGKILL));
}

TEST(RunDaemonTest, MissingProgramOrFolderReportsZero) {
  int pid = -5;
  errno = 0;
  EXPECT_EQ(0, runDaemon(nullptr, nullptr, &pid, "/no/such/daemon", 1, "-x"));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_EQ(-5, pid);
  const std::string missing = "/tmp/no-such-folder";
  EXPECT_EQ(0, runDaemon(&missing, nullptr, nullptr, "/bin/true", 0));
  EXPECT_EQ(ENOENT, errno);
}

class KillByNameTest : public testing::Test {
 protected:
  void SetUp() override {
    name_ = "qs" + qira::utils::randomAlphaNumericString("", 10);
    path_ = "/tmp/" + name_;
    ASSERT_EQ(0, sysExecSimple("/bin/cp", {"/bin/sleep", path_}));
  }
  std::string name_;
  std::string path_;
};

TEST_F(KillByNameTest, SignalsEveryProcessOfThatName) {
  pid_t first = spawn(path_, path_, {"30"});
  pid_t second = spawn(path_, name_, {"30"});
  wait_for_comm(first, name_);
  wait_for_comm(second, name_);
  EXPECT_EQ(2, qira::utils::kill_process_by_name(name_, SIGTERM));
  EXPECT_EQ(SIGTERM, wait_for_signal(first));
  EXPECT_EQ(SIGTERM, wait_for_signal(second));
}

TEST_F(KillByNameTest, MatchesTheBaseNameOfArgv0) {
  const std::string long_name = "qira-" + name_ + "-long-name";  // beyond comm's 15 characters
  pid_t child = spawn(path_, "/opt/bin/" + long_name, {"30"});
  wait_for_comm(child, name_);
  EXPECT_EQ(1, qira::utils::kill_process_by_name(long_name, SIGUSR2));
  EXPECT_EQ(SIGUSR2, wait_for_signal(child));
}

TEST_F(KillByNameTest, UnknownNameSignalsNothing) {
  EXPECT_EQ(0, qira::utils::kill_process_by_name(name_ + "x", SIGTERM));
}

TEST_F(KillByNameTest, NeverSignalsTheCaller) {
  ASSERT_EQ(0, ::prctl(PR_SET_NAME, name_.c_str(), 0, 0, 0));
  EXPECT_EQ(0, qira::utils::kill_process_by_name(name_, SIGTERM));
}

TEST(ProcessRecorderTest, RecordsExactCallsAndAnswersDefaults) {
  qira::host::ProcessRecorder recorder;
  EXPECT_EQ(0, sysExecSimple("/bin/false"));
  EXPECT_EQ(0, sysExecSimple("/bin/iw", {"dev", "wlan0", "del"}));
  int pid = 99;
  EXPECT_EQ(1, runDaemon(nullptr, nullptr, &pid, "/bin/hostapd", 5, "-B", "-d", "-f",
                         "/var/log/hostapd.log", "/etc/hostapd.conf"));
  EXPECT_EQ(0, pid);
  EXPECT_EQ(0, qira::utils::kill_process_by_name("udhcpc", 12));
  std::vector<ProcessCall> calls = recorder.calls();
  ASSERT_EQ(4U, calls.size());
  EXPECT_EQ(ProcessCall::kShell, calls[0].kind);
  EXPECT_EQ("/bin/false", calls[0].program);
  EXPECT_TRUE(calls[0].args.empty());
  EXPECT_EQ(ProcessCall::kExec, calls[1].kind);
  EXPECT_EQ("/bin/iw", calls[1].program);
  EXPECT_EQ((std::vector<std::string>{"dev", "wlan0", "del"}), calls[1].args);
  EXPECT_EQ(ProcessCall::kDaemon, calls[2].kind);
  EXPECT_EQ("/bin/hostapd", calls[2].program);
  EXPECT_EQ(
      (std::vector<std::string>{"-B", "-d", "-f", "/var/log/hostapd.log", "/etc/hostapd.conf"}),
      calls[2].args);
  EXPECT_EQ(ProcessCall::kSignal, calls[3].kind);
  EXPECT_EQ("udhcpc", calls[3].program);
  EXPECT_EQ(12, calls[3].signal);
  recorder.clear();
  EXPECT_TRUE(recorder.calls().empty());
}

TEST(ProcessRecorderTest, ChosenResultsPerProgramLastOneWins) {
  qira::host::ProcessRecorder recorder;
  recorder.set_result("/bin/iw", 2);
  recorder.set_result("/bin/hostapd", 0);
  recorder.set_result("lighttpd", 3);
  recorder.set_result("/bin/iw", 5);
  EXPECT_EQ(5, sysExecSimple("/bin/iw", {"dev"}));
  EXPECT_EQ(0, sysExecSimple("/bin/wl", {"ap", "0"}));
  EXPECT_EQ(0, runDaemon(nullptr, nullptr, nullptr, "/bin/hostapd", 0));
  EXPECT_EQ(3, qira::utils::kill_process_by_name("lighttpd", 15));
}

TEST(ProcessRecorderTest, RestoresThePreviousRunner) {
  {
    qira::host::ProcessRecorder outer;
    {
      qira::host::ProcessRecorder inner;
      sysExecSimple("/bin/false", {});
      EXPECT_EQ(1U, inner.calls().size());
    }
    sysExecSimple("/bin/false", {});
    EXPECT_EQ(1U, outer.calls().size());
  }
  EXPECT_EQ(1, sysExecSimple("/bin/false", {}));  // the real runner again
}

TEST(ProcessRecorderTest, PassThroughRunsForRealAndRecords) {
  qira::host::ProcessRecorder recorder;
  recorder.set_pass_through(true);
  EXPECT_EQ(1, sysExecSimple("/bin/false", {}));
  EXPECT_EQ(3, sysExecSimple("exit 3"));
  recorder.set_result("/bin/false", 0);
  EXPECT_EQ(0, sysExecSimple("/bin/false", {}));
  EXPECT_EQ(3U, recorder.calls().size());
}

}  // namespace
