// Network initialisation from a configuration Variant: the stop sequence,
// the access point from the fallback settings, and station mode with DHCP,
// static addressing or the fallback address, with the host calls observed.
#include <sys/mount.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>

#include <string>
#include <vector>

#include "qira/host/seams.h"
#include "qira/network/netlib_netm.h"
#include "qira/variant/variant.h"
#include "support/sandbox.h"
#include "support/wpa_supplicant_sim.h"
#include "unit/netlib_netm/netm_test_util.h"

namespace qira::test::netm {
namespace {

using qira::network::netlib_netm_configure_sta;
using qira::network::netlib_netm_wireless_init_network;
using qira::variant::Variant;
using Lines = std::vector<std::string>;

constexpr const char* kDaemonsFile = "src/netlib_netm/daemons.cpp";
const Lines kStopSequence = {"signal 12 udhcpc", "signal 15 udhcpc", "signal 15 wpa_supplicant"};
const std::vector<ExpectedLine> kNoControlSocket = {
    {"src/wpa_client/wpa_client.cpp", "Init", ENOENT, "connect() failed"},
    {kDaemonsFile, "net_exec_wpactrl_cmd", 0, "Failed to initialize control interface"}};

class InitNetwork : public NetmTest {
 protected:
  void SetUp() override {
    NetmTest::SetUp();
    daemon_.reply("TERMINATE", "OK\n");
    // The access point adds its name to the hosts file the camera ships.
    write_file("/etc/hosts", "127.0.0.1 localhost\n");
  }

  // The smallest station configuration that makes a station file: an open
  // network (the key algorithm has no usable default).
  static Variant open_config() {
    Variant config;
    config["wifi"]["key"] = "none";
    return config;
  }

  bool init(const Variant& config, bool ap_mode = false) {
    return netlib_netm_wireless_init_network(ctx(), "wlan0", config, ap_mode);
  }

  // The station file that netlib_netm_configure_sta writes for these values
  // (the file is restored afterwards).
  std::string station_file_for(const std::string& ssid, const std::string& key,
                               const std::string& auth, const std::string& psk,
                               const std::string& ident, const std::string& user,
                               const std::string& pass, const std::string& bgscan) {
    const std::string written = read_file("/etc/wlan0.conf");
    EXPECT_TRUE(netlib_netm_configure_sta(ctx(), "wlan0", ssid, 0, key, auth, psk, ident, user,
                                          pass, bgscan));
    const std::string reference = read_file("/etc/wlan0.conf");
    write_file("/etc/wlan0.conf", written);
    return reference;
  }

  // The one netlib_netm_configure_static call.
  qira::host::NetlibCall static_call() {
    for (const qira::host::NetlibCall& call : netlib_.calls()) {
      if (call.function == "netlib_netm_configure_static") {
        return call;
      }
    }
    ADD_FAILURE() << "no static configuration";
    return {};
  }

  static Variant static_config() {
    Variant config = open_config();
    config["dhcp"]["status"] = 0;
    config["statik"]["ip"] = "10.0.0.5";
    config["statik"]["netmask"] = "255.0.0.0";
    config["routes"]["gateway"] = "10.0.0.1";
    config["dns"]["ns1"]["ip"] = "10.0.0.53";
    config["dns"]["ns1"]["status"] = 1;
    config["dns"]["ns2"]["ip"] = "9.9.9.9";
    config["dns"]["ns2"]["status"] = 1;
    return config;
  }

  WpaSupplicantSim daemon_{"wlan0"};
};

// ---- The stop sequence ------------------------------------------------------------

TEST_F(InitNetwork, StopSequenceTerminatesWpaSupplicantThroughItsControlSocket) {
  EXPECT_TRUE(init(open_config()));
  const Lines calls = process_calls();
  ASSERT_GE(calls.size(), 3u);
  EXPECT_EQ(Lines(calls.begin(), calls.begin() + 3), kStopSequence);
  EXPECT_EQ(daemon_.requests(), Lines{"TERMINATE"});
}

TEST_F(InitNetwork, StopSequenceGoesOnWhenNothingRuns) {
  daemon_.terminate();
  processes_.set_result("udhcpc", 0);
  processes_.set_result("wpa_supplicant", -1);
  EXPECT_TRUE(init(open_config()));
  EXPECT_EQ(process_calls(), kStopSequence);
  expect_lines(log_, kNoControlSocket);
}

TEST_F(InitNetwork, RefusedTerminateIsLoggedAndIgnored) {
  WpaSupplicantSim other("wlan1");
  other.reply("TERMINATE", "FAIL\n");
  EXPECT_TRUE(netlib_netm_wireless_init_network(ctx(), "wlan1", open_config(), false));
  EXPECT_EQ(other.requests(), Lines{"TERMINATE"});
  expect_lines(log_, {{kDaemonsFile, "net_exec_wpactrl_cmd", 0,
                       "Failed to perform wpactrl action \"TERMINATE\": FAIL\n"}});
}

// ---- Access point -------------------------------------------------------------------

TEST_F(InitNetwork, AccessPointUsesTheDefaultFallbackAddress) {
  set_identity(0x62A0, "Cam", "00000000ABCD");
  EXPECT_TRUE(init(Variant(), true));
  const Lines calls = process_calls();
  ASSERT_GE(calls.size(), 5u);
  EXPECT_EQ(Lines(calls.begin(), calls.begin() + 5),
            (Lines{"signal 12 udhcpc", "signal 15 udhcpc", "signal 15 wpa_supplicant",
                   "signal 15 hostapd", "signal 15 dnsmasq"}));
  EXPECT_EQ(netlib_calls(),
            (Lines{"netlib_iface_set_up(wlan0, true)",
                   "netlib_netm_configure_ip_addr(wlan0, 192.168.1.20, 255.255.255.0, )"}));
  EXPECT_EQ(access("/etc/hostapd.conf", F_OK), 0);
  EXPECT_NE(access("/etc/wlan0.conf", F_OK), 0);
  expect_lines(log_, {});
}

TEST_F(InitNetwork, AccessPointUsesTheStoredFallbackAndNoStationKey) {
  set_identity(0x62A0, "Cam", "00000000ABCD");
  Variant config = static_config();
  config["dhcp"]["fallbackIP"] = "192.168.7.1";
  config["dhcp"]["fallbackNetmask"] = "255.255.0.0";
  config["wifi"]["ssid"] = "Home";
  config["wifi"]["wpa"]["auth"] = "psk";
  config["wifi"]["wpa"]["psk"] = "secret";
  config["experiments"]["bgscan"] = "simple:30:-65:300";
  // Every key path the module asks of this configuration.
  qira::host::KeyPathRecorder reads;
  EXPECT_TRUE(netlib_netm_wireless_init_network(ctx(), "ap0", config, true));
  const Lines paths = reads.paths_of(&config);
  EXPECT_EQ(paths, (Lines{"dhcp/fallbackIP", "dhcp/fallbackNetmask"}));
  for (const std::string& path : paths) {
    EXPECT_NE(path.rfind("wifi/", 0), 0u) << path;
    EXPECT_NE(path, "experiments/bgscan");
  }
  EXPECT_EQ(netlib_calls(),
            (Lines{"netlib_iface_set_up(wlan0, true)",
                   "netlib_netm_configure_ip_addr(ap0, 192.168.7.1, 255.255.0.0, )"}));
  EXPECT_NE(access("/etc/wlan0.conf", F_OK), 0);
}

TEST_F(InitNetwork, AccessPointResultIsThatOfTheAccessPointSetUp) {
  set_identity(0x62A0, "Cam", "00000000ABCD");
  netlib_.set_result("netlib_netm_configure_ip_addr", false);
  EXPECT_FALSE(init(Variant(), true));
}

// ---- Station: DHCP --------------------------------------------------------------------

TEST_F(InitNetwork, OpenNetworkWithoutOtherKeysGivesDhcpAfterAStationFileForAnEmptyName) {
  EXPECT_TRUE(init(open_config()));
  EXPECT_EQ(netlib_calls(),
            (Lines{"netlib_netm_configure_interface(wlan0)", "netlib_netm_flush_iface(wlan0)",
                   "netlib_netm_configure_dhcp(wlan0)"}));
  EXPECT_EQ(read_file("/etc/wlan0.conf"), station_file_for("", "none", "", "", "", "", "", ""));
  EXPECT_EQ(process_calls(), kStopSequence);
  expect_lines(log_, {});
}

// Two rules of the module's contract meet here, and they disagree. Network
// initialisation lists "an empty station configuration gives DHCP after
// writing a station file for an empty network name"; the station file says
// that a key algorithm other than "none", "wpa", "wpa2" or "rsn" is refused,
// and "wifi/key" defaults to "". The module follows the station file's rule,
// the more specific one: an empty configuration is refused at the station
// file ("invalid wifi key algrotihm"), before any address is touched, and
// DHCP is not configured. (An open network with no other key does give
// DHCP, as OpenNetworkWithoutOtherKeysGivesDhcpAfterAStationFileForAnEmptyName
// shows.)
TEST_F(InitNetwork, EmptyConfigurationIsRefusedAtTheStationFileNotGivenDhcpTheKeyRuleWins) {
  EXPECT_FALSE(init(Variant()));
  EXPECT_EQ(netlib_calls(), Lines{"netlib_netm_configure_interface(wlan0)"});
  EXPECT_EQ(process_calls(), kStopSequence);
  EXPECT_NE(access("/etc/wlan0.conf", F_OK), 0);
  expect_lines(log_, {{kStationFile, "netlib_netm_configure_sta", 0,
                       "Cannot generate wifi config file: invalid wifi key algrotihm"}});
}

TEST_F(InitNetwork, StationKeysReachTheStationFile) {
  Variant config;
  config["wifi"]["ssid"] = "Home";
  config["wifi"]["freq"] = 5180;
  config["wifi"]["key"] = "wpa2";
  config["wifi"]["wpa"]["auth"] = "psk";
  config["wifi"]["wpa"]["psk"] = "\"secret phrase\"";
  config["experiments"]["bgscan"] = "simple:30:-65:300";
  config["dhcp"]["status"] = 1;
  EXPECT_TRUE(init(config));
  EXPECT_EQ(read_file("/etc/wlan0.conf"),
            station_file_for("Home", "wpa2", "psk", "\"secret phrase\"", "", "", "",
                             "simple:30:-65:300"));
  EXPECT_EQ(netlib_calls().back(), "netlib_netm_configure_dhcp(wlan0)");
}

TEST_F(InitNetwork, StationReadsItsKeysInTheirOrderThenTheDhcpStatus) {
  qira::host::KeyPathRecorder reads;
  const Variant config = open_config();
  EXPECT_TRUE(init(config));
  EXPECT_EQ(reads.paths_of(&config),
            (Lines{"wifi/ssid", "wifi/freq", "wifi/key", "wifi/wpa/auth", "wifi/wpa/psk",
                   "wifi/wpa/ident", "wifi/wpa/username", "wifi/wpa/password", "experiments/bgscan",
                   "dhcp/status"}));
}

TEST_F(InitNetwork, EapKeysReachTheStationFile) {
  Variant config;
  config["wifi"]["ssid"] = "Office";
  config["wifi"]["key"] = "wpa2";
  config["wifi"]["wpa"]["auth"] = "eap";
  config["wifi"]["wpa"]["ident"] = "anon";
  config["wifi"]["wpa"]["username"] = "alice";
  config["wifi"]["wpa"]["password"] = "pw";
  EXPECT_TRUE(init(config));
  EXPECT_EQ(read_file("/etc/wlan0.conf"),
            station_file_for("Office", "wpa2", "eap", "", "anon", "alice", "pw", ""));
}

TEST_F(InitNetwork, FailedInterfacePreparationStopsBeforeTheStationFile) {
  netlib_.set_result("netlib_netm_configure_interface", false);
  EXPECT_FALSE(init(static_config()));
  EXPECT_EQ(netlib_calls(), Lines{"netlib_netm_configure_interface(wlan0)"});
  EXPECT_NE(access("/etc/wlan0.conf", F_OK), 0);
}

TEST_F(InitNetwork, FailedStationFileStopsBeforeAnyAddressIsTouched) {
  remove_path("/etc/wlan0.conf");
  ScopedMount read_only_tmp("/tmp", MS_RDONLY, "size=64k");
  ASSERT_TRUE(read_only_tmp.mounted());
  EXPECT_FALSE(init(static_config()));
  EXPECT_EQ(netlib_calls(), Lines{"netlib_netm_configure_interface(wlan0)"});
}

TEST_F(InitNetwork, FlushFailureIsIgnored) {
  netlib_.set_result("netlib_netm_flush_iface", false);
  EXPECT_TRUE(init(open_config()));
  EXPECT_EQ(netlib_calls().back(), "netlib_netm_configure_dhcp(wlan0)");
}

TEST_F(InitNetwork, DhcpResultIsTheResult) {
  netlib_.set_result("netlib_netm_configure_dhcp", false);
  EXPECT_FALSE(init(open_config()));
}

TEST_F(InitNetwork, DhcpStatusOfAnyIntegerWidthCounts) {
  Variant config = static_config();
  config["dhcp"]["status"] = static_cast<unsigned char>(1);
  EXPECT_TRUE(init(config));
  EXPECT_EQ(netlib_calls().back(), "netlib_netm_configure_dhcp(wlan0)");
}

TEST_F(InitNetwork, DhcpStatusAsTextIsAbsentAndMeansDhcp) {
  Variant config = static_config();
  config["dhcp"]["status"] = "0";
  EXPECT_TRUE(init(config));
  EXPECT_EQ(netlib_calls().back(), "netlib_netm_configure_dhcp(wlan0)");
}

// ---- Station: static -----------------------------------------------------------------

TEST_F(InitNetwork, ValidStaticValuesGiveStaticConfigurationWithoutFallback) {
  EXPECT_TRUE(init(static_config()));
  EXPECT_EQ(netlib_calls(),
            (Lines{"netlib_netm_configure_interface(wlan0)", "netlib_netm_flush_iface(wlan0)",
                   "netlib_netm_configure_static(wlan0, 10.0.0.5, 255.0.0.0, 10.0.0.1, , , false, "
                   "[10.0.0.53 9.9.9.9])"}));
}

TEST_F(InitNetwork, InvalidNetmaskSelectsTheFallbackAndKeepsGatewayAndServers) {
  Variant config = static_config();
  config["statik"]["netmask"] = "255.0.255.0";
  EXPECT_TRUE(init(config));
  const qira::host::NetlibCall call = static_call();
  EXPECT_EQ(call.args,
            (Lines{"wlan0", "192.168.1.20", "255.255.255.0", "10.0.0.1", "", "", "true"}));
  EXPECT_EQ(call.name_servers, (Lines{"10.0.0.53", "9.9.9.9"}));
}

TEST_F(InitNetwork, InvalidAddressSelectsTheStoredFallbackUnchecked) {
  Variant config = static_config();
  config["statik"]["ip"] = "10.0.0.256";
  config["dhcp"]["fallbackIP"] = "not an address";
  config["dhcp"]["fallbackNetmask"] = "255.255.0.0";
  EXPECT_TRUE(init(config));
  EXPECT_EQ(static_call().args,
            (Lines{"wlan0", "not an address", "255.255.0.0", "10.0.0.1", "", "", "true"}));
}

TEST_F(InitNetwork, StaticKeysAbsentTakeTheirDefaults) {
  Variant config = open_config();
  config["dhcp"]["status"] = 2;
  EXPECT_TRUE(init(config));
  const qira::host::NetlibCall call = static_call();
  EXPECT_EQ(call.args, (Lines{"wlan0", "192.168.1.20", "255.255.255.0", "", "", "", "false"}));
  EXPECT_EQ(call.name_servers, Lines{});
}

TEST_F(InitNetwork, NameServerWithStatusZeroIsLeftOut) {
  Variant config = static_config();
  config["dns"]["ns1"]["status"] = 0;
  EXPECT_TRUE(init(config));
  EXPECT_EQ(static_call().name_servers, Lines{"9.9.9.9"});
}

TEST_F(InitNetwork, NameServerWithInvalidAddressIsLeftOut) {
  Variant config = static_config();
  config["dns"]["ns2"]["ip"] = "0.0.0.0";
  EXPECT_TRUE(init(config));
  EXPECT_EQ(static_call().name_servers, Lines{"10.0.0.53"});
  config["dns"]["ns1"]["ip"] = "";
  netlib_.clear();
  EXPECT_TRUE(init(config));
  EXPECT_EQ(static_call().name_servers, Lines{});
}

TEST_F(InitNetwork, StaticResultIsTheResult) {
  netlib_.set_result("netlib_netm_configure_static", false);
  EXPECT_FALSE(init(static_config()));
}

TEST_F(InitNetwork, ConfigurationFromJson) {
  Variant config;
  std::string error;
  ASSERT_TRUE(Variant::FromJSON(
      R"({"wifi":{"ssid":"Home","key":"wpa2","wpa":{"auth":"psk","psk":"0123"}},)"
      R"("dhcp":{"status":0},"statik":{"ip":"172.16.0.9","netmask":"255.255.0.0"},)"
      R"("routes":{"gateway":"172.16.0.1"},"dns":{"ns1":{"ip":"172.16.0.1","status":1}}})",
      config, &error))
      << error;
  EXPECT_TRUE(init(config));
  EXPECT_EQ(read_file("/etc/wlan0.conf"),
            station_file_for("Home", "wpa2", "psk", "0123", "", "", "", ""));
  EXPECT_EQ(netlib_calls().back(),
            "netlib_netm_configure_static(wlan0, 172.16.0.9, 255.255.0.0, 172.16.0.1, , , false, "
            "[172.16.0.1])");
}

}  // namespace
}  // namespace qira::test::netm
