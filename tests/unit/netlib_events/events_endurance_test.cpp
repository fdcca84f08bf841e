// A long run of the event module: 100,000 notifications of several kinds
// through the simulated nl80211 kernel, each serviced and delivered with its
// exact payload, and the heap and the descriptors as they were after the
// warm-up.
#include <gtest/gtest.h>
#include <net/if.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "support/endurance_check.h"
#include "unit/netlib_events/events_test_util.h"

namespace qira::test::events {
namespace {

using namespace qira::network;
using qira::variant::Variant;

constexpr int kWarmUp = 1000;
constexpr int kNotifications = 100000;

// One notification to send and what the subscriber must then see.
struct Case {
  Nl80211Notification notification;
  std::uint32_t group;
  event_type type;
  Variant payload;
};

Variant common(int command, const std::string& name, unsigned int ifindex) {
  Variant payload;
  payload["eventId"] = command;
  payload["eventName"] = name;
  payload["ifname"] = "lo";
  payload["ifindex"] = ifindex;
  return payload;
}

std::vector<Case> cases(unsigned int ifindex) {
  const std::vector<std::uint8_t> station = {0x02, 0x11, 0x22, 0xaa, 0xbb, 0xcc};
  const NlAttribute on_lo = attr_u32(NL80211_ATTR_IFINDEX, ifindex);
  std::vector<Case> list;

  list.push_back({{NL80211_CMD_TRIGGER_SCAN, {on_lo}},
                  SimulatedNl80211::kScanGroup,
                  trigger_scan,
                  common(NL80211_CMD_TRIGGER_SCAN, "trigger_scan", ifindex)});

  Variant results = common(NL80211_CMD_NEW_SCAN_RESULTS, "new_scan_results", ifindex);
  results["wiphy"] = 3u;
  list.push_back({{NL80211_CMD_NEW_SCAN_RESULTS, {on_lo, attr_u32(NL80211_ATTR_WIPHY, 3)}},
                  SimulatedNl80211::kScanGroup,
                  new_scan_results,
                  results});

  Variant connected = common(NL80211_CMD_CONNECT, "connect", ifindex);
  connected["status"] = static_cast<unsigned short>(0);
  connected["status_str"] = "connected";
  connected["mac"] = "02:11:22:aa:bb:cc";
  list.push_back(
      {{NL80211_CMD_CONNECT,
        {on_lo, attr_u16(NL80211_ATTR_STATUS_CODE, 0), attr_bytes(NL80211_ATTR_MAC, station)}},
       SimulatedNl80211::kMlmeGroup,
       connect,
       connected});

  Variant disconnected = common(NL80211_CMD_DISCONNECT, "disconnect", ifindex);
  disconnected["by"] = "AP";
  disconnected["reason"] = "Disassociated because sending station is leaving (or has left) the BSS";
  list.push_back(
      {{NL80211_CMD_DISCONNECT,
        {on_lo, attr_flag(NL80211_ATTR_DISCONNECTED_BY_AP), attr_u16(NL80211_ATTR_REASON_CODE, 8)}},
       SimulatedNl80211::kMlmeGroup,
       disconnect,
       disconnected});

  Variant new_sta = common(NL80211_CMD_NEW_STATION, "new_station", ifindex);
  new_sta["station"] = "02:11:22:aa:bb:cc";
  list.push_back({{NL80211_CMD_NEW_STATION, {on_lo, attr_bytes(NL80211_ATTR_MAC, station)}},
                  SimulatedNl80211::kMlmeGroup,
                  new_station,
                  new_sta});

  Variant regulatory;
  regulatory["eventId"] = NL80211_CMD_REG_CHANGE;
  regulatory["eventName"] = "reg_change";
  regulatory["ifname"] = "";
  regulatory["ifindex"] = -1;
  regulatory["regdom_type"] = "country";
  regulatory["country"] = "DE";
  regulatory["requestBy"] = "a user";
  list.push_back({{NL80211_CMD_REG_CHANGE,
                   {attr_u8(NL80211_ATTR_REG_TYPE, 0), attr_string(NL80211_ATTR_REG_ALPHA2, "DE"),
                    attr_u8(NL80211_ATTR_REG_INITIATOR, 1)}},
                  SimulatedNl80211::kRegulatoryGroup,
                  reg_change,
                  regulatory});
  return list;
}

// Compares each delivery with the case just sent, keeping nothing but
// counts and the first difference.
struct Checker {
  const Case* expected = nullptr;
  long calls = 0;
  long mismatches = 0;
  std::string first_mismatch;

  static void callback(event_type type, const Variant& payload, void* user) {
    Checker* checker = static_cast<Checker*>(user);
    ++checker->calls;
    if (type != checker->expected->type || !(payload == checker->expected->payload)) {
      if (checker->mismatches++ == 0) {
        checker->first_mismatch = std::to_string(static_cast<int>(type)) + " " + payload.ToJSON() +
                                  ", expected " +
                                  std::to_string(static_cast<int>(checker->expected->type)) + " " +
                                  checker->expected->payload.ToJSON();
      }
    }
  }
};

class EventsEndurance : public EventsTest {};

TEST_F(EventsEndurance, HundredThousandNotificationsKeepHeapAndDescriptorsFlat) {
  const unsigned int ifindex = if_nametoindex("lo");
  ASSERT_NE(ifindex, 0u);
  const std::vector<Case> table = cases(ifindex);
  Checker checker;
  ASSERT_TRUE(init());
  unsigned int id = 0;
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), Checker::callback, id, &checker));
  ASSERT_TRUE(netlib_libevents_wireless_service(ctx()));  // joins the groups

  long sent = 0;
  long failed_notifies = 0;
  long failed_services = 0;
  long missed = 0;
  auto run = [&](int count) {
    for (int i = 0; i < count; ++i) {
      const Case& next = table[static_cast<std::size_t>(sent) % table.size()];
      checker.expected = &next;
      const long before = checker.calls;
      if (kernel_.notify(next.notification, next.group) != 1) {
        ++failed_notifies;
      }
      if (!netlib_libevents_wireless_service(ctx())) {
        ++failed_services;
      }
      if (checker.calls != before + 1) {
        ++missed;
      }
      ++sent;
    }
  };

  run(kWarmUp);
  const ResourceCounts warm = resource_counts();
  const auto start = std::chrono::steady_clock::now();
  run(kNotifications);
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const ResourceCounts end = resource_counts();

  EXPECT_EQ(sent, kWarmUp + kNotifications);
  EXPECT_EQ(failed_notifies, 0);
  EXPECT_EQ(failed_services, 0);
  EXPECT_EQ(missed, 0);
  EXPECT_EQ(checker.calls, kWarmUp + kNotifications);
  EXPECT_EQ(checker.mismatches, 0) << checker.first_mismatch;
  expect_flat_resources("100000 notifications", warm, end, seconds);
}

}  // namespace
}  // namespace qira::test::events
