#include "support/scan_kernel.h"

#include <linux/genetlink.h>

#include <cerrno>
#include <cstring>

namespace qira::test::scan {

namespace {

struct RawAttribute {
  std::uint16_t type;
  Bytes payload;
};

// The attributes laid out in `length` bytes at `data`.
std::vector<RawAttribute> parse_attributes(const std::uint8_t* data, std::size_t length) {
  std::vector<RawAttribute> attributes;
  std::size_t offset = 0;
  while (offset + NLA_HDRLEN <= length) {
    nlattr header;
    std::memcpy(&header, data + offset, sizeof(header));
    if (header.nla_len < NLA_HDRLEN || offset + header.nla_len > length) {
      break;
    }
    const std::uint8_t* payload = data + offset + NLA_HDRLEN;
    attributes.push_back({static_cast<std::uint16_t>(header.nla_type & NLA_TYPE_MASK),
                          Bytes(payload, payload + header.nla_len - NLA_HDRLEN)});
    offset += NLA_ALIGN(header.nla_len);
  }
  return attributes;
}

std::uint32_t as_u32(const Bytes& payload) {
  std::uint32_t value = 0;
  std::memcpy(&value, payload.data(), std::min(payload.size(), sizeof(value)));
  return value;
}

std::vector<std::uint8_t> done_message(const nlmsghdr& request) {
  nlmsghdr header{};
  header.nlmsg_len = NLMSG_HDRLEN + sizeof(int);
  header.nlmsg_type = NLMSG_DONE;
  header.nlmsg_flags = NLM_F_MULTI;
  header.nlmsg_seq = request.nlmsg_seq;
  header.nlmsg_pid = request.nlmsg_pid;
  std::vector<std::uint8_t> bytes(header.nlmsg_len, 0);
  std::memcpy(bytes.data(), &header, sizeof(header));
  return bytes;
}

}  // namespace

void ScanKernel::announce_trigger(std::uint32_t ifindex) {
  notify(Nl80211Notification{NL80211_CMD_TRIGGER_SCAN, {attr_u32(NL80211_ATTR_IFINDEX, ifindex)}},
         kScanGroup);
}

void ScanKernel::finish_scan(std::uint32_t ifindex) {
  scanning_ = false;
  notify(
      Nl80211Notification{NL80211_CMD_NEW_SCAN_RESULTS, {attr_u32(NL80211_ATTR_IFINDEX, ifindex)}},
      kScanGroup);
}

void ScanKernel::abort_scan(std::uint32_t ifindex) {
  scanning_ = false;
  notify(Nl80211Notification{NL80211_CMD_SCAN_ABORTED, {attr_u32(NL80211_ATTR_IFINDEX, ifindex)}},
         kScanGroup);
}

std::vector<std::vector<std::uint8_t>> ScanKernel::answer_nl80211(const nlmsghdr& request,
                                                                  const std::uint8_t* message,
                                                                  SimulatedGenlSocket& socket) {
  if (request.nlmsg_len < NLMSG_HDRLEN + GENL_HDRLEN) {
    return SimulatedNl80211::answer_nl80211(request, message, socket);
  }
  genlmsghdr generic;
  std::memcpy(&generic, message + NLMSG_HDRLEN, sizeof(generic));
  const std::vector<RawAttribute> attributes = parse_attributes(
      message + NLMSG_HDRLEN + GENL_HDRLEN, request.nlmsg_len - NLMSG_HDRLEN - GENL_HDRLEN);
  if (generic.cmd == NL80211_CMD_TRIGGER_SCAN) {
    TriggerRequest seen;
    seen.flags = request.nlmsg_flags;
    for (const RawAttribute& attribute : attributes) {
      if (attribute.type == NL80211_ATTR_IFINDEX) {
        seen.ifindex = as_u32(attribute.payload);
      } else if (attribute.type == NL80211_ATTR_IE) {
        seen.ies = attribute.payload;
      } else if (attribute.type == NL80211_ATTR_SCAN_SSIDS) {
        seen.has_ssids = true;
        for (const RawAttribute& ssid :
             parse_attributes(attribute.payload.data(), attribute.payload.size())) {
          seen.ssids.emplace_back(ssid.type, ssid.payload);
        }
      }
    }
    triggers_.push_back(seen);
    if (scanning_) {
      ++refused_;
      return {error_message(request, -EBUSY)};
    }
    if (!seen.ifindex) {
      return {error_message(request, -EINVAL)};
    }
    scanning_ = true;
    std::vector<std::vector<std::uint8_t>> replies;
    if ((request.nlmsg_flags & NLM_F_ACK) != 0) {
      replies.push_back(error_message(request, 0));
    }
    if (end_at_once_) {
      const std::vector<NlAttribute> about = {attr_u32(NL80211_ATTR_IFINDEX, *seen.ifindex)};
      replies.push_back(genl_message(request.nlmsg_type, NL80211_CMD_TRIGGER_SCAN, about));
      replies.push_back(genl_message(
          request.nlmsg_type,
          end_aborted_ ? NL80211_CMD_SCAN_ABORTED : NL80211_CMD_NEW_SCAN_RESULTS, about));
      scanning_ = false;
    }
    return replies;
  }
  if (generic.cmd == NL80211_CMD_GET_SCAN) {
    DumpRequest seen;
    seen.flags = request.nlmsg_flags;
    for (const RawAttribute& attribute : attributes) {
      if (attribute.type == NL80211_ATTR_IFINDEX) {
        seen.ifindex = as_u32(attribute.payload);
      }
    }
    dumps_.push_back(seen);
    if (!ahead_of_dump_.empty()) {
      notify(ahead_of_dump_, kScanGroup);
      ahead_of_dump_.clear();
    }
    if (receive_error_at_dump_ != 0) {
      fail_next_receive(receive_error_at_dump_);
      receive_error_at_dump_ = 0;
    }
    if (refused_dumps_ > 0) {
      --refused_dumps_;
      return {error_message(request, dump_error_)};
    }
    return answer_dump(request);
  }
  return SimulatedNl80211::answer_nl80211(request, message, socket);
}

std::vector<std::vector<std::uint8_t>> ScanKernel::answer_dump(const nlmsghdr& request) {
  const std::uint32_t ifindex = dumps_.back().ifindex.value_or(0);
  std::vector<std::vector<std::uint8_t>> datagrams(1);
  for (const BssAttributes& bss : table_) {
    const MessagePtr built = make_scan_result_message(bss, ifindex);
    const nlmsghdr* header = nlmsg_hdr(built.get());
    std::vector<std::uint8_t> bytes(
        reinterpret_cast<const std::uint8_t*>(header),
        reinterpret_cast<const std::uint8_t*>(header) + header->nlmsg_len);
    nlmsghdr patched = *header;
    patched.nlmsg_type = request.nlmsg_type;
    patched.nlmsg_flags = NLM_F_MULTI;
    patched.nlmsg_seq = request.nlmsg_seq;
    patched.nlmsg_pid = request.nlmsg_pid;
    std::memcpy(bytes.data(), &patched, sizeof(patched));
    bytes.resize(NLMSG_ALIGN(bytes.size()), 0);
    if (!datagrams.back().empty() && datagrams.back().size() + bytes.size() > kDumpDatagramSize) {
      datagrams.emplace_back();
    }
    datagrams.back().insert(datagrams.back().end(), bytes.begin(), bytes.end());
  }
  if (dumps_open_) {
    return datagrams;
  }
  const std::vector<std::uint8_t> done = done_message(request);
  datagrams.back().insert(datagrams.back().end(), done.begin(), done.end());
  return datagrams;
}

}  // namespace qira::test::scan
