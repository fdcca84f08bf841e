// RealDoctorSystem: the file system, users, programs, the interface and
// wpa_supplicant as this machine shows them.
#include "doctor_system.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/wireless.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>

#include "doctor_checks.h"
#include "output.h"
#include "qira/host/seams.h"
#include "qira/network/netlib_iface.h"
#include "qira/network/wpa_client.h"
#include "qira/variant/camera_info.h"
#include "wpa_event_source.h"

extern char** environ;

namespace qira::wifi {

namespace {

namespace network = qira::network;
using qira::variant::Variant;

constexpr char kNetworkInterfaces[] = "/sys/class/net/";
// The buffer size getpwnam_r and getgrnam_r start from when sysconf has none.
constexpr std::size_t kAccountBuffer = 16384;

// A descriptor closed when it goes out of scope.
class OwnedFd {
 public:
  explicit OwnedFd(int fd = -1) : fd_(fd) {}
  ~OwnedFd() { reset(); }
  OwnedFd(const OwnedFd&) = delete;
  OwnedFd& operator=(const OwnedFd&) = delete;
  int get() const { return fd_; }
  void reset() {
    if (fd_ >= 0) {
      ::close(fd_);
    }
    fd_ = -1;
  }

 private:
  int fd_;
};

// posix_spawn's file actions, destroyed with their owner.
class SpawnActions {
 public:
  SpawnActions() { ok_ = posix_spawn_file_actions_init(&actions_) == 0; }
  ~SpawnActions() {
    if (ok_) {
      posix_spawn_file_actions_destroy(&actions_);
    }
  }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  bool ok() const { return ok_; }
  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
  bool ok_ = false;
};

int wait_for_child(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) {
      return -1;
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

long long milliseconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               start)
      .count();
}

}  // namespace

ProgramOutput run_program_for_output(const std::string& path, const std::vector<std::string>& args,
                                     unsigned int deadline_ms) {
  ProgramOutput result;
  int pipe_fds[2] = {-1, -1};
  if (::pipe2(pipe_fds, O_CLOEXEC) != 0) {
    result.start_errno = errno;
    return result;
  }
  OwnedFd read_end(pipe_fds[0]);
  OwnedFd write_end(pipe_fds[1]);
  SpawnActions actions;
  // The child gets an empty standard input, the pipe as its output and
  // error, and no other descriptor of this process.
  if (!actions.ok() ||
      posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0) !=
          0 ||
      posix_spawn_file_actions_adddup2(actions.get(), write_end.get(), STDOUT_FILENO) != 0 ||
      posix_spawn_file_actions_adddup2(actions.get(), write_end.get(), STDERR_FILENO) != 0 ||
      posix_spawn_file_actions_addclosefrom_np(actions.get(), STDERR_FILENO + 1) != 0) {
    result.start_errno = ENOMEM;
    return result;
  }
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(path.c_str()));
  for (const std::string& arg : args) {
    argv.push_back(const_cast<char*>(arg.c_str()));
  }
  argv.push_back(nullptr);
  pid_t pid = 0;
  const int spawned =
      ::posix_spawn(&pid, path.c_str(), actions.get(), nullptr, argv.data(), environ);
  write_end.reset();
  if (spawned != 0) {
    result.start_errno = spawned;
    return result;
  }
  result.started = true;
  const auto started = std::chrono::steady_clock::now();
  char buffer[4096];
  while (true) {
    const long long left = static_cast<long long>(deadline_ms) - milliseconds_since(started);
    if (left <= 0) {
      ::kill(pid, SIGKILL);
      wait_for_child(pid);
      return result;
    }
    pollfd wait{read_end.get(), POLLIN, 0};
    const int ready = ::poll(&wait, 1, static_cast<int>(left));
    if (ready < 0 && errno != EINTR) {
      ::kill(pid, SIGKILL);
      wait_for_child(pid);
      return result;
    }
    if (ready <= 0) {
      continue;
    }
    const ssize_t got = ::read(read_end.get(), buffer, sizeof(buffer));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      break;  // every writer has closed the pipe: the program is done with it
    }
    const std::size_t room = kLongestProgramOutput - result.output.size();
    result.output.append(buffer, std::min(room, static_cast<std::size_t>(got)));
  }
  result.exit_status = wait_for_child(pid);
  result.finished = true;
  return result;
}

bool RealDoctorSystem::is_root() {
  return ::geteuid() == 0;
}

ModuleFacts RealDoctorSystem::module_facts(const std::string& path) {
  ModuleFacts facts;
  std::string error;
  {
    // Lines the module logs while it loads belong to the load's verdict.
    qira::host::LogCapture capture;
    module_loaded_ = session_.open(path, error);
    const std::vector<qira::host::LogRecord> records = capture.records();
    if (!module_loaded_ && !records.empty()) {
      error += " (" + describe_failure(records) + ")";
    }
  }
  facts.path = session_.path();
  facts.loaded = module_loaded_;
  facts.load_error = error;
  if (module_loaded_) {
    describe_loaded_module(session_, facts);
  }
  return facts;
}

IdentityFacts RealDoctorSystem::identity_facts() {
  IdentityFacts facts;
  facts.source = qira::variant::CameraInfo::IdentityPath();
  qira::variant::CameraInfo info;
  qira::host::LogCapture capture;  // Init's own complaints are the verdict's
  facts.available = info.Init();
  // Read as a plain record: the accessors end the process on a missing key,
  // which is exactly what doctor reports instead.
  const Variant& record = info;
  if (!facts.available || !qira::variant::IsMapType(record.Type())) {
    return facts;
  }
  facts.sysid_present = record.HasKey("sysid");
  if (facts.sysid_present && qira::variant::IsIntegerType(record["sysid"].Type())) {
    facts.sysid = static_cast<unsigned long long>(record["sysid"]);
  }
  facts.name_present = record.HasKey("name");
  if (facts.name_present && qira::variant::IsStringType(record["name"].Type())) {
    facts.name = static_cast<const std::string&>(record["name"]);
  }
  if (record.HasKey("hwaddr") && qira::variant::IsStringType(record["hwaddr"].Type())) {
    facts.hwaddr = static_cast<const std::string&>(record["hwaddr"]);
  }
  return facts;
}

KernelFacts RealDoctorSystem::kernel_facts() {
  return ask_kernel();
}

InterfaceFacts RealDoctorSystem::interface_facts(const std::string& ifname) {
  InterfaceFacts facts;
  const std::string folder = kNetworkInterfaces + ifname;
  struct stat status {};
  facts.exists = ::stat(folder.c_str(), &status) == 0;
  if (!facts.exists) {
    return facts;
  }
  if (std::optional<std::string> phy = first_line(folder + "/phy80211/name")) {
    facts.phy = *phy;
    facts.wireless = !phy->empty();
  }
  OwnedFd socket_fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  iwreq request{};
  std::strncpy(request.ifr_name, ifname.c_str(), sizeof(request.ifr_name) - 1);
  if (socket_fd.get() < 0) {
    facts.wext_errno = errno;
  } else if (::ioctl(socket_fd.get(), SIOCGIWNAME, &request) == 0) {
    facts.wext_name = std::string(request.u.name, strnlen(request.u.name, sizeof(request.u.name)));
  } else {
    facts.wext_errno = errno;
  }
  if (module_loaded_) {
    std::string error;
    auto* query = session_.function(&network::netlib_iface_iw_get_wireless_mode, error);
    if (query == nullptr) {
      facts.mode_failure = error;
    } else {
      qira::host::LogCapture capture;
      unsigned char mode = 0;
      if (query(session_.context(), ifname, mode)) {
        facts.mode = mode;
      } else {
        facts.mode_failure = describe_failure(capture.records());
      }
    }
  }
  return facts;
}

PathFacts RealDoctorSystem::path_facts(const std::string& path) {
  PathFacts facts;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    facts.stat_errno = errno;
    return facts;
  }
  facts.exists = true;
  facts.directory = S_ISDIR(status.st_mode);
  facts.mode = status.st_mode & 07777;
  facts.device = status.st_dev;
  facts.executable = ::access(path.c_str(), X_OK) == 0;
  facts.write_errno = ::access(path.c_str(), W_OK) == 0 ? 0 : errno;
  return facts;
}

ProgramOutput RealDoctorSystem::run_program(const std::string& path,
                                            const std::vector<std::string>& args) {
  return run_program_for_output(path, args, kProgramDeadlineMs);
}

std::optional<unsigned int> RealDoctorSystem::user_id(const std::string& name) {
  std::vector<char> buffer(kAccountBuffer);
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
      found == nullptr) {
    return std::nullopt;
  }
  return found->pw_uid;
}

std::optional<unsigned int> RealDoctorSystem::group_id(const std::string& name) {
  std::vector<char> buffer(kAccountBuffer);
  group entry{};
  group* found = nullptr;
  if (::getgrnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
      found == nullptr) {
    return std::nullopt;
  }
  return found->gr_gid;
}

WpaFacts RealDoctorSystem::wpa_facts(const std::string& ifname) {
  WpaFacts facts;
  struct stat status {};
  const std::string socket_path = std::string(kWpaControlFolder) + "/" + ifname;
  facts.socket_exists = ::stat(socket_path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
  if (!facts.socket_exists || !is_root()) {
    return facts;
  }
  qira::host::LogCapture capture;
  network::WpaClient client;
  if (!client.Init(ifname)) {
    facts.failure = describe_failure(capture.records());
    return facts;
  }
  std::string reply;
  if (!client.Request("PING", reply, kWpaPingTimeoutMs)) {
    facts.failure = describe_failure(capture.records());
    return facts;
  }
  facts.answered = !reply.empty();
  facts.reply = reply.substr(0, reply.find('\n'));
  if (!facts.answered) {
    facts.failure = "no reply within " + std::to_string(kWpaPingTimeoutMs) + " ms";
  }
  return facts;
}

std::optional<std::string> RealDoctorSystem::first_line(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return std::nullopt;
  }
  std::string line;
  std::getline(file, line);
  // Kernel parameters may end in the NUL their writer included.
  return line.substr(0, line.find('\0'));
}

}  // namespace qira::wifi
