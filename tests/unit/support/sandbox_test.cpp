// The sandbox root: a fresh tmpfs that holds only what a test needs, with
// the machine's own /etc, /tmp, /var/run and /sys out of sight. CTest runs
// every test in a process (and so a sandbox) of its own: the tests of the
// fresh state assume they run first in their sandbox.
#include "support/sandbox.h"

#include <dirent.h>
#include <linux/magic.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace qira::test {
namespace {

std::vector<std::string> folder_entries(const std::string& path) {
  std::vector<std::string> names;
  DIR* folder = opendir(path.c_str());
  if (folder == nullptr) {
    ADD_FAILURE() << "cannot open folder " << path;
    return names;
  }
  while (const dirent* entry = readdir(folder)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      names.push_back(name);
    }
  }
  closedir(folder);
  std::sort(names.begin(), names.end());
  return names;
}

dev_t device_of(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status.st_dev;
}

mode_t mode_of(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

// Runs a program to completion: its exit status, or 128 + signal.
int run_program(std::vector<const char*> arguments) {
  arguments.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    execv(arguments[0], const_cast<char* const*>(arguments.data()));
    _exit(127);
  }
  EXPECT_GT(child, 0);
  int status = 0;
  pid_t waited;
  do {
    waited = waitpid(child, &status, 0);
  } while (waited < 0 && errno == EINTR);
  EXPECT_EQ(waited, child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST(Sandbox, RootIsATmpfs) {
  struct statfs root {};
  ASSERT_EQ(statfs("/", &root), 0);
  EXPECT_EQ(static_cast<unsigned long>(root.f_type), static_cast<unsigned long>(TMPFS_MAGIC));
}

TEST(Sandbox, OnlyMountAtRootIsTheSandboxTmpfs) {
  // mountinfo: "ID PARENT MAJ:MIN ROOT MOUNTPOINT OPTIONS [TAGS] - TYPE SOURCE SUPER".
  std::istringstream mounts(read_file("/proc/self/mountinfo"));
  std::vector<std::string> root_mounts;
  std::string line;
  while (std::getline(mounts, line)) {
    std::istringstream fields(line);
    std::string id, parent, device, root, mount_point, field;
    fields >> id >> parent >> device >> root >> mount_point;
    while (fields >> field && field != "-") {
    }
    std::string type, source;
    fields >> type >> source;
    if (mount_point == "/") {
      root_mounts.push_back(type + " " + source);
    }
  }
  EXPECT_EQ(root_mounts, std::vector<std::string>{"tmpfs qira-sandbox"});
}

TEST(Sandbox, EtcHoldsOnlyTheCopiedFiles) {
  EXPECT_EQ(folder_entries("/etc"),
            (std::vector<std::string>{"group", "ld.so.cache", "nsswitch.conf", "passwd"}));
}

TEST(Sandbox, MachineIdentityFilesAreAbsent) {
  for (const char* path : {"/etc/hostname", "/etc/hosts", "/etc/os-release", "/etc/resolv.conf"}) {
    errno = 0;
    EXPECT_NE(access(path, F_OK), 0) << path;
    EXPECT_EQ(errno, ENOENT) << path;
  }
}

TEST(Sandbox, CopiedPasswdResolvesRoot) {
  const passwd* root = getpwuid(0);
  ASSERT_NE(root, nullptr);
  EXPECT_STREQ(root->pw_name, "root");
}

TEST(Sandbox, WritableFoldersAreOneFileSystem) {
  const dev_t root = device_of("/");
  for (const char* path :
       {"/etc", "/tmp", "/run", "/var/run/", "/var/log", "/sys", "/sys/module", "/root", "/home"}) {
    EXPECT_EQ(device_of(path), root) << path;
  }
}

TEST(Sandbox, RenameFromTmpToEtcWorks) {
  write_file("/tmp/hosts.new", "127.0.0.1 camera\n");
  ASSERT_EQ(rename("/tmp/hosts.new", "/etc/hosts"), 0) << std::strerror(errno);
  EXPECT_EQ(read_file("/etc/hosts"), "127.0.0.1 camera\n");
  EXPECT_NE(access("/tmp/hosts.new", F_OK), 0);
}

TEST(Sandbox, VarRunIsALinkToRun) {
  char target[PATH_MAX] = {};
  const ssize_t length = readlink("/var/run", target, sizeof target - 1);
  ASSERT_GT(length, 0);
  EXPECT_EQ(std::string(target, static_cast<std::size_t>(length)), "../run");
  write_file("/var/run/wpa_supplicant/marker", "seen");
  EXPECT_EQ(read_file("/run/wpa_supplicant/marker"), "seen");
}

TEST(Sandbox, FoldersHaveTheirUsualModes) {
  EXPECT_EQ(mode_of("/tmp"), 01777u);
  EXPECT_EQ(mode_of("/etc"), 0755u);
  EXPECT_EQ(mode_of("/run"), 0755u);
  EXPECT_EQ(mode_of("/var/log"), 0755u);
  EXPECT_EQ(mode_of("/root"), 0700u);
  EXPECT_EQ(mode_of("/home"), 0755u);
}

// The entries `folder` may hold: the next name on the way down to each tree
// that lies inside it.
std::vector<std::string> way_to_trees(const std::string& folder,
                                      const std::vector<std::string>& trees) {
  std::vector<std::string> names;
  const std::string prefix = folder + "/";
  for (const std::string& tree : trees) {
    if (tree.compare(0, prefix.size(), prefix) == 0) {
      const std::string rest = tree.substr(prefix.size());
      names.push_back(rest.substr(0, rest.find('/')));
    }
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

// `folder` and every folder below it on the way to a tree hold exactly that
// way: nothing of the machine's own folder shows.
void expect_only_the_way_to_trees(const std::string& folder,
                                  const std::vector<std::string>& trees) {
  const std::vector<std::string> expected = way_to_trees(folder, trees);
  EXPECT_EQ(folder_entries(folder), expected) << folder;
  for (const std::string& name : expected) {
    const std::string below = folder + "/" + name;
    if (std::find(trees.begin(), trees.end(), below) == trees.end()) {
      expect_only_the_way_to_trees(below, trees);
    }
  }
}

// Empty, unless the checkout lies inside one of them (under /tmp or /home,
// say): the trees are reachable at their own paths, so such a folder holds
// the way down to them and nothing else.
TEST(Sandbox, FreshFoldersHoldNothingButTheWayToTheTrees) {
  const std::vector<std::string> trees = sandbox_trees();
  ASSERT_FALSE(trees.empty());
  for (const char* path : {"/tmp", "/run", "/var/log", "/root", "/home", "/sys/module"}) {
    expect_only_the_way_to_trees(path, trees);
  }
}

TEST(Sandbox, WayToTheTreesListsEachNextNameOnce) {
  const std::vector<std::string> trees = {"/tmp/a b/src", "/tmp/a b/src/build", "/tmp/c",
                                          "/home/user/src", "/usr/x"};
  EXPECT_EQ(way_to_trees("/tmp", trees), (std::vector<std::string>{"a b", "c"}));
  EXPECT_EQ(way_to_trees("/tmp/a b", trees), std::vector<std::string>{"src"});
  EXPECT_EQ(way_to_trees("/home", trees), std::vector<std::string>{"user"});
  EXPECT_EQ(way_to_trees("/run", trees), std::vector<std::string>{});
  EXPECT_EQ(way_to_trees("/tm", trees), std::vector<std::string>{});
}

TEST(Sandbox, SysHoldsOnlyTheModuleFolder) {
  EXPECT_EQ(folder_entries("/sys"), std::vector<std::string>{"module"});
  write_file("/sys/module/bcmdhd/parameters/firmware_path", "/lib/firmware/fw_bcmdhd.bin\n");
  EXPECT_EQ(read_file("/sys/module/bcmdhd/parameters/firmware_path"),
            "/lib/firmware/fw_bcmdhd.bin\n");
}

TEST(Sandbox, UsrIsReadOnly) {
  struct statvfs usr {};
  ASSERT_EQ(statvfs("/usr", &usr), 0);
  EXPECT_NE(usr.f_flag & ST_RDONLY, 0u);
  errno = 0;
  EXPECT_EQ(mkdir("/usr/qira-probe", 0755), -1);
  EXPECT_EQ(errno, EROFS);
}

TEST(Sandbox, SourceTreeIsReachableAndReadOnly) {
  const std::string header = read_file(QIRA_SOURCE_DIR "/tests/support/sandbox.h");
  EXPECT_NE(header.find("void enter_sandbox();"), std::string::npos);
  errno = 0;
  EXPECT_EQ(mkdir(QIRA_SOURCE_DIR "/qira-probe", 0755), -1);
  EXPECT_EQ(errno, EROFS);
}

TEST(Sandbox, BuildTreeIsReachableAndWritable) {
  EXPECT_EQ(access(QIRA_BINARY_DIR "/CMakeCache.txt", R_OK), 0);
  EXPECT_EQ(access(QIRA_BINARY_DIR, W_OK), 0) << std::strerror(errno);
}

TEST(Sandbox, RunningBinaryIsReachable) {
  char executable[PATH_MAX] = {};
  const ssize_t length = readlink("/proc/self/exe", executable, sizeof executable - 1);
  ASSERT_GT(length, 0);
  EXPECT_EQ(access(executable, X_OK), 0) << executable;
}

TEST(Sandbox, ProcShowsThisProcess) {
  const std::string status = read_file("/proc/self/status");
  EXPECT_NE(status.find("\nPid:\t" + std::to_string(getpid()) + "\n"), std::string::npos);
}

TEST(Sandbox, DevNullIsUsable) {
  FILE* null_device = std::fopen("/dev/null", "w");
  ASSERT_NE(null_device, nullptr);
  EXPECT_EQ(std::fputs("discarded", null_device), 1);
  EXPECT_EQ(std::fclose(null_device), 0);
}

TEST(Sandbox, DevShmIsAPrivateEmptyTmpfs) {
  struct statfs shm {};
  ASSERT_EQ(statfs("/dev/shm", &shm), 0);
  EXPECT_EQ(static_cast<unsigned long>(shm.f_type), static_cast<unsigned long>(TMPFS_MAGIC));
  EXPECT_NE(device_of("/dev/shm"), device_of("/"));
  EXPECT_EQ(folder_entries("/dev/shm"), std::vector<std::string>{});
}

TEST(Sandbox, EnvironmentPointsIntoTheSandbox) {
  ASSERT_NE(std::getenv("HOME"), nullptr);
  ASSERT_NE(std::getenv("TMPDIR"), nullptr);
  ASSERT_NE(std::getenv("QIRA_IN_SANDBOX"), nullptr);
  EXPECT_STREQ(std::getenv("HOME"), "/root");
  EXPECT_STREQ(std::getenv("TMPDIR"), "/tmp");
  EXPECT_STREQ(std::getenv("QIRA_IN_SANDBOX"), "1");
  EXPECT_TRUE(in_sandbox());
}

TEST(Sandbox, InSandboxNeedsTheSameMountNamespace) {
  const char* identity = std::getenv("QIRA_SANDBOX_MOUNT_NAMESPACE");
  ASSERT_NE(identity, nullptr);
  const std::string saved = identity;
  ASSERT_EQ(setenv("QIRA_SANDBOX_MOUNT_NAMESPACE", "0:0", 1), 0);
  EXPECT_FALSE(in_sandbox());
  ASSERT_EQ(setenv("QIRA_SANDBOX_MOUNT_NAMESPACE", saved.c_str(), 1), 0);
  EXPECT_TRUE(in_sandbox());
  ASSERT_EQ(unsetenv("QIRA_IN_SANDBOX"), 0);
  EXPECT_FALSE(in_sandbox());
  ASSERT_EQ(setenv("QIRA_IN_SANDBOX", "1", 1), 0);
  EXPECT_TRUE(in_sandbox());
}

TEST(Sandbox, EnteringAgainKeepsTheSameRoot) {
  write_file("/etc/qira-reentry", "kept");
  struct stat before {};
  ASSERT_EQ(stat("/", &before), 0);
  enter_sandbox();
  struct stat after {};
  ASSERT_EQ(stat("/", &after), 0);
  EXPECT_EQ(after.st_dev, before.st_dev);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(read_file("/etc/qira-reentry"), "kept");
}

TEST(Sandbox, ChildProgramRuns) {
  EXPECT_EQ(run_program({"/bin/true"}), 0);
  EXPECT_EQ(run_program({"/bin/sh", "-c", "exit 7"}), 7);
}

TEST(Sandbox, ChildProgramSeesTheSandboxFiles) {
  write_file("/etc/qira-marker", "from the test\n");
  EXPECT_EQ(run_program({"/bin/sh", "-c", "test \"$(cat /etc/qira-marker)\" = 'from the test'"}),
            0);
  EXPECT_EQ(run_program({"/bin/sh", "-c", "test -e /etc/hostname"}), 1);
}

}  // namespace
}  // namespace qira::test
