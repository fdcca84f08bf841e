// The pure side of event translation: one test per edge of the line format,
// the names that translate, and the payload of each kind.
#include "wpa_client/event_line.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "unit/wpa_client/wpa_test_util.h"

namespace qira::test::wpa {
namespace {

using namespace qira::network;
using qira::network::wpa::build_event_payload;
using qira::network::wpa::event_line;
using qira::network::wpa::parse_event_line;
using qira::network::wpa::translate_event_name;
using qira::network::wpa::translated_event_name;

void expect_line(const std::string& message, const std::string& name, const std::string& args) {
  const std::optional<event_line> line = parse_event_line(message);
  ASSERT_TRUE(line.has_value()) << message;
  EXPECT_EQ(line->name, name) << message;
  EXPECT_EQ(line->args, args) << message;
}

TEST(ParseEventLine, NameAndArguments) {
  expect_line("<3>CTRL-EVENT-CONNECTED - Connection to 00:11:22:33:44:55 completed",
              "CTRL-EVENT-CONNECTED", "- Connection to 00:11:22:33:44:55 completed");
}

TEST(ParseEventLine, NoSpaceMakesTheWholeMessageTheArguments) {
  expect_line("<3>CTRL-EVENT-SCAN-FAILED", "CTRL-EVENT-SCAN-FAILED", "<3>CTRL-EVENT-SCAN-FAILED");
}

TEST(ParseEventLine, TrailingSpaceOnlyGivesEmptyArguments) {
  expect_line("<3>CTRL-EVENT-TERMINATING ", "CTRL-EVENT-TERMINATING", "");
}

TEST(ParseEventLine, TrailingWhiteSpaceIsTrimmedFromTheName) {
  expect_line("<2>CTRL-EVENT-SCAN-FAILED\t\r\n", "CTRL-EVENT-SCAN-FAILED",
              "<2>CTRL-EVENT-SCAN-FAILED\t\r\n");
}

TEST(ParseEventLine, SpaceBeforeThePriorityEndKeepsTheRestAsName) {
  expect_line("x <3>CTRL-EVENT-CONNECTED y", "CTRL-EVENT-CONNECTED y", "<3>CTRL-EVENT-CONNECTED y");
}

TEST(ParseEventLine, OnlyTheFirstSpaceSeparates) {
  expect_line("<4>NAME  a=1  b=2", "NAME", " a=1  b=2");
}

TEST(ParseEventLine, PriorityPrefixAloneIsInvalid) {
  EXPECT_FALSE(parse_event_line("<3>").has_value());
}

TEST(ParseEventLine, MissingPriorityEndIsInvalid) {
  EXPECT_FALSE(parse_event_line("CTRL-EVENT-CONNECTED - x").has_value());
  EXPECT_FALSE(parse_event_line("").has_value());
}

TEST(ParseEventLine, OnlyTheFirstPriorityEndCounts) {
  expect_line("<3>>X", ">X", "<3>>X");
}

TEST(TranslateEventName, KnownNames) {
  EXPECT_EQ(translate_event_name("CTRL-EVENT-CONNECTED"), connected_to_ap);
  EXPECT_EQ(translate_event_name("CTRL-EVENT-DISCONNECTED"), disconnected_from_ap);
  EXPECT_EQ(translate_event_name("CTRL-EVENT-SCAN-FAILED"), scan_failed);
  EXPECT_EQ(translate_event_name("CTRL-EVENT-NETWORK-NOT-FOUND"), network_not_found);
  EXPECT_EQ(translate_event_name("CTRL-EVENT-SSID-TEMP-DISABLED"), ssid_temp_disabled);
  EXPECT_EQ(static_cast<int>(*translate_event_name("CTRL-EVENT-CONNECTED")), 25);
  EXPECT_EQ(static_cast<int>(*translate_event_name("CTRL-EVENT-DISCONNECTED")), 26);
  EXPECT_EQ(static_cast<int>(*translate_event_name("CTRL-EVENT-SCAN-FAILED")), 11);
  EXPECT_EQ(static_cast<int>(*translate_event_name("CTRL-EVENT-NETWORK-NOT-FOUND")), 13);
  EXPECT_EQ(static_cast<int>(*translate_event_name("CTRL-EVENT-SSID-TEMP-DISABLED")), 14);
}

TEST(TranslateEventName, OtherNamesAreIgnored) {
  EXPECT_FALSE(translate_event_name("CTRL-EVENT-TERMINATING").has_value());
  EXPECT_FALSE(translate_event_name("ctrl-event-connected").has_value());
  EXPECT_FALSE(translate_event_name("CTRL-EVENT-CONNECTED ").has_value());
  EXPECT_FALSE(translate_event_name("CTRL-EVENT-SCAN-STARTED").has_value());
  EXPECT_FALSE(translate_event_name("").has_value());
}

TEST(TranslatedEventName, NamesOfTheProducedKinds) {
  EXPECT_EQ(translated_event_name(connected_to_ap), "connected_to_ap");
  EXPECT_EQ(translated_event_name(disconnected_from_ap), "disconnected_from_ap");
  EXPECT_EQ(translated_event_name(scan_failed), "scan_failed");
  EXPECT_EQ(translated_event_name(network_not_found), "network_not_found");
  EXPECT_EQ(translated_event_name(ssid_temp_disabled), "ssid_temp_disabled");
  EXPECT_EQ(translated_event_name(trigger_scan), "");
}

TEST(BuildEventPayload, SimpleKindsCarryInterfaceAndName) {
  EXPECT_EQ(build_event_payload(connected_to_ap, "wlan0", "- Connection to x completed"),
            string_map({{"ifname", "wlan0"}, {"eventName", "connected_to_ap"}}));
  EXPECT_EQ(build_event_payload(disconnected_from_ap, "wlan0", "bssid=x reason=3"),
            string_map({{"ifname", "wlan0"}, {"eventName", "disconnected_from_ap"}}));
  EXPECT_EQ(build_event_payload(scan_failed, "wlan1", "<3>CTRL-EVENT-SCAN-FAILED"),
            string_map({{"ifname", "wlan1"}, {"eventName", "scan_failed"}}));
  EXPECT_EQ(build_event_payload(network_not_found, "", ""),
            string_map({{"ifname", ""}, {"eventName", "network_not_found"}}));
}

TEST(BuildEventPayload, SsidTempDisabledCarriesEveryPairAsText) {
  const qira::variant::Variant payload =
      build_event_payload(ssid_temp_disabled, "wlan0",
                          "id=0 ssid=\"cam\" auth_failures=2 duration=20 reason=WRONG_KEY");
  EXPECT_EQ(payload, string_map({{"ifname", "wlan0"},
                                 {"eventName", "ssid_temp_disabled"},
                                 {"id", "0"},
                                 {"ssid", "cam"},
                                 {"auth_failures", "2"},
                                 {"duration", "20"},
                                 {"reason", "WRONG_KEY"}}));
  EXPECT_EQ(payload["auth_failures"].Type(), qira::variant::V_STRING);
}

// "ssid=\"my" is the pair left of the first space; its first and last
// characters go as quotes, leaving "m". "cam\"" has no "=" and is skipped.
TEST(BuildEventPayload, SsidWithSpacesIsCutAtTheFirstSpace) {
  const qira::variant::Variant payload =
      build_event_payload(ssid_temp_disabled, "wlan0", "id=1 ssid=\"my cam\" reason=WRONG_KEY");
  EXPECT_EQ(payload, string_map({{"ifname", "wlan0"},
                                 {"eventName", "ssid_temp_disabled"},
                                 {"id", "1"},
                                 {"ssid", "m"},
                                 {"reason", "WRONG_KEY"}}));
}

TEST(BuildEventPayload, ShortSsidsLoseWhatTheyHave) {
  EXPECT_EQ(static_cast<const std::string&>(
                build_event_payload(ssid_temp_disabled, "w", "ssid=\"")["ssid"]),
            "");
  EXPECT_EQ(static_cast<const std::string&>(
                build_event_payload(ssid_temp_disabled, "w", "ssid=ab")["ssid"]),
            "");
  EXPECT_EQ(static_cast<const std::string&>(
                build_event_payload(ssid_temp_disabled, "w", "ssid=abc")["ssid"]),
            "b");
  EXPECT_EQ(static_cast<const std::string&>(
                build_event_payload(ssid_temp_disabled, "w", "ssid=")["ssid"]),
            "");
}

TEST(BuildEventPayload, PairsWithoutEqualsAreSkippedAndEventNameWins) {
  EXPECT_EQ(build_event_payload(ssid_temp_disabled, "wlan0", "junk eventName=x ifname=y"),
            string_map({{"ifname", "y"}, {"eventName", "ssid_temp_disabled"}}));
}

TEST(BuildEventPayload, NoSsidLeavesNoSsid) {
  EXPECT_EQ(build_event_payload(ssid_temp_disabled, "wlan0", "id=0"),
            string_map({{"ifname", "wlan0"}, {"eventName", "ssid_temp_disabled"}, {"id", "0"}}));
}

}  // namespace
}  // namespace qira::test::wpa
