// Entering the sandbox root: a private mount namespace whose root is a fresh
// tmpfs holding only what a test process needs from the machine.
//
// The work happens in two phases. First the plan is read from the machine
// (which folders to bind, which links to recreate, which few /etc files to
// copy) while the machine's tree is still visible; each folder to bind is
// held open, so that it stays reachable even when it lies below the staging
// mount point. Then the root is built on a tmpfs mounted over /tmp — inside
// the private namespace only, so the machine's /tmp is neither written nor
// seen — and the process pivots into it.
#include "support/sandbox.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "support/directories.h"

namespace qira::test {
namespace {

// Set in the environment once inside, together with the identity of the
// mount namespace: processes that re-execute the test binary (gtest's
// "threadsafe" death tests) inherit both and stay in the same sandbox, while
// a stray copy of the variable outside it does not match.
constexpr char kInSandboxVariable[] = "QIRA_IN_SANDBOX";
constexpr char kMountNamespaceVariable[] = "QIRA_SANDBOX_MOUNT_NAMESPACE";
constexpr char kStaging[] = "/tmp";

// The top-level entries that hold programs and libraries. On a merged-/usr
// system (Debian 12) they are links into /usr and are recreated as links.
constexpr const char* kProgramEntries[] = {"/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32"};
// Read-only copies that let child programs resolve users and libraries.
constexpr const char* kCopiedEtcFiles[] = {"/etc/group", "/etc/ld.so.cache", "/etc/nsswitch.conf",
                                           "/etc/passwd"};

[[noreturn]] void refuse(const std::string& step, int error_number) {
  std::fprintf(stderr,
               "\n*** qira test sandbox: the test suite cannot isolate itself.\n"
               "*** Failed step: %s: %s\n"
               "*** The unit tests run only in a private mount namespace on a fresh root, so\n"
               "*** that they never touch this machine's /etc, /tmp, /var/run or /sys. Run them\n"
               "*** as root, or where unprivileged user namespaces are allowed. Not running.\n\n",
               step.c_str(), error_number != 0 ? std::strerror(error_number) : "");
  std::fflush(stderr);
  std::exit(1);
}

class ScopedFd {
 public:
  explicit ScopedFd(int fd = -1) : fd_(fd) {}
  ~ScopedFd() {
    if (fd_ >= 0) {
      close(fd_);
    }
  }
  ScopedFd(ScopedFd&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  ScopedFd& operator=(ScopedFd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ScopedFd(const ScopedFd&) = delete;
  ScopedFd& operator=(const ScopedFd&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

struct Bind {
  std::string path;  // where it appears inside the sandbox (same as outside)
  ScopedFd source;   // the machine's folder, held open
  bool read_only;
};

struct Link {
  std::string path;
  std::string target;
};

struct Copy {
  std::string path;
  std::string content;
  mode_t mode;
};

struct Plan {
  std::vector<Bind> binds;  // in mount order
  std::vector<Link> links;
  std::vector<Copy> copies;
  std::string working_directory;
};

bool path_within(const std::string& path, const std::string& folder) {
  return path == folder || folder == "/" ||
         (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
          path[folder.size()] == '/');
}

std::string mount_namespace_identity() {
  struct stat status {};
  if (stat("/proc/self/ns/mnt", &status) != 0) {
    return {};
  }
  return std::to_string(static_cast<unsigned long long>(status.st_dev)) + ":" +
         std::to_string(static_cast<unsigned long long>(status.st_ino));
}

ScopedFd open_folder(const std::string& path) {
  ScopedFd folder(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (folder.get() < 0) {
    refuse("open " + path, errno);
  }
  return folder;
}

bool read_whole_file(const std::string& path, std::string& content, mode_t& mode) {
  ScopedFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status {};
  if (file.get() < 0 || fstat(file.get(), &status) != 0) {
    return false;
  }
  mode = status.st_mode & 07777;
  char buffer[8192];
  for (;;) {
    const ssize_t count = read(file.get(), buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      return false;
    }
    if (count == 0) {
      return true;
    }
    content.append(buffer, static_cast<std::size_t>(count));
  }
}

std::string real_path(const std::string& path) {
  char resolved[PATH_MAX];
  if (realpath(path.c_str(), resolved) == nullptr) {
    return {};
  }
  return resolved;
}

struct Tree {
  std::string path;
  bool read_only;
};

// The trees the tests run from: the source tree read-only, the build tree
// writable (CTest runs tests in it and gtest may write its reports there),
// and the folder of the running binary in case it lies elsewhere; each as
// given and as resolved. Outer folders first.
std::vector<Tree> test_trees() {
  std::vector<Tree> trees;
  // A tree that is gone (a test binary run after its source tree was
  // removed) is simply not there inside either.
  auto add = [&trees](const std::string& path, bool read_only) {
    if (!path.empty() && path[0] == '/' && access(path.c_str(), F_OK) == 0) {
      trees.push_back({path, read_only});
    }
  };
  add(QIRA_SOURCE_DIR, true);
  add(real_path(QIRA_SOURCE_DIR), true);
  add(QIRA_BINARY_DIR, false);
  add(real_path(QIRA_BINARY_DIR), false);
  const std::string executable = real_path("/proc/self/exe");
  add(executable.substr(0, executable.rfind('/')), true);
  std::stable_sort(trees.begin(), trees.end(),
                   [](const Tree& a, const Tree& b) { return a.path.size() < b.path.size(); });
  return trees;
}

// Binds the trees at their own paths, so that the compiled-in paths, CTest's
// working folder and report paths hold inside. A tree inside one already
// bound with at least the same access needs no bind; outer folders come
// first, so that a writable build tree inside a read-only source tree is
// mounted on top of it. A checkout under /tmp or /home therefore shows in
// that fresh folder, as the one way down to the tree.
void plan_trees(Plan& plan) {
  for (const Tree& tree : test_trees()) {
    const bool covered =
        std::any_of(plan.binds.begin(), plan.binds.end(), [&tree](const Bind& bind) {
          return path_within(tree.path, bind.path) && (tree.read_only || !bind.read_only);
        });
    if (!covered) {
      plan.binds.push_back({tree.path, open_folder(tree.path), tree.read_only});
    }
  }
}

Plan read_plan() {
  Plan plan;
  plan.binds.push_back({"/usr", open_folder("/usr"), true});
  for (const char* entry : kProgramEntries) {
    struct stat status {};
    if (lstat(entry, &status) != 0) {
      continue;  // this machine has no such folder
    }
    if (S_ISLNK(status.st_mode)) {
      char target[PATH_MAX];
      const ssize_t length = readlink(entry, target, sizeof target - 1);
      if (length < 0) {
        refuse(std::string("readlink ") + entry, errno);
      }
      plan.links.push_back({entry, std::string(target, static_cast<std::size_t>(length))});
    } else if (S_ISDIR(status.st_mode)) {
      plan.binds.push_back({entry, open_folder(entry), true});
    }
  }
  plan.binds.push_back({"/proc", open_folder("/proc"), false});
  plan.binds.push_back({"/dev", open_folder("/dev"), false});
  plan_trees(plan);
  for (const char* path : kCopiedEtcFiles) {
    Copy copy{path, {}, 0644};
    if (read_whole_file(path, copy.content, copy.mode)) {
      plan.copies.push_back(std::move(copy));
    }
  }
  char working_directory[PATH_MAX];
  if (getcwd(working_directory, sizeof working_directory) != nullptr) {
    plan.working_directory = working_directory;
  }
  return plan;
}

void write_id_map(const char* path, const std::string& content) {
  ScopedFd file(open(path, O_WRONLY | O_CLOEXEC));
  if (file.get() < 0 ||
      write(file.get(), content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
    refuse(std::string("write ") + path, errno);
  }
}

// Root is the normal case (CI runs as root). Otherwise, and where root lacks
// the capability (some containers), an unprivileged user namespace that maps
// the caller to root gives the same mount powers — best effort: it depends
// on the machine allowing unprivileged user namespaces.
void enter_mount_namespace() {
  std::string tried;
  if (geteuid() == 0) {
    if (unshare(CLONE_NEWNS) == 0) {
      return;
    }
    tried = std::string("unshare(CLONE_NEWNS): ") + std::strerror(errno) + "; then ";
  } else {
    tried = "not root (uid " + std::to_string(geteuid()) + "), so ";
  }
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
    refuse(tried + "unshare(CLONE_NEWUSER | CLONE_NEWNS)", errno);
  }
  // setgroups must be denied before an unprivileged process may map its group.
  ScopedFd setgroups(open("/proc/self/setgroups", O_WRONLY | O_CLOEXEC));
  if (setgroups.get() >= 0 && write(setgroups.get(), "deny", 4) != 4) {
    refuse("write /proc/self/setgroups", errno);
  }
  write_id_map("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n");
  write_id_map("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n");
}

// The file system type of a bind, a remount, a move or a propagation change.
// The kernel ignores it there, and takes a null pointer, but valgrind's
// memcheck reads the type of every mount as a string: "none", as mount(8)
// passes, keeps the suite clean under memcheck.
constexpr char kIgnoredType[] = "none";

void mount_or_refuse(const char* source, const std::string& target, const char* type,
                     unsigned long flags, const char* data, const std::string& step) {
  if (mount(source, target.c_str(), type, flags, data) != 0) {
    refuse(step, errno);
  }
}

// A read-only remount must keep the flags the kernel locks on mounts that
// came from a more privileged namespace (nosuid, nodev, ...), or it fails.
unsigned long locked_flags(const std::string& path) {
  struct statvfs status {};
  if (statvfs(path.c_str(), &status) != 0) {
    refuse("statvfs " + path, errno);
  }
  const struct {
    unsigned long statvfs_flag;
    unsigned long mount_flag;
  } table[] = {{ST_NOSUID, MS_NOSUID},         {ST_NODEV, MS_NODEV},
               {ST_NOEXEC, MS_NOEXEC},         {ST_NOATIME, MS_NOATIME},
               {ST_NODIRATIME, MS_NODIRATIME}, {ST_RELATIME, MS_RELATIME}};
  unsigned long flags = 0;
  for (const auto& entry : table) {
    if (status.f_flag & entry.statvfs_flag) {
      flags |= entry.mount_flag;
    }
  }
  return flags;
}

void make_folder(const std::string& path, mode_t mode) {
  const int error_number = detail::create_directories(path, 0755);
  if (error_number != 0) {
    refuse("mkdir " + path, error_number);
  }
  // Explicit, so that the process umask does not decide the modes.
  if (chmod(path.c_str(), mode) != 0) {
    refuse("chmod " + path, errno);
  }
}

void bind_into(const std::string& root, const Bind& bind) {
  const std::string target = root + bind.path;
  struct stat status {};
  if (stat(target.c_str(), &status) != 0) {
    // Mount points inside an already bound tree exist there; the others are
    // made in the tmpfs.
    const int error_number = detail::create_directories(target, 0755);
    if (error_number != 0) {
      refuse("mkdir " + target, error_number);
    }
  }
  const std::string source = "/proc/self/fd/" + std::to_string(bind.source.get());
  mount_or_refuse(source.c_str(), target, kIgnoredType, MS_BIND | MS_REC, nullptr,
                  "bind " + bind.path);
  if (bind.read_only) {
    mount_or_refuse(nullptr, target, kIgnoredType,
                    MS_REMOUNT | MS_BIND | MS_RDONLY | locked_flags(target), nullptr,
                    "remount " + bind.path + " read-only");
  }
}

void write_copy(const std::string& root, const Copy& copy) {
  const std::string target = root + copy.path;
  ScopedFd file(open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, copy.mode));
  if (file.get() < 0 || write(file.get(), copy.content.data(), copy.content.size()) !=
                            static_cast<ssize_t>(copy.content.size())) {
    refuse("copy " + copy.path, errno);
  }
  if (fchmod(file.get(), copy.mode) != 0) {
    refuse("chmod " + target, errno);
  }
}

void build_root(const std::string& root, const Plan& plan) {
  mount_or_refuse("qira-sandbox", root, "tmpfs", 0, "mode=0755", "mount tmpfs on " + root);
  for (const Bind& bind : plan.binds) {
    bind_into(root, bind);
  }
  // The machine's /dev/shm is a shared folder of the machine: give the
  // sandbox its own.
  struct stat status {};
  if (stat((root + "/dev/shm").c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
    mount_or_refuse("qira-sandbox-shm", root + "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV,
                    "mode=1777", "mount tmpfs on /dev/shm");
  }
  for (const Link& link : plan.links) {
    if (symlink(link.target.c_str(), (root + link.path).c_str()) != 0) {
      refuse("symlink " + link.path + " -> " + link.target, errno);
    }
  }
  make_folder(root + "/etc", 0755);
  make_folder(root + "/tmp", 01777);
  make_folder(root + "/run", 0755);
  make_folder(root + "/var/log", 0755);
  make_folder(root + "/root", 0700);
  make_folder(root + "/home", 0755);
  make_folder(root + "/sys/module", 0755);
  if (symlink("../run", (root + "/var/run").c_str()) != 0) {
    refuse("symlink /var/run -> ../run", errno);
  }
  for (const Copy& copy : plan.copies) {
    write_copy(root, copy);
  }
}

// pivot_root(".", ".") stacks the old root over the new one, and the detach
// then drops it (the documented way to pivot without a put_old folder).
// Where the current root is not a mount point of its own (a chroot),
// pivot_root answers EINVAL: move the new root over "/" and chroot instead.
void switch_root(const std::string& root) {
  if (chdir(root.c_str()) != 0) {
    refuse("chdir " + root, errno);
  }
  if (syscall(SYS_pivot_root, ".", ".") == 0) {
    if (umount2(".", MNT_DETACH) != 0) {
      refuse("detach the old root", errno);
    }
  } else {
    const int pivot_error = errno;
    if (pivot_error != EINVAL) {
      refuse("pivot_root", pivot_error);
    }
    mount_or_refuse(".", "/", kIgnoredType, MS_MOVE, nullptr, "move the new root over /");
    if (chroot(".") != 0) {
      refuse("chroot", errno);
    }
  }
  if (chdir("/") != 0) {
    refuse("chdir /", errno);
  }
}

void set_environment(const char* name, const std::string& value) {
  if (setenv(name, value.c_str(), 1) != 0) {
    refuse(std::string("setenv ") + name, errno);
  }
}

}  // namespace

std::vector<std::string> sandbox_trees() {
  std::vector<std::string> paths;
  for (const Tree& tree : test_trees()) {
    paths.push_back(tree.path);
  }
  return paths;
}

bool in_sandbox() {
  const char* inside = std::getenv(kInSandboxVariable);
  const char* identity = std::getenv(kMountNamespaceVariable);
  return inside != nullptr && std::strcmp(inside, "1") == 0 && identity != nullptr &&
         identity == mount_namespace_identity();
}

void enter_sandbox() {
  if (in_sandbox()) {
    return;  // a re-executed test binary: its parent already built the root
  }
  enter_mount_namespace();
  // Nothing mounted from here on may propagate back to the machine.
  mount_or_refuse(nullptr, "/", kIgnoredType, MS_REC | MS_PRIVATE, nullptr,
                  "make / recursively private");
  const Plan plan = read_plan();
  build_root(kStaging, plan);
  switch_root(kStaging);
  if (plan.working_directory.empty() || chdir(plan.working_directory.c_str()) != 0) {
    if (chdir("/") != 0) {
      refuse("chdir /", errno);
    }
  }
  set_environment(kInSandboxVariable, "1");
  set_environment(kMountNamespaceVariable, mount_namespace_identity());
  set_environment("HOME", "/root");
  set_environment("TMPDIR", "/tmp");
}

}  // namespace qira::test
