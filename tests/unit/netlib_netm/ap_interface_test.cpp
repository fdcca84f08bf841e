// The access-point interface: the iw commands in order with the reused
// argument vector, "wlan0" set up or down per board, the two power-save
// commands, and the address through the host's configuration functions.
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "qira/network/netlib_netm.h"
#include "unit/netlib_netm/netm_test_util.h"

namespace qira::test::netm {
namespace {

using qira::host::ProcessCall;
using qira::network::netlib_netm_configure_ap_interface;
using Lines = std::vector<std::string>;

const std::string kDel = "run /bin/iw dev ap0 del";
const std::string kAdd = "run /bin/iw phy phy0 interface add ap0 type __ap";
const std::string kApPowerSave = "run /bin/iw dev ap0 set power_save off";
const std::string kWlan0PowerSave = "run /bin/iw dev wlan0 set power_save off";
const std::string kIpAddr = "netlib_netm_configure_ip_addr(ap0, 192.168.1.1, 255.255.255.0, )";

class ApInterface : public NetmTest {
 protected:
  void SetUp() override {
    NetmTest::SetUp();
    // Each process call notes how many wired netlib calls preceded it, so
    // the order across the two recorders is checked too.
    processes_.set_responder([this](const ProcessCall& call) -> std::optional<int> {
      netlib_calls_before_.push_back(netlib_.calls().size());
      for (const auto& [command, result] : failing_) {
        if (describe_calls({call}).front() == command) {
          return result;
        }
      }
      return std::nullopt;
    });
  }

  bool configure(const std::string& ifname = "ap0", const std::string& address = "192.168.1.1",
                 const std::string& netmask = "255.255.255.0") {
    return netlib_netm_configure_ap_interface(ctx(), ifname, address, netmask);
  }

  // Makes the command described as `command` answer `result`.
  void fail_command(const std::string& command, int result = 1) {
    failing_.emplace_back(command, result);
  }

  ExpectedLine line(const std::string& message) {
    return {kApInterfaceFile, "netlib_netm_configure_ap_interface", 0, message};
  }

  std::vector<std::size_t> netlib_calls_before_;
  std::vector<std::pair<std::string, int>> failing_;
};

TEST_F(ApInterface, TwoGhzBoardSetsWlan0UpAndAddsTheInterfaceOnPhy0) {
  for (std::uint64_t sysid : {0x62A0ULL, 0x62E5ULL}) {
    SCOPED_TRACE(sysid);
    set_identity(sysid, "Cam", "00000000ABCD");
    processes_.clear();
    netlib_.clear();
    netlib_calls_before_.clear();
    EXPECT_TRUE(configure());
    EXPECT_EQ(process_calls(), (Lines{kDel, kAdd, kApPowerSave, kWlan0PowerSave}));
    EXPECT_EQ(netlib_calls(), (Lines{"netlib_iface_set_up(wlan0, true)", kIpAddr}));
    EXPECT_EQ(netlib_calls_before_, (std::vector<std::size_t>{0, 1, 1, 1}));
    expect_lines(log_, {});
  }
}

TEST_F(ApInterface, BcmdhdBoardSetsWlan0UpAndAddsNoInterface) {
  set_identity(0x62B7, "Cam", "00000000ABCD");
  EXPECT_TRUE(configure());
  EXPECT_EQ(process_calls(), (Lines{kDel, kApPowerSave, kWlan0PowerSave}));
  EXPECT_EQ(netlib_calls(), (Lines{"netlib_iface_set_up(wlan0, true)", kIpAddr}));
  EXPECT_EQ(netlib_calls_before_, (std::vector<std::size_t>{0, 1, 1}));
}

TEST_F(ApInterface, OtherBoardsSetWlan0DownBeforeTheInterfaceIsAdded) {
  for (std::uint64_t sysid : {0x61C4ULL, 0x61C9ULL, 0ULL, 0x62B6ULL}) {
    SCOPED_TRACE(sysid);
    set_identity(sysid, "Cam", "00000000ABCD");
    processes_.clear();
    netlib_.clear();
    netlib_calls_before_.clear();
    EXPECT_TRUE(configure());
    EXPECT_EQ(process_calls(), (Lines{kDel, kAdd, kApPowerSave, kWlan0PowerSave}));
    EXPECT_EQ(netlib_calls(), (Lines{"netlib_iface_set_up(wlan0, false)", kIpAddr}));
    EXPECT_EQ(netlib_calls_before_, (std::vector<std::size_t>{0, 1, 1, 1}));
  }
}

TEST_F(ApInterface, OnlyTheLowThirtyTwoBitsOfTheModelNumberCount) {
  set_identity(0xABCD000062B7ULL, "Cam", "00000000ABCD");
  EXPECT_TRUE(configure());
  EXPECT_EQ(process_calls(), (Lines{kDel, kApPowerSave, kWlan0PowerSave}));
  EXPECT_EQ(netlib_calls(), (Lines{"netlib_iface_set_up(wlan0, true)", kIpAddr}));
}

TEST_F(ApInterface, FirstPowerSaveCommandAlwaysNamesAp0) {
  set_identity(0x62A0, "Cam", "00000000ABCD");
  EXPECT_TRUE(configure("wlan1"));
  EXPECT_EQ(process_calls(), (Lines{"run /bin/iw dev wlan1 del",
                                    "run /bin/iw phy phy0 interface add wlan1 type __ap",
                                    kApPowerSave, kWlan0PowerSave}));
  EXPECT_EQ(netlib_calls(),
            (Lines{"netlib_iface_set_up(wlan0, true)",
                   "netlib_netm_configure_ip_addr(wlan1, 192.168.1.1, 255.255.255.0, )"}));
}

// ---- Address: validated here, configured by the host -------------------------

struct AddressCase {
  const char* name;
  std::string address;
  std::string netmask;
  std::string function;
};

void PrintTo(const AddressCase& c, std::ostream* out) {
  *out << c.name;
}

class ApInterfaceAddress : public ApInterface, public ::testing::WithParamInterface<AddressCase> {};

TEST_P(ApInterfaceAddress, ValidPairGoesToIpAddrElseToFallbackUnchanged) {
  set_identity(0x62A0, "Cam", "00000000ABCD");
  const AddressCase& c = GetParam();
  EXPECT_TRUE(configure("ap0", c.address, c.netmask));
  EXPECT_EQ(netlib_calls(), (Lines{"netlib_iface_set_up(wlan0, true)",
                                   c.function + "(ap0, " + c.address + ", " + c.netmask + ", )"}));
  expect_lines(log_, {});
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ApInterfaceAddress,
    ::testing::Values(
        AddressCase{"ValidPair", "192.168.1.1", "255.255.255.0", "netlib_netm_configure_ip_addr"},
        AddressCase{"ValidSlash8", "10.0.0.5", "255.0.0.0", "netlib_netm_configure_ip_addr"},
        AddressCase{"AddressOutOfRange", "192.168.1.300", "255.255.255.0",
                    "netlib_netm_configure_static_fallback"},
        AddressCase{"AddressNotAHost", "0.0.0.0", "255.255.255.0",
                    "netlib_netm_configure_static_fallback"},
        AddressCase{"EmptyAddress", "", "255.255.255.0", "netlib_netm_configure_static_fallback"},
        AddressCase{"NonContiguousNetmask", "192.168.1.1", "255.0.255.0",
                    "netlib_netm_configure_static_fallback"},
        AddressCase{"ZeroNetmask", "192.168.1.1", "0.0.0.0",
                    "netlib_netm_configure_static_fallback"},
        AddressCase{"BothInvalid", "x", "y", "netlib_netm_configure_static_fallback"}),
    [](const ::testing::TestParamInfo<AddressCase>& info) { return std::string(info.param.name); });

TEST_F(ApInterface, ResultIsTheAddressConfigurationsResult) {
  set_identity(0x62A0, "Cam", "00000000ABCD");
  netlib_.set_result("netlib_netm_configure_ip_addr", false);
  EXPECT_FALSE(configure());
  netlib_.set_result("netlib_netm_configure_static_fallback", false);
  EXPECT_FALSE(configure("ap0", "bad", "255.255.255.0"));
  expect_lines(log_, {});
}

// ---- Failures ----------------------------------------------------------------

TEST_F(ApInterface, EmptyInterfaceNameFailsBeforeTheIdentityIsRead) {
  EXPECT_FALSE(configure(""));
  expect_lines(log_, {line("invalid network interface")});
  EXPECT_TRUE(process_calls().empty());
  EXPECT_TRUE(netlib_calls().empty());
}

TEST_F(ApInterface, IdentityUnavailableRunsNothing) {
  EXPECT_FALSE(configure());
  expect_lines(log_, {line("Failed to initialize camera info manager")});
  EXPECT_TRUE(process_calls().empty());
  EXPECT_TRUE(netlib_calls().empty());
}

TEST_F(ApInterface, Wlan0StateChangeFailureStopsAfterTheStaleInterfaceWasDeleted) {
  set_identity(0x62A0, "Cam", "00000000ABCD");
  netlib_.set_result("netlib_iface_set_up", false);
  EXPECT_FALSE(configure());
  expect_lines(log_, {line("Failed to change interface \"wlan0\" state")});
  EXPECT_EQ(process_calls(), (Lines{kDel}));
  EXPECT_EQ(netlib_calls(), (Lines{"netlib_iface_set_up(wlan0, true)"}));
}

TEST_F(ApInterface, FailedDeletionIsIgnored) {
  set_identity(0x62A0, "Cam", "00000000ABCD");
  fail_command(kDel, 237);
  EXPECT_TRUE(configure());
  expect_lines(log_, {});
  EXPECT_EQ(process_calls(), (Lines{kDel, kAdd, kApPowerSave, kWlan0PowerSave}));
}

TEST_F(ApInterface, InterfaceCreationFailureLeavesPowerSaveAndAddressAlone) {
  set_identity(0x62A0, "Cam", "00000000ABCD");
  fail_command(kAdd);
  EXPECT_FALSE(configure());
  expect_lines(log_, {line("Failed to run iw tool")});
  EXPECT_EQ(process_calls(), (Lines{kDel, kAdd}));
  EXPECT_EQ(netlib_calls(), (Lines{"netlib_iface_set_up(wlan0, true)"}));
}

TEST_F(ApInterface, AnyNonzeroResultOfTheCreationIsAFailure) {
  set_identity(0x62A0, "Cam", "00000000ABCD");
  fail_command(kAdd, -1);
  EXPECT_FALSE(configure());
  expect_lines(log_, {line("Failed to run iw tool")});
}

TEST_F(ApInterface, Ap0PowerSaveFailureIsLoggedOnly) {
  set_identity(0x62A0, "Cam", "00000000ABCD");
  fail_command(kApPowerSave);
  EXPECT_TRUE(configure());
  expect_lines(log_, {line("Cannot turn on ap0 interface power save state")});
  EXPECT_EQ(process_calls(), (Lines{kDel, kAdd, kApPowerSave, kWlan0PowerSave}));
  EXPECT_EQ(netlib_calls(), (Lines{"netlib_iface_set_up(wlan0, true)", kIpAddr}));
}

TEST_F(ApInterface, Wlan0PowerSaveFailureIsLoggedOnly) {
  set_identity(0x62A0, "Cam", "00000000ABCD");
  fail_command(kWlan0PowerSave, 2);
  EXPECT_TRUE(configure());
  expect_lines(log_, {line("Cannot turn on wlan0 interface power save state")});
}

TEST_F(ApInterface, BothPowerSaveFailuresInOrderDoNotChangeAFailedResult) {
  set_identity(0x62B7, "Cam", "00000000ABCD");
  fail_command(kApPowerSave);
  fail_command(kWlan0PowerSave);
  netlib_.set_result("netlib_netm_configure_ip_addr", false);
  EXPECT_FALSE(configure());
  expect_lines(log_, {line("Cannot turn on ap0 interface power save state"),
                      line("Cannot turn on wlan0 interface power save state")});
}

// ---- The context check of this file -------------------------------------------

class ApInterfaceCheck : public NetmTest {
 protected:
  void expect_check_failure(void* ctx, const std::string& message) {
    set_identity(0x62A0, "Cam", "00000000ABCD");
    EXPECT_FALSE(netlib_netm_configure_ap_interface(ctx, "ap0", "192.168.1.1", "255.255.255.0"));
    expect_lines(log_, {{kApInterfaceFile, "check", 0, message}});
    EXPECT_TRUE(process_calls().empty());
    EXPECT_TRUE(netlib_calls().empty());
  }
};

TEST_F(ApInterfaceCheck, NullContext) {
  expect_check_failure(nullptr, "library context is null");
}

TEST_F(ApInterfaceCheck, NullInterfaceState) {
  context_.iface = nullptr;
  expect_check_failure(ctx(), "library context is null");
}

TEST_F(ApInterfaceCheck, UninitialisedInterfaceState) {
  state_.initialised = 0;
  expect_check_failure(ctx(), "library is not initialized");
}

// ---- Identity crash convention --------------------------------------------------

using ApInterfaceDeathTest = ApInterface;

TEST_F(ApInterfaceDeathTest, MissingSysidEndsTheProcessBeforeAnyCommand) {
  qira::variant::Variant record;
  record["name"] = "Cam";
  qira::host::set_identity_record(record);
  EXPECT_DEATH(
      {
        const qira::host::LogCapture* log = &log_;
        const qira::host::ProcessRecorder* runs = &processes_;
        qira::host::NetlibRecorder* wired = &netlib_;
        qira::host::set_crash_observer([log, runs, wired] {
          for (const qira::host::LogRecord& record : log->records()) {
            std::fprintf(stderr, "record|%s|%s|%s|\n", record.module.c_str(),
                         record.function.c_str(), record.message.c_str());
          }
          std::fprintf(stderr, "calls=%zu wired=%zu\n", runs->calls().size(),
                       wired->calls().size());
        });
        configure();
      },
      "record\\|qira_variant\\|required_member\\|Key \"sysid\" not available\\|\n"
      "calls=0 wired=0\n");
}

}  // namespace
}  // namespace qira::test::netm
