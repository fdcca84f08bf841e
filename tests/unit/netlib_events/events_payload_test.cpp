// What subscribers see for each nl80211 command: the event kind and the
// exact payload, for every command of the mapping table, for unmapped
// commands, and for notifications that lack the attribute they usually carry.
#include <gtest/gtest.h>
#include <net/if.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/management_frame.h"
#include "unit/netlib_events/events_test_util.h"

namespace qira::test::events {
namespace {

using namespace qira::network;
using qira::variant::Variant;

const std::vector<std::uint8_t> kStationMac = {0x02, 0x11, 0x22, 0xaa, 0xbb, 0xcc};

// The common keys of a notification that names no interface.
Variant common(int command, const std::string& name) {
  Variant payload;
  payload["eventId"] = command;
  payload["eventName"] = name;
  payload["ifname"] = "";
  payload["ifindex"] = -1;
  return payload;
}

class Payload : public EventsTest {
 protected:
  void SetUp() override { start(recorder_); }

  // Injects one notification, services once, and returns what the one
  // subscriber saw.
  SeenEvent deliver(std::uint8_t command, std::vector<NlAttribute> attributes = {}) {
    recorder_.events.clear();
    EXPECT_EQ(kernel_.notify(Nl80211Notification{command, std::move(attributes)}), 1);
    EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
    EXPECT_EQ(recorder_.events.size(), 1u);
    return recorder_.events.empty() ? SeenEvent{unspec, Variant(), nullptr}
                                    : recorder_.events.back();
  }

  void expect_event(const SeenEvent& seen, event_type type, const Variant& payload) {
    EXPECT_EQ(seen.type, type);
    EXPECT_EQ(seen.payload, payload) << "seen:     " << seen.payload.ToJSON() << "\n"
                                     << "expected: " << payload.ToJSON();
    EXPECT_EQ(seen.user, &recorder_);
  }

  Recorder recorder_;
};

// ---- common keys ----

TEST_F(Payload, InterfaceIndexGivesItsNameAndNumber) {
  const unsigned int loopback = if_nametoindex("lo");
  ASSERT_NE(loopback, 0u);
  Variant expected = common(NL80211_CMD_TRIGGER_SCAN, "trigger_scan");
  expected["ifname"] = "lo";
  expected["ifindex"] = loopback;
  expect_event(deliver(NL80211_CMD_TRIGGER_SCAN, {attr_u32(NL80211_ATTR_IFINDEX, loopback)}),
               trigger_scan, expected);
}

TEST_F(Payload, AnIndexWithoutAnInterfaceKeepsItsNumberWithAnEmptyName) {
  Variant expected = common(NL80211_CMD_TRIGGER_SCAN, "trigger_scan");
  expected["ifindex"] = 987654u;
  expect_event(deliver(NL80211_CMD_TRIGGER_SCAN, {attr_u32(NL80211_ATTR_IFINDEX, 987654)}),
               trigger_scan, expected);
}

TEST_F(Payload, WiphyAndWdevWhenCarried) {
  Variant expected = common(NL80211_CMD_NEW_SCAN_RESULTS, "new_scan_results");
  expected["wiphy"] = 3u;
  expected["wdev"] = 0x100000002ull;
  expect_event(deliver(NL80211_CMD_NEW_SCAN_RESULTS, {attr_u32(NL80211_ATTR_WIPHY, 3),
                                                      attr_u64(NL80211_ATTR_WDEV, 0x100000002ull)}),
               new_scan_results, expected);
}

TEST_F(Payload, ANotificationWithoutAttributesHasOnlyTheCommonKeys) {
  const SeenEvent seen = deliver(NL80211_CMD_SCAN_ABORTED);
  expect_event(seen, scan_aborted, common(NL80211_CMD_SCAN_ABORTED, "scan_aborted"));
  EXPECT_FALSE(seen.payload.HasKey("wiphy"));
  EXPECT_FALSE(seen.payload.HasKey("wdev"));
}

TEST_F(Payload, ShortAttributesAreTreatedAsAbsent) {
  // An interface index of two bytes and a MAC of four are not read.
  Variant expected = common(NL80211_CMD_CONNECT, "connect");
  expected["status"] = static_cast<unsigned short>(0);
  expected["status_str"] = "connected";
  expect_event(deliver(NL80211_CMD_CONNECT,
                       {attr_u16(NL80211_ATTR_IFINDEX, 1), attr_u16(NL80211_ATTR_STATUS_CODE, 0),
                        attr_bytes(NL80211_ATTR_MAC, {1, 2, 3, 4})}),
               connect, expected);
}

// ---- unmapped commands ----

// The name is a std::string so that the parameter prints as its text: a
// character pointer would print as an address, which would then change the
// test's registered name from build to build.
class Unmapped : public Payload,
                 public ::testing::WithParamInterface<std::pair<int, std::string>> {};

TEST_P(Unmapped, ReachesSubscribersAsUnspecWithItsNumberAndName) {
  const int command = GetParam().first;
  expect_event(deliver(static_cast<std::uint8_t>(command), {attr_u32(NL80211_ATTR_WIPHY, 0)}),
               unspec, [&] {
                 Variant expected = common(command, GetParam().second);
                 expected["wiphy"] = 0u;
                 return expected;
               }());
}

INSTANTIATE_TEST_SUITE_P(
    Commands, Unmapped,
    ::testing::Values(std::make_pair(0, "unspec"), std::make_pair(1, "get_wiphy"),
                      std::make_pair(2, "set_wiphy"), std::make_pair(7, "new_interface"),
                      std::make_pair(8, "del_interface"), std::make_pair(18, "set_station"),
                      std::make_pair(21, "get_mpath"), std::make_pair(30, "unknown"),
                      std::make_pair(32, "get_scan"), std::make_pair(41, "michael_mic_failure"),
                      std::make_pair(47, "roam"), std::make_pair(49, "set_wiphy_netns"),
                      std::make_pair(64, "notify_cqm"), std::make_pair(69, "leave_mesh"),
                      std::make_pair(72, "new_peer_candidate"), std::make_pair(97, "ft_event"),
                      std::make_pair(98, "unknown"), std::make_pair(200, "unknown"),
                      std::make_pair(255, "unknown")),
    [](const ::testing::TestParamInfo<std::pair<int, std::string>>& info) {
      return "Command" + std::to_string(info.param.first);
    });

TEST_F(Payload, NoCommandGivesAReservedKind) {
  for (int command = 0; command <= 255; ++command) {
    const SeenEvent seen = deliver(static_cast<std::uint8_t>(command));
    EXPECT_TRUE(seen.type == 0 || seen.type >= 6) << command;
    EXPECT_EQ(static_cast<long long>(seen.payload["eventId"]), command);
  }
}

// ---- radios and stations ----

TEST_F(Payload, NewAndDelWiphyCarryTheName) {
  Variant expected = common(NL80211_CMD_NEW_WIPHY, "new_wiphy");
  expected["wiphy"] = 0u;
  expected["name"] = "phy0";
  expect_event(deliver(NL80211_CMD_NEW_WIPHY, {attr_u32(NL80211_ATTR_WIPHY, 0),
                                               attr_string(NL80211_ATTR_WIPHY_NAME, "phy0")}),
               new_wiphy, expected);
  expected["eventId"] = NL80211_CMD_DEL_WIPHY;
  expected["eventName"] = "del_wiphy";
  expect_event(deliver(NL80211_CMD_DEL_WIPHY, {attr_u32(NL80211_ATTR_WIPHY, 0),
                                               attr_string(NL80211_ATTR_WIPHY_NAME, "phy0")}),
               del_wiphy, expected);
}

// Without the name attribute the key is still there, empty.
TEST_F(Payload, WiphyWithoutItsNameHasAnEmptyName) {
  Variant expected = common(NL80211_CMD_NEW_WIPHY, "new_wiphy");
  expected["name"] = "";
  expect_event(deliver(NL80211_CMD_NEW_WIPHY), new_wiphy, expected);
  expected["eventId"] = NL80211_CMD_DEL_WIPHY;
  expected["eventName"] = "del_wiphy";
  expect_event(deliver(NL80211_CMD_DEL_WIPHY), del_wiphy, expected);
}

TEST_F(Payload, NewAndDelStationCarryTheStationAddress) {
  Variant expected = common(NL80211_CMD_NEW_STATION, "new_station");
  expected["station"] = "02:11:22:aa:bb:cc";
  expect_event(deliver(NL80211_CMD_NEW_STATION, {attr_bytes(NL80211_ATTR_MAC, kStationMac)}),
               new_station, expected);
  expected["eventId"] = NL80211_CMD_DEL_STATION;
  expected["eventName"] = "del_station";
  expect_event(deliver(NL80211_CMD_DEL_STATION, {attr_bytes(NL80211_ATTR_MAC, kStationMac)}),
               del_station, expected);
}

TEST_F(Payload, StationWithoutItsAddressHasAnEmptyStation) {
  Variant expected = common(NL80211_CMD_NEW_STATION, "new_station");
  expected["station"] = "";
  expect_event(deliver(NL80211_CMD_NEW_STATION), new_station, expected);
  expected["eventId"] = NL80211_CMD_DEL_STATION;
  expected["eventName"] = "del_station";
  expect_event(deliver(NL80211_CMD_DEL_STATION), del_station, expected);
}

// ---- scans ----

TEST_F(Payload, ScanCommandsAddNothing) {
  expect_event(deliver(NL80211_CMD_TRIGGER_SCAN), trigger_scan,
               common(NL80211_CMD_TRIGGER_SCAN, "trigger_scan"));
  expect_event(deliver(NL80211_CMD_NEW_SCAN_RESULTS), new_scan_results,
               common(NL80211_CMD_NEW_SCAN_RESULTS, "new_scan_results"));
  expect_event(deliver(NL80211_CMD_SCAN_ABORTED), scan_aborted,
               common(NL80211_CMD_SCAN_ABORTED, "scan_aborted"));
}

// ---- regulatory changes ----

TEST_F(Payload, CountryRegulatoryChangeNamesTheCountryAndWhoAsked) {
  Variant expected = common(NL80211_CMD_REG_CHANGE, "reg_change");
  expected["regdom_type"] = "country";
  expected["country"] = "DE";
  expected["requestBy"] = "a user";
  expect_event(deliver(NL80211_CMD_REG_CHANGE, {attr_u8(NL80211_ATTR_REG_TYPE, 0),
                                                attr_string(NL80211_ATTR_REG_ALPHA2, "DE"),
                                                attr_u8(NL80211_ATTR_REG_INITIATOR, 1)}),
               reg_change, expected);
}

TEST_F(Payload, OtherRegulatoryTypesHaveNoCountry) {
  const std::vector<std::pair<std::uint8_t, const char*>> types = {{1, "world_roaming"},
                                                                   {2, "custom_world_roaming"},
                                                                   {3, "intersection"},
                                                                   {4, "unknown"},
                                                                   {200, "unknown"}};
  for (const auto& type : types) {
    Variant expected = common(NL80211_CMD_REG_CHANGE, "reg_change");
    expected["regdom_type"] = type.second;
    expected["requestBy"] = "BUG";
    expect_event(deliver(NL80211_CMD_REG_CHANGE, {attr_u8(NL80211_ATTR_REG_TYPE, type.first),
                                                  attr_string(NL80211_ATTR_REG_ALPHA2, "US"),
                                                  attr_u8(NL80211_ATTR_REG_INITIATOR, 9)}),
                 reg_change, expected);
  }
}

TEST_F(Payload, IntersectionWithoutInitiatorHasNoRequestBy) {
  Variant expected = common(NL80211_CMD_REG_CHANGE, "reg_change");
  expected["regdom_type"] = "intersection";
  expect_event(deliver(NL80211_CMD_REG_CHANGE, {attr_u8(NL80211_ATTR_REG_TYPE, 3)}), reg_change,
               expected);
}

// Without the type attribute the change reads as of an unknown type.
TEST_F(Payload, RegulatoryChangeWithoutTypeIsUnknown) {
  Variant expected = common(NL80211_CMD_REG_CHANGE, "reg_change");
  expected["regdom_type"] = "unknown";
  expected["requestBy"] = "the wireless core upon initialization";
  expect_event(deliver(NL80211_CMD_REG_CHANGE, {attr_string(NL80211_ATTR_REG_ALPHA2, "DE"),
                                                attr_u8(NL80211_ATTR_REG_INITIATOR, 0)}),
               reg_change, expected);
}

TEST_F(Payload, CountryChangeWithoutAlpha2HasAnEmptyCountry) {
  Variant expected = common(NL80211_CMD_REG_CHANGE, "reg_change");
  expected["regdom_type"] = "country";
  expected["country"] = "";
  expect_event(deliver(NL80211_CMD_REG_CHANGE, {attr_u8(NL80211_ATTR_REG_TYPE, 0)}), reg_change,
               expected);
}

// ---- authentication and association results ----

class AssociationResult
    : public Payload,
      public ::testing::WithParamInterface<std::pair<std::uint8_t, event_type>> {
 protected:
  Variant base() {
    const std::uint8_t command = GetParam().first;
    return common(command, command_name(static_cast<nl80211_commands>(command)));
  }
};

TEST_P(AssociationResult, AFrameGivesItsAddressesAndStatus) {
  Variant expected = base();
  expected["from"] = "02:00:00:00:00:02";
  expected["to"] = "02:00:00:00:00:01";
  expected["status"] = static_cast<unsigned short>(0);
  expected["status_str"] = "Successful";
  const std::vector<std::uint8_t> frame = GetParam().second == authenticate
                                              ? management_frame(0xB0, 30, 28, 0)
                                              : management_frame(0x10, 40, 26, 0);
  expect_event(deliver(GetParam().first, {attr_bytes(NL80211_ATTR_FRAME, frame)}),
               GetParam().second, expected);
}

TEST_P(AssociationResult, ADeauthenticationFrameGivesAReason) {
  Variant expected = base();
  expected["status"] = -1;
  expected["status_str"] = "";
  expected["from"] = "02:00:00:00:00:02";
  expected["to"] = "02:00:00:00:00:01";
  expected["reason"] = static_cast<unsigned short>(2);
  expected["reason_str"] = "Previous authentication no longer valid";
  expect_event(deliver(GetParam().first,
                       {attr_bytes(NL80211_ATTR_FRAME, management_frame(0xC0, 26, 24, 2))}),
               GetParam().second, expected);
}

TEST_P(AssociationResult, ATooShortFrameIsInvalid) {
  Variant expected = base();
  expected["status"] = -1;
  expected["status_str"] = "";
  expected["frame"] = "invalid";
  expect_event(deliver(GetParam().first, {attr_bytes(NL80211_ATTR_FRAME, {0xB0, 0, 0})}),
               GetParam().second, expected);
}

TEST_P(AssociationResult, TimedOutWithoutAFrame) {
  Variant expected = base();
  expected["status"] = -1;
  expected["status_str"] = "timeout";
  expect_event(deliver(GetParam().first, {attr_flag(NL80211_ATTR_TIMED_OUT)}), GetParam().second,
               expected);
}

TEST_P(AssociationResult, NeitherFrameNorTimeoutIsUnknown) {
  Variant expected = base();
  expected["status"] = -1;
  expected["status_str"] = "unknown";
  expect_event(deliver(GetParam().first), GetParam().second, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, AssociationResult,
    ::testing::Values(std::make_pair(std::uint8_t{NL80211_CMD_AUTHENTICATE}, authenticate),
                      std::make_pair(std::uint8_t{NL80211_CMD_ASSOCIATE}, associate)),
    [](const auto& info) {
      return std::string(info.param.second == authenticate ? "Authenticate" : "Associate");
    });

// ---- frames of deauthentication and disassociation ----

class FrameEvent : public Payload,
                   public ::testing::WithParamInterface<std::pair<std::uint8_t, event_type>> {};

TEST_P(FrameEvent, TheFrameGivesAddressesAndReason) {
  const std::uint8_t command = GetParam().first;
  Variant expected = common(command, command_name(static_cast<nl80211_commands>(command)));
  expected["from"] = "02:00:00:00:00:02";
  expected["to"] = "02:00:00:00:00:01";
  expected["reason"] = static_cast<unsigned short>(4);
  expected["reason_str"] = "Disassociated due to inactivity";
  expect_event(
      deliver(command, {attr_bytes(NL80211_ATTR_FRAME, management_frame(0xA0, 26, 24, 4))}),
      GetParam().second, expected);
}

TEST_P(FrameEvent, WithoutAFrameItIsNone) {
  const std::uint8_t command = GetParam().first;
  Variant expected = common(command, command_name(static_cast<nl80211_commands>(command)));
  expected["frame"] = "none";
  expect_event(deliver(command), GetParam().second, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, FrameEvent,
    ::testing::Values(
        std::make_pair(std::uint8_t{NL80211_CMD_DEAUTHENTICATE}, deauthenticate),
        std::make_pair(std::uint8_t{NL80211_CMD_DISASSOCIATE}, disassociate),
        std::make_pair(std::uint8_t{NL80211_CMD_UNPROT_DEAUTHENTICATE}, unprot_deauthenticate),
        std::make_pair(std::uint8_t{NL80211_CMD_UNPROT_DISASSOCIATE}, unprot_disassociate)),
    [](const auto& info) { return "Command" + std::to_string(info.param.first); });

// ---- connect and disconnect ----

TEST_F(Payload, ConnectWithStatusZeroIsConnected) {
  Variant expected = common(NL80211_CMD_CONNECT, "connect");
  expected["status"] = static_cast<unsigned short>(0);
  expected["status_str"] = "connected";
  expected["mac"] = "02:11:22:aa:bb:cc";
  expect_event(deliver(NL80211_CMD_CONNECT, {attr_u16(NL80211_ATTR_STATUS_CODE, 0),
                                             attr_bytes(NL80211_ATTR_MAC, kStationMac)}),
               connect, expected);
}

TEST_F(Payload, ConnectWithAFailureStatusGivesItsText) {
  Variant expected = common(NL80211_CMD_CONNECT, "connect");
  expected["status"] = static_cast<unsigned short>(17);
  expected["status_str"] =
      "Association denied because AP is unable to handle additional associated STA";
  expect_event(deliver(NL80211_CMD_CONNECT, {attr_u16(NL80211_ATTR_STATUS_CODE, 17)}), connect,
               expected);
}

TEST_F(Payload, ConnectWithoutStatusIsUnknown) {
  Variant expected = common(NL80211_CMD_CONNECT, "connect");
  expected["status"] = -1;
  expected["status_str"] = "unknown";
  expected["mac"] = "02:11:22:aa:bb:cc";
  expect_event(deliver(NL80211_CMD_CONNECT, {attr_bytes(NL80211_ATTR_MAC, kStationMac)}), connect,
               expected);
}

TEST_F(Payload, DisconnectByTheApWithAReasonText) {
  Variant expected = common(NL80211_CMD_DISCONNECT, "disconnect");
  expected["by"] = "AP";
  expected["reason"] = "Disassociated because sending station is leaving (or has left) the BSS";
  expect_event(deliver(NL80211_CMD_DISCONNECT, {attr_flag(NL80211_ATTR_DISCONNECTED_BY_AP),
                                                attr_u16(NL80211_ATTR_REASON_CODE, 8)}),
               disconnect, expected);
}

TEST_F(Payload, LocalDisconnectWithoutReasonHasNoReason) {
  Variant expected = common(NL80211_CMD_DISCONNECT, "disconnect");
  expected["by"] = "Local request";
  expect_event(deliver(NL80211_CMD_DISCONNECT), disconnect, expected);
}

TEST_F(Payload, ThePayloadIsClearedBetweenEvents) {
  deliver(NL80211_CMD_CONNECT,
          {attr_u16(NL80211_ATTR_STATUS_CODE, 0), attr_bytes(NL80211_ATTR_MAC, kStationMac)});
  expect_event(deliver(NL80211_CMD_TRIGGER_SCAN), trigger_scan,
               common(NL80211_CMD_TRIGGER_SCAN, "trigger_scan"));
}

}  // namespace
}  // namespace qira::test::events
