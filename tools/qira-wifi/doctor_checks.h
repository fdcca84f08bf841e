// The checks of `qira-wifi doctor`: each one a pure decision over the facts
// of doctor_facts.h, answering ok, warn or fail, what was checked, and for
// anything but ok what the module will do wrong and how to fix it.
#ifndef QIRA_TOOLS_QIRA_WIFI_DOCTOR_CHECKS_H
#define QIRA_TOOLS_QIRA_WIFI_DOCTOR_CHECKS_H

#include <optional>
#include <string>
#include <vector>

#include "doctor_facts.h"

namespace qira::wifi {

enum class CheckStatus { kOk, kWarn, kFail };

struct CheckResult {
  CheckStatus status = CheckStatus::kOk;
  std::string subject;  // what was checked: "module", "/bin/hostapd", ...
  std::string finding;  // what was found
  std::string effect;   // not ok: what the module will do wrong
  std::string fix;      // not ok: how to make it right
};

// "ok", "warn" or "fail".
const char* status_word(CheckStatus status);

// The paths and names the module relies on, as it uses them.
inline constexpr char kStationFile[] = "/etc/wlan0.conf";
inline constexpr char kHostapdFile[] = "/etc/hostapd.conf";
inline constexpr char kDnsmasqFile[] = "/etc/dnsmasq.conf";
inline constexpr char kHostsFile[] = "/etc/hosts";
inline constexpr char kHostapdLog[] = "/var/log/hostapd.log";
inline constexpr char kTemporaryFolder[] = "/tmp";
inline constexpr char kConfigurationFolder[] = "/etc";
inline constexpr char kWpaControlFolder[] = "/var/run/wpa_supplicant";
inline constexpr char kDnsmasqUser[] = "qira";
inline constexpr char kDnsmasqGroup[] = "admin";
inline constexpr char kBcmdhdModule[] = "/sys/module/bcmdhd";
inline constexpr char kFirmwarePathParameter[] = "/sys/module/bcmdhd/parameters/firmware_path";
inline constexpr char kFirmwareImage[] = "/lib/firmware/broadcom/ap6234/fw_bcm43341b0_ag.bin";
// The one board whose access-point teardown switches the bcmdhd firmware.
inline constexpr unsigned long long kFirmwareBoard = 0x62B7;

// A program the module (or its host) runs, and what goes wrong without it.
struct ProgramSpec {
  const char* path;
  // The option that makes it print its version, or null: the vendor tools
  // act on the radio whatever they are given, so they are never run.
  const char* version_option;
  bool required;  // missing is a failure (else a warning: vendor tools are optional)
  const char* effect;
};

// "/bin/iw", "/bin/wpa_supplicant", "/bin/hostapd", "/bin/dnsmasq", "/bin/wl",
// "/bin/wifi_setup.sh" and the host's DHCP client, in that order.
const std::vector<ProgramSpec>& program_specs();

// A file the module writes (or the folder it creates files in).
struct WrittenFileSpec {
  const char* path;
  bool must_exist;  // the module reads it first ("/etc/hosts")
  const char* effect;
};

// "/etc/wlan0.conf", "/etc/hostapd.conf", "/etc/dnsmasq.conf", "/etc/hosts",
// "/var/log/hostapd.log" and "/tmp", in that order.
const std::vector<WrittenFileSpec>& written_file_specs();

// ---- the module and the host -------------------------------------------------
CheckResult check_module_load(const ModuleFacts& facts);
CheckResult check_module_interface(const ModuleFacts& facts);
CheckResult check_needed_libraries(const ModuleFacts& facts);
CheckResult check_libnl_origin(const ModuleFacts& facts);
CheckResult check_identity(const IdentityFacts& facts);

// ---- the kernel and the interface --------------------------------------------
CheckResult check_nl80211(const KernelFacts& facts);
CheckResult check_interface_exists(const std::string& ifname, const InterfaceFacts& facts);
CheckResult check_interface_wireless(const std::string& ifname, const InterfaceFacts& facts);
CheckResult check_wireless_extensions(const std::string& ifname, const InterfaceFacts& facts);
CheckResult check_interface_mode(const std::string& ifname, const InterfaceFacts& facts,
                                 bool module_loaded);
CheckResult check_regulatory_domain(const KernelFacts& facts);

// ---- programs, users, files ----------------------------------------------------
// `output` is the version run's, when the program was run.
CheckResult check_program(const ProgramSpec& entry, const PathFacts& facts,
                          const std::optional<ProgramOutput>& output);
CheckResult check_user(const std::string& name, const std::optional<unsigned int>& id);
CheckResult check_group(const std::string& name, const std::optional<unsigned int>& id);
// `file` is the path's facts, `folder` those of the folder it is in.
CheckResult check_written_file(const WrittenFileSpec& entry, const PathFacts& file,
                               const PathFacts& folder, bool root);
CheckResult check_one_file_system(const PathFacts& temporary, const PathFacts& configuration);

// ---- wpa_supplicant and the firmware -------------------------------------------
CheckResult check_wpa_control_folder(const PathFacts& folder);
CheckResult check_wpa_supplicant(const std::string& ifname, const WpaFacts& facts, bool root);
// `current` is the parameter's present value when it could be read.
CheckResult check_firmware_path(const PathFacts& driver, const PathFacts& parameter,
                                const std::optional<std::string>& current,
                                const IdentityFacts& identity, bool root);
CheckResult check_firmware_image(const PathFacts& driver, const PathFacts& image,
                                 const IdentityFacts& identity);

// Every check, in its fixed order, with the facts gathered through `system`.
// `module_path` as given on the command line ("" for the loader's default).
std::vector<CheckResult> run_doctor_checks(DoctorSystem& system, const std::string& module_path,
                                           const std::string& ifname);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_DOCTOR_CHECKS_H
