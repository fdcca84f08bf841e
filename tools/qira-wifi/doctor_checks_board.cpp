// Doctor's checks of the board: the programs the module runs, the dnsmasq
// user and group, the files it writes, wpa_supplicant, the bcmdhd firmware;
// and the whole list in its fixed order.
#include <cstdio>

#include "doctor_checks.h"
#include "doctor_verdicts.h"
#include "qira/host/outside_text.h"

namespace qira::wifi {

namespace {

using namespace doctor;

// The host's DHCP client (netlib_netm_configure_dhcp runs it; the module
// stops it by name).
constexpr char kDhcpClient[] = "/sbin/udhcpc";
// The longest version text a line shows.
constexpr std::size_t kLongestVersion = 60;
constexpr char kNeedsRoot[] = "needs root";
constexpr char kRunAsRoot[] = "run qira-wifi doctor as root";

std::string mode_text(unsigned int mode) {
  char text[8];
  std::snprintf(text, sizeof(text), "%04o", mode & 07777);
  return text;
}

// The first line of a program's version output, trimmed, without what follows
// two spaces ("Dnsmasq version 2.89  Copyright ...").
std::string version_text(const std::string& output) {
  std::string::size_type start = output.find_first_not_of(" \t\r\n");
  if (start == std::string::npos) {
    return "";
  }
  std::string line = output.substr(start, output.find('\n', start) - start);
  line = line.substr(0, line.find("  "));
  while (!line.empty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r')) {
    line.pop_back();
  }
  if (line.size() > kLongestVersion) {
    line = line.substr(0, kLongestVersion) + "...";
  }
  return shown(line);
}

// The folder `path` is in ("/" for a top-level name).
std::string folder_of(const std::string& path) {
  const std::string::size_type slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

}  // namespace

const char* status_word(CheckStatus status) {
  switch (status) {
    case CheckStatus::kOk:
      return "ok";
    case CheckStatus::kWarn:
      return "warn";
    case CheckStatus::kFail:
      return "fail";
  }
  return "fail";
}

const std::vector<ProgramSpec>& program_specs() {
  static const std::vector<ProgramSpec> specs = {
      {"/bin/iw", "--version", true,
       "the setup access point's interface is never made (\"Failed to run iw tool\")"},
      {"/bin/wpa_supplicant", "-v", true,
       "station mode never starts (\"Failed to run wpa_supplicant\")"},
      {"/bin/hostapd", "-v", true,
       "the setup access point never starts (\"Failed to run hostapd\")"},
      {"/bin/dnsmasq", "--version", true,
       "the setup access point hands out no addresses (\"Failed to run dnsmasq\")"},
      {"/bin/wl", nullptr, false, "disconnecting with the vendor tools does nothing"},
      {"/bin/wifi_setup.sh", nullptr, false,
       "connecting with the vendor tools fails (\"Failed to run wifi_setup.sh\")"},
      {kDhcpClient, nullptr, true, "station mode gets no address by DHCP"},
  };
  return specs;
}

const std::vector<WrittenFileSpec>& written_file_specs() {
  static const std::vector<WrittenFileSpec> specs = {
      {kStationFile, false,
       "the station settings cannot be written (\"Failed to move WLAN config\")"},
      {kHostapdFile, false,
       "the setup access point cannot be configured (\"Failed to open file\")"},
      {kDnsmasqFile, false,
       "the setup access point cannot be configured (\"Failed to open file\")"},
      {kHostsFile, true,
       "the setup access point's name config.zem is not added (\"Failed to read file\")"},
      {kHostapdLog, false, "hostapd cannot write its log"},
      {kTemporaryFolder, false,
       "the station file cannot be written (\"Cannot generate wifi config file\")"},
  };
  return specs;
}

CheckResult check_program(const ProgramSpec& entry, const PathFacts& facts,
                          const std::optional<ProgramOutput>& output) {
  const auto verdict = entry.required ? &fail : &warn;
  const std::string path = entry.path;
  if (!facts.exists) {
    return verdict(path, "missing", entry.effect, "install it at " + path);
  }
  if (facts.directory) {
    return verdict(path, "a folder, not a program", entry.effect, "install the program at " + path);
  }
  if (!facts.executable) {
    return verdict(path, "present but not executable (mode " + mode_text(facts.mode) + ")",
                   entry.effect, "chmod 755 " + path);
  }
  if (!output) {
    return ok(path, "executable (not run: it acts on the radio)");
  }
  if (!output->started) {
    return verdict(path, "executable but it does not run: " + error_text(output->start_errno),
                   entry.effect, "install a build of it for this board");
  }
  const std::string version = version_text(output->output);
  if (!output->finished) {
    return ok(path, "executable (its version option did not end)");
  }
  return ok(path, version.empty() ? std::string("executable (it tells no version)")
                                  : "executable, " + version);
}

CheckResult check_user(const std::string& name, const std::optional<unsigned int>& id) {
  const std::string subject = "user " + name;
  if (id) {
    return ok(subject, "exists (uid " + std::to_string(*id) + ")");
  }
  return fail(subject, "missing",
              "dnsmasq refuses to start as -u qira -g admin: the setup access point hands out no "
              "addresses",
              "add the user " + name + " to /etc/passwd");
}

CheckResult check_group(const std::string& name, const std::optional<unsigned int>& id) {
  const std::string subject = "group " + name;
  if (id) {
    return ok(subject, "exists (gid " + std::to_string(*id) + ")");
  }
  return fail(subject, "missing",
              "dnsmasq refuses to start as -u qira -g admin: the setup access point hands out no "
              "addresses",
              "add the group " + name + " to /etc/group");
}

CheckResult check_written_file(const WrittenFileSpec& entry, const PathFacts& file,
                               const PathFacts& folder, bool root) {
  const std::string path = entry.path;
  if (entry.must_exist && !file.exists) {
    return fail(path, "missing", entry.effect, "create " + path);
  }
  if (!file.exists && !folder.exists) {
    return fail(path, "missing, and so is its folder " + folder_of(path), entry.effect,
                "create " + folder_of(path));
  }
  if (!root) {
    return warn(path, std::string("not checked: ") + kNeedsRoot, "", kRunAsRoot);
  }
  if (file.exists) {
    if (file.write_errno == 0) {
      return ok(path, file.directory ? "a writable folder" : "writable");
    }
    return fail(path, "not writable: " + error_text(file.write_errno), entry.effect,
                "make " + path + " writable");
  }
  if (folder.write_errno == 0) {
    return ok(path, "absent; its folder " + folder_of(path) + " is writable");
  }
  return fail(path,
              "absent, and its folder " + folder_of(path) +
                  " is not writable: " + error_text(folder.write_errno),
              entry.effect, "make " + folder_of(path) + " writable");
}

CheckResult check_one_file_system(const PathFacts& temporary, const PathFacts& configuration) {
  const std::string subject = std::string(kTemporaryFolder) + " and " + kConfigurationFolder;
  const char* effect =
      "the station file cannot be renamed from /tmp into /etc/wlan0.conf (\"Failed to move WLAN "
      "config\": Invalid cross-device link)";
  if (!temporary.exists || !configuration.exists) {
    return fail(
        subject,
        std::string(temporary.exists ? kConfigurationFolder : kTemporaryFolder) + " is missing",
        effect, "create it on the root file system");
  }
  if (temporary.device == configuration.device) {
    return ok(subject, "on one file system");
  }
  return fail(subject, "on different file systems", effect, "keep /tmp on the file system of /etc");
}

CheckResult check_wpa_control_folder(const PathFacts& folder) {
  if (folder.exists) {
    return ok(kWpaControlFolder, "exists");
  }
  return warn(kWpaControlFolder, "absent: no wpa_supplicant has started",
              "WpaClient::WpaSupplicantIsRunning answers false",
              "start station mode: qira-wifi connect IFNAME");
}

CheckResult check_wpa_supplicant(const std::string& ifname, const WpaFacts& facts, bool root) {
  const std::string subject = "wpa_supplicant of " + qira::host::terminal_text(ifname);
  const std::string fix =
      "start station mode: qira-wifi connect " + qira::host::terminal_text(ifname);
  if (!facts.socket_exists) {
    return warn(subject, "not running (no control socket)",
                "station commands fail until it runs (\"Failed to initialize control "
                "interface\")",
                fix);
  }
  if (!root) {
    return warn(subject, std::string("not checked: ") + kNeedsRoot, "", kRunAsRoot);
  }
  if (facts.answered && facts.reply.rfind("PONG", 0) == 0) {
    return ok(subject, "answers PING");
  }
  const std::string finding = facts.answered
                                  ? "answers PING with \"" + shown(facts.reply) + "\""
                                  : "its control socket does not answer PING" +
                                        (facts.failure.empty() ? "" : ": " + shown(facts.failure));
  return fail(subject, finding, "station commands fail (\"Failed to perform wpactrl action\")",
              fix);
}

CheckResult check_firmware_path(const PathFacts& driver, const PathFacts& parameter,
                                const std::optional<std::string>& current,
                                const IdentityFacts& identity, bool root) {
  const std::string subject = kFirmwarePathParameter;
  const bool switching_board = identity.sysid && *identity.sysid == kFirmwareBoard;
  const char* effect = "tearing down the setup access point fails (\"Failed to open proc entry\")";
  if (!driver.exists) {
    if (switching_board) {
      return fail(subject, "bcmdhd is not loaded on board 25271, which switches its firmware",
                  effect, "load the bcmdhd driver");
    }
    return ok(subject, "bcmdhd is not loaded (only board 25271 switches firmware)");
  }
  if (!parameter.exists) {
    return fail(subject, "bcmdhd is loaded without this parameter", effect,
                "load a bcmdhd driver that has the firmware_path parameter");
  }
  if (!root) {
    return warn(subject, std::string("not checked: ") + kNeedsRoot, "", kRunAsRoot);
  }
  if (parameter.write_errno != 0) {
    return fail(subject, "not writable: " + error_text(parameter.write_errno), effect,
                "load bcmdhd with a writable firmware_path parameter");
  }
  return ok(subject, "writable (now \"" + shown(current.value_or("")) + "\")");
}

CheckResult check_firmware_image(const PathFacts& driver, const PathFacts& image,
                                 const IdentityFacts& identity) {
  const bool switching_board = identity.sysid && *identity.sysid == kFirmwareBoard;
  if (!driver.exists && !switching_board) {
    return ok(kFirmwareImage, "not needed (bcmdhd is not loaded)");
  }
  if (image.exists && !image.directory) {
    return ok(kFirmwareImage, "present");
  }
  return fail(kFirmwareImage, "missing",
              "after the setup access point the radio's firmware cannot load",
              "install the firmware image");
}

std::vector<CheckResult> run_doctor_checks(DoctorSystem& system, const std::string& module_path,
                                           const std::string& ifname) {
  std::vector<CheckResult> checks;
  const bool root = system.is_root();
  const ModuleFacts module = system.module_facts(module_path);
  checks.push_back(check_module_load(module));
  checks.push_back(check_module_interface(module));
  checks.push_back(check_needed_libraries(module));
  checks.push_back(check_libnl_origin(module));
  const IdentityFacts identity = system.identity_facts();
  checks.push_back(check_identity(identity));

  const KernelFacts kernel = system.kernel_facts();
  checks.push_back(check_nl80211(kernel));
  const InterfaceFacts interface = system.interface_facts(ifname);
  checks.push_back(check_interface_exists(ifname, interface));
  checks.push_back(check_interface_wireless(ifname, interface));
  checks.push_back(check_wireless_extensions(ifname, interface));
  checks.push_back(check_interface_mode(ifname, interface, module.loaded));
  checks.push_back(check_regulatory_domain(kernel));

  for (const ProgramSpec& entry : program_specs()) {
    const PathFacts facts = system.path_facts(entry.path);
    std::optional<ProgramOutput> output;
    if (facts.exists && facts.executable && !facts.directory && entry.version_option != nullptr) {
      output = system.run_program(entry.path, {entry.version_option});
    }
    checks.push_back(check_program(entry, facts, output));
  }
  checks.push_back(check_user(kDnsmasqUser, system.user_id(kDnsmasqUser)));
  checks.push_back(check_group(kDnsmasqGroup, system.group_id(kDnsmasqGroup)));
  for (const WrittenFileSpec& entry : written_file_specs()) {
    checks.push_back(check_written_file(entry, system.path_facts(entry.path),
                                        system.path_facts(folder_of(entry.path)), root));
  }
  checks.push_back(check_one_file_system(system.path_facts(kTemporaryFolder),
                                         system.path_facts(kConfigurationFolder)));

  checks.push_back(check_wpa_control_folder(system.path_facts(kWpaControlFolder)));
  checks.push_back(check_wpa_supplicant(ifname, system.wpa_facts(ifname), root));

  const PathFacts driver = system.path_facts(kBcmdhdModule);
  checks.push_back(check_firmware_path(driver, system.path_facts(kFirmwarePathParameter),
                                       system.first_line(kFirmwarePathParameter), identity, root));
  checks.push_back(check_firmware_image(driver, system.path_facts(kFirmwareImage), identity));
  return checks;
}

}  // namespace qira::wifi
