// The real DoctorSystem: facts from this machine's file system, processes,
// kernel and the module loaded through the reference host.
#ifndef QIRA_TOOLS_QIRA_WIFI_DOCTOR_SYSTEM_H
#define QIRA_TOOLS_QIRA_WIFI_DOCTOR_SYSTEM_H

#include <string>
#include <vector>

#include "doctor_facts.h"
#include "module_session.h"

namespace qira::wifi {

// How long a program may take to tell its version.
constexpr unsigned int kProgramDeadlineMs = 3000;
// The most of a program's output that is kept.
constexpr std::size_t kLongestProgramOutput = 64 * 1024;

class RealDoctorSystem : public DoctorSystem {
 public:
  RealDoctorSystem() = default;
  RealDoctorSystem(const RealDoctorSystem&) = delete;
  RealDoctorSystem& operator=(const RealDoctorSystem&) = delete;

  bool is_root() override;
  ModuleFacts module_facts(const std::string& path) override;
  IdentityFacts identity_facts() override;
  KernelFacts kernel_facts() override;
  InterfaceFacts interface_facts(const std::string& ifname) override;
  PathFacts path_facts(const std::string& path) override;
  ProgramOutput run_program(const std::string& path, const std::vector<std::string>& args) override;
  std::optional<unsigned int> user_id(const std::string& name) override;
  std::optional<unsigned int> group_id(const std::string& name) override;
  WpaFacts wpa_facts(const std::string& ifname) override;
  std::optional<std::string> first_line(const std::string& path) override;

 private:
  ModuleSession session_;
  bool module_loaded_ = false;
};

// The parts of RealDoctorSystem that stand alone, for its tests.
//
// The module facts of a module already opened in `session` (loaded), read
// from the file the dynamic loader opened and from this process.
void describe_loaded_module(const ModuleSession& session, ModuleFacts& facts);
// nl80211's family and the regulatory domain, asked over a generic netlink
// socket of this process.
KernelFacts ask_kernel();

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_DOCTOR_SYSTEM_H
