// write_file, read_file and make_dirs, and the failures they report.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "support/sandbox.h"

namespace qira::test {
namespace {

bool is_folder(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

TEST(FileHelpers, WriteFileCreatesParentFolders) {
  write_file("/var/lib/qira/deep/file", "abc\n");
  EXPECT_TRUE(is_folder("/var/lib/qira/deep"));
  EXPECT_EQ(read_file("/var/lib/qira/deep/file"), "abc\n");
}

TEST(FileHelpers, WriteFileReplacesTheWholeContent) {
  write_file("/etc/replaced", "a long first content\n");
  write_file("/etc/replaced", "short");
  EXPECT_EQ(read_file("/etc/replaced"), "short");
}

TEST(FileHelpers, ContentKeepsNulBytes) {
  const std::string bytes("a\0b\xff", 4);
  write_file("/tmp/binary", bytes);
  EXPECT_EQ(read_file("/tmp/binary"), bytes);
}

TEST(FileHelpers, EmptyFileReadsEmpty) {
  write_file("/tmp/empty", "");
  EXPECT_EQ(read_file("/tmp/empty"), "");
}

TEST(FileHelpers, ReadingAMissingFileFailsTheTest) {
  EXPECT_NONFATAL_FAILURE(read_file("/etc/absent"),
                          "cannot open /etc/absent: No such file or directory");
}

TEST(FileHelpers, MakeDirsCreatesEveryParent) {
  make_dirs("/sys/module/bcmdhd/parameters");
  EXPECT_TRUE(is_folder("/sys/module/bcmdhd"));
  EXPECT_TRUE(is_folder("/sys/module/bcmdhd/parameters"));
}

TEST(FileHelpers, MakeDirsOnAnExistingFolderSucceeds) {
  make_dirs("/run/a/b");
  make_dirs("/run/a/b");
  make_dirs("/run/a/b/");
  EXPECT_TRUE(is_folder("/run/a/b"));
}

TEST(FileHelpers, MakeDirsThroughAFileFailsTheTest) {
  write_file("/tmp/plain", "");
  EXPECT_NONFATAL_FAILURE(make_dirs("/tmp/plain/sub"),
                          "cannot create folder /tmp/plain/sub: Not a directory");
}

TEST(FileHelpers, WritingIntoAReadOnlyTreeFailsTheTest) {
  EXPECT_NONFATAL_FAILURE(write_file("/usr/qira-probe", "x"),
                          "cannot create /usr/qira-probe: Read-only file system");
}

}  // namespace
}  // namespace qira::test
