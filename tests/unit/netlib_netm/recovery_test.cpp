// Scan recovery (hostapd restarted, or wpa_supplicant told to reassociate)
// and the hostapd configuration hook's setter.
#include <gtest/gtest.h>

#include <cerrno>

#include <map>
#include <string>
#include <vector>

#include "qira/network/netlib_netm.h"
#include "support/sandbox.h"
#include "support/wpa_supplicant_sim.h"
#include "unit/netlib_netm/netm_test_util.h"

namespace qira::test::netm {
namespace {

using qira::network::hostapd_conf_handler;
using qira::network::netlib_netm_recover_scan_ap;
using qira::network::netlib_netm_wireless_set_hostapd_conf_handler;
using Lines = std::vector<std::string>;

constexpr const char* kRecoveryFile = "src/netlib_netm/recovery.cpp";
constexpr const char* kDaemonsFile = "src/netlib_netm/daemons.cpp";
constexpr const char* kClientFile = "src/wpa_client/wpa_client.cpp";
const std::string kHostapd = "daemon /bin/hostapd -B -d -f /var/log/hostapd.log /etc/hostapd.conf";

class Recovery : public NetmTest {
 protected:
  static ExpectedLine recovery_line(const std::string& message) {
    return {kRecoveryFile, "netlib_netm_recover_scan_ap", 0, message};
  }
  static ExpectedLine daemon_line(const std::string& function, const std::string& message,
                                  int error_number = 0) {
    return {kDaemonsFile, function, error_number, message};
  }
};

void first_hook(std::map<std::string, std::string>& settings) {
  settings["channel"] = "6";
}
void second_hook(std::map<std::string, std::string>& settings) {
  settings["channel"] = "11";
}

TEST_F(Recovery, AccessPointStopsAndRestartsHostapd) {
  write_file("/etc/hostapd.conf", "interface=ap0\n");
  EXPECT_TRUE(netlib_netm_recover_scan_ap(ctx(), "ap0", true));
  EXPECT_EQ(process_calls(), (Lines{"signal 15 hostapd", kHostapd}));
  expect_lines(log_, {});
}

TEST_F(Recovery, AccessPointWithoutConfigurationLeavesHostapdStopped) {
  EXPECT_FALSE(netlib_netm_recover_scan_ap(ctx(), "ap0", true));
  EXPECT_EQ(process_calls(), Lines{"signal 15 hostapd"});
  expect_lines(
      log_, {daemon_line("net_exec_hostapd", "Failed to access file \"/etc/hostapd.conf\"", ENOENT),
             recovery_line("Failed to restart hostapd")});
}

TEST_F(Recovery, HostapdThatDoesNotStartIsReported) {
  write_file("/etc/hostapd.conf", "interface=ap0\n");
  processes_.set_result("/bin/hostapd", 0);
  EXPECT_FALSE(netlib_netm_recover_scan_ap(ctx(), "ap0", true));
  EXPECT_EQ(process_calls(), (Lines{"signal 15 hostapd", kHostapd}));
  expect_lines(log_, {daemon_line("net_exec_hostapd", "Failed to run hostapd"),
                      recovery_line("Failed to restart hostapd")});
}

TEST_F(Recovery, StationSendsReassociate) {
  WpaSupplicantSim daemon("wlan0");
  daemon.reply("REASSOCIATE", "OK");
  EXPECT_TRUE(netlib_netm_recover_scan_ap(ctx(), "wlan0", false));
  EXPECT_EQ(daemon.requests(), Lines{"REASSOCIATE"});
  EXPECT_EQ(process_calls(), Lines{});
  expect_lines(log_, {});
}

TEST_F(Recovery, StationRefusedReassociateIsReported) {
  WpaSupplicantSim daemon("wlan0");
  daemon.reply("REASSOCIATE", "FAIL");
  EXPECT_FALSE(netlib_netm_recover_scan_ap(ctx(), "wlan0", false));
  expect_lines(log_, {daemon_line("net_exec_wpactrl_cmd",
                                  "Failed to perform wpactrl action \"REASSOCIATE\": FAIL"),
                      recovery_line("Failed to do wpa_cli reassociate")});
}

TEST_F(Recovery, StationWithoutWpaSupplicantFails) {
  EXPECT_FALSE(netlib_netm_recover_scan_ap(ctx(), "wlan0", false));
  expect_lines(log_, {{kClientFile, "Init", ENOENT, "connect() failed"},
                      daemon_line("net_exec_wpactrl_cmd", "Failed to initialize control interface"),
                      recovery_line("Failed to do wpa_cli reassociate")});
}

TEST_F(Recovery, NullOrUninitialisedContextIsNotChecked) {
  WpaSupplicantSim daemon("wlan0");
  daemon.reply("REASSOCIATE", "OK\n");
  EXPECT_TRUE(netlib_netm_recover_scan_ap(nullptr, "wlan0", false));
  write_file("/etc/hostapd.conf", "interface=ap0\n");
  state_.initialised = 0;
  EXPECT_TRUE(netlib_netm_recover_scan_ap(ctx(), "ap0", true));
  EXPECT_EQ(daemon.requests(), Lines{"REASSOCIATE"});
  expect_lines(log_, {});
}

TEST_F(Recovery, HookSetterReturnsThePreviousHook) {
  EXPECT_EQ(netlib_netm_wireless_set_hostapd_conf_handler(ctx(), first_hook), nullptr);
  EXPECT_EQ(state_.hostapd_conf_hook, &first_hook);
  EXPECT_EQ(netlib_netm_wireless_set_hostapd_conf_handler(ctx(), second_hook), &first_hook);
  EXPECT_EQ(state_.hostapd_conf_hook, &second_hook);
  EXPECT_EQ(netlib_netm_wireless_set_hostapd_conf_handler(ctx(), nullptr), &second_hook);
  EXPECT_EQ(state_.hostapd_conf_hook, nullptr);
  EXPECT_EQ(netlib_netm_wireless_set_hostapd_conf_handler(ctx(), nullptr), nullptr);
  expect_lines(log_, {});
}

TEST_F(Recovery, HookSetterFailsOnAnUnusableContextAndStoresNothing) {
  state_.hostapd_conf_hook = first_hook;
  state_.initialised = 0;
  EXPECT_EQ(netlib_netm_wireless_set_hostapd_conf_handler(ctx(), second_hook), nullptr);
  EXPECT_EQ(state_.hostapd_conf_hook, &first_hook);
  EXPECT_EQ(netlib_netm_wireless_set_hostapd_conf_handler(nullptr, second_hook), nullptr);
  context_.iface = nullptr;
  EXPECT_EQ(netlib_netm_wireless_set_hostapd_conf_handler(ctx(), second_hook), nullptr);
  EXPECT_EQ(state_.hostapd_conf_hook, &first_hook);
  const ExpectedLine uninitialised = {kRecoveryFile, "check", 0, "library is not initialized"};
  const ExpectedLine null = {kRecoveryFile, "check", 0, "library context is null"};
  expect_lines(log_, {uninitialised, null, null});
}

TEST_F(Recovery, InstalledHookEditsTheWrittenHostapdFile) {
  set_identity(0x62A0, "Cam", "00000000ABCD");
  write_file("/etc/hosts", "127.0.0.1 localhost\n");
  ASSERT_EQ(netlib_netm_wireless_set_hostapd_conf_handler(ctx(), second_hook), nullptr);
  ASSERT_TRUE(
      qira::network::netlib_netm_configure_ap(ctx(), "ap0", "192.168.1.1", "255.255.255.0"));
  const std::string text = read_file("/etc/hostapd.conf");
  EXPECT_NE(text.find("channel=11\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("channel=1\n"), std::string::npos) << text;
}

}  // namespace
}  // namespace qira::test::netm
