// `write-sta`: refused values never reach the module; accepted ones are
// written by the loaded module into the sandbox's /etc/wlan0.conf.
#include <unistd.h>

#include <gtest/gtest.h>

#include <sstream>

#include "commands.h"
#include "qira/host/seams.h"
#include "support/nl80211_sim.h"
#include "support/sandbox.h"
#include "unit/tools/program_run.h"
#include "write_sta_command.h"

namespace qira::wifi {
namespace {

const std::string kHeader =
    "ctrl_interface=/var/run/wpa_supplicant\nupdate_config=1\nwowlan_triggers=any\nnetwork={\n";

// The module is loaded as a host loads it; its events module needs nl80211,
// which the simulated kernel provides on any machine.
class WriteSta : public ::testing::Test {
 protected:
  void SetUp() override { unlink("/etc/wlan0.conf"); }

  qira::test::SimulatedNl80211 nl80211_;
};

TEST(ParseStationRequest, TakesTheOptionalAuthAndPsk) {
  StationRequest request;
  EXPECT_EQ(parse_station_request({"wlan0", "Home", "none"}, request), std::nullopt);
  EXPECT_EQ(request.ifname, "wlan0");
  EXPECT_EQ(request.ssid, "Home");
  EXPECT_EQ(request.key, "none");
  EXPECT_EQ(request.auth, "");
  EXPECT_EQ(request.psk, "");
  EXPECT_EQ(parse_station_request({"wlan0", "Home", "wpa2", "psk", "\"pass phrase\""}, request),
            std::nullopt);
  EXPECT_EQ(request.auth, "psk");
  EXPECT_EQ(request.psk, "\"pass phrase\"");
}

TEST(ParseStationRequest, ChecksSsidKeyAuthThenPassphrase) {
  StationRequest request;
  EXPECT_EQ(parse_station_request({"wlan0", "a\"b", "wpa2\n", "psk", "x\"y"}, request),
            "invalid SSID: double quotes are not allowed");
  EXPECT_EQ(parse_station_request({"wlan0", "ab", "wpa2\n", "psk", "x\"y"}, request),
            "invalid KEY: line breaks are not allowed");
  EXPECT_EQ(parse_station_request({"wlan0", "ab", "wpa2", "p\rsk", "x\"y"}, request),
            "invalid AUTH: line breaks are not allowed");
  EXPECT_EQ(parse_station_request({"wlan0", "ab", "wpa2", "psk", "x\"y"}, request),
            "invalid PSK: a double quote is allowed only as a pair around the whole passphrase");
}

TEST_F(WriteSta, RefusedSsidNeverReachesTheModule) {
  qira::host::LogCapture log;
  const ProgramRun result = run_args({"write-sta", "wlan0", "Home\n\tpsk=evil", "none"});
  EXPECT_EQ(result.status, kExitRefused);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "qira-wifi: invalid SSID: line breaks are not allowed\n");
  EXPECT_TRUE(log.records().empty());
  EXPECT_NE(access("/etc/wlan0.conf", F_OK), 0);
}

TEST_F(WriteSta, WritesTheStationFileThroughTheModule) {
  const ProgramRun result =
      run_args({"write-sta", "wlan0", "Home", "wpa2", "psk", "\"pass phrase\""});
  EXPECT_EQ(result.status, kExitOk) << result.err;
  EXPECT_EQ(result.out, "/etc/wlan0.conf: written\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(qira::test::read_file("/etc/wlan0.conf"),
            kHeader +
                "\tssid=\"Home\"\n\tscan_ssid=1\n\tproto=WPA RSN\n\tkey_mgmt=WPA-PSK\n"
                "\tpsk=\"pass phrase\"\n\tpairwise=CCMP TKIP\n\tgroup=CCMP TKIP\n"
                "\tauth_alg=OPEN\n}\n");
}

TEST_F(WriteSta, OpenNetworkWithThreeArguments) {
  const ProgramRun result = run_args({"write-sta", "wlan0", "Cafe", "none"});
  EXPECT_EQ(result.status, kExitOk) << result.err;
  EXPECT_EQ(qira::test::read_file("/etc/wlan0.conf"),
            kHeader + "\tssid=\"Cafe\"\n\tscan_ssid=1\n\tauth_alg=OPEN\n\tkey_mgmt=NONE\n}\n");
}

TEST_F(WriteSta, ModuleFailureIsReportedWithItsLogLineAndStatus3) {
  const ProgramRun result = run_args({"write-sta", "wlan0", "Home", "WPA2", "psk", "k"});
  EXPECT_EQ(result.status, kExitActionFailed);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "qira-wifi: /etc/wlan0.conf: failed (Cannot generate wifi config file: invalid wifi "
            "key algrotihm)\n");
  EXPECT_NE(access("/etc/wlan0.conf", F_OK), 0);
}

TEST_F(WriteSta, JsonReportsTheLogRecords) {
  const ProgramRun result = run_args({"--json", "write-sta", "wlan0", "Home", "wpa2", "psk"});
  EXPECT_EQ(result.status, kExitActionFailed);
  qira::variant::Variant json;
  ASSERT_TRUE(qira::variant::Variant::FromJSON(result.out, json)) << result.out;
  EXPECT_EQ(static_cast<const std::string&>(json["ifname"]), "wlan0");
  EXPECT_EQ(static_cast<const std::string&>(json["file"]), "/etc/wlan0.conf");
  EXPECT_EQ(json["ok"].Type(), qira::variant::V_BOOL);
  EXPECT_FALSE(json["ok"].AsBool());
  ASSERT_NE(json["log"].AsArray(), nullptr);
  ASSERT_EQ(json["log"].Size(), 1u);
  const qira::variant::Variant& line = (*json["log"].AsArray())[0];
  EXPECT_EQ(static_cast<const std::string&>(line["message"]),
            "Cannot generate wifi config file: failed to read wifi.wpa.psk");
  EXPECT_EQ(static_cast<const std::string&>(line["function"]), "netlib_netm_configure_wifi_wpa");
  EXPECT_EQ(static_cast<const std::string&>(line["file"]), "src/netlib_netm/station_file.cpp");
}

TEST_F(WriteSta, WrongArgumentCountIsAUsageError) {
  const ProgramRun result = run_args({"write-sta", "wlan0", "Home"});
  EXPECT_EQ(result.status, kExitUsage);
  EXPECT_EQ(result.err, "usage: qira-wifi write-sta IFNAME SSID KEY [AUTH PSK]\n");
}

}  // namespace
}  // namespace qira::wifi
