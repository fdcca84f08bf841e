// The floor of the event path: the least that any libnl consumer of nl80211
// notifications does for one event. The same notifications as the event
// benchmark arrive from the same simulated kernel on a socket set up the
// same way; one nl_recvmsgs call reads each, and its handler parses the
// attributes (genlmsg_parse, up to the highest one the event module reads)
// into the values that the module's payloads are made of: the command, the
// interface index, radio and device, and each command's own fields. Nothing
// is formatted, named or handed on.
#include <benchmark/benchmark.h>
#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "floor/floor_socket.h"
#include "notifications.h"
#include "support/alloc_counter.h"
#include "support/bench_checks.h"
#include "support/measurement.h"
#include "support/nl80211_sim.h"

namespace qira::bench::floor {
namespace {

// The highest attribute that the event module reads (the device).
constexpr int kHighestRead = NL80211_ATTR_WDEV;
constexpr std::size_t kMacLength = 6;
// Offsets in an 802.11 management frame.
constexpr std::size_t kReceiverOffset = 4;
constexpr std::size_t kTransmitterOffset = 10;
constexpr std::size_t kReasonOffset = 24;
constexpr std::size_t kShortestFrame = 26;

// What one notification says, as plain values.
struct EventValues {
  std::uint8_t command = 0;
  std::uint32_t ifindex = 0;
  std::uint32_t wiphy = 0;
  std::uint64_t wdev = 0;
  std::uint8_t mac[kMacLength] = {};
  std::uint16_t status = 0;
  std::uint8_t regulatory_type = 0;
  std::uint8_t initiator = 0;
  char country[3] = {};
  std::uint8_t from[kMacLength] = {};
  std::uint8_t to[kMacLength] = {};
  std::uint16_t reason = 0;
  std::uint64_t parsed = 0;
};

std::uint16_t little_endian_u16(const std::uint8_t* bytes) {
  return static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8));
}

void read_mac(const nlattr* attribute, std::uint8_t* mac) {
  if (attribute != nullptr && nla_len(attribute) >= static_cast<int>(kMacLength)) {
    std::memcpy(mac, nla_data(attribute), kMacLength);
  }
}

void read_frame(const nlattr* attribute, EventValues& event) {
  if (attribute == nullptr || nla_len(attribute) < static_cast<int>(kShortestFrame)) {
    return;
  }
  const auto* frame = static_cast<const std::uint8_t*>(nla_data(attribute));
  std::memcpy(event.to, frame + kReceiverOffset, kMacLength);
  std::memcpy(event.from, frame + kTransmitterOffset, kMacLength);
  event.reason = little_endian_u16(frame + kReasonOffset);
}

int parse_notification(nl_msg* msg, void* arg) {
  auto* event = static_cast<EventValues*>(arg);
  nlmsghdr* header = nlmsg_hdr(msg);
  nlattr* attributes[kHighestRead + 1];
  if (genlmsg_parse(header, 0, attributes, kHighestRead, nullptr) != 0) {
    return NL_SKIP;
  }
  event->command = static_cast<genlmsghdr*>(nlmsg_data(header))->cmd;
  if (attributes[NL80211_ATTR_IFINDEX] != nullptr) {
    event->ifindex = nla_get_u32(attributes[NL80211_ATTR_IFINDEX]);
  }
  if (attributes[NL80211_ATTR_WIPHY] != nullptr) {
    event->wiphy = nla_get_u32(attributes[NL80211_ATTR_WIPHY]);
  }
  if (attributes[NL80211_ATTR_WDEV] != nullptr) {
    event->wdev = nla_get_u64(attributes[NL80211_ATTR_WDEV]);
  }
  switch (event->command) {
    case NL80211_CMD_CONNECT:
      if (attributes[NL80211_ATTR_STATUS_CODE] != nullptr) {
        event->status = nla_get_u16(attributes[NL80211_ATTR_STATUS_CODE]);
      }
      read_mac(attributes[NL80211_ATTR_MAC], event->mac);
      break;
    case NL80211_CMD_REG_CHANGE:
      if (attributes[NL80211_ATTR_REG_TYPE] != nullptr) {
        event->regulatory_type = nla_get_u8(attributes[NL80211_ATTR_REG_TYPE]);
      }
      if (attributes[NL80211_ATTR_REG_ALPHA2] != nullptr) {
        nla_strlcpy(event->country, attributes[NL80211_ATTR_REG_ALPHA2], sizeof(event->country));
      }
      if (attributes[NL80211_ATTR_REG_INITIATOR] != nullptr) {
        event->initiator = nla_get_u8(attributes[NL80211_ATTR_REG_INITIATOR]);
      }
      break;
    case NL80211_CMD_DEAUTHENTICATE:
      read_frame(attributes[NL80211_ATTR_FRAME], *event);
      break;
    default:
      break;
  }
  ++event->parsed;
  return NL_SKIP;
}

// Whether the values read are those that notification_of() sent.
bool read_as_sent(const EventValues& event, std::uint8_t command) {
  if (event.command != command) {
    return false;
  }
  switch (command) {
    case NL80211_CMD_CONNECT:
      return event.status == 0 && event.mac[kMacLength - 1] == 0xcc;
    case NL80211_CMD_REG_CHANGE:
      return std::strcmp(event.country, "DE") == 0 && event.initiator == 1;
    case NL80211_CMD_DEAUTHENTICATE:
      return event.reason == 3 && event.from[kMacLength - 1] == 2;
    default:
      return event.ifindex == if_nametoindex("lo");
  }
}

void events_floor(benchmark::State& state, std::uint8_t command) {
  qira::test::SimulatedNl80211 kernel;
  std::string error;
  // The event module joins all four groups; the notifications come on one.
  const Nl80211Socket socket = open_nl80211_socket({"config", "scan", "regulatory", "mlme"}, error);
  if (!socket.sock) {
    fail(state, error);
    return;
  }
  EventValues event;
  const CallbackPtr callbacks = notification_callbacks(parse_notification, &event);
  const int fd = listening_socket(kernel);
  const Notification notification = notification_of(command);
  const std::vector<std::uint8_t> datagram = qira::test::genl_message(
      static_cast<std::uint16_t>(socket.family), notification.command, notification.attributes);
  // One notification outside the measurement, its values checked.
  if (!callbacks || fd < 0 || !kernel.send_raw(fd, datagram) ||
      nl_recvmsgs(socket.sock.get(), callbacks.get()) != 0 || event.parsed != 1 ||
      !read_as_sent(event, command)) {
    fail(state, std::string("the floor does not read the notification ") + notification.name);
    return;
  }
  event.parsed = 0;

  const Measurement measurement;
  for (auto _ : state) {
    kernel.send_raw(fd, datagram);
    int received = 0;
    {
      const CountedRegion counted;
      received = nl_recvmsgs(socket.sock.get(), callbacks.get());
    }
    if (received != 0) {
      fail(state, "nl_recvmsgs failed: " + std::to_string(received));
      return;
    }
  }
  if (event.parsed != static_cast<std::uint64_t>(state.iterations())) {
    fail(state, "the floor parsed " + std::to_string(event.parsed) + " notifications of " +
                    std::to_string(state.iterations()));
    return;
  }
  state.SetItemsProcessed(state.iterations());
  measurement.finish(state, std::string("floor/events/") + notification.name);
}

BENCHMARK_CAPTURE(events_floor, new_scan_results,
                  static_cast<std::uint8_t>(NL80211_CMD_NEW_SCAN_RESULTS))
    ->Apply(fixed_iterations);
BENCHMARK_CAPTURE(events_floor, connect_with_payload,
                  static_cast<std::uint8_t>(NL80211_CMD_CONNECT))
    ->Apply(fixed_iterations);
BENCHMARK_CAPTURE(events_floor, reg_change, static_cast<std::uint8_t>(NL80211_CMD_REG_CHANGE))
    ->Apply(fixed_iterations);
BENCHMARK_CAPTURE(events_floor, deauthenticate_frame,
                  static_cast<std::uint8_t>(NL80211_CMD_DEAUTHENTICATE))
    ->Apply(fixed_iterations);

}  // namespace
}  // namespace qira::bench::floor
