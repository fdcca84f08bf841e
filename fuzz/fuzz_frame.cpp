// parse_frame on arbitrary frames: the input is the payload of the nl80211
// frame attribute. The attribute is built in a buffer of exactly its size, so
// that AddressSanitizer reports any read past the frame.
#include <linux/netlink.h>
#include <linux/nl80211.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "qira/network/event_text.h"
#include "qira/variant/variant.h"

namespace {

// The attribute's length field is 16 bits wide, header included.
constexpr std::size_t kLargestPayload = 0xFFFF - NLA_HDRLEN;
// Shorter frames are reported as "invalid" and give no addresses.
constexpr std::size_t kShortestDecodedFrame = 26;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kLargestPayload) {
    return -1;
  }
  const std::size_t total = NLA_HDRLEN + size;
  std::unique_ptr<std::uint8_t[]> buffer(new std::uint8_t[total]);
  nlattr header{};
  header.nla_len = static_cast<std::uint16_t>(total);
  header.nla_type = NL80211_ATTR_FRAME;
  std::memcpy(buffer.get(), &header, sizeof header);
  if (size > 0) {
    std::memcpy(buffer.get() + NLA_HDRLEN, data, size);
  }

  qira::variant::Variant payload;
  parse_frame(reinterpret_cast<nlattr*>(buffer.get()), payload);

  // What every frame gets, whatever its content: addresses exactly when it
  // is long enough, the "invalid" mark exactly when it is not.
  const bool decoded = size >= kShortestDecodedFrame;
  if (payload.HasKey("from") != decoded || payload.HasKey("to") != decoded ||
      payload.HasKey("frame") == decoded) {
    std::abort();
  }
  return 0;
}
