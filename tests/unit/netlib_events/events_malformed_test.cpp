// Notifications no kernel sends but a netlink reader accepts: the module
// decodes them without reading past the message, and keeps servicing.
#include <gtest/gtest.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "unit/netlib_events/events_test_util.h"

namespace qira::test::events {
namespace {

using namespace qira::network;
using qira::variant::Variant;

class Malformed : public EventsTest {
 protected:
  void SetUp() override { start(recorder_); }

  // The descriptor of the module's event socket (the one that joined groups).
  int event_socket() const {
    for (const auto& [fd, socket] : kernel_.sockets()) {
      if (!socket.memberships.empty()) {
        return fd;
      }
    }
    return -1;
  }

  // A notification of nl80211 whose message ends after `header_bytes` bytes
  // of its generic header (command CONNECT, version 1).
  std::vector<std::uint8_t> cut_notification(std::size_t header_bytes) const {
    nlmsghdr header{};
    header.nlmsg_len = static_cast<std::uint32_t>(NLMSG_HDRLEN + header_bytes);
    header.nlmsg_type = SimulatedNl80211::kDefaultNl80211Id;
    genlmsghdr generic{};
    generic.cmd = NL80211_CMD_CONNECT;
    generic.version = 1;
    std::vector<std::uint8_t> datagram(NLMSG_ALIGN(header.nlmsg_len), 0);
    std::memcpy(datagram.data(), &header, sizeof header);
    std::memcpy(datagram.data() + NLMSG_HDRLEN, &generic, header_bytes);
    return datagram;
  }

  Recorder recorder_;
};

Variant command_zero() {
  Variant payload;
  payload["eventId"] = 0;
  payload["eventName"] = "unspec";
  payload["ifname"] = "";
  payload["ifindex"] = -1;
  return payload;
}

void expect_command_zero(const Recorder& recorder) {
  ASSERT_EQ(recorder.events.size(), 1u);
  EXPECT_EQ(recorder.events[0].type, unspec);
  EXPECT_EQ(recorder.events[0].payload, command_zero()) << recorder.events[0].payload.ToJSON();
}

TEST_F(Malformed, NotificationWithoutGenericHeaderHasNoCommand) {
  // A whole notification first, so that the bytes just past the cut one in
  // a reused receive buffer hold a command that must not be read.
  ASSERT_TRUE(kernel_.send_raw(event_socket(), cut_notification(GENL_HDRLEN)));
  ASSERT_TRUE(netlib_libevents_wireless_service(ctx()));
  recorder_.events.clear();
  qira::host::LogCapture log;
  ASSERT_TRUE(kernel_.send_raw(event_socket(), cut_notification(0)));
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  expect_command_zero(recorder_);
  EXPECT_TRUE(log.records().empty()) << ::testing::PrintToString(log.messages());
}

TEST_F(Malformed, NotificationEndingAfterItsCommandByteHasNoCommand) {
  ASSERT_TRUE(kernel_.send_raw(event_socket(), cut_notification(1)));
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  expect_command_zero(recorder_);
}

TEST_F(Malformed, NotificationEndingOneByteShortOfItsGenericHeaderHasNoCommand) {
  ASSERT_TRUE(kernel_.send_raw(event_socket(), cut_notification(GENL_HDRLEN - 1)));
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  expect_command_zero(recorder_);
}

TEST_F(Malformed, WholeHeaderWithoutAttributesKeepsItsCommand) {
  ASSERT_TRUE(kernel_.send_raw(event_socket(), cut_notification(GENL_HDRLEN)));
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  ASSERT_EQ(recorder_.events.size(), 1u);
  EXPECT_EQ(recorder_.events[0].type, connect);
  Variant expected;
  expected["eventId"] = static_cast<int>(NL80211_CMD_CONNECT);
  expected["eventName"] = "connect";
  expected["ifname"] = "";
  expected["ifindex"] = -1;
  expected["status"] = -1;
  expected["status_str"] = "unknown";
  EXPECT_EQ(recorder_.events[0].payload, expected) << recorder_.events[0].payload.ToJSON();
}

TEST_F(Malformed, ServicingGoesOnAfterACutNotification) {
  ASSERT_TRUE(kernel_.send_raw(event_socket(), cut_notification(0)));
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  recorder_.events.clear();
  ASSERT_EQ(kernel_.notify(Nl80211Notification{NL80211_CMD_DISCONNECT,
                                               {attr_u16(NL80211_ATTR_REASON_CODE, 3)}}),
            1);
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  ASSERT_EQ(recorder_.events.size(), 1u);
  EXPECT_EQ(recorder_.events[0].type, disconnect);
  Variant expected;
  expected["eventId"] = static_cast<int>(NL80211_CMD_DISCONNECT);
  expected["eventName"] = "disconnect";
  expected["ifname"] = "";
  expected["ifindex"] = -1;
  expected["by"] = "Local request";
  expected["reason"] = get_reason_str(3);
  EXPECT_EQ(recorder_.events[0].payload, expected) << recorder_.events[0].payload.ToJSON();
}

}  // namespace
}  // namespace qira::test::events
