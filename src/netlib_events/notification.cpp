// nl80211 notifications as subscribers see them: the common keys of every
// notification and the per-command keys.
#include "netlib_events/notification.h"

#include <linux/genetlink.h>
#include <linux/nl80211.h>
#include <net/if.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "netlib_events/event_text_table.h"
#include "netlib_events/mac_text.h"
#include "qira/network/event_text.h"

namespace qira::network::events {

namespace {

using qira::variant::Variant;

// Attributes are parsed up to nl80211's highest attribute number in the
// headers the module was first built against; later attributes carry
// nothing the payloads use.
constexpr int kHighestAttribute = 260;
static_assert(kHighestAttribute >= NL80211_ATTR_WDEV, "every attribute read fits the table");

using attribute_table = nlattr * [kHighestAttribute + 1];

// Every attribute read below checks presence and length: the attributes are
// parsed without a policy, and a short one is treated as absent rather than
// read past its end.
std::optional<std::uint8_t> read_u8(const nlattr* attribute) {
  if (attribute == nullptr || nla_len(attribute) < static_cast<int>(sizeof(std::uint8_t))) {
    return std::nullopt;
  }
  return nla_get_u8(const_cast<nlattr*>(attribute));
}

std::optional<std::uint16_t> read_u16(const nlattr* attribute) {
  if (attribute == nullptr || nla_len(attribute) < static_cast<int>(sizeof(std::uint16_t))) {
    return std::nullopt;
  }
  return nla_get_u16(const_cast<nlattr*>(attribute));
}

std::optional<std::uint32_t> read_u32(const nlattr* attribute) {
  if (attribute == nullptr || nla_len(attribute) < static_cast<int>(sizeof(std::uint32_t))) {
    return std::nullopt;
  }
  return nla_get_u32(const_cast<nlattr*>(attribute));
}

std::optional<std::uint64_t> read_u64(const nlattr* attribute) {
  if (attribute == nullptr || nla_len(attribute) < static_cast<int>(sizeof(std::uint64_t))) {
    return std::nullopt;
  }
  return nla_get_u64(const_cast<nlattr*>(attribute));
}

// The text up to the first NUL or the end of the attribute.
std::optional<std::string> read_string(const nlattr* attribute) {
  if (attribute == nullptr) {
    return std::nullopt;
  }
  const auto* text = static_cast<const char*>(nla_data(attribute));
  return std::string(text, strnlen(text, static_cast<std::size_t>(nla_len(attribute))));
}

// The MAC text of `attribute` into `text`; false, leaving `text` alone,
// when the attribute is absent or too short.
bool read_mac(const nlattr* attribute, char (&text)[kMacTextSize]) {
  if (attribute == nullptr || nla_len(attribute) < static_cast<int>(kMacLength)) {
    return false;
  }
  write_mac(static_cast<const std::uint8_t*>(nla_data(attribute)), text);
  return true;
}

void put_common_keys(std::uint8_t command, const attribute_table& attributes, Variant& payload) {
  payload["eventId"] = static_cast<int>(command);
  payload["eventName"] = command_text(command);
  if (const std::optional<std::uint32_t> ifindex = read_u32(attributes[NL80211_ATTR_IFINDEX])) {
    // An index the system no longer knows (the interface went away before
    // the notification was read) keeps its number with an empty name.
    char name[IF_NAMESIZE] = {};
    payload["ifname"] = if_indextoname(*ifindex, name) != nullptr ? name : "";
    payload["ifindex"] = static_cast<unsigned int>(*ifindex);
  } else {
    payload["ifname"] = "";
    payload["ifindex"] = -1;
  }
  if (const std::optional<std::uint32_t> wiphy = read_u32(attributes[NL80211_ATTR_WIPHY])) {
    payload["wiphy"] = static_cast<unsigned int>(*wiphy);
  }
  if (const std::optional<std::uint64_t> wdev = read_u64(attributes[NL80211_ATTR_WDEV])) {
    payload["wdev"] = static_cast<unsigned long long>(*wdev);
  }
}

// The kernel always names the radio (3, 4) and the station (19, 20); a
// notification without it still gets the key, as an empty string, so that
// every payload of these commands has the same keys.
void put_wiphy_name(const attribute_table& attributes, Variant& payload) {
  payload["name"] = read_string(attributes[NL80211_ATTR_WIPHY_NAME]).value_or("");
}

void put_station(const attribute_table& attributes, Variant& payload) {
  char station[kMacTextSize] = "";
  read_mac(attributes[NL80211_ATTR_MAC], station);
  payload["station"] = station;
}

// A notification without the regulatory type reads as an unknown type, the
// same as a type this module has no name for.
void put_regulatory_change(const attribute_table& attributes, Variant& payload) {
  const std::optional<std::uint8_t> type = read_u8(attributes[NL80211_ATTR_REG_TYPE]);
  switch (type.value_or(0xFF)) {
    case NL80211_REGDOM_TYPE_COUNTRY:
      payload["regdom_type"] = "country";
      payload["country"] = read_string(attributes[NL80211_ATTR_REG_ALPHA2]).value_or("");
      break;
    case NL80211_REGDOM_TYPE_WORLD:
      payload["regdom_type"] = "world_roaming";
      break;
    case NL80211_REGDOM_TYPE_CUSTOM_WORLD:
      payload["regdom_type"] = "custom_world_roaming";
      break;
    case NL80211_REGDOM_TYPE_INTERSECTION:
      payload["regdom_type"] = "intersection";
      break;
    default:
      payload["regdom_type"] = "unknown";
      break;
  }
  if (const std::optional<std::uint8_t> initiator =
          read_u8(attributes[NL80211_ATTR_REG_INITIATOR])) {
    payload["requestBy"] = initiator_text(*initiator);
  }
}

void put_association_result(const attribute_table& attributes, Variant& payload) {
  payload["status"] = -1;
  payload["status_str"] = "";
  if (attributes[NL80211_ATTR_FRAME] != nullptr) {
    parse_frame(attributes[NL80211_ATTR_FRAME], payload);
  } else if (attributes[NL80211_ATTR_TIMED_OUT] != nullptr) {
    payload["status_str"] = "timeout";
  } else {
    payload["status_str"] = "unknown";
  }
}

void put_connect_result(const attribute_table& attributes, Variant& payload) {
  payload["status"] = -1;
  payload["status_str"] = "";
  if (const std::optional<std::uint16_t> status = read_u16(attributes[NL80211_ATTR_STATUS_CODE])) {
    payload["status"] = static_cast<unsigned short>(*status);
    payload["status_str"] = *status != 0 ? status_text(*status) : "connected";
  } else {
    payload["status_str"] = "unknown";
  }
  char mac[kMacTextSize];
  if (read_mac(attributes[NL80211_ATTR_MAC], mac)) {
    payload["mac"] = mac;
  }
}

// "reason" holds the text here, whereas the frame decoder puts the number
// under "reason": subscribers rely on each form where it occurs.
void put_disconnect(const attribute_table& attributes, Variant& payload) {
  payload["by"] = attributes[NL80211_ATTR_DISCONNECTED_BY_AP] != nullptr ? "AP" : "Local request";
  if (const std::optional<std::uint16_t> reason = read_u16(attributes[NL80211_ATTR_REASON_CODE])) {
    payload["reason"] = reason_text(*reason);
  }
}

}  // namespace

qira::network::event_type decode_notification(nl_msg* msg, Variant& payload) {
  nlmsghdr* message = nlmsg_hdr(msg);
  // libnl hands on any message with a whole netlink header. One that ends
  // inside its generic header (the kernel never sends one) has neither a
  // command nor attributes to read: it gets the common keys of command 0
  // rather than a command read past its end.
  if (genlmsg_valid_hdr(message, 0) == 0) {
    const attribute_table none = {};
    put_common_keys(0, none, payload);
    return event_type::unspec;
  }
  auto* header = static_cast<genlmsghdr*>(nlmsg_data(message));
  attribute_table attributes;
  nla_parse(attributes, kHighestAttribute, genlmsg_attrdata(header, 0), genlmsg_attrlen(header, 0),
            nullptr);
  put_common_keys(header->cmd, attributes, payload);

  switch (header->cmd) {
    case NL80211_CMD_NEW_WIPHY:
      put_wiphy_name(attributes, payload);
      return event_type::new_wiphy;
    case NL80211_CMD_DEL_WIPHY:
      put_wiphy_name(attributes, payload);
      return event_type::del_wiphy;
    case NL80211_CMD_NEW_STATION:
      put_station(attributes, payload);
      return event_type::new_station;
    case NL80211_CMD_DEL_STATION:
      put_station(attributes, payload);
      return event_type::del_station;
    case NL80211_CMD_TRIGGER_SCAN:
      return event_type::trigger_scan;
    case NL80211_CMD_NEW_SCAN_RESULTS:
      return event_type::new_scan_results;
    case NL80211_CMD_SCAN_ABORTED:
      return event_type::scan_aborted;
    case NL80211_CMD_REG_CHANGE:
      put_regulatory_change(attributes, payload);
      return event_type::reg_change;
    case NL80211_CMD_AUTHENTICATE:
      put_association_result(attributes, payload);
      return event_type::authenticate;
    case NL80211_CMD_ASSOCIATE:
      put_association_result(attributes, payload);
      return event_type::associate;
    case NL80211_CMD_DEAUTHENTICATE:
      parse_frame(attributes[NL80211_ATTR_FRAME], payload);
      return event_type::deauthenticate;
    case NL80211_CMD_DISASSOCIATE:
      parse_frame(attributes[NL80211_ATTR_FRAME], payload);
      return event_type::disassociate;
    case NL80211_CMD_CONNECT:
      put_connect_result(attributes, payload);
      return event_type::connect;
    case NL80211_CMD_DISCONNECT:
      put_disconnect(attributes, payload);
      return event_type::disconnect;
    case NL80211_CMD_UNPROT_DEAUTHENTICATE:
      parse_frame(attributes[NL80211_ATTR_FRAME], payload);
      return event_type::unprot_deauthenticate;
    case NL80211_CMD_UNPROT_DISASSOCIATE:
      parse_frame(attributes[NL80211_ATTR_FRAME], payload);
      return event_type::unprot_disassociate;
    default:
      return event_type::unspec;
  }
}

}  // namespace qira::network::events
