// The nl80211 notifications that the event benchmarks and their floor
// receive: one of each kind measured, as the kernel sends it, on the
// loopback interface (present on every machine, so that the payload names
// it).
#ifndef QIRA_BENCH_NOTIFICATIONS_H
#define QIRA_BENCH_NOTIFICATIONS_H

#include <linux/nl80211.h>
#include <net/if.h>

#include <cstdint>
#include <vector>

#include "support/management_frame.h"
#include "support/nl80211_sim.h"

namespace qira::bench {

struct Notification {
  std::uint8_t command;
  const char* name;  // the row of the table, and the payload's "eventName"
  std::vector<qira::test::NlAttribute> attributes;
};

// The commands measured, in the order of the table.
inline constexpr std::uint8_t kMeasuredCommands[] = {NL80211_CMD_NEW_SCAN_RESULTS,
                                                     NL80211_CMD_CONNECT, NL80211_CMD_REG_CHANGE,
                                                     NL80211_CMD_DEAUTHENTICATE};

inline Notification notification_of(std::uint8_t command) {
  using namespace qira::test;
  const std::uint32_t ifindex = if_nametoindex("lo");
  const std::vector<std::uint8_t> station = {0x02, 0x11, 0x22, 0xaa, 0xbb, 0xcc};
  switch (command) {
    case NL80211_CMD_NEW_SCAN_RESULTS:
      return {command,
              "new_scan_results",
              {attr_u32(NL80211_ATTR_WIPHY, 0), attr_u32(NL80211_ATTR_IFINDEX, ifindex),
               attr_u64(NL80211_ATTR_WDEV, 0x1ull)}};
    case NL80211_CMD_CONNECT:
      return {command,
              "connect",
              {attr_u32(NL80211_ATTR_WIPHY, 0), attr_u32(NL80211_ATTR_IFINDEX, ifindex),
               attr_u64(NL80211_ATTR_WDEV, 0x1ull), attr_bytes(NL80211_ATTR_MAC, station),
               attr_u16(NL80211_ATTR_STATUS_CODE, 0),
               attr_bytes(NL80211_ATTR_REQ_IE, std::vector<std::uint8_t>(40, 0xdd)),
               attr_bytes(NL80211_ATTR_RESP_IE, std::vector<std::uint8_t>(60, 0xdd))}};
    case NL80211_CMD_REG_CHANGE:
      return {command,
              "reg_change",
              {attr_u8(NL80211_ATTR_REG_INITIATOR, 1), attr_u8(NL80211_ATTR_REG_TYPE, 0),
               attr_string(NL80211_ATTR_REG_ALPHA2, "DE")}};
    case NL80211_CMD_DEAUTHENTICATE:
    default:
      return {NL80211_CMD_DEAUTHENTICATE,
              "deauthenticate",
              {attr_u32(NL80211_ATTR_WIPHY, 0), attr_u32(NL80211_ATTR_IFINDEX, ifindex),
               attr_bytes(NL80211_ATTR_FRAME, management_frame(0xC0, 26, 24, 3))}};
  }
}

// The simulated socket that joined multicast groups (the event socket), or
// -1.
inline int listening_socket(const qira::test::SimulatedNl80211& kernel) {
  for (const auto& entry : kernel.sockets()) {
    if (!entry.second.memberships.empty()) {
      return entry.first;
    }
  }
  return -1;
}

}  // namespace qira::bench

#endif  // QIRA_BENCH_NOTIFICATIONS_H
