// The station file "/etc/wlan0.conf": written through a temporary file in
// "/tmp" and a rename, with the WPA block's checks in their order.
#include <sys/mount.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <regex>
#include <string>
#include <vector>

#include "qira/network/netlib_netm.h"
#include "support/sandbox.h"
#include "unit/netlib_netm/netm_test_util.h"

namespace qira::test::netm {
namespace {

using qira::network::netlib_netm_configure_sta;
using qira::network::netlib_netm_configure_wifi_wpa;

const std::string kHeader =
    "ctrl_interface=/var/run/wpa_supplicant\nupdate_config=1\nwowlan_triggers=any\nnetwork={\n";
const std::string kWpaTail = "\tpairwise=CCMP TKIP\n\tgroup=CCMP TKIP\n\tauth_alg=OPEN\n";
constexpr const char* kPrevious = "previous file\n";

class StationFile : public NetmTest {
 protected:
  // The station settings of one call; every test changes what it needs.
  struct Settings {
    std::string ifname = "wlan0";
    std::string ssid = "Home";
    int freq = 2412;
    std::string key = "wpa2";
    std::string auth = "psk";
    std::string psk = "secret";
    std::string ident;
    std::string user;
    std::string pass;
    std::string bgscan;
  };

  bool configure(const Settings& s) {
    return netlib_netm_configure_sta(ctx(), s.ifname, s.ssid, s.freq, s.key, s.auth, s.psk, s.ident,
                                     s.user, s.pass, s.bgscan);
  }

  // A failed call left "/etc/wlan0.conf" as it was and exactly one temporary
  // file behind, holding `content`.
  void expect_previous_file_and_one_temporary(const std::string& content) {
    EXPECT_EQ(read_file("/etc/wlan0.conf"), kPrevious);
    const std::vector<std::string> left = temporary_station_files();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(read_file("/tmp/" + left[0]), content);
  }

  ExpectedLine sta_line(const std::string& message, int error_number = 0) {
    return {kStationFile, "netlib_netm_configure_sta", error_number, message};
  }
  ExpectedLine wpa_line(const std::string& message) {
    return {kStationFile, "netlib_netm_configure_wifi_wpa", 0, message};
  }
};

TEST_F(StationFile, Wpa2PskWithoutBgscanHasExactlyItsLinesInOrder) {
  EXPECT_TRUE(configure({}));
  EXPECT_EQ(read_file("/etc/wlan0.conf"),
            kHeader +
                "\tssid=\"Home\"\n\tscan_ssid=1\n\tproto=WPA RSN\n\tkey_mgmt=WPA-PSK\n"
                "\tpsk=secret\n" +
                kWpaTail + "}\n");
  expect_lines(log_, {});
  EXPECT_TRUE(temporary_station_files().empty());
}

TEST_F(StationFile, WpaPskWithBgscanEndsWithTheQuotedBgscanLine) {
  Settings s;
  s.key = "wpa";
  s.bgscan = "simple:30:-65:300";
  EXPECT_TRUE(configure(s));
  EXPECT_EQ(read_file("/etc/wlan0.conf"),
            kHeader +
                "\tssid=\"Home\"\n\tscan_ssid=1\n\tproto=WPA RSN\n\tkey_mgmt=WPA-PSK\n"
                "\tpsk=secret\n" +
                kWpaTail + "\tbgscan=\"simple:30:-65:300\"\n}\n");
}

TEST_F(StationFile, RsnEapWritesTheQuotedIdentityLines) {
  Settings s;
  s.key = "rsn";
  s.auth = "eap";
  s.psk = "";
  s.ident = "anonymous";
  s.user = "alice";
  s.pass = "p4ss";
  EXPECT_TRUE(configure(s));
  EXPECT_EQ(read_file("/etc/wlan0.conf"),
            kHeader +
                "\tssid=\"Home\"\n\tscan_ssid=1\n\tproto=WPA RSN\n\tkey_mgmt=WPA-EAP\n"
                "\teap=TTLS PEAP\n\tanonymous_identity=\"anonymous\"\n\tidentity=\"alice\"\n"
                "\tpassword=\"p4ss\"\n\tphase2=\"auth=MSCHAPV2\"\n" +
                kWpaTail + "}\n");
  expect_lines(log_, {});
}

TEST_F(StationFile, NoneWritesTheOpenBlockAndIgnoresEveryWpaSetting) {
  Settings s;
  s.key = "none";
  s.auth = "bogus";
  s.psk = "";
  s.bgscan = "learn";
  EXPECT_TRUE(configure(s));
  EXPECT_EQ(read_file("/etc/wlan0.conf"),
            kHeader + "\tssid=\"Home\"\n\tscan_ssid=1\n\tauth_alg=OPEN\n\tkey_mgmt=NONE\n}\n");
  expect_lines(log_, {});
}

TEST_F(StationFile, FrequencyIsNotWritten) {
  Settings s;
  s.freq = 5745;
  EXPECT_TRUE(configure(s));
  const std::string first = read_file("/etc/wlan0.conf");
  s.freq = -1;
  EXPECT_TRUE(configure(s));
  EXPECT_EQ(read_file("/etc/wlan0.conf"), first);
  EXPECT_EQ(first.find("5745"), std::string::npos);
}

TEST_F(StationFile, SsidWithDoubleQuoteIsWrittenUnescaped) {
  Settings s;
  s.ssid = "My \"Net\"";
  EXPECT_TRUE(configure(s));
  EXPECT_EQ(read_file("/etc/wlan0.conf").substr(kHeader.size(), 22),
            "\tssid=\"My \"Net\"\"\n\tscan");
}

TEST_F(StationFile, PskIsWrittenUnquotedAndUnchanged) {
  Settings s;
  s.psk = "\"quoted phrase\"";
  EXPECT_TRUE(configure(s));
  EXPECT_NE(read_file("/etc/wlan0.conf").find("\n\tpsk=\"quoted phrase\"\n\tpairwise="),
            std::string::npos);
}

TEST_F(StationFile, SuccessReplacesThePreviousFile) {
  write_file("/etc/wlan0.conf", kPrevious);
  EXPECT_TRUE(configure({}));
  EXPECT_NE(read_file("/etc/wlan0.conf"), kPrevious);
  EXPECT_TRUE(temporary_station_files().empty());
}

TEST_F(StationFile, EmptyInterfaceNameFailsBeforeAnyFileIsCreated) {
  write_file("/etc/wlan0.conf", kPrevious);
  Settings s;
  s.ifname = "";
  EXPECT_FALSE(configure(s));
  expect_lines(log_, {sta_line("invalid network interface")});
  EXPECT_TRUE(temporary_station_files().empty());
  EXPECT_EQ(read_file("/etc/wlan0.conf"), kPrevious);
}

TEST_F(StationFile, UpperCaseKeyIsInvalidAndLeavesAnEmptyTemporaryFile) {
  write_file("/etc/wlan0.conf", kPrevious);
  Settings s;
  s.key = "WPA2";
  EXPECT_FALSE(configure(s));
  expect_lines(log_, {sta_line("Cannot generate wifi config file: invalid wifi key algrotihm")});
  expect_previous_file_and_one_temporary("");
}

TEST_F(StationFile, TemporaryFileNameHasPidAndEightAlphanumerics) {
  Settings s;
  s.key = "wep";
  EXPECT_FALSE(configure(s));
  const std::vector<std::string> left = temporary_station_files();
  ASSERT_EQ(left.size(), 1u);
  EXPECT_TRUE(std::regex_match(
      left[0], std::regex("wlan0\\.conf\\." + std::to_string(getpid()) + "\\.[A-Za-z0-9]{8}")))
      << left[0];
}

TEST_F(StationFile, EveryCallUsesANewTemporaryFile) {
  Settings s;
  s.key = "wep";
  EXPECT_FALSE(configure(s));
  EXPECT_FALSE(configure(s));
  EXPECT_EQ(temporary_station_files().size(), 2u);
}

TEST_F(StationFile, EapWithoutUserFailsLeavesTheFileAndAnEmptyTemporary) {
  write_file("/etc/wlan0.conf", kPrevious);
  Settings s;
  s.auth = "eap";
  s.ident = "anon";
  s.user = "";
  s.pass = "pw";
  EXPECT_FALSE(configure(s));
  // One line, from the WPA block: the station function adds none of its own.
  expect_lines(log_, {wpa_line("Cannot generate wifi config file: failed to read wifi.wpa.user")});
  expect_previous_file_and_one_temporary("");
}

TEST_F(StationFile, WpaWithEmptyPskFails) {
  write_file("/etc/wlan0.conf", kPrevious);
  Settings s;
  s.psk = "";
  EXPECT_FALSE(configure(s));
  expect_lines(log_, {wpa_line("Cannot generate wifi config file: failed to read wifi.wpa.psk")});
  expect_previous_file_and_one_temporary("");
}

TEST_F(StationFile, WpaWithEmptyAuthFails) {
  Settings s;
  s.auth = "";
  EXPECT_FALSE(configure(s));
  expect_lines(log_, {wpa_line("Cannot generate wifi config file: failed to read wifi.wpa.auth")});
}

TEST_F(StationFile, WpaWithUnknownAuthFails) {
  Settings s;
  s.auth = "sae";
  EXPECT_FALSE(configure(s));
  expect_lines(log_, {wpa_line("Cannot generate wifi config file: unknown auth algorithm")});
}

// The WPA block's fault texts hold no conversion and are passed as the format
// itself, not through "%s": a host that records the raw format of each line
// (as the reference host's LogRecord::format does) sees the text there.
TEST_F(StationFile, EveryWpaBlockFaultIsLoggedWithItsTextAsTheFormat) {
  struct Fault {
    std::string auth, psk, ident, user, pass, message;
  };
  const std::vector<Fault> faults = {
      {"", "k", "", "", "", "Cannot generate wifi config file: failed to read wifi.wpa.auth"},
      {"psk", "", "", "", "", "Cannot generate wifi config file: failed to read wifi.wpa.psk"},
      {"eap", "", "", "u", "p", "Cannot generate wifi config file: failed to read wifi.wpa.ident"},
      {"eap", "", "i", "", "p", "Cannot generate wifi config file: failed to read wifi.wpa.user"},
      {"eap", "", "i", "u", "", "Cannot generate wifi config file: failed to read wifi.wpa.pass"},
      {"wep", "k", "", "", "", "Cannot generate wifi config file: unknown auth algorithm"},
  };
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.message);
    log_.clear();
    std::string block;
    EXPECT_FALSE(netlib_netm_configure_wifi_wpa(ctx(), "wlan0", block, fault.auth, fault.psk,
                                                fault.ident, fault.user, fault.pass, ""));
    const std::vector<qira::host::LogRecord> records = log_.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].message, fault.message);
    EXPECT_EQ(records[0].format, fault.message);
    EXPECT_EQ(records[0].function, "netlib_netm_configure_wifi_wpa");
    EXPECT_EQ(records[0].error_number, 0);
  }
}

TEST_F(StationFile, OpenFailureOfTheTemporaryFile) {
  write_file("/etc/wlan0.conf", kPrevious);
  // A read-only file system on /tmp: the temporary file cannot be created.
  ScopedMount read_only_tmp("/tmp", MS_RDONLY, "size=64k");
  ASSERT_TRUE(read_only_tmp.mounted());
  EXPECT_FALSE(configure({}));
  expect_lines(log_, {sta_line("Cannot generate wifi config file")});
  EXPECT_TRUE(temporary_station_files().empty());
  EXPECT_EQ(read_file("/etc/wlan0.conf"), kPrevious);
}

TEST_F(StationFile, WriteFailureLeavesThePartlyWrittenTemporaryFile) {
  write_file("/etc/wlan0.conf", kPrevious);
  bool result = true;
  {
    // Writes past 40 bytes fail (EFBIG): the text is written only in part.
    ScopedFileSizeLimit limit(40);
    result = configure({});
  }
  EXPECT_FALSE(result);
  expect_lines(log_, {sta_line("Cannot generate wifi config file: failed to write")});
  expect_previous_file_and_one_temporary(kHeader.substr(0, 40));
}

TEST_F(StationFile, RenameAcrossFileSystemsFailsWithExdevAndKeepsTheCompleteTemporary) {
  write_file("/etc/wlan0.conf", kPrevious);
  // "/tmp" on a file system of its own: rename() to "/etc" gives EXDEV.
  ScopedMount separate_tmp("/tmp", 0, "size=1m");
  ASSERT_TRUE(separate_tmp.mounted());
  EXPECT_FALSE(configure({}));
  const std::vector<std::string> left = temporary_station_files();
  ASSERT_EQ(left.size(), 1u);
  const std::string temporary = "/tmp/" + left[0];
  expect_lines(log_, {sta_line("Failed to move WLAN config from \"" + temporary +
                                   "\" to \"/etc/wlan0.conf\"",
                               EXDEV)});
  EXPECT_EQ(read_file(temporary),
            kHeader +
                "\tssid=\"Home\"\n\tscan_ssid=1\n\tproto=WPA RSN\n\tkey_mgmt=WPA-PSK\n"
                "\tpsk=secret\n" +
                kWpaTail + "}\n");
  EXPECT_EQ(read_file("/etc/wlan0.conf"), kPrevious);
}

// ---- netlib_netm_configure_wifi_wpa on its own -------------------------------

TEST_F(StationFile, WifiWpaAppendsToTheCallersBlockAndWritesNoFile) {
  std::string block = "\tproto=WPA RSN\n";
  EXPECT_TRUE(netlib_netm_configure_wifi_wpa(ctx(), "wlan0", block, "psk", "k", "", "", "", ""));
  EXPECT_EQ(block, "\tproto=WPA RSN\n\tkey_mgmt=WPA-PSK\n\tpsk=k\n" + kWpaTail);
  EXPECT_TRUE(temporary_station_files().empty());
  EXPECT_NE(access("/etc/wlan0.conf", F_OK), 0);
}

TEST_F(StationFile, WifiWpaEarlyReturnKeepsWhatWasAppended) {
  std::string block = "X";
  EXPECT_FALSE(netlib_netm_configure_wifi_wpa(ctx(), "wlan0", block, "eap", "", "a", "u", "", ""));
  EXPECT_EQ(block,
            "X\tkey_mgmt=WPA-EAP\n\teap=TTLS PEAP\n\tanonymous_identity=\"a\"\n"
            "\tidentity=\"u\"\n");
  expect_lines(log_, {wpa_line("Cannot generate wifi config file: failed to read wifi.wpa.pass")});
}

TEST_F(StationFile, WifiWpaEmptyInterfaceNameIsCheckedBeforeTheSettings) {
  std::string block = "X";
  EXPECT_FALSE(netlib_netm_configure_wifi_wpa(ctx(), "", block, "", "", "", "", "", ""));
  EXPECT_EQ(block, "X");
  expect_lines(log_, {wpa_line("invalid network interface")});
}

// ---- The context check of this file -------------------------------------------

class StationCheck : public NetmTest {
 protected:
  void expect_check_failure(void* ctx, const std::string& message) {
    std::string block = "X";
    EXPECT_FALSE(netlib_netm_configure_wifi_wpa(ctx, "wlan0", block, "psk", "k", "", "", "", ""));
    EXPECT_EQ(block, "X");
    EXPECT_FALSE(
        netlib_netm_configure_sta(ctx, "wlan0", "Home", 0, "none", "", "", "", "", "", ""));
    expect_lines(log_, {{kStationFile, "check", 0, message}, {kStationFile, "check", 0, message}});
    EXPECT_TRUE(temporary_station_files().empty());
    EXPECT_NE(access("/etc/wlan0.conf", F_OK), 0);
  }
};

TEST_F(StationCheck, NullContext) {
  expect_check_failure(nullptr, "library context is null");
}

TEST_F(StationCheck, NullInterfaceState) {
  context_.iface = nullptr;
  expect_check_failure(ctx(), "library context is null");
}

TEST_F(StationCheck, UninitialisedInterfaceState) {
  state_.initialised = 0;
  expect_check_failure(ctx(), "library is not initialized");
}

}  // namespace
}  // namespace qira::test::netm
