// File, FdReaderWriter, SetFdNonBlock and fileExists, in the sandbox's /tmp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "qira/host_globals.h"
#include "qira/utils/fd.h"
#include "qira/utils/file.h"
#include "support/sandbox.h"

namespace {

using qira::utils::File;

mode_t permissions_of(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(0, ::stat(path.c_str(), &status)) << path;
  return status.st_mode & 07777;
}

TEST(FileTest, WriteModeCreatesWithMode0600ByDefault) {
  ::umask(022);
  File file;
  ASSERT_TRUE(file.Initialize("/tmp/secret.conf", qira::utils::FILE_OPEN_WRITE, 0));
  ASSERT_TRUE(file.WriteString("psk=\"x\"\n"));
  file.Close();
  EXPECT_EQ(0600U, permissions_of("/tmp/secret.conf"));
  EXPECT_EQ("psk=\"x\"\n", qira::test::read_file("/tmp/secret.conf"));
}

TEST(FileTest, ExplicitPermissionsApplyToACreatedFile) {
  ::umask(022);
  File file;
  ASSERT_TRUE(file.Initialize("/tmp/public.conf", qira::utils::FILE_OPEN_WRITE, 0644));
  EXPECT_EQ(0644U, permissions_of("/tmp/public.conf"));
}

TEST(FileTest, WriteModeReplacesTheContent) {
  qira::test::write_file("/tmp/replace.txt", "old content that is long");
  File file;
  ASSERT_TRUE(file.Initialize("/tmp/replace.txt", qira::utils::FILE_OPEN_WRITE, 0));
  ASSERT_TRUE(file.WriteString("new"));
  file.Close();
  EXPECT_EQ("new", qira::test::read_file("/tmp/replace.txt"));
}

TEST(FileTest, AppendModeWritesAtTheEndAndCreates) {
  File file;
  ASSERT_TRUE(file.Initialize("/tmp/hosts", qira::utils::FILE_OPEN_APPEND, 0));
  ASSERT_TRUE(file.WriteString("a\n"));
  file.Close();
  EXPECT_EQ(0600U, permissions_of("/tmp/hosts"));
  ASSERT_TRUE(file.Initialize("/tmp/hosts", qira::utils::FILE_OPEN_APPEND, 0));
  ASSERT_TRUE(file.WriteString("b\n"));
  file.Close();
  EXPECT_EQ("a\nb\n", qira::test::read_file("/tmp/hosts"));
}

TEST(FileTest, ReadModeNeedsAnExistingFileAndReads) {
  File file;
  EXPECT_FALSE(file.Initialize("/tmp/missing", qira::utils::FILE_OPEN_READ, 0));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_EQ(-1, file.GetFd());
  qira::test::write_file("/tmp/present", "hello");
  ASSERT_TRUE(file.Initialize("/tmp/present", qira::utils::FILE_OPEN_READ, 0));
  std::string text;
  ASSERT_TRUE(file.ReadString(text));
  EXPECT_EQ("hello", text);
  EXPECT_FALSE(file.WriteString("x"));
}

TEST(FileTest, ReadWriteModeCreatesAndKeepsContent) {
  qira::test::write_file("/tmp/rw", "abcdef");
  File file;
  ASSERT_TRUE(file.Initialize("/tmp/rw", qira::utils::FILE_OPEN_READ_WRITE, 0));
  ASSERT_TRUE(file.WriteString("XY"));
  file.Close();
  EXPECT_EQ("XYcdef", qira::test::read_file("/tmp/rw"));
  ASSERT_TRUE(file.Initialize("/tmp/rw-new", qira::utils::FILE_OPEN_READ_WRITE, 0));
  EXPECT_EQ(0600U, permissions_of("/tmp/rw-new"));
}

TEST(FileTest, DescriptorIsCloseOnExecAndClosedByDestructor) {
  int fd = -1;
  {
    File file;
    ASSERT_TRUE(file.Initialize("/tmp/cloexec", qira::utils::FILE_OPEN_WRITE, 0));
    fd = file.GetFd();
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(fd, F_GETFD) & FD_CLOEXEC);
  }
  EXPECT_EQ(-1, ::fcntl(fd, F_GETFD));
  EXPECT_EQ(EBADF, errno);
}

TEST(FileTest, InitializeClosesTheFileOpenedBefore) {
  File file;
  ASSERT_TRUE(file.Initialize("/tmp/first", qira::utils::FILE_OPEN_WRITE, 0));
  ASSERT_TRUE(file.Initialize("/tmp/second", qira::utils::FILE_OPEN_WRITE, 0));
  ASSERT_TRUE(file.WriteString("2"));
  file.Close();
  EXPECT_EQ(-1, file.GetFd());
  EXPECT_EQ("", qira::test::read_file("/tmp/first"));
  EXPECT_EQ("2", qira::test::read_file("/tmp/second"));
}

TEST(FileTest, InvalidModeAndMissingFolderFail) {
  File file;
  EXPECT_FALSE(file.Initialize("/tmp/x", static_cast<qira::utils::FILE_OPEN_MODE>(9), 0));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_FALSE(file.Initialize("/tmp/no/such/dir/x", qira::utils::FILE_OPEN_WRITE, 0));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_FALSE(file.WriteString("x"));
  EXPECT_EQ(EBADF, errno);
}

TEST(FileTest, WriteStringWritesLargeTextWhole) {
  std::string big(1 << 20, 'q');
  big[12345] = 'z';
  File file;
  ASSERT_TRUE(file.Initialize("/tmp/big", qira::utils::FILE_OPEN_WRITE, 0));
  ASSERT_TRUE(file.WriteString(big));
  file.Close();
  std::string back;
  ASSERT_TRUE(File::ReadStringAll("/tmp/big", back));
  EXPECT_EQ(big, back);
}

TEST(FileTest, ReadStringAllOfMissingFileFails) {
  std::string out = "unchanged";
  EXPECT_FALSE(File::ReadStringAll("/tmp/none", out));
  qira::test::write_file("/tmp/empty", "");
  EXPECT_TRUE(File::ReadStringAll("/tmp/empty", out));
  EXPECT_EQ("", out);
}

TEST(FdTest, SetFdNonBlockSetsTheFlag) {
  int fds[2];
  ASSERT_EQ(0, ::pipe(fds));
  EXPECT_TRUE(qira::utils::SetFdNonBlock(fds[0]));
  EXPECT_EQ(O_NONBLOCK, ::fcntl(fds[0], F_GETFL) & O_NONBLOCK);
  EXPECT_TRUE(qira::utils::SetFdNonBlock(fds[0]));
  ::close(fds[0]);
  ::close(fds[1]);
  EXPECT_FALSE(qira::utils::SetFdNonBlock(fds[0]));
}

TEST(FileExistsTest, FilesFoldersAndMissingPaths) {
  qira::test::write_file("/var/run/wpa_supplicant/wlan0", "");
  EXPECT_TRUE(fileExists("/var/run/wpa_supplicant", false));
  EXPECT_FALSE(fileExists("/var/run/wpa_supplicant", true));
  EXPECT_TRUE(fileExists("/var/run/wpa_supplicant/wlan0", true));
  EXPECT_FALSE(fileExists("/var/run/none", false));
  EXPECT_FALSE(fileExists(nullptr, false));
}

}  // namespace
