// Decoder of the 802.11 management frame that nl80211 carries in its frame
// attribute: sender, receiver and the status or reason code, as payload keys.
#include <cstddef>
#include <cstdint>

#include "netlib_events/event_text_table.h"
#include "netlib_events/mac_text.h"
#include "qira/network/event_text.h"

namespace {

using qira::network::events::kMacLength;
using qira::network::events::kMacTextSize;
using qira::network::events::reason_text;
using qira::network::events::status_text;
using qira::network::events::write_mac;

// Offsets into a management frame as sent on the air (IEEE 802.11 header:
// frame control, duration, address 1, address 2, address 3, sequence).
constexpr std::size_t kReceiverOffset = 4;
constexpr std::size_t kTransmitterOffset = 10;
constexpr std::size_t kHeaderLength = 24;
// The shortest frame that gets decoded at all: the header and one 16-bit field.
constexpr std::size_t kShortestFrame = 26;
// Fixed fields after the header: a reason code first in (de)authentication
// and disassociation frames; a status code after the capability field of an
// (re)association response, after algorithm and sequence of authentication.
constexpr std::size_t kReasonOffset = kHeaderLength;
constexpr std::size_t kResponseStatusOffset = 26;
constexpr std::size_t kAuthenticationStatusOffset = 28;

// Type and subtype bits of the first frame-control byte.
constexpr std::uint8_t kTypeSubtypeMask = 0xFC;
constexpr std::uint8_t kAssociationResponse = 0x10;
constexpr std::uint8_t kReassociationResponse = 0x30;
constexpr std::uint8_t kDisassociation = 0xA0;
constexpr std::uint8_t kAuthentication = 0xB0;
constexpr std::uint8_t kDeauthentication = 0xC0;

unsigned short read_le16(const std::uint8_t* bytes, std::size_t offset) {
  return static_cast<unsigned short>(bytes[offset] | (bytes[offset + 1] << 8));
}

// The frame's 16-bit code at `offset`, placed under `number_key` and, as
// text, under `text_key`. A frame that ends before the field (the kernel
// never sends one, but a frame attribute is outside input) gets neither key:
// the decoder never reads past the attribute, and every frame long enough
// for its field decodes as it always has.
void put_code(const std::uint8_t* bytes, std::size_t length, std::size_t offset,
              const char* number_key, const char* text_key, const char* (*describe)(unsigned short),
              qira::variant::Variant& payload) {
  if (length < offset + sizeof(std::uint16_t)) {
    return;
  }
  const unsigned short code = read_le16(bytes, offset);
  payload[number_key] = code;
  payload[text_key] = describe(code);
}

}  // namespace

void parse_frame(nlattr* frame, qira::variant::Variant& payload) {
  if (frame == nullptr) {
    payload["frame"] = "none";
    return;
  }
  const int attribute_length = nla_len(frame);
  if (attribute_length < static_cast<int>(kShortestFrame)) {
    payload["frame"] = "invalid";
    return;
  }
  const std::size_t length = static_cast<std::size_t>(attribute_length);
  const auto* bytes = static_cast<const std::uint8_t*>(nla_data(frame));
  static_assert(kTransmitterOffset + kMacLength <= kShortestFrame, "addresses lie in the header");
  char address[kMacTextSize];
  write_mac(bytes + kTransmitterOffset, address);
  payload["from"] = address;
  write_mac(bytes + kReceiverOffset, address);
  payload["to"] = address;
  switch (bytes[0] & kTypeSubtypeMask) {
    case kAssociationResponse:
    case kReassociationResponse:
      put_code(bytes, length, kResponseStatusOffset, "status", "status_str", status_text, payload);
      break;
    case kAuthentication:
      put_code(bytes, length, kAuthenticationStatusOffset, "status", "status_str", status_text,
               payload);
      break;
    case kDisassociation:
    case kDeauthentication:
      put_code(bytes, length, kReasonOffset, "reason", "reason_str", reason_text, payload);
      break;
    default:
      break;
  }
}
