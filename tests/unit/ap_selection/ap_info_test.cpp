// The access point record: its exported copy constructor copies deeply and
// its destructor leaves the source intact.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "qira/network/ap_info.h"

namespace qira::test {
namespace {

using qira::network::ap_info;

ap_info record(const std::string& ssid, unsigned char tag) {
  ap_info info{};
  info.bssid = "02:00:00:00:00:0" + std::to_string(tag % 10);
  info.ssid = ssid;
  info.mode = 2;
  info.channel = 6;
  info.frequency = 2437;
  info.signal = 200;
  info.link_byte_1 = 1;
  info.quality = 90;
  info.link_byte_3 = 3;
  info.encrypted = 1;
  info.wpa_version = 2;
  info.cipher_bytes[0] = 4;
  info.cipher_bytes[1] = 4;
  info.cipher_bytes[2] = 0;
  info.cipher_bytes[3] = tag;
  info.reserved_a = 0xdeadbeef;
  info.reserved_b = 0x12345678;
  info.ies = {0, 4, 'h', 'o', 'm', 'e', tag};
  info.beacon_ies = {0, 0, tag};
  return info;
}

void expect_same_record(const ap_info& a, const ap_info& b) {
  EXPECT_EQ(a.bssid, b.bssid);
  EXPECT_EQ(a.ssid, b.ssid);
  EXPECT_EQ(a.mode, b.mode);
  EXPECT_EQ(a.channel, b.channel);
  EXPECT_EQ(a.frequency, b.frequency);
  EXPECT_EQ(a.signal, b.signal);
  EXPECT_EQ(a.link_byte_1, b.link_byte_1);
  EXPECT_EQ(a.quality, b.quality);
  EXPECT_EQ(a.link_byte_3, b.link_byte_3);
  EXPECT_EQ(a.encrypted, b.encrypted);
  EXPECT_EQ(a.wpa_version, b.wpa_version);
  EXPECT_EQ(std::memcmp(a.cipher_bytes, b.cipher_bytes, 4), 0);
  EXPECT_EQ(a.reserved_a, b.reserved_a);
  EXPECT_EQ(a.reserved_b, b.reserved_b);
  EXPECT_EQ(a.ies, b.ies);
  EXPECT_EQ(a.beacon_ies, b.beacon_ies);
  ASSERT_EQ(a.children.size(), b.children.size());
  for (std::size_t i = 0; i < a.children.size(); ++i) {
    expect_same_record(a.children[i], b.children[i]);
  }
}

TEST(ApInfo, CopyCopiesEveryMember) {
  const ap_info source = record("home", 7);
  const ap_info copy(source);
  expect_same_record(copy, source);
  EXPECT_NE(copy.ies.data(), source.ies.data());
  EXPECT_NE(copy.beacon_ies.data(), source.beacon_ies.data());
}

TEST(ApInfo, CopyOfATreeIsDeepAndDestroyingItLeavesTheSource) {
  ap_info source = record("root", 1);
  source.children.push_back(record("child-a", 2));
  source.children.push_back(record("child-b", 3));
  source.children[0].children.push_back(record("grandchild", 4));
  source.children[0].children[0].children.push_back(record("great-grandchild", 5));
  const ap_info expected = source;

  auto copy = std::make_unique<ap_info>(source);
  expect_same_record(*copy, source);
  ASSERT_EQ(copy->children.size(), 2u);
  EXPECT_NE(copy->children.data(), source.children.data());
  EXPECT_NE(copy->children[0].children.data(), source.children[0].children.data());
  EXPECT_NE(copy->children[0].children[0].ies.data(), source.children[0].children[0].ies.data());
  EXPECT_EQ(copy->children[0].children[0].children[0].ssid, "great-grandchild");

  // Changing the copy does not reach the source.
  copy->children[0].children[0].ssid = "changed";
  copy->children[0].ies[0] = 99;
  EXPECT_EQ(source.children[0].children[0].ssid, "grandchild");
  EXPECT_EQ(source.children[0].ies[0], 0);

  copy.reset();
  expect_same_record(source, expected);
}

TEST(ApInfo, CopyWithEmptyVectorsAllocatesNothingForThem) {
  ap_info source = record("empty", 1);
  source.ies.clear();
  source.ies.shrink_to_fit();
  source.beacon_ies = {};
  const ap_info copy(source);
  EXPECT_TRUE(copy.ies.empty());
  EXPECT_TRUE(copy.beacon_ies.empty());
  EXPECT_TRUE(copy.children.empty());
  EXPECT_EQ(copy.ies.capacity(), 0u);
  EXPECT_EQ(copy.beacon_ies.capacity(), 0u);
  EXPECT_EQ(copy.children.capacity(), 0u);
  EXPECT_EQ(copy.ies.data(), nullptr);
  EXPECT_EQ(copy.beacon_ies.data(), nullptr);
  EXPECT_EQ(copy.children.data(), nullptr);
}

TEST(ApInfo, CopyAllocatesExactlyTheSizeOfTheVectors) {
  ap_info source = record("exact", 1);
  source.ies.reserve(1024);
  source.children.reserve(16);
  source.children.push_back(record("only", 2));
  const ap_info copy(source);
  EXPECT_EQ(copy.ies.capacity(), source.ies.size());
  EXPECT_EQ(copy.children.capacity(), 1u);
}

TEST(ApInfo, RecordOfOneThousandTwentyFourByteBlocks) {
  ap_info source = record("big", 1);
  source.ies.assign(1024, 0xab);
  source.beacon_ies.assign(1024, 0xcd);
  const ap_info copy(source);
  EXPECT_EQ(copy.ies, source.ies);
  EXPECT_EQ(copy.beacon_ies, source.beacon_ies);
}

}  // namespace
}  // namespace qira::test
