// The host's per-BSS scan decoder, which the wireless module imports: reads
// the nl80211 BSS attributes of one scan result message and fills the scan
// entry the module's cursor points to.
#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>
#include <netlink/handlers.h>
#include <netlink/msg.h>

#include "qira/host/bss_decoder.h"

namespace qira::host {

namespace {

constexpr std::size_t kBssidLength = 6;

// Every read checks presence and length: the attributes are parsed without
// a policy, and a short attribute reads as absent rather than past its end.
template <typename Value>
std::optional<Value> read_value(const nlattr* attribute) {
  if (attribute == nullptr || nla_len(attribute) < static_cast<int>(sizeof(Value))) {
    return std::nullopt;
  }
  Value value;
  nla_memcpy(&value, const_cast<nlattr*>(attribute), sizeof value);
  return value;
}

std::optional<byte_view> read_bytes(const nlattr* attribute) {
  if (attribute == nullptr) {
    return std::nullopt;
  }
  return byte_view{static_cast<const std::uint8_t*>(nla_data(attribute)),
                   static_cast<std::size_t>(nla_len(attribute))};
}

std::optional<std::array<std::uint8_t, kBssidLength>> read_bssid(const nlattr* attribute) {
  if (attribute == nullptr || nla_len(attribute) < static_cast<int>(kBssidLength)) {
    return std::nullopt;
  }
  std::array<std::uint8_t, kBssidLength> bssid{};
  nla_memcpy(bssid.data(), const_cast<nlattr*>(attribute), static_cast<int>(kBssidLength));
  return bssid;
}

}  // namespace

bool read_bss_fields(nl_msg* msg, bss_fields& fields) {
  auto* header = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(msg)));
  nlattr* attributes[NL80211_ATTR_MAX + 1];
  if (nla_parse(attributes, NL80211_ATTR_MAX, genlmsg_attrdata(header, 0),
                genlmsg_attrlen(header, 0), nullptr) != 0 ||
      attributes[NL80211_ATTR_BSS] == nullptr) {
    return false;
  }
  nlattr* bss[NL80211_BSS_MAX + 1];
  if (nla_parse_nested(bss, NL80211_BSS_MAX, attributes[NL80211_ATTR_BSS], nullptr) != 0) {
    return false;
  }
  fields.bssid = read_bssid(bss[NL80211_BSS_BSSID]);
  fields.frequency = read_value<std::uint32_t>(bss[NL80211_BSS_FREQUENCY]);
  fields.capability = read_value<std::uint16_t>(bss[NL80211_BSS_CAPABILITY]);
  fields.signal_mbm = read_value<std::int32_t>(bss[NL80211_BSS_SIGNAL_MBM]);
  fields.signal_unspecified = read_value<std::uint8_t>(bss[NL80211_BSS_SIGNAL_UNSPEC]);
  fields.ies = read_bytes(bss[NL80211_BSS_INFORMATION_ELEMENTS]);
  fields.beacon_ies = read_bytes(bss[NL80211_BSS_BEACON_IES]);
  return true;
}

}  // namespace qira::host

// Decodes the BSS of `msg` into the entry of the scan_cursor at `arg`; the
// cursor's count becomes 1 when a BSS was decoded and 0 when the message
// carries none. Never stops the dump.
extern "C" int nl80211_get_scanlist_cb(nl_msg* msg, void* arg) {
  auto* cursor = static_cast<scan_cursor*>(arg);
  if (msg == nullptr || cursor == nullptr || cursor->entry == nullptr) {
    return NL_SKIP;
  }
  qira::host::bss_fields fields;
  if (!qira::host::read_bss_fields(msg, fields)) {
    cursor->count = 0;
    return NL_SKIP;
  }
  qira::host::decode_bss(fields, *cursor->entry);
  cursor->count = 1;
  return NL_SKIP;
}
