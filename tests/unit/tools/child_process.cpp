#include "unit/tools/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

extern char** environ;

namespace qira::test {

namespace {

// Both ends of a pipe, each closed when its holder goes.
struct Pipe {
  int read_end = -1;
  int write_end = -1;
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == 0) {
      read_end = ends[0];
      write_end = ends[1];
    }
  }
  ~Pipe() {
    close_read();
    close_write();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  void close_read() {
    if (read_end >= 0) {
      ::close(read_end);
      read_end = -1;
    }
  }
  void close_write() {
    if (write_end >= 0) {
      ::close(write_end);
      write_end = -1;
    }
  }
};

// Milliseconds left until `deadline`, never negative.
int remaining_ms(std::chrono::steady_clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

}  // namespace

ChildResult run_child(const std::vector<std::string>& argv, unsigned int deadline_ms) {
  ChildResult result;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(deadline_ms);
  Pipe out;
  Pipe err;
  if (argv.empty() || out.read_end < 0 || err.read_end < 0) {
    return result;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out.write_end, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err.write_end, STDERR_FILENO);
  std::vector<char*> args;
  for (const std::string& arg : argv) {
    args.push_back(const_cast<char*>(arg.c_str()));
  }
  args.push_back(nullptr);
  pid_t pid = -1;
  const int spawned = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  out.close_write();
  err.close_write();
  if (spawned != 0) {
    result.err = "cannot start " + argv[0];
    return result;
  }

  pollfd fds[2] = {{out.read_end, POLLIN, 0}, {err.read_end, POLLIN, 0}};
  std::string* sinks[2] = {&result.out, &result.err};
  int open_streams = 2;
  while (open_streams > 0) {
    const int timeout = remaining_ms(deadline);
    if (timeout == 0) {
      break;
    }
    const int ready = poll(fds, 2, timeout);
    if (ready < 0 && errno == EINTR) {
      continue;
    }
    if (ready <= 0) {
      break;
    }
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) {
        continue;
      }
      char buffer[4096];
      const ssize_t length = read(fds[i].fd, buffer, sizeof(buffer));
      if (length > 0) {
        sinks[i]->append(buffer, static_cast<std::size_t>(length));
      } else if (length == 0 || errno != EINTR) {
        fds[i].fd = -1;
        --open_streams;
      }
    }
  }
  if (open_streams > 0) {
    kill(pid, SIGKILL);
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  result.finished = open_streams == 0;
  result.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

}  // namespace qira::test
