// Scan result messages as the kernel sends them in a scan dump
// (NL80211_CMD_NEW_SCAN_RESULTS with one NL80211_ATTR_BSS nest), built with
// libnl, and the information element bytes they carry.
#ifndef QIRA_TESTS_SUPPORT_BSS_MESSAGE_H
#define QIRA_TESTS_SUPPORT_BSS_MESSAGE_H

#include <netlink/msg.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qira::test {

using Bytes = std::vector<std::uint8_t>;

// The nested attributes of one BSS; absent ones are not put.
struct BssAttributes {
  std::optional<std::array<std::uint8_t, 6>> bssid;
  std::optional<std::uint32_t> frequency;
  std::optional<std::uint16_t> capability;
  std::optional<std::int32_t> signal_mbm;
  std::optional<std::uint8_t> signal_unspecified;
  std::optional<Bytes> ies;
  std::optional<Bytes> beacon_ies;
  // Further nested attributes, put after the ones above: type and payload.
  std::vector<std::pair<int, Bytes>> extra;
};

struct MessageRelease {
  void operator()(nl_msg* msg) const { nlmsg_free(msg); }
};
using MessagePtr = std::unique_ptr<nl_msg, MessageRelease>;

// A scan result message with the interface index and the BSS nest.
MessagePtr make_scan_result_message(const BssAttributes& bss, std::uint32_t ifindex = 3);
// A scan result message whose attributes hold no NL80211_ATTR_BSS.
MessagePtr make_message_without_bss(std::uint32_t ifindex = 3);

// One information element: id, length, data.
Bytes element(std::uint8_t id, const Bytes& data);
// The SSID element of `ssid`'s bytes.
Bytes ssid_element(const std::string& ssid);
// The concatenation of the blocks.
Bytes join(std::initializer_list<Bytes> blocks);

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_BSS_MESSAGE_H
