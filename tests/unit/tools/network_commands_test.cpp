// apply, connect, disconnect, recover and hook: refused values never reach
// the module; accepted ones run the loaded module in this process, with its
// processes and wired netlib calls observed through the host's recorders.
#include <unistd.h>

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "apply_command.h"
#include "commands.h"
#include "hook_command.h"
#include "link_commands.h"
#include "options.h"
#include "qira/host/seams.h"
#include "qira/variant/variant.h"
#include "support/nl80211_sim.h"
#include "support/recorded_calls.h"
#include "support/sandbox.h"
#include "support/wpa_supplicant_sim.h"
#include "unit/tools/program_run.h"

namespace qira::wifi {
namespace {

using Lines = std::vector<std::string>;
using qira::test::read_file;
using qira::test::write_file;

Lines describe(const std::vector<qira::host::ProcessCall>& calls) {
  return qira::test::describe_process_calls(calls);
}

Lines describe(const std::vector<qira::host::NetlibCall>& calls) {
  return qira::test::describe_netlib_calls(calls);
}

qira::variant::Variant identity(unsigned long long sysid) {
  qira::variant::Variant record;
  record["sysid"] = sysid;
  record["name"] = "Cam";
  record["hwaddr"] = "00000000ABCD";
  return record;
}

const std::string kDnsmasq =
    "daemon /bin/dnsmasq --leasefile-ro -u qira -g admin --log-facility=/var/log/dnsmasq.log "
    "--dhcp-authoritative";
const std::string kHostapd = "daemon /bin/hostapd -B -d -f /var/log/hostapd.log /etc/hostapd.conf";

class NetworkCommands : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* path : {"/etc/wlan0.conf", "/etc/hostapd.conf", "/etc/dnsmasq.conf"}) {
      unlink(path);
    }
    write_file("/etc/hosts", "127.0.0.1 localhost\n");
    qira::host::set_identity_record(identity(0x62A0));
  }
  void TearDown() override { qira::host::clear_identity_record(); }

  qira::test::SimulatedNl80211 nl80211_;
  qira::host::ProcessRecorder processes_;
  qira::host::NetlibRecorder netlib_;
};

// ---- Options and requests ------------------------------------------------------------

TEST(NetworkOptions, FlagsAndAddressOptions) {
  CommandLine line;
  std::string error;
  ASSERT_TRUE(parse_command_line(
      {"hook", "ap0", "--ap", "--vendor", "--address", "10.1.1.1", "--netmask=255.0.0.0", "a=b"},
      line, error))
      << error;
  EXPECT_TRUE(line.options.ap_mode);
  EXPECT_TRUE(line.options.vendor_tools);
  EXPECT_EQ(line.options.address, std::optional<std::string>("10.1.1.1"));
  EXPECT_EQ(line.options.netmask, std::optional<std::string>("255.0.0.0"));
  EXPECT_EQ(line.words, (Lines{"hook", "ap0", "a=b"}));
  EXPECT_FALSE(parse_command_line({"hook", "ap0", "--address"}, line, error));
  EXPECT_EQ(error, "option --address needs a value");
  EXPECT_FALSE(parse_command_line({"hook", "--netmask=", "ap0"}, line, error));
  EXPECT_EQ(error, "option --netmask needs a value");
}

TEST(LinkRequest, CarriesTheFlags) {
  GlobalOptions options;
  options.ap_mode = true;
  LinkRequest request = link_request(LinkAction::kDisconnect, "ap0", options);
  EXPECT_EQ(request.action, LinkAction::kDisconnect);
  EXPECT_EQ(request.ifname, "ap0");
  EXPECT_TRUE(request.ap_mode);
  EXPECT_FALSE(request.vendor_tools);
  options.vendor_tools = true;
  EXPECT_TRUE(link_request(LinkAction::kConnect, "wlan0", options).vendor_tools);
}

TEST(HookRequest, ParsesOverridesAndDefaults) {
  GlobalOptions options;
  HookRequest request;
  EXPECT_EQ(parse_hook_request({"ap0", "channel=6", "hw_mode=", "ssid=My Cam"}, options, request),
            std::nullopt);
  EXPECT_EQ(request.ifname, "ap0");
  EXPECT_EQ(request.address, "192.168.1.1");
  EXPECT_EQ(request.netmask, "255.255.255.0");
  const std::map<std::string, std::optional<std::string>> expected = {
      {"channel", "6"}, {"hw_mode", std::nullopt}, {"ssid", "My Cam"}};
  EXPECT_EQ(request.overrides, expected);
}

TEST(HookRequest, RefusesWhatWouldBreakTheFile) {
  GlobalOptions options;
  HookRequest request;
  EXPECT_EQ(parse_hook_request({"ap0", "channel"}, options, request),
            "invalid override channel: expected KEY=VALUE");
  const std::string key_fault = "invalid hook KEY: only letters, digits and '_' are allowed";
  EXPECT_EQ(parse_hook_request({"ap0", "=6"}, options, request), key_fault);
  EXPECT_EQ(parse_hook_request({"ap0", "bad key=6"}, options, request), key_fault);
  EXPECT_EQ(parse_hook_request({"ap0", "ssid=a\nb"}, options, request),
            "invalid hook VALUE: line breaks are not allowed");
  EXPECT_EQ(parse_hook_request({"ap0", "channel=6\nwpa=0"}, options, request),
            "invalid hook VALUE: line breaks are not allowed");
  EXPECT_EQ(parse_hook_request({"ap0", std::string("country_code=U\0S", 16)}, options, request),
            "invalid hook VALUE: NUL bytes are not allowed");
  EXPECT_EQ(parse_hook_request({"ap0", "interface=a\nb"}, options, request),
            "invalid hook interface: white space is not allowed in an interface name");
  options.address = "192.168.1.1\ndhcp-script=/tmp/x";
  EXPECT_EQ(parse_hook_request({"ap0", "channel=6"}, options, request),
            "invalid --address: not an IPv4 address");
  options.address.reset();
  options.netmask = "255.0.255.0";
  EXPECT_EQ(parse_hook_request({"ap0", "channel=6"}, options, request),
            "invalid --netmask: not an IPv4 netmask");
}

TEST(HookOverrides, SetReplaceAndRemove) {
  std::map<std::string, std::string> settings = {{"channel", "1"}, {"hw_mode", "g"}};
  apply_overrides({{"channel", "11"}, {"hw_mode", std::nullopt}, {"beacon_int", "200"}}, settings);
  const std::map<std::string, std::string> expected = {{"beacon_int", "200"}, {"channel", "11"}};
  EXPECT_EQ(settings, expected);
}

TEST(NetworkConfig, RefusesBrokenJsonAndEveryModesValues) {
  qira::variant::Variant config;
  EXPECT_EQ(parse_network_config("[1]", config), "invalid configuration: not a JSON object");
  EXPECT_NE(parse_network_config("{", config), std::nullopt);
  EXPECT_EQ(parse_network_config(R"({"wifi":{"ssid":"a\"b"}})", config),
            "invalid wifi/ssid: double quotes are not allowed");
  EXPECT_EQ(parse_network_config(R"({"wifi":{"wpa":{"psk":"x\ny"}}})", config),
            "invalid wifi/wpa/psk: line breaks are not allowed");
  EXPECT_EQ(parse_network_config(R"({"wifi":{"wpa":{"username":"a\"b"}}})", config),
            "invalid wifi/wpa/username: double quotes are not allowed");
  EXPECT_EQ(
      parse_network_config(R"({"dhcp":{"fallbackIP":"192.168.1.1\ndhcp-script=/tmp/x"}})", config),
      "invalid dhcp/fallbackIP: not an IPv4 address");
  // A key that is not a string gives the module's default: nothing to refuse.
  EXPECT_EQ(parse_network_config(R"({"dhcp":{"fallbackIP":7},"wifi":{"freq":2412}})", config),
            std::nullopt);
}

// ---- connect, disconnect, recover ------------------------------------------------------

TEST_F(NetworkCommands, ConnectAccessPointStartsItsDaemons) {
  write_file("/etc/dnsmasq.conf", "x\n");
  write_file("/etc/hostapd.conf", "x\n");
  const ProgramRun run = run_args({"connect", "ap0", "--ap"});
  EXPECT_EQ(run.status, kExitOk) << run.err;
  EXPECT_EQ(run.out, "connect ap0: done\n");
  EXPECT_EQ(describe(processes_.calls()), (Lines{kDnsmasq, kHostapd, "signal 15 lighttpd"}));
}

TEST_F(NetworkCommands, ConnectStationSendsReconnect) {
  qira::test::WpaSupplicantSim daemon("wlan0");
  daemon.reply("RECONNECT", "OK\n");
  const ProgramRun run = run_args({"connect", "wlan0"});
  EXPECT_EQ(run.status, kExitOk) << run.err;
  EXPECT_EQ(describe(processes_.calls()),
            (Lines{"signal 15 wpa_supplicant",
                   "run /bin/wpa_supplicant -B -Dnl80211 -s -i wlan0 -c/etc/wlan0.conf"}));
  EXPECT_EQ(daemon.requests(), Lines{"RECONNECT"});
}

TEST_F(NetworkCommands, ConnectVendorRunsTheSetupScript) {
  const ProgramRun run = run_args({"connect", "wlan0", "--vendor"});
  EXPECT_EQ(run.status, kExitOk);
  EXPECT_EQ(describe(processes_.calls()), Lines{"shell /bin/wifi_setup.sh"});
}

TEST_F(NetworkCommands, RefusedDeviceNameStartsNothing) {
  const ProgramRun run = run_args({"connect", "wl\nan0", "--ap"});
  EXPECT_EQ(run.status, kExitRefused);
  EXPECT_EQ(run.err,
            "qira-wifi: invalid IFNAME: white space is not allowed in an interface name\n");
  EXPECT_EQ(run.out, "");
  EXPECT_TRUE(processes_.calls().empty());
}

TEST_F(NetworkCommands, DisconnectVendorRunsWlTwice) {
  const ProgramRun run = run_args({"disconnect", "wlan0", "--vendor", "--json"});
  EXPECT_EQ(run.status, kExitOk);
  EXPECT_EQ(describe(processes_.calls()), (Lines{"run /bin/wl ap 0", "run /bin/wl disassoc"}));
  qira::variant::Variant report;
  ASSERT_TRUE(qira::variant::Variant::FromJSON(run.out, report)) << run.out;
  EXPECT_EQ(static_cast<const std::string&>(report["action"]), "disconnect");
  EXPECT_EQ(static_cast<const std::string&>(report["ifname"]), "wlan0");
  EXPECT_TRUE(report["ok"].AsBool());
  EXPECT_EQ(report["log"].Size(), 0u);
}

TEST_F(NetworkCommands, DisconnectStationWithoutWpaSupplicantFails) {
  const ProgramRun run = run_args({"disconnect", "wlan0"});
  EXPECT_EQ(run.status, kExitActionFailed);
  // A failure is an error: on stderr, nothing on stdout.
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err.rfind("qira-wifi: disconnect wlan0: failed (", 0), 0u) << run.err;
  EXPECT_NE(run.err.find("Failed to initialize control interface"), std::string::npos) << run.err;
}

TEST_F(NetworkCommands, DisconnectAccessPointStopsItsDaemons) {
  const ProgramRun run = run_args({"disconnect", "ap0", "--ap"});
  EXPECT_EQ(run.status, kExitOk) << run.out;
  EXPECT_EQ(describe(processes_.calls()), (Lines{"signal 15 hostapd", "signal 15 dnsmasq",
                                                 "signal 15 udhcpc", "run /bin/iw dev ap0 del"}));
}

TEST_F(NetworkCommands, RecoverAccessPointRestartsHostapd) {
  write_file("/etc/hostapd.conf", "x\n");
  const ProgramRun run = run_args({"recover", "ap0", "--ap"});
  EXPECT_EQ(run.status, kExitOk);
  EXPECT_EQ(run.out, "recover ap0: done\n");
  EXPECT_EQ(describe(processes_.calls()), (Lines{"signal 15 hostapd", kHostapd}));
}

TEST_F(NetworkCommands, RecoverStationReassociates) {
  qira::test::WpaSupplicantSim daemon("wlan0");
  daemon.reply("REASSOCIATE", "OK\n");
  const ProgramRun run = run_args({"recover", "wlan0"});
  EXPECT_EQ(run.status, kExitOk);
  EXPECT_EQ(daemon.requests(), Lines{"REASSOCIATE"});
}

TEST_F(NetworkCommands, RecoverRefusesVendor) {
  const ProgramRun run = run_args({"recover", "wlan0", "--vendor"});
  EXPECT_EQ(run.status, kExitUsage);
  EXPECT_EQ(run.err,
            "qira-wifi: recover does not take --vendor\nusage: qira-wifi recover [--ap] IFNAME\n");
  EXPECT_TRUE(processes_.calls().empty());
}

// ---- apply ---------------------------------------------------------------------------------

TEST_F(NetworkCommands, ApplyStationConfigurationFromJson) {
  qira::test::WpaSupplicantSim daemon("wlan0");
  daemon.reply("TERMINATE", "OK\n");
  write_file("/tmp/network.json", R"({"wifi":{"ssid":"Home","key":"none"},"dhcp":{"status":0},)"
                                  R"("statik":{"ip":"10.0.0.5","netmask":"255.0.0.0"}})");
  const ProgramRun run = run_args({"apply", "wlan0", "/tmp/network.json"});
  EXPECT_EQ(run.status, kExitOk) << run.out << run.err;
  EXPECT_EQ(run.out, "apply wlan0: done\n");
  EXPECT_EQ(describe(netlib_.calls()),
            (Lines{"netlib_netm_configure_interface(wlan0)", "netlib_netm_flush_iface(wlan0)",
                   "netlib_netm_configure_static(wlan0, 10.0.0.5, 255.0.0.0, , , , false)"}));
  EXPECT_EQ(daemon.requests(), Lines{"TERMINATE"});
  EXPECT_NE(read_file("/etc/wlan0.conf").find("ssid=\"Home\""), std::string::npos);
}

TEST_F(NetworkCommands, ApplyAccessPointUsesTheFallbackAddress) {
  write_file("/tmp/network.json", R"({"dhcp":{"fallbackIP":"192.168.9.1"}})");
  const ProgramRun run = run_args({"apply", "ap0", "/tmp/network.json", "--ap"});
  EXPECT_EQ(run.status, kExitOk) << run.out << run.err;
  EXPECT_EQ(describe(netlib_.calls()),
            (Lines{"netlib_iface_set_up(wlan0, true)",
                   "netlib_netm_configure_ip_addr(ap0, 192.168.9.1, 255.255.255.0, )"}));
  EXPECT_EQ(access("/etc/hostapd.conf", F_OK), 0);
}

TEST_F(NetworkCommands, ApplyRefusesBadFilesBeforeTheModule) {
  write_file("/tmp/network.json", R"({"wifi":{"ssid":"a\nb","key":"none"}})");
  ProgramRun run = run_args({"apply", "wlan0", "/tmp/network.json"});
  EXPECT_EQ(run.status, kExitRefused);
  EXPECT_EQ(run.err,
            "qira-wifi: /tmp/network.json: invalid wifi/ssid: line breaks are not allowed\n");
  run = run_args({"apply", "wlan0", "/tmp/missing.json"});
  EXPECT_EQ(run.status, kExitRefused);
  EXPECT_EQ(run.err, "qira-wifi: cannot read /tmp/missing.json\n");
  EXPECT_TRUE(processes_.calls().empty());
  EXPECT_TRUE(netlib_.calls().empty());
}

// ---- hook -----------------------------------------------------------------------------------

TEST_F(NetworkCommands, HookOverridesTheWrittenHostapdSettings) {
  const ProgramRun run = run_args({"hook", "ap0", "channel=11", "hw_mode=", "beacon_int=200"});
  EXPECT_EQ(run.status, kExitOk) << run.out << run.err;
  EXPECT_EQ(run.out, "hook ap0: done\n");
  const std::string text = read_file("/etc/hostapd.conf");
  EXPECT_NE(text.find("channel=11\n"), std::string::npos) << text;
  EXPECT_NE(text.find("beacon_int=200\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("hw_mode="), std::string::npos) << text;
  EXPECT_EQ(describe(netlib_.calls()).back(),
            "netlib_netm_configure_ip_addr(ap0, 192.168.1.1, 255.255.255.0, )");
}

TEST_F(NetworkCommands, HookTakesTheAddressOptions) {
  const ProgramRun run =
      run_args({"hook", "ap0", "channel=6", "--address", "10.9.0.1", "--netmask", "255.255.0.0"});
  EXPECT_EQ(run.status, kExitOk) << run.out << run.err;
  EXPECT_EQ(describe(netlib_.calls()).back(),
            "netlib_netm_configure_ip_addr(ap0, 10.9.0.1, 255.255.0.0, )");
}

TEST_F(NetworkCommands, HookReportsTheShortHardwareAddress) {
  qira::variant::Variant record = identity(0x62A0);
  record["hwaddr"] = "ABC";
  qira::host::set_identity_record(record);
  const ProgramRun run = run_args({"hook", "ap0", "channel=6"});
  EXPECT_EQ(run.status, kExitActionFailed);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err.rfind("qira-wifi: hook ap0: failed (", 0), 0u) << run.err;
  EXPECT_NE(run.err.find("module call failed: "), std::string::npos) << run.err;
}

TEST_F(NetworkCommands, AnIdentityThatWouldBreakTheFilesWritesNone) {
  // The camera's name goes into hostapd's file: a line break would add a
  // setting of the identity file's choosing.
  qira::variant::Variant record = identity(0x62A0);
  record["name"] = "Cam\nctrl_interface=/tmp";
  qira::host::set_identity_record(record);
  write_file("/tmp/network.json", R"({"dhcp":{"fallbackIP":"192.168.9.1"}})");
  for (const Lines& args :
       {Lines{"hook", "ap0", "channel=6"}, Lines{"apply", "ap0", "/tmp/network.json", "--ap"}}) {
    SCOPED_TRACE(args.front());
    const ProgramRun run = run_args(args);
    EXPECT_EQ(run.status, kExitActionFailed);
    EXPECT_NE(run.err.find("Identity key \"name\" refused: line breaks are not allowed"),
              std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("Failed to initialize camera info manager"), std::string::npos)
        << run.err;
    EXPECT_NE(access("/etc/hostapd.conf", F_OK), 0);
    EXPECT_NE(access("/etc/dnsmasq.conf", F_OK), 0);
    EXPECT_EQ(read_file("/etc/hosts"), "127.0.0.1 localhost\n");
    // apply stops the link's daemons first; nothing is started or run.
    for (const std::string& call : describe(processes_.calls())) {
      EXPECT_EQ(call.rfind("signal ", 0), 0u) << call;
    }
  }
}

}  // namespace
}  // namespace qira::wifi
