// Connect and disconnect in the three uses of the radio: the exact process
// calls and their order, the control commands sent to the simulated
// wpa_supplicant, and the log lines.
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>

#include <optional>
#include <string>
#include <vector>

#include "qira/network/netlib_netm.h"
#include "support/sandbox.h"
#include "support/wpa_supplicant_sim.h"
#include "unit/netlib_netm/netm_test_util.h"

namespace qira::test::netm {
namespace {

using qira::network::netlib_netm_wireless_connect;
using qira::network::netlib_netm_wireless_disconnect;
using Lines = std::vector<std::string>;

constexpr const char* kConnectFile = "src/netlib_netm/connect.cpp";
constexpr const char* kDaemonsFile = "src/netlib_netm/daemons.cpp";
constexpr const char* kClientFile = "src/wpa_client/wpa_client.cpp";

const std::string kDnsmasq =
    "daemon /bin/dnsmasq --leasefile-ro -u qira -g admin --log-facility=/var/log/dnsmasq.log "
    "--dhcp-authoritative";
const std::string kHostapd = "daemon /bin/hostapd -B -d -f /var/log/hostapd.log /etc/hostapd.conf";
const std::string kWpaSupplicant =
    "run /bin/wpa_supplicant -B -Dnl80211 -s -i wlan0 -c/etc/wlan0.conf";

// Records the three optional leading arguments of every daemon start too.
class DaemonStartRecorder : public qira::host::ProcessRecorder {
 public:
  int start_daemon(const std::string& program, const std::vector<std::string>& args,
                   const std::string* working_directory, const __sigset_t* signal_mask,
                   int* pid) override {
    all_null.push_back(working_directory == nullptr && signal_mask == nullptr && pid == nullptr);
    return ProcessRecorder::start_daemon(program, args, working_directory, signal_mask, pid);
  }
  std::vector<bool> all_null;
};

class Connect : public NetmTest {
 protected:
  static ExpectedLine connect_line(const std::string& message) {
    return {kConnectFile, "netlib_netm_wireless_connect", 0, message};
  }
  static ExpectedLine disconnect_line(const std::string& message) {
    return {kConnectFile, "netlib_netm_wireless_disconnect", 0, message};
  }
  static ExpectedLine check_line(const std::string& message) {
    return {kConnectFile, "check", 0, message};
  }
  static ExpectedLine daemon_line(const std::string& function, const std::string& message,
                                  int error_number = 0) {
    return {kDaemonsFile, function, error_number, message};
  }
  static void write_ap_files() {
    write_file("/etc/dnsmasq.conf", "interface=ap0\n");
    write_file("/etc/hostapd.conf", "interface=ap0\n");
  }
};

// ---- Context and interface name ---------------------------------------------

TEST_F(Connect, NullContextFailsInBothEntryPoints) {
  EXPECT_FALSE(netlib_netm_wireless_connect(nullptr, "wlan0", false, false));
  EXPECT_FALSE(netlib_netm_wireless_disconnect(nullptr, "wlan0", false, false));
  expect_lines(log_,
               {check_line("library context is null"), check_line("library context is null")});
  EXPECT_EQ(process_calls(), Lines{});
}

TEST_F(Connect, UninitialisedStateFails) {
  state_.initialised = 0;
  EXPECT_FALSE(netlib_netm_wireless_connect(ctx(), "wlan0", true, false));
  EXPECT_FALSE(netlib_netm_wireless_disconnect(ctx(), "wlan0", true, false));
  expect_lines(
      log_, {check_line("library is not initialized"), check_line("library is not initialized")});
  EXPECT_EQ(process_calls(), Lines{});
}

TEST_F(Connect, MissingSharedStateFails) {
  context_.iface = nullptr;
  EXPECT_FALSE(netlib_netm_wireless_connect(ctx(), "wlan0", false, true));
  expect_lines(log_, {check_line("library context is null")});
}

TEST_F(Connect, EmptyInterfaceNameFailsBeforeAnyProcessInEveryMode) {
  write_ap_files();
  set_identity(0x62B7, "Cam", "00000000ABCD");
  const std::vector<std::pair<bool, bool>> modes = {
      {true, false}, {false, true}, {false, false}, {true, true}};
  for (const auto& [ap_mode, vendor] : modes) {
    SCOPED_TRACE(std::to_string(ap_mode) + std::to_string(vendor));
    log_.clear();
    EXPECT_FALSE(netlib_netm_wireless_connect(ctx(), "", ap_mode, vendor));
    EXPECT_FALSE(netlib_netm_wireless_disconnect(ctx(), "", ap_mode, vendor));
    expect_lines(log_, {connect_line("invalid network interface"),
                        disconnect_line("invalid network interface")});
  }
  EXPECT_EQ(process_calls(), Lines{});
  EXPECT_EQ(netlib_calls(), Lines{});
}

// ---- Connect: access point ---------------------------------------------------

TEST_F(Connect, AccessPointStartsDnsmasqThenHostapdThenStopsLighttpd) {
  write_ap_files();
  DaemonStartRecorder recorder;
  EXPECT_TRUE(netlib_netm_wireless_connect(ctx(), "ap0", true, false));
  EXPECT_EQ(describe_calls(recorder.calls()), (Lines{kDnsmasq, kHostapd, "signal 15 lighttpd"}));
  EXPECT_EQ(recorder.all_null, (std::vector<bool>{true, true}));
  expect_lines(log_, {});
}

TEST_F(Connect, AccessPointWinsOverVendorTools) {
  write_ap_files();
  EXPECT_TRUE(netlib_netm_wireless_connect(ctx(), "ap0", true, true));
  EXPECT_EQ(process_calls(), (Lines{kDnsmasq, kHostapd, "signal 15 lighttpd"}));
  expect_lines(log_, {});
}

// "Failed to access file" reports a failed access(), a system call, so its
// errno goes into the errno slot: the module's logging convention passes the
// current errno wherever a system call failed and 0 only where none did, and
// nothing about connect says otherwise (only the station file limits errno
// to its rename failure).
TEST_F(Connect, MissingDnsmasqFileStartsNothingAndLogsAccessErrno) {
  write_file("/etc/hostapd.conf", "interface=ap0\n");
  EXPECT_FALSE(netlib_netm_wireless_connect(ctx(), "ap0", true, false));
  EXPECT_EQ(process_calls(), Lines{});
  expect_lines(log_, {daemon_line("net_exec_dnsmasq", "Failed to access file \"/etc/dnsmasq.conf\"",
                                  ENOENT)});
}

TEST_F(Connect, DnsmasqFileThatLoopsLogsTheErrnoOfAccess) {
  // A link to itself: access() answers ELOOP, not ENOENT, so the slot shows
  // access()'s own answer rather than a fixed value.
  std::remove("/etc/dnsmasq.conf");
  ASSERT_EQ(symlink("/etc/dnsmasq.conf", "/etc/dnsmasq.conf"), 0);
  write_file("/etc/hostapd.conf", "interface=ap0\n");
  EXPECT_FALSE(netlib_netm_wireless_connect(ctx(), "ap0", true, false));
  EXPECT_EQ(process_calls(), Lines{});
  expect_lines(log_, {daemon_line("net_exec_dnsmasq", "Failed to access file \"/etc/dnsmasq.conf\"",
                                  ELOOP)});
  std::remove("/etc/dnsmasq.conf");
}

TEST_F(Connect, DnsmasqThatDoesNotStartStopsTheSequence) {
  write_ap_files();
  processes_.set_result("/bin/dnsmasq", 0);
  EXPECT_FALSE(netlib_netm_wireless_connect(ctx(), "ap0", true, false));
  EXPECT_EQ(process_calls(), Lines{kDnsmasq});
  expect_lines(log_, {daemon_line("net_exec_dnsmasq", "Failed to run dnsmasq")});
}

TEST_F(Connect, MissingHostapdFileFailsAfterDnsmasqWasStartedAndLeavesIt) {
  write_file("/etc/dnsmasq.conf", "interface=ap0\n");
  EXPECT_FALSE(netlib_netm_wireless_connect(ctx(), "ap0", true, false));
  EXPECT_EQ(process_calls(), Lines{kDnsmasq});
  expect_lines(log_, {daemon_line("net_exec_hostapd", "Failed to access file \"/etc/hostapd.conf\"",
                                  ENOENT)});
}

TEST_F(Connect, HostapdThatDoesNotStartFailsWithoutStoppingLighttpd) {
  write_ap_files();
  processes_.set_result("/bin/hostapd", 0);
  EXPECT_FALSE(netlib_netm_wireless_connect(ctx(), "ap0", true, false));
  EXPECT_EQ(process_calls(), (Lines{kDnsmasq, kHostapd}));
  expect_lines(log_, {daemon_line("net_exec_hostapd", "Failed to run hostapd")});
}

// ---- Connect: vendor tools ----------------------------------------------------

TEST_F(Connect, VendorToolsRunTheSetupScriptWithoutArguments) {
  EXPECT_TRUE(netlib_netm_wireless_connect(ctx(), "wlan0", false, true));
  EXPECT_EQ(process_calls(), Lines{"shell /bin/wifi_setup.sh"});
  expect_lines(log_, {});
}

TEST_F(Connect, FailingSetupScriptIsReported) {
  for (int result : {1, -1, 127}) {
    SCOPED_TRACE(result);
    log_.clear();
    processes_.set_result("/bin/wifi_setup.sh", result);
    EXPECT_FALSE(netlib_netm_wireless_connect(ctx(), "wlan0", false, true));
    expect_lines(log_, {connect_line("Failed to run wifi_setup.sh")});
  }
}

// ---- Connect: station -----------------------------------------------------------

TEST_F(Connect, StationStopsWpaSupplicantStartsItAndSendsReconnect) {
  WpaSupplicantSim daemon("wlan0");
  daemon.reply("RECONNECT", "OK\n");
  EXPECT_TRUE(netlib_netm_wireless_connect(ctx(), "wlan0", false, false));
  EXPECT_EQ(process_calls(), (Lines{"signal 15 wpa_supplicant", kWpaSupplicant}));
  EXPECT_EQ(daemon.requests(), Lines{"RECONNECT"});
  expect_lines(log_, {});
}

TEST_F(Connect, StationArgumentsCarryTheCallersInterface) {
  WpaSupplicantSim daemon("wlan7");
  daemon.reply("RECONNECT", "OK");
  EXPECT_TRUE(netlib_netm_wireless_connect(ctx(), "wlan7", false, false));
  const std::vector<qira::host::ProcessCall> calls = processes_.calls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[1].kind, qira::host::ProcessCall::kExec);
  EXPECT_EQ(calls[1].program, "/bin/wpa_supplicant");
  EXPECT_EQ(calls[1].args, (Lines{"-B", "-Dnl80211", "-s", "-i", "wlan7", "-c/etc/wlan0.conf"}));
}

TEST_F(Connect, StationThatDoesNotStartStillStoppedTheOldOneAndLogsTwoLines) {
  WpaSupplicantSim daemon("wlan0");
  processes_.set_result("/bin/wpa_supplicant", 255);
  EXPECT_FALSE(netlib_netm_wireless_connect(ctx(), "wlan0", false, false));
  EXPECT_EQ(process_calls(), (Lines{"signal 15 wpa_supplicant", kWpaSupplicant}));
  EXPECT_EQ(daemon.requests(), Lines{});
  expect_lines(log_, {daemon_line("net_exec_wpa_supplicant", "Failed to run wpa_supplicant"),
                      connect_line("Failed to execute wpa_supplicant")});
}

TEST_F(Connect, StationRefusedReconnectIsQuotedInTheLog) {
  WpaSupplicantSim daemon("wlan0");
  daemon.reply("RECONNECT", "FAIL\n");
  EXPECT_FALSE(netlib_netm_wireless_connect(ctx(), "wlan0", false, false));
  EXPECT_EQ(daemon.requests(), Lines{"RECONNECT"});
  expect_lines(log_, {daemon_line("net_exec_wpactrl_cmd",
                                  "Failed to perform wpactrl action \"RECONNECT\": FAIL\n")});
}

TEST_F(Connect, StationWithoutControlSocketFails) {
  EXPECT_FALSE(netlib_netm_wireless_connect(ctx(), "wlan0", false, false));
  EXPECT_EQ(process_calls(), (Lines{"signal 15 wpa_supplicant", kWpaSupplicant}));
  expect_lines(log_,
               {{kClientFile, "Init", ENOENT, "connect() failed"},
                daemon_line("net_exec_wpactrl_cmd", "Failed to initialize control interface")});
}

// ---- Disconnect: vendor tools and station ------------------------------------------

TEST_F(Connect, DisconnectVendorToolsRunsWlTwiceInOrder) {
  EXPECT_TRUE(netlib_netm_wireless_disconnect(ctx(), "wlan0", false, true));
  EXPECT_EQ(process_calls(), (Lines{"run /bin/wl ap 0", "run /bin/wl disassoc"}));
  expect_lines(log_, {});
}

TEST_F(Connect, DisconnectVendorToolsSucceedsWhenWlIsMissing) {
  processes_.set_result("/bin/wl", -1);
  EXPECT_TRUE(netlib_netm_wireless_disconnect(ctx(), "wlan0", false, true));
  EXPECT_EQ(process_calls(), (Lines{"run /bin/wl ap 0", "run /bin/wl disassoc"}));
  expect_lines(log_, {});
}

TEST_F(Connect, DisconnectStationSendsDisconnect) {
  WpaSupplicantSim daemon("wlan0");
  daemon.reply("DISCONNECT", "OK\n");
  EXPECT_TRUE(netlib_netm_wireless_disconnect(ctx(), "wlan0", false, false));
  EXPECT_EQ(daemon.requests(), Lines{"DISCONNECT"});
  EXPECT_EQ(process_calls(), Lines{});
  expect_lines(log_, {});
}

TEST_F(Connect, DisconnectStationDaemonExitingWithoutReplyFailsWithAnEmptyReply) {
  WpaSupplicantSim daemon("wlan0");
  daemon.script("DISCONNECT", WpaSupplicantSim::Answer{{}, std::nullopt, {}, {}, true});
  EXPECT_FALSE(netlib_netm_wireless_disconnect(ctx(), "wlan0", false, false));
  EXPECT_EQ(daemon.requests(), Lines{"DISCONNECT"});
  expect_lines(log_, {daemon_line("net_exec_wpactrl_cmd",
                                  "Failed to perform wpactrl action \"DISCONNECT\": ")});
}

TEST_F(Connect, DisconnectStationSilentDaemonFailsWithAnEmptyReply) {
  WpaSupplicantSim daemon("wlan0");
  daemon.script("DISCONNECT", WpaSupplicantSim::Answer{{}, std::nullopt, {}, {}, false});
  // The client waits its full 5000 ms for a reply that never comes.
  EXPECT_FALSE(netlib_netm_wireless_disconnect(ctx(), "wlan0", false, false));
  EXPECT_EQ(daemon.requests(), Lines{"DISCONNECT"});
  expect_lines(log_, {daemon_line("net_exec_wpactrl_cmd",
                                  "Failed to perform wpactrl action \"DISCONNECT\": ")});
}

// An empty datagram is a reply (Request returns true at once), but not one
// that begins with "OK": failure, with the empty reply quoted.
TEST_F(Connect, DisconnectStationEmptyDatagramReplyFails) {
  WpaSupplicantSim daemon("wlan0");
  daemon.reply("DISCONNECT", "");
  EXPECT_FALSE(netlib_netm_wireless_disconnect(ctx(), "wlan0", false, false));
  EXPECT_EQ(daemon.requests(), Lines{"DISCONNECT"});
  expect_lines(log_, {daemon_line("net_exec_wpactrl_cmd",
                                  "Failed to perform wpactrl action \"DISCONNECT\": ")});
}

// A reply shorter than "OK" that begins like it: the two-character prefix
// test fails on the missing "K".
TEST_F(Connect, DisconnectStationReplyOfOnlyOFails) {
  WpaSupplicantSim daemon("wlan0");
  daemon.reply("DISCONNECT", "O");
  EXPECT_FALSE(netlib_netm_wireless_disconnect(ctx(), "wlan0", false, false));
  EXPECT_EQ(daemon.requests(), Lines{"DISCONNECT"});
  expect_lines(log_, {daemon_line("net_exec_wpactrl_cmd",
                                  "Failed to perform wpactrl action \"DISCONNECT\": O")});
}

// ---- Disconnect: access point on boards other than bcmdhd ---------------------------

TEST_F(Connect, DisconnectAccessPointStopsDaemonsAndDeletesTheInterface) {
  set_identity(0x62A0, "Cam", "00000000ABCD");
  EXPECT_TRUE(netlib_netm_wireless_disconnect(ctx(), "ap0", true, false));
  EXPECT_EQ(process_calls(), (Lines{"signal 15 hostapd", "signal 15 dnsmasq", "signal 15 udhcpc",
                                    "run /bin/iw dev ap0 del"}));
  EXPECT_EQ(netlib_calls(), Lines{});
  expect_lines(log_, {});
}

TEST_F(Connect, DisconnectAccessPointWinsOverVendorToolsAndIgnoresIw) {
  set_identity(0x61C4, "Cam", "00000000ABCD");
  processes_.set_result("/bin/iw", 1);
  EXPECT_TRUE(netlib_netm_wireless_disconnect(ctx(), "ap0", true, true));
  EXPECT_EQ(process_calls(), (Lines{"signal 15 hostapd", "signal 15 dnsmasq", "signal 15 udhcpc",
                                    "run /bin/iw dev ap0 del"}));
  expect_lines(log_, {});
}

TEST_F(Connect, DisconnectAccessPointWithoutIdentityStopsNothing) {
  EXPECT_FALSE(netlib_netm_wireless_disconnect(ctx(), "ap0", true, false));
  EXPECT_EQ(process_calls(), Lines{});
  expect_lines(log_, {disconnect_line("Failed to initialize camera info manager")});
}

TEST_F(Connect, ModelNumberIsComparedOnAllSixtyFourBits) {
  set_identity(0x1000062B7ULL, "Cam", "00000000ABCD");
  EXPECT_TRUE(netlib_netm_wireless_disconnect(ctx(), "ap0", true, false));
  EXPECT_EQ(netlib_calls(), Lines{});
  EXPECT_EQ(process_calls().size(), 4u);
}

}  // namespace
}  // namespace qira::test::netm
