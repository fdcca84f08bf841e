// Scan result messages built with libnl, as a scan dump delivers them.
#include "support/bss_message.h"

#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>

#include <stdexcept>

namespace qira::test {

namespace {

// Room for two 1025-byte element blocks and every other attribute.
constexpr std::size_t kMessageSize = 8192;
// Any family identifier: the decoders never look at it.
constexpr int kNl80211Family = 28;

void check(int code, const char* what) {
  if (code < 0) {
    throw std::runtime_error(std::string("cannot build the scan result message: ") + what);
  }
}

MessagePtr new_scan_result(std::uint32_t ifindex) {
  MessagePtr msg(nlmsg_alloc_size(kMessageSize));
  if (!msg) {
    throw std::runtime_error("nlmsg_alloc_size failed");
  }
  if (genlmsg_put(msg.get(), NL_AUTO_PORT, NL_AUTO_SEQ, kNl80211Family, 0, NLM_F_MULTI,
                  NL80211_CMD_NEW_SCAN_RESULTS, 0) == nullptr) {
    throw std::runtime_error("genlmsg_put failed");
  }
  check(nla_put_u32(msg.get(), NL80211_ATTR_IFINDEX, ifindex), "ifindex");
  check(nla_put_u32(msg.get(), NL80211_ATTR_GENERATION, 7), "generation");
  return msg;
}

void put_bytes(nl_msg* msg, int type, const Bytes& bytes) {
  check(nla_put(msg, type, static_cast<int>(bytes.size()), bytes.data()), "bytes");
}

}  // namespace

MessagePtr make_scan_result_message(const BssAttributes& bss, std::uint32_t ifindex) {
  MessagePtr msg = new_scan_result(ifindex);
  nlattr* nest = nla_nest_start(msg.get(), NL80211_ATTR_BSS);
  if (nest == nullptr) {
    throw std::runtime_error("nla_nest_start failed");
  }
  if (bss.bssid) {
    check(nla_put(msg.get(), NL80211_BSS_BSSID, 6, bss.bssid->data()), "bssid");
  }
  if (bss.frequency) {
    check(nla_put_u32(msg.get(), NL80211_BSS_FREQUENCY, *bss.frequency), "frequency");
  }
  if (bss.capability) {
    check(nla_put_u16(msg.get(), NL80211_BSS_CAPABILITY, *bss.capability), "capability");
  }
  if (bss.signal_mbm) {
    check(
        nla_put_u32(msg.get(), NL80211_BSS_SIGNAL_MBM, static_cast<std::uint32_t>(*bss.signal_mbm)),
        "signal");
  }
  if (bss.signal_unspecified) {
    check(nla_put_u8(msg.get(), NL80211_BSS_SIGNAL_UNSPEC, *bss.signal_unspecified), "signal");
  }
  if (bss.ies) {
    put_bytes(msg.get(), NL80211_BSS_INFORMATION_ELEMENTS, *bss.ies);
  }
  if (bss.beacon_ies) {
    put_bytes(msg.get(), NL80211_BSS_BEACON_IES, *bss.beacon_ies);
  }
  for (const auto& [type, payload] : bss.extra) {
    put_bytes(msg.get(), type, payload);
  }
  check(nla_nest_end(msg.get(), nest), "nest");
  return msg;
}

MessagePtr make_message_without_bss(std::uint32_t ifindex) {
  return new_scan_result(ifindex);
}

Bytes element(std::uint8_t id, const Bytes& data) {
  Bytes out{id, static_cast<std::uint8_t>(data.size())};
  out.insert(out.end(), data.begin(), data.end());
  return out;
}

Bytes ssid_element(const std::string& ssid) {
  return element(0, Bytes(ssid.begin(), ssid.end()));
}

Bytes join(std::initializer_list<Bytes> blocks) {
  Bytes out;
  for (const Bytes& block : blocks) {
    out.insert(out.end(), block.begin(), block.end());
  }
  return out;
}

}  // namespace qira::test
