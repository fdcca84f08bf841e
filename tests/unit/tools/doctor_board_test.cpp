// Doctor's checks of the board (programs, users, files, wpa_supplicant, the
// firmware) by table of facts with the exact line of each, the rendering as
// text and JSON, and the whole list in its order over a simulated board.
#include <gtest/gtest.h>

#include <cerrno>
#include <map>

#include "doctor_checks.h"
#include "doctor_command.h"
#include "qira/inspect/exported_interface.h"
#include "support/strict_json.h"

namespace qira::wifi {
namespace {

std::string line(const CheckResult& check) {
  return render_check_line(check);
}

const ProgramSpec& spec_of(const std::string& path) {
  for (const ProgramSpec& entry : program_specs()) {
    if (path == entry.path) {
      return entry;
    }
  }
  ADD_FAILURE() << "no program " << path;
  return program_specs().front();
}

const WrittenFileSpec& file_spec_of(const std::string& path) {
  for (const WrittenFileSpec& entry : written_file_specs()) {
    if (path == entry.path) {
      return entry;
    }
  }
  ADD_FAILURE() << "no file " << path;
  return written_file_specs().front();
}

PathFacts program_file(unsigned int mode = 0755) {
  PathFacts facts;
  facts.exists = true;
  facts.mode = mode;
  facts.executable = (mode & 0111) != 0;
  facts.device = 1;
  return facts;
}

PathFacts folder(int write_errno = 0, unsigned long long device = 1) {
  PathFacts facts;
  facts.exists = true;
  facts.directory = true;
  facts.mode = 0755;
  facts.executable = true;
  facts.write_errno = write_errno;
  facts.device = device;
  return facts;
}

ProgramOutput printed(const std::string& output, int exit_status = 0) {
  ProgramOutput run;
  run.started = true;
  run.finished = true;
  run.exit_status = exit_status;
  run.output = output;
  return run;
}

TEST(DoctorPrograms, TheTableInItsOrder) {
  std::vector<std::string> paths;
  for (const ProgramSpec& entry : program_specs()) {
    paths.push_back(entry.path);
  }
  EXPECT_EQ(paths, (std::vector<std::string>{"/bin/iw", "/bin/wpa_supplicant", "/bin/hostapd",
                                             "/bin/dnsmasq", "/bin/wl", "/bin/wifi_setup.sh",
                                             "/sbin/udhcpc"}));
  EXPECT_STREQ(spec_of("/bin/iw").version_option, "--version");
  EXPECT_STREQ(spec_of("/bin/wpa_supplicant").version_option, "-v");
  EXPECT_STREQ(spec_of("/bin/hostapd").version_option, "-v");
  EXPECT_STREQ(spec_of("/bin/dnsmasq").version_option, "--version");
  EXPECT_EQ(spec_of("/bin/wl").version_option, nullptr);
  EXPECT_EQ(spec_of("/bin/wifi_setup.sh").version_option, nullptr);
  EXPECT_EQ(spec_of("/sbin/udhcpc").version_option, nullptr);
}

TEST(DoctorPrograms, ExecutableWithItsVersion) {
  EXPECT_EQ(line(check_program(spec_of("/bin/iw"), program_file(), printed("iw version 5.19\n"))),
            "ok   /bin/iw: executable, iw version 5.19");
  EXPECT_EQ(line(check_program(spec_of("/bin/wpa_supplicant"), program_file(),
                               printed("wpa_supplicant v2.10\nCopyright (c) 2003-2022\n"))),
            "ok   /bin/wpa_supplicant: executable, wpa_supplicant v2.10");
  // hostapd tells its version and exits with 1.
  EXPECT_EQ(line(check_program(spec_of("/bin/hostapd"), program_file(),
                               printed("hostapd v2.10\nUser space daemon\n", 1))),
            "ok   /bin/hostapd: executable, hostapd v2.10");
  EXPECT_EQ(line(check_program(spec_of("/bin/dnsmasq"), program_file(),
                               printed("Dnsmasq version 2.89  Copyright (c) 2000-2022\n"))),
            "ok   /bin/dnsmasq: executable, Dnsmasq version 2.89");
}

TEST(DoctorPrograms, VersionTextIsCutAndEscaped) {
  EXPECT_EQ(
      check_program(spec_of("/bin/iw"), program_file(), printed("\n\n  iw\x1b[31m 5\n")).finding,
      "executable, iw\\x1b[31m 5");
  EXPECT_EQ(
      check_program(spec_of("/bin/iw"), program_file(), printed(std::string(100, 'v'))).finding,
      "executable, " + std::string(60, 'v') + "...");
  EXPECT_EQ(check_program(spec_of("/bin/iw"), program_file(), printed("")).finding,
            "executable (it tells no version)");
  ProgramOutput endless = printed("iw");
  endless.finished = false;
  EXPECT_EQ(check_program(spec_of("/bin/iw"), program_file(), endless).finding,
            "executable (its version option did not end)");
}

TEST(DoctorPrograms, VendorToolsAreNeverRun) {
  EXPECT_EQ(line(check_program(spec_of("/bin/wl"), program_file(), std::nullopt)),
            "ok   /bin/wl: executable (not run: it acts on the radio)");
}

TEST(DoctorPrograms, ARequiredProgramMissingFails) {
  EXPECT_EQ(line(check_program(spec_of("/bin/hostapd"), PathFacts{}, std::nullopt)),
            "fail /bin/hostapd: missing; the setup access point never starts (\"Failed to run "
            "hostapd\"); fix: install it at /bin/hostapd");
}

TEST(DoctorPrograms, AVendorToolMissingWarns) {
  EXPECT_EQ(line(check_program(spec_of("/bin/wifi_setup.sh"), PathFacts{}, std::nullopt)),
            "warn /bin/wifi_setup.sh: missing; connecting with the vendor tools fails (\"Failed "
            "to run wifi_setup.sh\"); fix: install it at /bin/wifi_setup.sh");
  EXPECT_EQ(check_program(spec_of("/bin/wl"), program_file(0644), std::nullopt).status,
            CheckStatus::kWarn);
}

TEST(DoctorPrograms, NotExecutableGivesItsMode) {
  EXPECT_EQ(line(check_program(spec_of("/bin/hostapd"), program_file(0644), std::nullopt)),
            "fail /bin/hostapd: present but not executable (mode 0644); the setup access point "
            "never starts (\"Failed to run hostapd\"); fix: chmod 755 /bin/hostapd");
}

TEST(DoctorPrograms, AFolderIsNoProgram) {
  EXPECT_EQ(line(check_program(spec_of("/bin/dnsmasq"), folder(), std::nullopt)),
            "fail /bin/dnsmasq: a folder, not a program; the setup access point hands out no "
            "addresses (\"Failed to run dnsmasq\"); fix: install the program at /bin/dnsmasq");
}

TEST(DoctorPrograms, AProgramThatDoesNotRunOnThisBoard) {
  ProgramOutput run;
  run.start_errno = ENOEXEC;
  EXPECT_EQ(line(check_program(spec_of("/bin/iw"), program_file(), run)),
            "fail /bin/iw: executable but it does not run: Exec format error; the setup access "
            "point's interface is never made (\"Failed to run iw tool\"); fix: install a build of "
            "it for this board");
}

TEST(DoctorAccounts, UserAndGroupOfDnsmasq) {
  EXPECT_EQ(line(check_user("qira", 1000u)), "ok   user qira: exists (uid 1000)");
  EXPECT_EQ(line(check_group("admin", 1001u)), "ok   group admin: exists (gid 1001)");
  EXPECT_EQ(line(check_user("qira", std::nullopt)),
            "fail user qira: missing; dnsmasq refuses to start as -u qira -g admin: the setup "
            "access point hands out no addresses; fix: add the user qira to /etc/passwd");
  EXPECT_EQ(line(check_group("admin", std::nullopt)),
            "fail group admin: missing; dnsmasq refuses to start as -u qira -g admin: the setup "
            "access point hands out no addresses; fix: add the group admin to /etc/group");
}

TEST(DoctorFiles, TheTableInItsOrder) {
  std::vector<std::string> paths;
  for (const WrittenFileSpec& entry : written_file_specs()) {
    paths.push_back(entry.path);
  }
  EXPECT_EQ(paths,
            (std::vector<std::string>{"/etc/wlan0.conf", "/etc/hostapd.conf", "/etc/dnsmasq.conf",
                                      "/etc/hosts", "/var/log/hostapd.log", "/tmp"}));
}

TEST(DoctorFiles, AnAbsentFileInAWritableFolder) {
  EXPECT_EQ(line(check_written_file(file_spec_of("/etc/wlan0.conf"), PathFacts{}, folder(), true)),
            "ok   /etc/wlan0.conf: absent; its folder /etc is writable");
}

TEST(DoctorFiles, AWritableFileAndFolder) {
  EXPECT_EQ(
      line(check_written_file(file_spec_of("/etc/hosts"), program_file(0644), folder(), true)),
      "ok   /etc/hosts: writable");
  EXPECT_EQ(line(check_written_file(file_spec_of("/tmp"), folder(), folder(), true)),
            "ok   /tmp: a writable folder");
}

TEST(DoctorFiles, HostsMustExist) {
  EXPECT_EQ(line(check_written_file(file_spec_of("/etc/hosts"), PathFacts{}, folder(), false)),
            "fail /etc/hosts: missing; the setup access point's name config.zem is not added "
            "(\"Failed to read file\"); fix: create /etc/hosts");
}

TEST(DoctorFiles, AMissingFolder) {
  EXPECT_EQ(
      line(
          check_written_file(file_spec_of("/var/log/hostapd.log"), PathFacts{}, PathFacts{}, true)),
      "fail /var/log/hostapd.log: missing, and so is its folder /var/log; hostapd cannot write "
      "its log; fix: create /var/log");
}

TEST(DoctorFiles, WithoutRootSaysSo) {
  EXPECT_EQ(
      line(check_written_file(file_spec_of("/etc/hostapd.conf"), PathFacts{}, folder(), false)),
      "warn /etc/hostapd.conf: not checked: needs root; fix: run qira-wifi doctor as root");
}

TEST(DoctorFiles, AReadOnlyFileOrFolder) {
  PathFacts file = program_file(0644);
  file.write_errno = EROFS;
  EXPECT_EQ(line(check_written_file(file_spec_of("/etc/dnsmasq.conf"), file, folder(), true)),
            "fail /etc/dnsmasq.conf: not writable: Read-only file system; the setup access point "
            "cannot be configured (\"Failed to open file\"); fix: make /etc/dnsmasq.conf writable");
  EXPECT_EQ(
      line(check_written_file(file_spec_of("/etc/wlan0.conf"), PathFacts{}, folder(EROFS), true)),
      "fail /etc/wlan0.conf: absent, and its folder /etc is not writable: Read-only file system; "
      "the station settings cannot be written (\"Failed to move WLAN config\"); fix: make /etc "
      "writable");
}

TEST(DoctorFiles, TmpAndEtcOnOneFileSystem) {
  EXPECT_EQ(line(check_one_file_system(folder(0, 7), folder(0, 7))),
            "ok   /tmp and /etc: on one file system");
}

TEST(DoctorFiles, TmpOnAFileSystemOfItsOwn) {
  EXPECT_EQ(line(check_one_file_system(folder(0, 8), folder(0, 7))),
            "fail /tmp and /etc: on different file systems; the station file cannot be renamed "
            "from /tmp into /etc/wlan0.conf (\"Failed to move WLAN config\": Invalid cross-device "
            "link); fix: keep /tmp on the file system of /etc");
}

TEST(DoctorFiles, TmpMissing) {
  EXPECT_EQ(check_one_file_system(PathFacts{}, folder()).finding, "/tmp is missing");
  EXPECT_EQ(check_one_file_system(folder(), PathFacts{}).finding, "/etc is missing");
}

WpaFacts answering(const std::string& reply) {
  WpaFacts facts;
  facts.socket_exists = true;
  facts.answered = true;
  facts.reply = reply;
  return facts;
}

TEST(DoctorWpaSupplicant, ControlFolder) {
  EXPECT_EQ(line(check_wpa_control_folder(folder())), "ok   /var/run/wpa_supplicant: exists");
  EXPECT_EQ(line(check_wpa_control_folder(PathFacts{})),
            "warn /var/run/wpa_supplicant: absent: no wpa_supplicant has started; "
            "WpaClient::WpaSupplicantIsRunning answers false; fix: start station mode: qira-wifi "
            "connect IFNAME");
}

TEST(DoctorWpaSupplicant, AnswersPing) {
  EXPECT_EQ(line(check_wpa_supplicant("wlan0", answering("PONG"), true)),
            "ok   wpa_supplicant of wlan0: answers PING");
}

TEST(DoctorWpaSupplicant, NotRunningWarns) {
  EXPECT_EQ(line(check_wpa_supplicant("wlan0", WpaFacts{}, true)),
            "warn wpa_supplicant of wlan0: not running (no control socket); station commands "
            "fail until it runs (\"Failed to initialize control interface\"); fix: start station "
            "mode: qira-wifi connect wlan0");
}

TEST(DoctorWpaSupplicant, WithoutRootThePingIsNotSent) {
  EXPECT_EQ(line(check_wpa_supplicant("wlan0", answering("PONG"), false)),
            "warn wpa_supplicant of wlan0: not checked: needs root; fix: run qira-wifi doctor as "
            "root");
}

TEST(DoctorWpaSupplicant, AWrongReplyOrSilenceFails) {
  EXPECT_EQ(line(check_wpa_supplicant("wlan0", answering("FAIL"), true)),
            "fail wpa_supplicant of wlan0: answers PING with \"FAIL\"; station commands fail "
            "(\"Failed to perform wpactrl action\"); fix: start station mode: qira-wifi connect "
            "wlan0");
  WpaFacts silent;
  silent.socket_exists = true;
  silent.failure = "no reply within 1000 ms";
  EXPECT_EQ(check_wpa_supplicant("wlan0", silent, true).finding,
            "its control socket does not answer PING: no reply within 1000 ms");
}

IdentityFacts board(unsigned long long sysid) {
  IdentityFacts facts;
  facts.available = true;
  facts.sysid = sysid;
  return facts;
}

TEST(DoctorFirmware, NotLoadedOnABoardThatDoesNotSwitch) {
  EXPECT_EQ(line(check_firmware_path(PathFacts{}, PathFacts{}, std::nullopt, board(25248), true)),
            "ok   /sys/module/bcmdhd/parameters/firmware_path: bcmdhd is not loaded (only board "
            "25271 switches firmware)");
  EXPECT_EQ(line(check_firmware_image(PathFacts{}, PathFacts{}, board(25248))),
            "ok   /lib/firmware/broadcom/ap6234/fw_bcm43341b0_ag.bin: not needed (bcmdhd is not "
            "loaded)");
}

TEST(DoctorFirmware, NotLoadedOnTheBoardThatSwitches) {
  EXPECT_EQ(line(check_firmware_path(PathFacts{}, PathFacts{}, std::nullopt, board(25271), true)),
            "fail /sys/module/bcmdhd/parameters/firmware_path: bcmdhd is not loaded on board "
            "25271, which switches its firmware; tearing down the setup access point fails "
            "(\"Failed to open proc entry\"); fix: load the bcmdhd driver");
  EXPECT_EQ(line(check_firmware_image(PathFacts{}, PathFacts{}, board(25271))),
            "fail /lib/firmware/broadcom/ap6234/fw_bcm43341b0_ag.bin: missing; after the setup "
            "access point the radio's firmware cannot load; fix: install the firmware image");
}

TEST(DoctorFirmware, LoadedDriver) {
  PathFacts parameter = program_file(0644);
  EXPECT_EQ(line(check_firmware_path(folder(), parameter, std::string("/lib/firmware/fw.bin"),
                                     board(25248), true)),
            "ok   /sys/module/bcmdhd/parameters/firmware_path: writable (now "
            "\"/lib/firmware/fw.bin\")");
  EXPECT_EQ(check_firmware_path(folder(), parameter, std::nullopt, board(25248), false).finding,
            "not checked: needs root");
  parameter.write_errno = EACCES;
  EXPECT_EQ(line(check_firmware_path(folder(), parameter, std::nullopt, board(25248), true)),
            "fail /sys/module/bcmdhd/parameters/firmware_path: not writable: Permission denied; "
            "tearing down the setup access point fails (\"Failed to open proc entry\"); fix: load "
            "bcmdhd with a writable firmware_path parameter");
  EXPECT_EQ(check_firmware_path(folder(), PathFacts{}, std::nullopt, board(25248), true).finding,
            "bcmdhd is loaded without this parameter");
  EXPECT_EQ(line(check_firmware_image(folder(), program_file(0644), board(25248))),
            "ok   /lib/firmware/broadcom/ap6234/fw_bcm43341b0_ag.bin: present");
}

TEST(DoctorRender, AnOkLineCarriesNoEffectOrFix) {
  EXPECT_EQ(line(CheckResult{CheckStatus::kOk, "x", "fine", "ignored", "ignored"}), "ok   x: fine");
  EXPECT_EQ(line(CheckResult{CheckStatus::kWarn, "x", "odd", "", "do y"}),
            "warn x: odd; fix: do y");
}

TEST(DoctorRender, TextEndsWithTheCounts) {
  const std::vector<CheckResult> checks = {
      {CheckStatus::kOk, "a", "fine", "", ""},
      {CheckStatus::kWarn, "b", "odd", "e", "f"},
      {CheckStatus::kFail, "c", "bad", "e", "f"},
      {CheckStatus::kOk, "d", "fine", "", ""},
  };
  EXPECT_EQ(render_doctor_text(checks),
            "ok   a: fine\nwarn b: odd; e; fix: f\nfail c: bad; e; fix: f\nok   d: fine\n"
            "2 ok, 1 warn, 1 fail\n");
  EXPECT_TRUE(any_failed(checks));
}

TEST(DoctorRender, JsonIsOneValidObject) {
  const std::vector<CheckResult> checks = {
      {CheckStatus::kOk, "a", "fine", "", ""},
      {CheckStatus::kWarn, "b \"quoted\"", "odd\\", "e", "f"},
  };
  const std::string text = doctor_to_variant("wlan0", "m.so", checks).ToJSON(2);
  std::string error;
  ASSERT_TRUE(test::is_strict_json(text, error)) << error << "\n" << text;
  EXPECT_EQ(doctor_to_variant("wlan0", "m.so", checks).ToJSON(),
            "{\"checks\":[{\"check\":\"a\",\"effect\":\"\",\"finding\":\"fine\",\"fix\":\"\","
            "\"status\":\"ok\"},{\"check\":\"b \\\"quoted\\\"\",\"effect\":\"e\",\"finding\":"
            "\"odd\\\\\",\"fix\":\"f\",\"status\":\"warn\"}],\"counts\":{\"fail\":0,\"ok\":1,"
            "\"warn\":1},\"ifname\":\"wlan0\",\"module\":\"m.so\",\"ok\":true}");
}

// A board described by facts: the camera as built, changed by each test.
class SimulatedBoard : public DoctorSystem {
 public:
  SimulatedBoard() {
    module.path = "libqira_network_utils_wireless.so.1";
    module.loaded = true;
    module.file = "/usr/lib/libqira_network_utils_wireless.so.1";
    module.dynamic_read = true;
    module.dynamic.needed = {"libc.so.6"};
    for (const std::string& name : qira::inspect::exported_interface()) {
      qira::inspect::DynamicSymbol symbol;
      symbol.name = name;
      symbol.defined = true;
      symbol.binding = 1;
      module.dynamic.symbols.push_back(symbol);
    }
    module.process_objects = {"libc.so.6"};
    module.libnl_origin = {{"nl_socket_alloc", "libnl-3.so.200"}};
    identity.available = true;
    identity.source = "/etc/qira/identity.json";
    identity.sysid = 25248;
    identity.sysid_present = identity.name_present = true;
    identity.name = "Virtual Camera";
    identity.hwaddr = "02000000AB12";
    kernel.nl80211_resolved = true;
    kernel.nl80211_id = 28;
    kernel.regulatory_domain = "00";
    interface.exists = interface.wireless = true;
    interface.phy = "phy0";
    interface.wext_name = "IEEE 802.11";
    interface.mode = 2;
    for (const ProgramSpec& entry : program_specs()) {
      paths[entry.path] = program_file();
    }
    for (const char* path : {"/etc", "/tmp", "/var/log", "/var/run/wpa_supplicant"}) {
      paths[path] = folder();
    }
    paths["/etc/hosts"] = program_file(0644);
    wpa.socket_exists = wpa.answered = true;
    wpa.reply = "PONG";
  }

  bool is_root() override { return root; }
  ModuleFacts module_facts(const std::string& path) override {
    asked_module = path;
    return module;
  }
  IdentityFacts identity_facts() override { return identity; }
  KernelFacts kernel_facts() override { return kernel; }
  InterfaceFacts interface_facts(const std::string& ifname) override {
    asked_interface = ifname;
    return interface;
  }
  PathFacts path_facts(const std::string& path) override {
    auto found = paths.find(path);
    return found == paths.end() ? PathFacts{} : found->second;
  }
  ProgramOutput run_program(const std::string& path,
                            const std::vector<std::string>& args) override {
    runs.push_back(path + (args.empty() ? "" : " " + args.front()));
    return printed(path.substr(path.rfind('/') + 1) + " 1.0\n");
  }
  std::optional<unsigned int> user_id(const std::string& name) override {
    return name == "qira" ? std::optional<unsigned int>(1000) : std::nullopt;
  }
  std::optional<unsigned int> group_id(const std::string& name) override {
    return name == "admin" ? std::optional<unsigned int>(1001) : std::nullopt;
  }
  WpaFacts wpa_facts(const std::string& /*ifname*/) override { return wpa; }
  std::optional<std::string> first_line(const std::string& /*path*/) override {
    return std::nullopt;
  }

  bool root = true;
  ModuleFacts module;
  IdentityFacts identity;
  KernelFacts kernel;
  InterfaceFacts interface;
  std::map<std::string, PathFacts> paths;
  WpaFacts wpa;
  std::string asked_module;
  std::string asked_interface;
  std::vector<std::string> runs;
};

TEST(DoctorRun, TheCameraAsBuiltPassesEveryCheckInItsOrder) {
  SimulatedBoard board;
  const std::vector<CheckResult> checks = run_doctor_checks(board, "", "wlan0");
  const std::string total = std::to_string(qira::inspect::exported_interface().size());
  EXPECT_EQ(
      render_doctor_text(checks),
      "ok   module: libqira_network_utils_wireless.so.1 loads from "
      "/usr/lib/libqira_network_utils_wireless.so.1\n"
      "ok   module interface: exports all " +
          total +
          " functions of its interface\n"
          "ok   module needed libraries: libc.so.6: the system runtime, all loaded\n"
          "ok   libnl: 1 functions come from the process (libnl-3.so.200)\n"
          "ok   identity: sysid 25248, name \"Virtual Camera\", hwaddr 02000000AB12\n"
          "ok   nl80211: the generic netlink family resolves (id 28)\n"
          "ok   interface wlan0: exists\n"
          "ok   interface wlan0 radio: phy0\n"
          "ok   interface wlan0 wireless extensions: the name request answers \"IEEE 802.11\"\n"
          "ok   interface wlan0 mode: managed (2)\n"
          "ok   regulatory domain: world (00)\n"
          "ok   /bin/iw: executable, iw 1.0\n"
          "ok   /bin/wpa_supplicant: executable, wpa_supplicant 1.0\n"
          "ok   /bin/hostapd: executable, hostapd 1.0\n"
          "ok   /bin/dnsmasq: executable, dnsmasq 1.0\n"
          "ok   /bin/wl: executable (not run: it acts on the radio)\n"
          "ok   /bin/wifi_setup.sh: executable (not run: it acts on the radio)\n"
          "ok   /sbin/udhcpc: executable (not run: it acts on the radio)\n"
          "ok   user qira: exists (uid 1000)\n"
          "ok   group admin: exists (gid 1001)\n"
          "ok   /etc/wlan0.conf: absent; its folder /etc is writable\n"
          "ok   /etc/hostapd.conf: absent; its folder /etc is writable\n"
          "ok   /etc/dnsmasq.conf: absent; its folder /etc is writable\n"
          "ok   /etc/hosts: writable\n"
          "ok   /var/log/hostapd.log: absent; its folder /var/log is writable\n"
          "ok   /tmp: a writable folder\n"
          "ok   /tmp and /etc: on one file system\n"
          "ok   /var/run/wpa_supplicant: exists\n"
          "ok   wpa_supplicant of wlan0: answers PING\n"
          "ok   /sys/module/bcmdhd/parameters/firmware_path: bcmdhd is not loaded (only board "
          "25271 switches firmware)\n"
          "ok   /lib/firmware/broadcom/ap6234/fw_bcm43341b0_ag.bin: not needed (bcmdhd is not "
          "loaded)\n"
          "31 ok, 0 warn, 0 fail\n");
  EXPECT_FALSE(any_failed(checks));
  EXPECT_EQ(board.asked_module, "");
  EXPECT_EQ(board.asked_interface, "wlan0");
  // Only the programs that tell a version without acting are run.
  EXPECT_EQ(board.runs, (std::vector<std::string>{"/bin/iw --version", "/bin/wpa_supplicant -v",
                                                  "/bin/hostapd -v", "/bin/dnsmasq --version"}));
}

TEST(DoctorRun, AProgramNotExecutableIsNotRun) {
  SimulatedBoard board;
  board.paths["/bin/hostapd"] = program_file(0644);
  const std::vector<CheckResult> checks = run_doctor_checks(board, "m.so", "wlan0");
  EXPECT_TRUE(any_failed(checks));
  EXPECT_EQ(board.runs, (std::vector<std::string>{"/bin/iw --version", "/bin/wpa_supplicant -v",
                                                  "/bin/dnsmasq --version"}));
  EXPECT_EQ(board.asked_module, "m.so");
}

TEST(DoctorRun, WithTmpOnItsOwnFileSystemOnlyTheRenameCheckFails) {
  SimulatedBoard board;
  board.paths["/tmp"] = folder(0, 2);
  std::vector<std::string> failed;
  for (const CheckResult& check : run_doctor_checks(board, "", "wlan0")) {
    if (check.status != CheckStatus::kOk) {
      failed.push_back(line(check));
    }
  }
  EXPECT_EQ(failed, (std::vector<std::string>{
                        "fail /tmp and /etc: on different file systems; the station file cannot "
                        "be renamed from /tmp into /etc/wlan0.conf (\"Failed to move WLAN "
                        "config\": Invalid cross-device link); fix: keep /tmp on the file system "
                        "of /etc"}));
}

TEST(DoctorRun, WithoutWpaSupplicantTwoWarningsAndNoFailure) {
  SimulatedBoard board;
  board.paths.erase("/var/run/wpa_supplicant");
  board.wpa = WpaFacts{};
  std::vector<std::string> flagged;
  const std::vector<CheckResult> checks = run_doctor_checks(board, "", "wlan0");
  for (const CheckResult& check : checks) {
    if (check.status != CheckStatus::kOk) {
      flagged.push_back(status_word(check.status) + std::string(" ") + check.subject);
    }
  }
  EXPECT_EQ(flagged, (std::vector<std::string>{"warn /var/run/wpa_supplicant",
                                               "warn wpa_supplicant of wlan0"}));
  EXPECT_FALSE(any_failed(checks));
}

}  // namespace
}  // namespace qira::wifi
