// The setup access point's files: hostapd settings by board and hook, the
// dnsmasq file, the "/etc/hosts" alias, every failure in its order, and the
// hand-over to the access-point interface.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "qira/network/netlib_netm.h"
#include "support/sandbox.h"
#include "unit/netlib_netm/netm_test_util.h"

namespace qira::test::netm {
namespace {

using qira::network::netlib_netm_configure_ap;

constexpr const char* kHostsBefore = "127.0.0.1\tlocalhost\n";

std::string dnsmasq(const std::string& address, const std::string& ifname) {
  return "domain-needed\nbogus-priv\naddress=/#/" + address + "\ninterface=" + ifname +
         "\ndhcp-range=192.168.1.50,192.168.1.150,12h\n";
}

// The process calls of the interface preparation on a board that adds the
// interface.
std::vector<std::string> interface_commands(const std::string& ifname) {
  return {"run /bin/iw dev " + ifname + " del",
          "run /bin/iw phy phy0 interface add " + ifname + " type __ap",
          "run /bin/iw dev ap0 set power_save off", "run /bin/iw dev wlan0 set power_save off"};
}

class ApFiles : public NetmTest {
 protected:
  void SetUp() override {
    NetmTest::SetUp();
    write_file("/etc/hosts", kHostsBefore);
  }

  bool configure(const std::string& ifname = "ap0", const std::string& address = "192.168.1.1",
                 const std::string& netmask = "255.255.255.0") {
    return netlib_netm_configure_ap(ctx(), ifname, address, netmask);
  }

  ExpectedLine ap_line(const std::string& message) {
    return {kApFilesFile, "netlib_netm_configure_ap", 0, message};
  }

  // Nothing of the interface preparation ran.
  void expect_no_interface_work() {
    EXPECT_TRUE(process_calls().empty());
    EXPECT_TRUE(netlib_calls().empty());
  }
};

TEST_F(ApFiles, BcmdhdBoardWritesTheDocumentedFilesAndPassesWlan0On) {
  set_identity(25271, "Front Door", "245A4C0A1B2C");
  EXPECT_TRUE(configure("wlan1", "192.168.1.1", "255.255.255.0"));
  EXPECT_EQ(read_file("/etc/hostapd.conf"),
            "channel=1\nctrl_interface=/var/run/hostapd\ndriver=nl80211\nhw_mode=g\n"
            "interface=wlan0\nssid=Setup Front Door (1B2C)\n");
  EXPECT_EQ(read_file("/etc/dnsmasq.conf"), dnsmasq("192.168.1.1", "wlan0"));
  EXPECT_EQ(read_file("/etc/hosts"),
            std::string(kHostsBefore) + "192.168.1.1\tconfig.zem\t\tconfig\n");
  expect_lines(log_, {});
  // The interface preparation ran on "wlan0": no interface added on this board.
  EXPECT_EQ(process_calls(),
            (std::vector<std::string>{"run /bin/iw dev wlan0 del",
                                      "run /bin/iw dev ap0 set power_save off",
                                      "run /bin/iw dev wlan0 set power_save off"}));
  EXPECT_EQ(netlib_calls(),
            (std::vector<std::string>{
                "netlib_iface_set_up(wlan0, true)",
                "netlib_netm_configure_ip_addr(wlan0, 192.168.1.1, 255.255.255.0, )"}));
}

TEST_F(ApFiles, FiveGhzBoardUsesChannel149AndModeA) {
  set_identity(25028, "Cam", "00000000ABCD");
  EXPECT_TRUE(configure("ap0"));
  EXPECT_EQ(read_file("/etc/hostapd.conf"),
            "channel=149\nctrl_interface=/var/run/hostapd\ndriver=nl80211\nhw_mode=a\n"
            "interface=ap0\nssid=Setup Cam (ABCD)\n");
  EXPECT_EQ(read_file("/etc/dnsmasq.conf"), dnsmasq("192.168.1.1", "ap0"));
  EXPECT_EQ(process_calls(), interface_commands("ap0"));
}

TEST_F(ApFiles, SecondFiveGhzBoardToo) {
  set_identity(25033, "Cam", "00000000ABCD");
  EXPECT_TRUE(configure("ap0"));
  EXPECT_EQ(read_file("/etc/hostapd.conf"),
            "channel=149\nctrl_interface=/var/run/hostapd\ndriver=nl80211\nhw_mode=a\n"
            "interface=ap0\nssid=Setup Cam (ABCD)\n");
}

TEST_F(ApFiles, TwoGhzBoardsUseChannel1AndModeG) {
  for (unsigned long long sysid : {25248ULL, 25317ULL}) {
    SCOPED_TRACE(sysid);
    set_identity(sysid, "Cam", "00000000ABCD");
    EXPECT_TRUE(configure("ap0"));
    EXPECT_EQ(read_file("/etc/hostapd.conf"),
              "channel=1\nctrl_interface=/var/run/hostapd\ndriver=nl80211\nhw_mode=g\n"
              "interface=ap0\nssid=Setup Cam (ABCD)\n");
  }
}

TEST_F(ApFiles, UnknownBoardHasNoHwModeLine) {
  set_identity(12345, "Cam", "00000000ABCD");
  EXPECT_TRUE(configure("ap0"));
  EXPECT_EQ(read_file("/etc/hostapd.conf"),
            "channel=1\nctrl_interface=/var/run/hostapd\ndriver=nl80211\ninterface=ap0\n"
            "ssid=Setup Cam (ABCD)\n");
}

TEST_F(ApFiles, HighBitsOfTheModelNumberMakeAnUnknownBoardHere) {
  // All 64 bits count here (the interface preparation looks at 32 only).
  set_identity(0x1000062B7ULL, "Cam", "00000000ABCD");
  EXPECT_TRUE(configure("ap0"));
  EXPECT_EQ(read_file("/etc/hostapd.conf"),
            "channel=1\nctrl_interface=/var/run/hostapd\ndriver=nl80211\ninterface=ap0\n"
            "ssid=Setup Cam (ABCD)\n");
  // ... while the interface preparation sees the bcmdhd board: no iw add.
  EXPECT_EQ(
      process_calls(),
      (std::vector<std::string>{"run /bin/iw dev ap0 del", "run /bin/iw dev ap0 set power_save off",
                                "run /bin/iw dev wlan0 set power_save off"}));
}

std::map<std::string, std::string> seen_by_hook;

void channel_six_and_vendor_elements(std::map<std::string, std::string>& settings) {
  seen_by_hook = settings;
  settings["channel"] = "6";
  settings["vendor_elements"] = "dd0411223344";
}

void remove_hw_mode_and_rename(std::map<std::string, std::string>& settings) {
  settings.erase("hw_mode");
  settings["ssid"] = "Renamed";
}

TEST_F(ApFiles, HookSeesEverySettingAndItsChangesAreWrittenInKeyOrder) {
  set_identity(25248, "Cam", "00000000ABCD");
  seen_by_hook.clear();
  // The hook as the setter stores it: in the shared interface state.
  state_.hostapd_conf_hook = &channel_six_and_vendor_elements;
  EXPECT_TRUE(configure("ap0"));
  EXPECT_EQ(seen_by_hook,
            (std::map<std::string, std::string>{{"channel", "1"},
                                                {"ctrl_interface", "/var/run/hostapd"},
                                                {"driver", "nl80211"},
                                                {"hw_mode", "g"},
                                                {"interface", "ap0"},
                                                {"ssid", "Setup Cam (ABCD)"}}));
  EXPECT_EQ(read_file("/etc/hostapd.conf"),
            "channel=6\nctrl_interface=/var/run/hostapd\ndriver=nl80211\nhw_mode=g\n"
            "interface=ap0\nssid=Setup Cam (ABCD)\nvendor_elements=dd0411223344\n");
}

TEST_F(ApFiles, HookInTheSharedStateCanRemoveSettings) {
  set_identity(25248, "Cam", "00000000ABCD");
  state_.hostapd_conf_hook = &remove_hw_mode_and_rename;
  EXPECT_TRUE(configure("ap0"));
  EXPECT_EQ(read_file("/etc/hostapd.conf"),
            "channel=1\nctrl_interface=/var/run/hostapd\ndriver=nl80211\ninterface=ap0\n"
            "ssid=Renamed\n");
  // The hook changes the hostapd file only.
  EXPECT_EQ(read_file("/etc/dnsmasq.conf"), dnsmasq("192.168.1.1", "ap0"));
}

TEST_F(ApFiles, FilesAreReplacedWhole) {
  set_identity(25248, "Cam", "00000000ABCD");
  write_file("/etc/hostapd.conf", std::string(500, 'x'));
  write_file("/etc/dnsmasq.conf", std::string(500, 'y'));
  EXPECT_TRUE(configure("ap0"));
  EXPECT_EQ(read_file("/etc/hostapd.conf"),
            "channel=1\nctrl_interface=/var/run/hostapd\ndriver=nl80211\nhw_mode=g\n"
            "interface=ap0\nssid=Setup Cam (ABCD)\n");
  EXPECT_EQ(read_file("/etc/dnsmasq.conf"), dnsmasq("192.168.1.1", "ap0"));
}

TEST_F(ApFiles, HostsWithTheAliasIsLeftUntouchedEvenForAnotherAddress) {
  set_identity(25248, "Cam", "00000000ABCD");
  const std::string hosts = "127.0.0.1\tlocalhost\n10.9.9.9\tconfig.zem\t\tconfig\n";
  write_file("/etc/hosts", hosts);
  EXPECT_TRUE(configure("ap0", "192.168.1.1"));
  EXPECT_EQ(read_file("/etc/hosts"), hosts);
}

TEST_F(ApFiles, EmptyHostsGetsTheLine) {
  set_identity(25248, "Cam", "00000000ABCD");
  write_file("/etc/hosts", "");
  EXPECT_TRUE(configure("ap0", "192.168.1.20"));
  EXPECT_EQ(read_file("/etc/hosts"), "192.168.1.20\tconfig.zem\t\tconfig\n");
}

TEST_F(ApFiles, ResultIsTheInterfacePreparationsResult) {
  set_identity(25248, "Cam", "00000000ABCD");
  netlib_.set_result("netlib_netm_configure_ip_addr", false);
  EXPECT_FALSE(configure("ap0"));
  expect_lines(log_, {});
  EXPECT_EQ(netlib_calls(),
            (std::vector<std::string>{
                "netlib_iface_set_up(wlan0, true)",
                "netlib_netm_configure_ip_addr(ap0, 192.168.1.1, 255.255.255.0, )"}));
}

TEST_F(ApFiles, NetmaskIsPassedOnUnchanged) {
  set_identity(25248, "Cam", "00000000ABCD");
  EXPECT_TRUE(configure("ap0", "192.168.1.20", "not a mask"));
  EXPECT_EQ(netlib_calls(),
            (std::vector<std::string>{
                "netlib_iface_set_up(wlan0, true)",
                "netlib_netm_configure_static_fallback(ap0, 192.168.1.20, not a mask, )"}));
}

// ---- Failures, in their order ------------------------------------------------

TEST_F(ApFiles, IdentityUnavailableFailsBeforeAnyFile) {
  // No identity record and no identity file in the sandbox.
  EXPECT_FALSE(configure("ap0"));
  expect_lines(log_, {ap_line("Failed to initialize camera info manager")});
  EXPECT_NE(access("/etc/hostapd.conf", F_OK), 0);
  EXPECT_NE(access("/etc/dnsmasq.conf", F_OK), 0);
  EXPECT_EQ(read_file("/etc/hosts"), kHostsBefore);
  expect_no_interface_work();
}

TEST_F(ApFiles, EmptyInterfaceNameFails) {
  set_identity(25248, "Cam", "00000000ABCD");
  EXPECT_FALSE(configure(""));
  expect_lines(log_, {ap_line("invalid network interface")});
  EXPECT_NE(access("/etc/hostapd.conf", F_OK), 0);
  expect_no_interface_work();
}

TEST_F(ApFiles, EmptyInterfaceNameIsReplacedOnTheBcmdhdBoard) {
  set_identity(25271, "Cam", "00000000ABCD");
  EXPECT_TRUE(configure(""));
  EXPECT_EQ(read_file("/etc/dnsmasq.conf"), dnsmasq("192.168.1.1", "wlan0"));
}

TEST_F(ApFiles, ShortHardwareAddressThrowsOutOfRangeBeforeAnyFile) {
  set_identity(25248, "Cam", "1234567");
  EXPECT_THROW(configure("ap0"), std::out_of_range);
  expect_lines(log_, {});
  EXPECT_NE(access("/etc/hostapd.conf", F_OK), 0);
  expect_no_interface_work();
}

TEST_F(ApFiles, MissingHardwareAddressIsEmptyAndThrowsToo) {
  qira::variant::Variant record;
  record["sysid"] = 25248ULL;
  record["name"] = "Cam";
  qira::host::set_identity_record(record);
  EXPECT_THROW(configure("ap0"), std::out_of_range);
}

TEST_F(ApFiles, HostapdFileOpenFailure) {
  set_identity(25248, "Cam", "00000000ABCD");
  make_dirs("/etc/hostapd.conf");  // a folder cannot be opened for writing
  EXPECT_FALSE(configure("ap0"));
  expect_lines(log_, {ap_line("Failed to open file \"/etc/hostapd.conf\"")});
  EXPECT_NE(access("/etc/dnsmasq.conf", F_OK), 0);
  EXPECT_EQ(read_file("/etc/hosts"), kHostsBefore);
  expect_no_interface_work();
}

TEST_F(ApFiles, HostapdFileWriteFailure) {
  set_identity(25248, "Cam", "00000000ABCD");
  state_.hostapd_conf_hook = &channel_six_and_vendor_elements;
  bool result = true;
  {
    ScopedFileSizeLimit limit(20);  // writes past 20 bytes fail with EFBIG
    result = configure("ap0");
  }
  EXPECT_FALSE(result);
  expect_lines(log_, {ap_line("Failed to write to file \"/etc/hostapd.conf\"")});
  EXPECT_EQ(read_file("/etc/hostapd.conf"), "channel=6\nctrl_inter");
  EXPECT_NE(access("/etc/dnsmasq.conf", F_OK), 0);
  expect_no_interface_work();
}

TEST_F(ApFiles, DnsmasqFileOpenFailureKeepsTheHostapdFile) {
  set_identity(25248, "Cam", "00000000ABCD");
  make_dirs("/etc/dnsmasq.conf");
  EXPECT_FALSE(configure("ap0"));
  expect_lines(log_, {ap_line("Failed to open file \"/etc/dnsmasq.conf\"")});
  EXPECT_EQ(read_file("/etc/hostapd.conf"),
            "channel=1\nctrl_interface=/var/run/hostapd\ndriver=nl80211\nhw_mode=g\n"
            "interface=ap0\nssid=Setup Cam (ABCD)\n");
  EXPECT_EQ(read_file("/etc/hosts"), kHostsBefore);
  expect_no_interface_work();
}

TEST_F(ApFiles, DnsmasqFileWriteFailure) {
  set_identity(25248, "Cam", "00000000ABCD");
  const std::string long_address(200, '1');
  bool result = true;
  {
    // The hostapd file (103 bytes) fits; the dnsmasq file with this address
    // does not.
    ScopedFileSizeLimit limit(150);
    result = configure("ap0", long_address);
  }
  EXPECT_FALSE(result);
  expect_lines(log_, {ap_line("Failed to write to file \"/etc/dnsmasq.conf\"")});
  EXPECT_EQ(read_file("/etc/dnsmasq.conf"), dnsmasq(long_address, "ap0").substr(0, 150));
  EXPECT_EQ(read_file("/etc/hosts"), kHostsBefore);
  expect_no_interface_work();
}

TEST_F(ApFiles, MissingHostsFileFailsAfterBothConfigurationFiles) {
  set_identity(25248, "Cam", "00000000ABCD");
  remove_path("/etc/hosts");
  EXPECT_FALSE(configure("ap0"));
  expect_lines(log_, {ap_line("Failed to read file \"/etc/hosts\"")});
  EXPECT_EQ(read_file("/etc/dnsmasq.conf"), dnsmasq("192.168.1.1", "ap0"));
  EXPECT_NE(access("/etc/hosts", F_OK), 0);
  expect_no_interface_work();
}

TEST_F(ApFiles, HostsOpenFailure) {
  set_identity(25248, "Cam", "00000000ABCD");
  ScopedReadOnlyFile read_only_hosts("/etc/hosts");
  ASSERT_TRUE(read_only_hosts.mounted());
  EXPECT_FALSE(configure("ap0"));
  expect_lines(log_, {ap_line("Failed to open file \"/etc/hosts\"")});
  EXPECT_EQ(read_file("/etc/hosts"), kHostsBefore);
  expect_no_interface_work();
}

TEST_F(ApFiles, HostsWriteFailure) {
  set_identity(25248, "Cam", "00000000ABCD");
  bool result = true;
  {
    // "/etc/hosts" already holds the limit's worth: the append fails.
    write_file("/etc/hosts", std::string(120, '#') + "\n");
    ScopedFileSizeLimit limit(121);
    result = configure("ap0");
  }
  EXPECT_FALSE(result);
  expect_lines(log_, {ap_line("Failed to write to file \"/etc/hosts\"")});
  EXPECT_EQ(read_file("/etc/hosts"), std::string(120, '#') + "\n");
  expect_no_interface_work();
}

// ---- The context check of this file -------------------------------------------

class ApFilesCheck : public NetmTest {
 protected:
  void expect_check_failure(void* ctx, const std::string& message) {
    set_identity(25248, "Cam", "00000000ABCD");
    EXPECT_FALSE(netlib_netm_configure_ap(ctx, "ap0", "192.168.1.1", "255.255.255.0"));
    expect_lines(log_, {{kApFilesFile, "check", 0, message}});
    EXPECT_NE(access("/etc/hostapd.conf", F_OK), 0);
    expect_lines_none_run();
  }
  void expect_lines_none_run() {
    EXPECT_TRUE(process_calls().empty());
    EXPECT_TRUE(netlib_calls().empty());
  }
};

TEST_F(ApFilesCheck, NullContext) {
  expect_check_failure(nullptr, "library context is null");
}

TEST_F(ApFilesCheck, NullInterfaceState) {
  context_.iface = nullptr;
  expect_check_failure(ctx(), "library context is null");
}

TEST_F(ApFilesCheck, UninitialisedInterfaceState) {
  state_.initialised = 0;
  expect_check_failure(ctx(), "library is not initialized");
}

// ---- Identity crash convention --------------------------------------------------

using ApFilesDeathTest = ApFiles;

// In the dying child: after the crash diagnostics, print what the module did
// before the identity stopped it.
void print_on_crash(const qira::host::LogCapture* log, const qira::host::ProcessRecorder* runs) {
  qira::host::set_crash_observer([log, runs] {
    for (const qira::host::LogRecord& record : log->records()) {
      std::fprintf(stderr, "record|%s|%s|%d|%s|\n", record.module.c_str(), record.function.c_str(),
                   record.level, record.message.c_str());
    }
    std::fprintf(stderr, "calls=%zu hostapd=%d\n", runs->calls().size(),
                 access("/etc/hostapd.conf", F_OK) == 0 ? 1 : 0);
  });
}

TEST_F(ApFilesDeathTest, MissingSysidEndsTheProcess) {
  qira::variant::Variant record;
  record["name"] = "Cam";
  record["hwaddr"] = "00000000ABCD";
  qira::host::set_identity_record(record);
  EXPECT_DEATH(
      {
        print_on_crash(&log_, &processes_);
        configure("ap0");
      },
      "record\\|qira_variant\\|required_member\\|3\\|Key \"sysid\" not available\\|\n"
      "calls=0 hostapd=0\n");
}

TEST_F(ApFilesDeathTest, SysidOfWrongTypeEndsTheProcess) {
  qira::variant::Variant record = identity(0, "Cam", "00000000ABCD");
  record["sysid"] = "25271";
  qira::host::set_identity_record(record);
  EXPECT_DEATH(
      {
        print_on_crash(&log_, &processes_);
        configure("ap0");
      },
      "record\\|qira_variant\\|required_member\\|3\\|Key \"sysid\" has a different type than "
      "expected\\|\ncalls=0 hostapd=0\n");
}

TEST_F(ApFilesDeathTest, MissingNameEndsTheProcess) {
  qira::variant::Variant record;
  record["sysid"] = 25248ULL;
  record["hwaddr"] = "00000000ABCD";
  qira::host::set_identity_record(record);
  EXPECT_DEATH(
      {
        print_on_crash(&log_, &processes_);
        configure("ap0");
      },
      "record\\|qira_variant\\|required_member\\|3\\|Key \"name\" not available\\|\n"
      "calls=0 hostapd=0\n");
}

}  // namespace
}  // namespace qira::test::netm
