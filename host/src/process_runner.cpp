// The real process runner: runs programs to completion, starts detached
// daemons and signals processes by name through /proc. Every child keeps
// standard input, output and error and no other descriptor of the host
// (descriptors.h).
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "descriptors.h"
#include "host_internal.h"
#include "qira/host/program_output.h"
#include "qira/utils/file.h"

namespace qira::host {

namespace {

using internal::close_inherited_descriptors;
using internal::unique_fd;

constexpr const char* kShell = "/bin/sh";
constexpr const char* kDevNull = "/dev/null";
constexpr const char* kProc = "/proc";
// Exit status of a daemon child whose exec failed (never seen by the caller).
constexpr int kExecFailedStatus = 127;

// argv for exec: the program path, then the arguments; the strings must
// outlive the returned pointers.
std::vector<char*> make_argv(const std::string& program, const std::vector<std::string>& args) {
  std::vector<char*> argv;
  argv.reserve(args.size() + 2);
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& arg : args) {
    argv.push_back(const_cast<char*>(arg.c_str()));
  }
  argv.push_back(nullptr);
  return argv;
}

// Waits for `pid`; 0..255 for an exit status, 128 + signal for a killed child,
// -1 when it cannot be waited for.
int wait_status(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) {
      return -1;
    }
  }
  if (WIFEXITED(status)) {
    return WEXITSTATUS(status);
  }
  if (WIFSIGNALED(status)) {
    return 128 + WTERMSIG(status);
  }
  return -1;
}

// Reads exactly `size` bytes unless the pipe ends first; the byte count read.
std::size_t read_full(int fd, void* buffer, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    ssize_t n = ::read(fd, static_cast<char*>(buffer) + done, size - done);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      break;
    }
    done += static_cast<std::size_t>(n);
  }
  return done;
}

void write_full(int fd, const void* buffer, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    ssize_t n = ::write(fd, static_cast<const char*>(buffer) + done, size - done);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return;
    }
    done += static_cast<std::size_t>(n);
  }
}

// The grandchild of start_daemon: becomes the daemon. Only async-signal-safe
// calls from here on. It reports its pid, then either execs (the close-on-exec
// report pipe then reads as end of file) or reports errno and exits.
[[noreturn]] void become_daemon(int report_fd, const char* working_directory,
                                const sigset_t* signal_mask, char* const* argv) {
  pid_t self = ::getpid();
  write_full(report_fd, &self, sizeof(self));
  int error = 0;
  if (working_directory != nullptr && ::chdir(working_directory) != 0) {
    error = errno;
  }
  if (error == 0) {
    // A daemon starts from default dispositions and, unless told otherwise,
    // with nothing blocked: a host thread that blocks SIGTERM must not make
    // its daemons immune to being stopped by name.
    struct sigaction default_action {};
    default_action.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number) {
      ::sigaction(number, &default_action, nullptr);
    }
    sigset_t nothing;
    ::sigemptyset(&nothing);
    ::sigprocmask(SIG_SETMASK, signal_mask != nullptr ? signal_mask : &nothing, nullptr);
  }
  if (error == 0) {
    int null_fd = ::open(kDevNull, O_RDWR);
    if (null_fd < 0) {
      error = errno;
    } else {
      ::dup2(null_fd, STDIN_FILENO);
      ::dup2(null_fd, STDOUT_FILENO);
      ::dup2(null_fd, STDERR_FILENO);
      if (null_fd > STDERR_FILENO) {
        ::close(null_fd);
      }
      // The daemon must not keep the host's sockets and files open; the
      // report pipe is close-on-exec.
      close_inherited_descriptors(report_fd);
      ::execv(argv[0], argv);
      error = errno;
    }
  }
  write_full(report_fd, &error, sizeof(error));
  ::_exit(kExecFailedStatus);
}

// The child of run_for_output: an empty standard input, `output_fd` as its
// standard output and error, nothing else but the close-on-exec report pipe.
// Only async-signal-safe calls.
[[noreturn]] void become_reporting_child(int output_fd, int report_fd, char* const* argv) {
  int error = 0;
  const int null_fd = ::open(kDevNull, O_RDONLY);
  if (null_fd < 0 || ::dup2(null_fd, STDIN_FILENO) < 0 || ::dup2(output_fd, STDOUT_FILENO) < 0 ||
      ::dup2(output_fd, STDERR_FILENO) < 0) {
    error = errno;
  } else {
    close_inherited_descriptors(report_fd);
    ::execv(argv[0], argv);
    error = errno;
  }
  write_full(report_fd, &error, sizeof(error));
  ::_exit(kExecFailedStatus);
}

// Whether /proc/<pid> belongs to a process called `name`: its comm, or the
// base name of its argv[0].
bool process_has_name(const std::string& pid_dir, const std::string& name) {
  std::string comm;
  if (qira::utils::File::ReadStringAll(pid_dir + "/comm", comm)) {
    if (!comm.empty() && comm.back() == '\n') {
      comm.pop_back();
    }
    if (comm == name) {
      return true;
    }
  }
  std::string cmdline;
  if (!qira::utils::File::ReadStringAll(pid_dir + "/cmdline", cmdline) || cmdline.empty()) {
    return false;  // kernel threads and zombies have no command line
  }
  std::string argv0 = cmdline.substr(0, cmdline.find('\0'));
  std::size_t slash = argv0.rfind('/');
  return (slash == std::string::npos ? argv0 : argv0.substr(slash + 1)) == name;
}

class RealProcessRunner : public ProcessRunner {
 public:
  int run_shell(const std::string& command) override { return run(kShell, {"-c", command}); }

  // fork and exec rather than posix_spawn, whose portable form cannot close
  // the descriptors the host did not open close-on-exec. A failed exec (a
  // missing program) comes back through a close-on-exec pipe as its errno.
  int run(const std::string& program, const std::vector<std::string>& args) override {
    std::vector<char*> argv = make_argv(program, args);
    int pipe_fds[2];
    if (::pipe2(pipe_fds, O_CLOEXEC) != 0) {
      return -1;
    }
    unique_fd report_read(pipe_fds[0]);
    unique_fd report_write(pipe_fds[1]);
    const pid_t child = ::fork();
    if (child < 0) {
      return -1;
    }
    if (child == 0) {
      close_inherited_descriptors(report_write.get());
      ::execv(argv[0], argv.data());
      const int error = errno;
      write_full(report_write.get(), &error, sizeof(error));
      ::_exit(kExecFailedStatus);
    }
    report_write.reset();
    int error = 0;
    const bool exec_failed = read_full(report_read.get(), &error, sizeof(error)) == sizeof(error);
    const int status = wait_status(child);
    if (exec_failed) {
      errno = error;
      return -1;
    }
    return status;
  }

  int start_daemon(const std::string& program, const std::vector<std::string>& args,
                   const std::string* working_directory, const __sigset_t* signal_mask,
                   int* pid) override {
    std::vector<char*> argv = make_argv(program, args);
    const char* directory = working_directory != nullptr ? working_directory->c_str() : nullptr;
    int pipe_fds[2];
    if (::pipe2(pipe_fds, O_CLOEXEC) != 0) {
      return 0;
    }
    unique_fd report_read(pipe_fds[0]);
    unique_fd report_write(pipe_fds[1]);
    pid_t child = ::fork();
    if (child < 0) {
      return 0;
    }
    if (child == 0) {
      // Own session, then fork again so the daemon is no session leader and
      // is reparented away from the host.
      ::setsid();
      pid_t grandchild = ::fork();
      if (grandchild == 0) {
        become_daemon(report_write.get(), directory, signal_mask, argv.data());
      }
      ::_exit(grandchild < 0 ? kExecFailedStatus : 0);
    }
    report_write.reset();
    wait_status(child);
    pid_t daemon_pid = 0;
    if (read_full(report_read.get(), &daemon_pid, sizeof(daemon_pid)) != sizeof(daemon_pid)) {
      return 0;
    }
    int error = 0;
    if (read_full(report_read.get(), &error, sizeof(error)) == sizeof(error)) {
      errno = error;
      return 0;
    }
    if (pid != nullptr) {
      *pid = daemon_pid;
    }
    return 1;
  }

  int signal_by_name(const std::string& name, int signal) override {
    DIR* proc = ::opendir(kProc);
    if (proc == nullptr) {
      return -1;
    }
    const pid_t self = ::getpid();
    int signalled = 0;
    while (struct dirent* entry = ::readdir(proc)) {
      char* end = nullptr;
      long pid = std::strtol(entry->d_name, &end, 10);
      if (end == entry->d_name || *end != '\0' || pid <= 0 || pid == self) {
        continue;
      }
      if (process_has_name(std::string(kProc) + "/" + entry->d_name, name) &&
          ::kill(static_cast<pid_t>(pid), signal) == 0) {
        ++signalled;
      }
    }
    ::closedir(proc);
    return signalled;
  }
};

}  // namespace

ProgramOutput run_for_output(const std::string& program, const std::vector<std::string>& args,
                             unsigned int deadline_ms, std::size_t longest_output) {
  ProgramOutput result;
  std::vector<char*> argv = make_argv(program, args);
  int output_fds[2];
  int report_fds[2];
  if (::pipe2(output_fds, O_CLOEXEC) != 0) {
    result.start_errno = errno;
    return result;
  }
  unique_fd output_read(output_fds[0]);
  unique_fd output_write(output_fds[1]);
  if (::pipe2(report_fds, O_CLOEXEC) != 0) {
    result.start_errno = errno;
    return result;
  }
  unique_fd report_read(report_fds[0]);
  unique_fd report_write(report_fds[1]);
  const pid_t child = ::fork();
  if (child < 0) {
    result.start_errno = errno;
    return result;
  }
  if (child == 0) {
    become_reporting_child(output_write.get(), report_write.get(), argv.data());
  }
  output_write.reset();
  report_write.reset();
  int error = 0;
  if (read_full(report_read.get(), &error, sizeof(error)) == sizeof(error)) {
    wait_status(child);
    result.start_errno = error;
    return result;
  }
  result.started = true;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(deadline_ms);
  char buffer[4096];
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      ::kill(child, SIGKILL);
      wait_status(child);
      return result;
    }
    pollfd readable{output_read.get(), POLLIN, 0};
    const int ready = ::poll(&readable, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno != EINTR) {
      ::kill(child, SIGKILL);
      wait_status(child);
      return result;
    }
    if (ready <= 0) {
      continue;
    }
    const ssize_t got = ::read(output_read.get(), buffer, sizeof(buffer));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      break;  // every writer has closed the pipe: the program is done with it
    }
    const std::size_t room = longest_output - std::min(longest_output, result.output.size());
    result.output.append(buffer, std::min(room, static_cast<std::size_t>(got)));
  }
  result.exit_status = wait_status(child);
  result.finished = true;
  return result;
}

ProcessRunner& real_process_runner() {
  static RealProcessRunner runner;
  return runner;
}

}  // namespace qira::host
