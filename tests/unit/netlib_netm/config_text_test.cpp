// The texts of the network manager's files, by table: one named case each.
#include "netlib_netm/config_text.h"

#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <stdexcept>
#include <string>

namespace qira::network::netm {
namespace {

// ---- Key algorithm ---------------------------------------------------------

TEST(KeyAlgorithm, NoneIsOpen) {
  EXPECT_EQ(classify_key_algorithm("none"), key_algorithm::open);
}

TEST(KeyAlgorithm, WpaWpa2AndRsnAreAlike) {
  EXPECT_EQ(classify_key_algorithm("wpa"), key_algorithm::wpa);
  EXPECT_EQ(classify_key_algorithm("wpa2"), key_algorithm::wpa);
  EXPECT_EQ(classify_key_algorithm("rsn"), key_algorithm::wpa);
}

TEST(KeyAlgorithm, ComparisonIsExactAndCaseSensitive) {
  EXPECT_EQ(classify_key_algorithm("WPA2"), key_algorithm::invalid);
  EXPECT_EQ(classify_key_algorithm("None"), key_algorithm::invalid);
  EXPECT_EQ(classify_key_algorithm("wpa2 "), key_algorithm::invalid);
  EXPECT_EQ(classify_key_algorithm("wep"), key_algorithm::invalid);
  EXPECT_EQ(classify_key_algorithm(""), key_algorithm::invalid);
}

TEST(SecurityBlock, OpenBlockIsTwoLines) {
  EXPECT_EQ(open_security_block(), "\tauth_alg=OPEN\n\tkey_mgmt=NONE\n");
}

TEST(SecurityBlock, WpaBlockStartsWithProto) {
  EXPECT_EQ(wpa_protocol_line(), "\tproto=WPA RSN\n");
}

TEST(QuotedLine, ValueIsQuotedUnescaped) {
  EXPECT_EQ(quoted_line("identity", "a\"b\\c"), "\tidentity=\"a\"b\\c\"\n");
  EXPECT_EQ(quoted_line("bgscan", ""), "\tbgscan=\"\"\n");
}

// ---- WPA block -------------------------------------------------------------

struct WpaCase {
  const char* name;
  std::string auth, psk, ident, user, pass, bgscan;
  wpa_block_fault fault;
  std::string block;  // what is appended to "START\n"
};

void PrintTo(const WpaCase& c, std::ostream* out) {
  *out << c.name;
}

class WpaBlock : public ::testing::TestWithParam<WpaCase> {};

TEST_P(WpaBlock, AppendsExactlyAndStopsAtTheFirstFault) {
  const WpaCase& c = GetParam();
  std::string block = "START\n";
  EXPECT_EQ(append_wpa_block(block, c.auth, c.psk, c.ident, c.user, c.pass, c.bgscan), c.fault);
  EXPECT_EQ(block, "START\n" + c.block);
}

const std::string kTail = "\tpairwise=CCMP TKIP\n\tgroup=CCMP TKIP\n\tauth_alg=OPEN\n";
const std::string kEapHead = "\tkey_mgmt=WPA-EAP\n\teap=TTLS PEAP\n";

INSTANTIATE_TEST_SUITE_P(
    Cases, WpaBlock,
    ::testing::Values(
        WpaCase{"PskWithoutBgscan", "psk", "secret", "", "", "", "", wpa_block_fault::none,
                "\tkey_mgmt=WPA-PSK\n\tpsk=secret\n" + kTail},
        WpaCase{"PskWithBgscan", "psk", "secret", "", "", "", "simple:30:-65:300",
                wpa_block_fault::none,
                "\tkey_mgmt=WPA-PSK\n\tpsk=secret\n" + kTail + "\tbgscan=\"simple:30:-65:300\"\n"},
        WpaCase{"PskIsUnquotedAndUnchanged", "psk", "\"pass phrase\" x", "", "", "", "",
                wpa_block_fault::none, "\tkey_mgmt=WPA-PSK\n\tpsk=\"pass phrase\" x\n" + kTail},
        WpaCase{"PskIgnoresEapSettings", "psk", "k", "anon", "user", "pw", "",
                wpa_block_fault::none, "\tkey_mgmt=WPA-PSK\n\tpsk=k\n" + kTail},
        WpaCase{"EapComplete", "eap", "", "anon", "user", "pw", "", wpa_block_fault::none,
                kEapHead +
                    "\tanonymous_identity=\"anon\"\n\tidentity=\"user\"\n\tpassword=\"pw\"\n"
                    "\tphase2=\"auth=MSCHAPV2\"\n" +
                    kTail},
        WpaCase{"EapWithBgscanLast", "eap", "ignored", "a", "u", "p", "learn",
                wpa_block_fault::none,
                kEapHead +
                    "\tanonymous_identity=\"a\"\n\tidentity=\"u\"\n\tpassword=\"p\"\n"
                    "\tphase2=\"auth=MSCHAPV2\"\n" +
                    kTail + "\tbgscan=\"learn\"\n"},
        WpaCase{"EmptyAuthAppendsNothing", "", "k", "a", "u", "p", "b",
                wpa_block_fault::missing_auth, ""},
        WpaCase{"PskWithoutKeyKeepsKeyMgmt", "psk", "", "", "", "", "b",
                wpa_block_fault::missing_psk, "\tkey_mgmt=WPA-PSK\n"},
        WpaCase{"EapWithoutIdentKeepsHead", "eap", "", "", "u", "p", "",
                wpa_block_fault::missing_ident, kEapHead},
        WpaCase{"EapWithoutUserKeepsAnonymousIdentity", "eap", "", "a", "", "p", "",
                wpa_block_fault::missing_user, kEapHead + "\tanonymous_identity=\"a\"\n"},
        WpaCase{"EapWithoutPassKeepsIdentity", "eap", "", "a", "u", "", "",
                wpa_block_fault::missing_pass,
                kEapHead + "\tanonymous_identity=\"a\"\n\tidentity=\"u\"\n"},
        WpaCase{"UnknownAuthAppendsNothing", "sae", "k", "", "", "", "",
                wpa_block_fault::unknown_auth, ""},
        WpaCase{"AuthIsCaseSensitive", "PSK", "k", "", "", "", "", wpa_block_fault::unknown_auth,
                ""}),
    [](const ::testing::TestParamInfo<WpaCase>& info) { return std::string(info.param.name); });

// ---- Station file ----------------------------------------------------------

const std::string kHeader =
    "ctrl_interface=/var/run/wpa_supplicant\nupdate_config=1\nwowlan_triggers=any\nnetwork={\n";

TEST(StationFileText, OpenNetwork) {
  EXPECT_EQ(station_file_text("Home", open_security_block()),
            kHeader + "\tssid=\"Home\"\n\tscan_ssid=1\n\tauth_alg=OPEN\n\tkey_mgmt=NONE\n}\n");
}

TEST(StationFileText, SsidWithDoubleQuoteIsNotEscaped) {
  EXPECT_EQ(station_file_text("a\"b", ""), kHeader + "\tssid=\"a\"b\"\n\tscan_ssid=1\n}\n");
}

TEST(StationFileText, PercentSignsAreValuesNotFormats) {
  EXPECT_EQ(station_file_text("100%s", "\tpsk=%d\n"),
            kHeader + "\tssid=\"100%s\"\n\tscan_ssid=1\n\tpsk=%d\n}\n");
}

TEST(StationFileText, EmptySsid) {
  EXPECT_EQ(station_file_text("", ""), kHeader + "\tssid=\"\"\n\tscan_ssid=1\n}\n");
}

TEST(StationFileText, EmbeddedNulEndsTheSsid) {
  EXPECT_EQ(station_file_text(std::string("ab\0cd", 5), ""),
            kHeader + "\tssid=\"ab\"\n\tscan_ssid=1\n}\n");
}

// ---- Setup access point ----------------------------------------------------

TEST(SetupSsid, NameAndHardwareAddressFromIndexEight) {
  EXPECT_EQ(setup_ssid("Front Door", "245A4C0A1B2C"), "Setup Front Door (1B2C)");
}

TEST(SetupSsid, HardwareAddressOfEightCharactersGivesEmptySuffix) {
  EXPECT_EQ(setup_ssid("Cam", "12345678"), "Setup Cam ()");
}

TEST(SetupSsid, HardwareAddressWithColonsIsCutByCharacters) {
  EXPECT_EQ(setup_ssid("Cam", "24:5A:4C:0A:1B:2C"), "Setup Cam (:0A:1B:2C)");
}

TEST(SetupSsid, ShortHardwareAddressThrowsOutOfRange) {
  EXPECT_THROW(setup_ssid("Cam", "1234567"), std::out_of_range);
  EXPECT_THROW(setup_ssid("Cam", ""), std::out_of_range);
}

TEST(HostapdText, OneLinePerSettingInByteOrder) {
  const std::map<std::string, std::string> settings = {
      {"ssid", "Setup A (1B2C)"}, {"channel", "1"},       {"ctrl_interface", "/var/run/hostapd"},
      {"driver", "nl80211"},      {"interface", "wlan0"}, {"hw_mode", "g"},
      {"Zeta", "upper first"}};
  EXPECT_EQ(hostapd_text(settings),
            "Zeta=upper first\nchannel=1\nctrl_interface=/var/run/hostapd\ndriver=nl80211\n"
            "hw_mode=g\ninterface=wlan0\nssid=Setup A (1B2C)\n");
}

TEST(HostapdText, EmptyMapIsEmptyText) {
  EXPECT_EQ(hostapd_text({}), "");
}

TEST(HostapdText, EmptyValueKeepsItsLine) {
  EXPECT_EQ(hostapd_text({{"vendor_elements", ""}}), "vendor_elements=\n");
}

TEST(DnsmasqText, ExactFile) {
  EXPECT_EQ(dnsmasq_text("192.168.1.1", "wlan0"),
            "domain-needed\nbogus-priv\naddress=/#/192.168.1.1\ninterface=wlan0\n"
            "dhcp-range=192.168.1.50,192.168.1.150,12h\n");
}

TEST(DnsmasqText, ValuesAreTakenAsTheyAre) {
  EXPECT_EQ(dnsmasq_text("", "ap0"),
            "domain-needed\nbogus-priv\naddress=/#/\ninterface=ap0\n"
            "dhcp-range=192.168.1.50,192.168.1.150,12h\n");
}

TEST(HostsLine, AddressAliasAndShortName) {
  EXPECT_EQ(hosts_line("192.168.1.20"), "192.168.1.20\tconfig.zem\t\tconfig\n");
}

TEST(HostsAlias, FoundAnywhereInTheText) {
  EXPECT_TRUE(hosts_has_setup_alias("10.0.0.1\tconfig.zem\n"));
  EXPECT_TRUE(hosts_has_setup_alias("# config.zem was here"));
  EXPECT_TRUE(hosts_has_setup_alias("xconfig.zemx"));
  EXPECT_FALSE(hosts_has_setup_alias("127.0.0.1\tlocalhost\n"));
  EXPECT_FALSE(hosts_has_setup_alias("config.ze m"));
  EXPECT_FALSE(hosts_has_setup_alias(""));
}

}  // namespace
}  // namespace qira::network::netm
