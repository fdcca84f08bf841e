// The management frame decoder, by byte vectors.
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "qira/network/event_text.h"
#include "support/nl80211_sim.h"

namespace {

using qira::variant::Variant;

// An nl80211 frame attribute holding `frame`, kept alive with its bytes. The
// bytes are an allocation of exactly the attribute's length, without the
// padding a message would add after it, so that a read past the frame's end
// leaves the allocation (which an AddressSanitizer build reports).
class FrameAttribute {
 public:
  explicit FrameAttribute(const std::vector<std::uint8_t>& frame)
      : bytes_(NLA_HDRLEN + frame.size()) {
    nlattr header{};
    header.nla_len = static_cast<std::uint16_t>(NLA_HDRLEN + frame.size());
    header.nla_type = NL80211_ATTR_FRAME;
    std::memcpy(bytes_.data(), &header, sizeof header);
    std::copy(frame.begin(), frame.end(), bytes_.begin() + NLA_HDRLEN);
  }
  nlattr* get() { return reinterpret_cast<nlattr*>(bytes_.data()); }

 private:
  std::vector<std::uint8_t> bytes_;
};

// A frame of `length` bytes: frame control `type`, receiver 02:..:07,
// transmitter 0a:..:0f, the rest counting up from 0x10, with `code` at
// `code_offset` (little-endian) when it fits.
std::vector<std::uint8_t> frame(std::uint8_t type, std::size_t length, std::size_t code_offset = 0,
                                std::uint16_t code = 0) {
  std::vector<std::uint8_t> bytes(length);
  for (std::size_t i = 0; i < length; ++i) {
    bytes[i] = static_cast<std::uint8_t>(i < 16 ? i : 0x10 + i);
  }
  if (length > 0) {
    bytes[0] = type;
  }
  if (code_offset != 0 && code_offset + 2 <= length) {
    bytes[code_offset] = static_cast<std::uint8_t>(code & 0xFF);
    bytes[code_offset + 1] = static_cast<std::uint8_t>(code >> 8);
  }
  return bytes;
}

Variant decode(const std::vector<std::uint8_t>& bytes) {
  FrameAttribute attribute(bytes);
  Variant payload;
  parse_frame(attribute.get(), payload);
  return payload;
}

Variant expected_addresses() {
  Variant payload;
  payload["from"] = "0a:0b:0c:0d:0e:0f";
  payload["to"] = "04:05:06:07:08:09";
  return payload;
}

TEST(ParseFrame, NullAttributeIsNone) {
  Variant payload;
  parse_frame(nullptr, payload);
  Variant expected;
  expected["frame"] = "none";
  EXPECT_EQ(payload, expected);
}

TEST(ParseFrame, TwentyFiveBytesOrFewerAreInvalid) {
  for (std::size_t length : {0u, 1u, 16u, 24u, 25u}) {
    Variant expected;
    expected["frame"] = "invalid";
    EXPECT_EQ(decode(frame(0xC0, length, 24, 3)), expected) << length << " bytes";
  }
}

TEST(ParseFrame, DeauthenticationOfExactlyTwentySixBytes) {
  Variant expected = expected_addresses();
  expected["reason"] = static_cast<unsigned short>(3);
  expected["reason_str"] =
      "Deauthenticated because sending station is leaving (or has left) the IBSS or ESS";
  EXPECT_EQ(decode(frame(0xC0, 26, 24, 3)), expected);
}

TEST(ParseFrame, DisassociationReasonIsLittleEndian) {
  Variant expected = expected_addresses();
  expected["reason"] = static_cast<unsigned short>(0x0108);
  expected["reason_str"] = "<unknown>";
  EXPECT_EQ(decode(frame(0xA0, 40, 24, 0x0108)), expected);
}

TEST(ParseFrame, OnlyTypeAndSubtypeBitsChooseTheDecoding) {
  // Protocol version bits (the low two) do not change the kind.
  Variant expected = expected_addresses();
  expected["reason"] = static_cast<unsigned short>(8);
  expected["reason_str"] = "Disassociated because sending station is leaving (or has left) the BSS";
  EXPECT_EQ(decode(frame(0xA3, 26, 24, 8)), expected);
}

TEST(ParseFrame, AssociationResponseStatusAtTwentySix) {
  Variant expected = expected_addresses();
  expected["status"] = static_cast<unsigned short>(17);
  expected["status_str"] =
      "Association denied because AP is unable to handle additional associated STA";
  EXPECT_EQ(decode(frame(0x10, 40, 26, 17)), expected);
}

TEST(ParseFrame, ReassociationResponseStatusAtTwentySix) {
  Variant expected = expected_addresses();
  expected["status"] = static_cast<unsigned short>(0);
  expected["status_str"] = "Successful";
  EXPECT_EQ(decode(frame(0x30, 28, 26, 0)), expected);
}

TEST(ParseFrame, AuthenticationStatusAtTwentyEight) {
  Variant expected = expected_addresses();
  expected["status"] = static_cast<unsigned short>(15);
  expected["status_str"] = "Authentication rejected because of challenge failure";
  EXPECT_EQ(decode(frame(0xB0, 30, 28, 15)), expected);
}

TEST(ParseFrame, ProbeResponseGivesOnlyTheAddresses) {
  EXPECT_EQ(decode(frame(0x50, 60, 24, 1)), expected_addresses());
}

// A frame long enough to be decoded but too short for its status field:
// nothing is read past the attribute, and no status key appears. Stricter
// than a decoder whose only length test is the 26-byte one, which would read
// the status past the end of such a frame (see FrameAttribute).
TEST(ParseFrame, ResponseOfTwentySixOrTwentySevenBytesHasNoStatus) {
  EXPECT_EQ(decode(frame(0x10, 26)), expected_addresses());
  EXPECT_EQ(decode(frame(0x30, 27)), expected_addresses());
}

TEST(ParseFrame, AuthenticationShorterThanThirtyBytesHasNoStatus) {
  EXPECT_EQ(decode(frame(0xB0, 26)), expected_addresses());
  EXPECT_EQ(decode(frame(0xB0, 29)), expected_addresses());
}

TEST(ParseFrame, KeysAreAddedToWhatThePayloadHolds) {
  FrameAttribute attribute(frame(0x50, 26));
  Variant payload;
  payload["status"] = -1;
  parse_frame(attribute.get(), payload);
  Variant expected = expected_addresses();
  expected["status"] = -1;
  EXPECT_EQ(payload, expected);
}

}  // namespace
