#include "support/message_ledger.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "qira/host/seams.h"
#include "support/ledger_text.h"

namespace qira::test {

namespace {

constexpr const char kModule[] = "qira_network_utils_wireless";

// One write(2) per record on an O_APPEND descriptor: the lines of forked
// children (death tests) and of threads never interleave within a line.
// Returns how much of `line` from `done` on was written.
std::size_t write_from(int fd, const std::string& line, std::size_t done) {
  while (done < line.size()) {
    const ssize_t n = ::write(fd, line.data() + done, line.size() - done);
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

// A test that limits the file size (RLIMIT_FSIZE, to make the module's own
// writes fail) limits the ledger's too: the ledger then lifts the soft limit
// for the rest of its line and puts it back, errno included.
void append(int fd, const std::string& line) {
  const int saved_errno = errno;
  const std::size_t done = write_from(fd, line, 0);
  if (done < line.size() && errno == EFBIG) {
    rlimit limit{};
    if (::getrlimit(RLIMIT_FSIZE, &limit) == 0) {
      rlimit lifted = limit;
      lifted.rlim_cur = limit.rlim_max;
      if (::setrlimit(RLIMIT_FSIZE, &lifted) == 0) {
        write_from(fd, line, done);
        ::setrlimit(RLIMIT_FSIZE, &limit);
      }
    }
  }
  errno = saved_errno;
}

}  // namespace

void open_message_ledger(int argc, char** argv) {
  const char* folder = std::getenv("QIRA_MESSAGE_LEDGER");
  if (folder == nullptr || *folder == '\0') {
    folder = QIRA_BINARY_DIR "/message-ledger";
  }
  if (argc < 1) {
    return;
  }
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--gtest_list_tests") == 0) {
      return;
    }
  }
  std::string program = argv[0];
  program = program.substr(program.rfind('/') + 1);
  const std::string path =
      std::string(folder) + "/" + program + "." + std::to_string(::getpid()) + ".log";
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0) {
    // A missing ledger makes the coverage check call the run partial; the
    // test itself goes on.
    return;
  }
  // The descriptor lives as long as the process: records arrive until exit.
  append(fd, "#program\t" + program + "\n");
  qira::host::set_log_tap([fd](const qira::host::LogRecord& record) {
    if (record.module == kModule) {
      append(fd, record.file + "\t" + escape_ledger_text(record.message) + "\n");
    }
  });
}

}  // namespace qira::test
