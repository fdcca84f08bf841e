// run_for_output: a program run to completion with its output gathered,
// standard input empty and no descriptor of the host but the output pipe.
#include "qira/host/program_output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "support/sandbox.h"

namespace qira::test {
namespace {

constexpr std::size_t kLimit = 64 * 1024;

void write_program(const std::string& path, const std::string& script) {
  write_file(path, "#!/bin/sh\n" + script);
  ASSERT_EQ(::chmod(path.c_str(), 0755), 0) << std::strerror(errno);
}

TEST(ProgramOutput, OutputAndErrorAndTheExitStatus) {
  write_program("/tmp/programs/tells", "echo \"tells v$1\"\necho oops >&2\nexit 3\n");
  const qira::host::ProgramOutput run =
      qira::host::run_for_output("/tmp/programs/tells", {"2.0"}, 5000, kLimit);
  EXPECT_TRUE(run.started);
  EXPECT_TRUE(run.finished);
  EXPECT_EQ(run.exit_status, 3);
  EXPECT_EQ(run.output, "tells v2.0\noops\n");
}

TEST(ProgramOutput, StandardInputIsEmpty) {
  write_program("/tmp/programs/reads",
                "if read line; then echo \"got $line\"; else echo none; fi\n");
  EXPECT_EQ(qira::host::run_for_output("/tmp/programs/reads", {}, 5000, kLimit).output, "none\n");
}

TEST(ProgramOutput, NoOtherDescriptorReachesTheProgram) {
  const int open_fd = ::open("/dev/null", O_RDONLY);  // deliberately not close-on-exec
  ASSERT_GT(open_fd, 2);
  write_program("/tmp/programs/fds", "if [ -e /proc/$$/fd/" + std::to_string(open_fd) +
                                         " ]; then echo open; else echo closed; fi\n");
  EXPECT_EQ(qira::host::run_for_output("/tmp/programs/fds", {}, 5000, kLimit).output, "closed\n");
  ::close(open_fd);
}

TEST(ProgramOutput, AMissingOrForeignProgramDoesNotStart) {
  const qira::host::ProgramOutput missing =
      qira::host::run_for_output("/tmp/programs/none", {}, 5000, kLimit);
  EXPECT_FALSE(missing.started);
  EXPECT_EQ(missing.start_errno, ENOENT);
  write_file("/tmp/programs/foreign", std::string("\x7f"
                                                  "ELF\x01\x02",
                                                  6) +
                                          std::string(64, '\0'));
  ASSERT_EQ(::chmod("/tmp/programs/foreign", 0755), 0);
  const qira::host::ProgramOutput foreign =
      qira::host::run_for_output("/tmp/programs/foreign", {}, 5000, kLimit);
  EXPECT_FALSE(foreign.started);
  EXPECT_EQ(foreign.start_errno, ENOEXEC);
}

TEST(ProgramOutput, AProgramPastItsDeadlineIsKilled) {
  write_program("/tmp/programs/slow", "echo started\nexec sleep 30\n");
  const qira::host::ProgramOutput run =
      qira::host::run_for_output("/tmp/programs/slow", {}, 300, kLimit);
  EXPECT_TRUE(run.started);
  EXPECT_FALSE(run.finished);
  EXPECT_EQ(run.output, "started\n");
}

TEST(ProgramOutput, OutputIsKeptUpToItsLimit) {
  write_program("/tmp/programs/loud", "head -c 100000 /dev/zero | tr '\\0' x\n");
  const qira::host::ProgramOutput run =
      qira::host::run_for_output("/tmp/programs/loud", {}, 5000, kLimit);
  EXPECT_TRUE(run.finished);
  EXPECT_EQ(run.output, std::string(kLimit, 'x'));
}

}  // namespace
}  // namespace qira::test
