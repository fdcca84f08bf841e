// What `qira-wifi doctor` learns about the board, and the seam it learns it
// through. The checks (doctor_checks.h) are pure functions of these facts;
// DoctorSystem gathers them from the file system, the processes, the kernel
// and the loaded module, so that a test can give any board's facts and see
// every decision and every line.
#ifndef QIRA_TOOLS_QIRA_WIFI_DOCTOR_FACTS_H
#define QIRA_TOOLS_QIRA_WIFI_DOCTOR_FACTS_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "qira/host/program_output.h"
#include "qira/inspect/elf_dynamic.h"

namespace qira::wifi {

// The wireless module as the loader opened it.
struct ModuleFacts {
  std::string path;           // as given to the loader (a path or a SONAME)
  bool loaded = false;        // opened and its interface subsystem initialised
  std::string load_error;     // the loader's words when not loaded
  std::string file;           // the file the dynamic loader opened ("" when not loaded)
  bool dynamic_read = false;  // `dynamic` holds the file's dynamic section
  std::string dynamic_error;  // why it could not be read
  qira::inspect::DynamicInfo dynamic;
  // The file names (without folder) of every object loaded in this process.
  std::vector<std::string> process_objects;
  // Each libnl function the module leaves undefined, and the file name of the
  // object of this process that defines it ("" when none does).
  std::map<std::string, std::string> libnl_origin;
};

// The device identity as the host's CameraInfo loads it.
struct IdentityFacts {
  bool available = false;  // CameraInfo::Init succeeded
  std::string source;      // where it was read from
  std::optional<unsigned long long> sysid;
  bool sysid_present = false;  // the key exists (with any type)
  std::optional<std::string> name;
  bool name_present = false;
  std::optional<std::string> hwaddr;
};

// The kernel's nl80211 as a generic netlink client finds it.
struct KernelFacts {
  bool nl80211_resolved = false;
  int nl80211_id = 0;
  std::string nl80211_error;  // libnl's words when not resolved
  // The regulatory domain in force: its two-letter code ("00" for the world
  // domain), or the reason it could not be read.
  std::optional<std::string> regulatory_domain;
  std::string regulatory_error;
};

// One network interface.
struct InterfaceFacts {
  bool exists = false;    // the kernel lists it (/sys/class/net/IFNAME)
  std::string phy;        // its radio ("phy0"), empty when it has none
  bool wireless = false;  // cfg80211 drives it (it has a radio)
  // SIOCGIWNAME: the protocol name on success, else the errno.
  std::optional<std::string> wext_name;
  int wext_errno = 0;
  // The module's mode query: the IW_MODE_* number, or its log lines.
  std::optional<unsigned int> mode;
  std::string mode_failure;
};

// One path, as stat(2) and access(2) see it.
struct PathFacts {
  bool exists = false;
  int stat_errno = 0;  // when it does not exist
  bool directory = false;
  unsigned int mode = 0;  // permission bits
  unsigned long long device = 0;
  bool executable = false;  // access(X_OK) succeeds
  int write_errno = 0;      // access(W_OK): 0 when writable
};

// A program run to completion with its output gathered.
using ProgramOutput = qira::host::ProgramOutput;

// The wpa_supplicant control interface of one interface.
struct WpaFacts {
  bool socket_exists = false;  // "/var/run/wpa_supplicant/IFNAME"
  bool answered = false;       // a reply came to "PING"
  std::string reply;
  std::string failure;  // the client's log lines when it could not ask
};

// Where doctor gets its facts. Each call may block (a program run waits up to
// its deadline, a PING up to a second); none changes the board.
class DoctorSystem {
 public:
  virtual ~DoctorSystem() = default;
  // Whether the program runs as root: the write checks and the control
  // socket's PING need it.
  virtual bool is_root() = 0;
  // Loads the module at `path` (the loader's default when empty) and keeps
  // it for interface_facts().
  virtual ModuleFacts module_facts(const std::string& path) = 0;
  virtual IdentityFacts identity_facts() = 0;
  virtual KernelFacts kernel_facts() = 0;
  // Uses the module loaded by module_facts() for the mode query.
  virtual InterfaceFacts interface_facts(const std::string& ifname) = 0;
  virtual PathFacts path_facts(const std::string& path) = 0;
  // Runs `path` with `args`, standard input empty, for at most a few seconds.
  virtual ProgramOutput run_program(const std::string& path,
                                    const std::vector<std::string>& args) = 0;
  virtual std::optional<unsigned int> user_id(const std::string& name) = 0;
  virtual std::optional<unsigned int> group_id(const std::string& name) = 0;
  virtual WpaFacts wpa_facts(const std::string& ifname) = 0;
  // The first line of a text file, or std::nullopt when it cannot be read.
  virtual std::optional<std::string> first_line(const std::string& path) = 0;
};

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_DOCTOR_FACTS_H
