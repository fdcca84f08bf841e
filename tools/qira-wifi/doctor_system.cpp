// RealDoctorSystem: the file system, users, programs, the interface and
// wpa_supplicant as this machine shows them.
#include "doctor_system.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/wireless.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "doctor_checks.h"
#include "output.h"
#include "qira/host/seams.h"
#include "qira/network/netlib_iface.h"
#include "qira/network/wpa_client.h"
#include "qira/variant/camera_info.h"
#include "wpa_event_source.h"

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
  ~OwnedFd() {
    if (fd_ >= 0) {
      ::close(fd_);
    }
  }
  OwnedFd(const OwnedFd&) = delete;
  OwnedFd& operator=(const OwnedFd&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace

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
  return qira::host::run_for_output(path, args, kProgramDeadlineMs, kLongestProgramOutput);
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
