// Death tests run in the same sandbox as their test: gtest's "fast" style
// forks, its "threadsafe" style re-executes the binary, whose main() must
// then stay in the sandbox its parent built.
#include "support/sandbox.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace qira::test {
namespace {

constexpr char kMarker[] = "/etc/qira-death-marker";

// In the child: reports what it sees of the sandbox on stderr, then aborts.
[[noreturn]] void report_and_abort() {
  char content[64] = {};
  const int file = open(kMarker, O_RDONLY | O_CLOEXEC);
  if (file >= 0) {
    (void)!read(file, content, sizeof content - 1);
    close(file);
  }
  struct statfs root {};
  const bool root_is_tmpfs = statfs("/", &root) == 0 && root.f_type == TMPFS_MAGIC;
  std::fprintf(stderr, "child: in_sandbox=%d tmpfs=%d marker=%s\n", in_sandbox() ? 1 : 0,
               root_is_tmpfs ? 1 : 0, content);
  std::abort();
}

TEST(SandboxDeathTest, FastStyleChildSharesTheSandbox) {
  GTEST_FLAG_SET(death_test_style, "fast");
  write_file(kMarker, "fast-parent");
  EXPECT_DEATH(report_and_abort(), "child: in_sandbox=1 tmpfs=1 marker=fast-parent");
}

TEST(SandboxDeathTest, ThreadsafeStyleChildSharesTheSandbox) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  write_file(kMarker, "threadsafe-parent");
  EXPECT_DEATH(report_and_abort(), "child: in_sandbox=1 tmpfs=1 marker=threadsafe-parent");
}

TEST(SandboxDeathTest, ExitCodeOfTheChildIsSeen) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::_Exit(3), testing::ExitedWithCode(3), "");
}

}  // namespace
}  // namespace qira::test
