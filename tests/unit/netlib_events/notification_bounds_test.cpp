// Attributes shorter than the value they should hold: the notification
// decoder takes them as absent instead of reading past their end. This is
// stricter than taking every attribute the kernel names as present (the
// kernel never sends a short one, but a netlink reader accepts it): each case
// below ends its message with the short attribute, in an allocation of
// exactly the message's length, so that a read past the attribute leaves the
// allocation where it can (an AddressSanitizer build reports it) and, in
// every build, would put a value read from beyond the attribute into the
// payload.
#include <gtest/gtest.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/nl80211.h>
#include <netlink/msg.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "netlib_events/notification.h"
#include "qira/network/event_text.h"

namespace qira::test::events {
namespace {

using qira::network::event_type;
using qira::network::events::decode_notification;
using qira::variant::Variant;

struct message_release {
  void operator()(nl_msg* msg) const { nlmsg_free(msg); }
};

// A notification of `command` whose last (and only) attribute is `type` with
// `payload_length` bytes of 0xAB. libnl copies it into a buffer of the
// message's length rounded up to 4 bytes, which is where nothing follows.
std::unique_ptr<nl_msg, message_release> notification(std::uint8_t command, std::uint16_t type,
                                                      std::size_t payload_length) {
  const std::size_t length = NLMSG_HDRLEN + GENL_HDRLEN + NLA_HDRLEN + payload_length;
  std::vector<std::uint8_t> bytes(length, 0xAB);
  nlmsghdr header{};
  header.nlmsg_len = static_cast<std::uint32_t>(length);
  header.nlmsg_type = 0x1C;
  std::memcpy(bytes.data(), &header, sizeof header);
  genlmsghdr generic{};
  generic.cmd = command;
  generic.version = 1;
  std::memcpy(bytes.data() + NLMSG_HDRLEN, &generic, sizeof generic);
  nlattr attribute{};
  attribute.nla_len = static_cast<std::uint16_t>(NLA_HDRLEN + payload_length);
  attribute.nla_type = type;
  std::memcpy(bytes.data() + NLMSG_HDRLEN + GENL_HDRLEN, &attribute, sizeof attribute);
  return std::unique_ptr<nl_msg, message_release>(
      nlmsg_convert(reinterpret_cast<nlmsghdr*>(bytes.data())));
}

Variant decode(std::uint8_t command, std::uint16_t type, std::size_t payload_length,
               event_type& kind) {
  const auto msg = notification(command, type, payload_length);
  Variant payload;
  if (msg == nullptr) {
    ADD_FAILURE() << "nlmsg_convert failed";
    return payload;
  }
  kind = decode_notification(msg.get(), payload);
  return payload;
}

Variant common_keys(int command, const char* name) {
  Variant payload;
  payload["eventId"] = command;
  payload["eventName"] = name;
  payload["ifname"] = "";
  payload["ifindex"] = -1;
  return payload;
}

TEST(NotificationBounds, WdevOfFourBytesIsAbsent) {
  // 8 bytes expected; the message (28 bytes) ends 4 bytes into the read.
  event_type kind = event_type::unspec;
  const Variant payload = decode(NL80211_CMD_TRIGGER_SCAN, NL80211_ATTR_WDEV, 4, kind);
  EXPECT_EQ(kind, event_type::trigger_scan);
  EXPECT_EQ(payload, common_keys(NL80211_CMD_TRIGGER_SCAN, "trigger_scan")) << payload.ToJSON();
}

TEST(NotificationBounds, IfindexAndWiphyOfTwoBytesAreAbsent) {
  for (const std::uint16_t type : {NL80211_ATTR_IFINDEX, NL80211_ATTR_WIPHY}) {
    SCOPED_TRACE(type);
    event_type kind = event_type::unspec;
    const Variant payload = decode(NL80211_CMD_NEW_SCAN_RESULTS, type, 2, kind);
    EXPECT_EQ(kind, event_type::new_scan_results);
    EXPECT_EQ(payload, common_keys(NL80211_CMD_NEW_SCAN_RESULTS, "new_scan_results"))
        << payload.ToJSON();
  }
}

TEST(NotificationBounds, StationAddressOfFourBytesIsEmpty) {
  // 6 bytes expected; the message (28 bytes) ends 2 bytes into the read.
  event_type kind = event_type::unspec;
  const Variant payload = decode(NL80211_CMD_NEW_STATION, NL80211_ATTR_MAC, 4, kind);
  EXPECT_EQ(kind, event_type::new_station);
  Variant expected = common_keys(NL80211_CMD_NEW_STATION, "new_station");
  expected["station"] = "";
  EXPECT_EQ(payload, expected) << payload.ToJSON();
}

TEST(NotificationBounds, ConnectAddressOfFourBytesIsLeftOut) {
  event_type kind = event_type::unspec;
  const Variant payload = decode(NL80211_CMD_CONNECT, NL80211_ATTR_MAC, 4, kind);
  EXPECT_EQ(kind, event_type::connect);
  Variant expected = common_keys(NL80211_CMD_CONNECT, "connect");
  expected["status"] = -1;
  expected["status_str"] = "unknown";
  EXPECT_EQ(payload, expected) << payload.ToJSON();
}

TEST(NotificationBounds, StatusCodeOfOneByteIsAbsent) {
  event_type kind = event_type::unspec;
  const Variant payload = decode(NL80211_CMD_CONNECT, NL80211_ATTR_STATUS_CODE, 1, kind);
  Variant expected = common_keys(NL80211_CMD_CONNECT, "connect");
  expected["status"] = -1;
  expected["status_str"] = "unknown";
  EXPECT_EQ(payload, expected) << payload.ToJSON();
}

TEST(NotificationBounds, ReasonCodeOfOneByteIsAbsent) {
  event_type kind = event_type::unspec;
  const Variant payload = decode(NL80211_CMD_DISCONNECT, NL80211_ATTR_REASON_CODE, 1, kind);
  EXPECT_EQ(kind, event_type::disconnect);
  Variant expected = common_keys(NL80211_CMD_DISCONNECT, "disconnect");
  expected["by"] = "Local request";
  EXPECT_EQ(payload, expected) << payload.ToJSON();
}

TEST(NotificationBounds, EmptyRegulatoryTypeReadsAsUnknown) {
  // 1 byte expected; the message (24 bytes) ends where the read begins.
  event_type kind = event_type::unspec;
  const Variant payload = decode(NL80211_CMD_REG_CHANGE, NL80211_ATTR_REG_TYPE, 0, kind);
  EXPECT_EQ(kind, event_type::reg_change);
  Variant expected = common_keys(NL80211_CMD_REG_CHANGE, "reg_change");
  expected["regdom_type"] = "unknown";
  EXPECT_EQ(payload, expected) << payload.ToJSON();
}

}  // namespace
}  // namespace qira::test::events
