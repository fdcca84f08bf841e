// get_scanlist_cb over scan result messages built with libnl and decoded by
// the reference host: list creation, growth 8 -> 16 -> 32 -> 64 -> 128, the
// 100-node bound with replacement of the worst node, and the element blocks.
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/handlers.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "qira/network/ap_selection.h"
#include "support/bss_message.h"

namespace qira::test {
namespace {

constexpr std::uint16_t kEss = 0x0001;
constexpr std::uint16_t kPrivacy = 0x0010;
// RSN: group and pairwise CCMP, AKM PSK.
const Bytes kRsn = {0x30, 0x14, 0x01, 0x00, 0x00, 0x0f, 0xac, 0x04, 0x01, 0x00, 0x00,
                    0x0f, 0xac, 0x04, 0x01, 0x00, 0x00, 0x0f, 0xac, 0x02, 0x0c, 0x00};

std::string generated_name(unsigned index) {
  char name[16];
  std::snprintf(name, sizeof name, "net-%03u", index);
  return name;
}

// The generated BSS number `index`: BSSID 02:00:00:00:hi:lo, SSID
// "net-NNN", channel 1, open, signal -9000 + 25 * index mBm, so that later
// ones are never weaker; only number 0 has -90 dBm (the decoder's dBm rounds
// towards zero).
BssAttributes generated_bss(unsigned index) {
  BssAttributes bss;
  bss.bssid = {{0x02, 0, 0, 0, static_cast<std::uint8_t>(index >> 8),
                static_cast<std::uint8_t>(index & 0xff)}};
  const std::string name = generated_name(index);
  bss.frequency = 2412;
  bss.capability = kEss;
  bss.signal_mbm = -9000 + static_cast<std::int32_t>(index) * 25;
  bss.ies = join({ssid_element(name), {0x03, 0x01, 0x01}});
  return bss;
}

std::string ssid_of(const ap_node* node) {
  return node->ssid;
}

class ScanListDump : public ::testing::Test {
 protected:
  void TearDown() override { free_scanlist(&list_); }

  int feed(const BssAttributes& bss) {
    MessagePtr msg = make_scan_result_message(bss);
    return get_scanlist_cb(msg.get(), &list_);
  }

  void feed_generated(unsigned from, unsigned to) {
    for (unsigned index = from; index < to; ++index) {
      ASSERT_EQ(feed(generated_bss(index)), NL_SKIP) << index;
    }
  }

  scan_list* list_ = nullptr;
};

TEST_F(ScanListDump, NullArgumentIsSkipped) {
  MessagePtr msg = make_scan_result_message(generated_bss(0));
  EXPECT_EQ(get_scanlist_cb(msg.get(), nullptr), NL_SKIP);
}

TEST_F(ScanListDump, MessageWithoutBssMakesNoList) {
  MessagePtr msg = make_message_without_bss();
  EXPECT_EQ(get_scanlist_cb(msg.get(), &list_), NL_SKIP);
  EXPECT_EQ(list_, nullptr);
}

TEST_F(ScanListDump, FirstResultCreatesTheList) {
  EXPECT_EQ(feed(generated_bss(7)), NL_SKIP);
  ASSERT_NE(list_, nullptr);
  EXPECT_EQ(list_->count, 1);
  EXPECT_EQ(list_->capacity, 8);
  EXPECT_EQ(list_->growth, 2);
  for (int slot = 1; slot < 8; ++slot) {
    EXPECT_EQ(list_->items[slot], nullptr) << slot;
  }
  const ap_node* node = list_->items[0];
  EXPECT_EQ(ssid_of(node), "net-007");
  EXPECT_EQ(node->bssid[5], 7);
  EXPECT_EQ(node->frequency, 2412);
  EXPECT_EQ(node->channel, 1);
  EXPECT_EQ(node->mode, 2);
  EXPECT_EQ(node->signal, 256 - 88);
  const Bytes ies = *generated_bss(7).ies;
  ASSERT_EQ(node->ie_len, ies.size());
  EXPECT_EQ(Bytes(node->ies, node->ies + node->ie_len), ies);
  EXPECT_EQ(node->beacon_ie_len, 0u);
}

TEST_F(ScanListDump, GrowsByDoublingUpToTheBound) {
  struct Step {
    unsigned results;
    std::uint16_t count;
    std::uint16_t capacity;
  };
  const Step steps[] = {{8, 8, 8},       {9, 9, 16},      {16, 16, 16},   {17, 17, 32},
                        {32, 32, 32},    {33, 33, 64},    {64, 64, 64},   {65, 65, 128},
                        {100, 100, 128}, {101, 100, 128}, {150, 100, 128}};
  unsigned fed = 0;
  for (const Step& step : steps) {
    feed_generated(fed, step.results);
    fed = step.results;
    ASSERT_NE(list_, nullptr);
    EXPECT_EQ(list_->count, step.count) << step.results;
    EXPECT_EQ(list_->capacity, step.capacity) << step.results;
    for (unsigned slot = list_->count; slot < list_->capacity; ++slot) {
      EXPECT_EQ(list_->items[slot], nullptr) << step.results << " slot " << slot;
    }
  }
}

TEST_F(ScanListDump, HundredAndFirstWeakerResultIsDropped) {
  feed_generated(0, 100);
  BssAttributes weaker = generated_bss(500);
  weaker.signal_mbm = -9900;
  EXPECT_EQ(feed(weaker), NL_SKIP);
  EXPECT_EQ(list_->count, 100);
  for (unsigned slot = 0; slot < 100; ++slot) {
    EXPECT_EQ(ssid_of(list_->items[slot]), generated_name(slot));
  }
}

TEST_F(ScanListDump, HundredAndFirstEqualResultIsDropped) {
  feed_generated(0, 100);
  // As weak as slot 0, the worst: not strictly better.
  BssAttributes equal = generated_bss(0);
  equal.bssid = {{0x02, 0, 0, 0, 0x09, 0x99}};
  equal.ies = ssid_element("equal");
  EXPECT_EQ(feed(equal), NL_SKIP);
  EXPECT_EQ(list_->count, 100);
  EXPECT_EQ(ssid_of(list_->items[0]), "net-000");
}

TEST_F(ScanListDump, HundredAndFirstBetterResultReplacesTheWorstInPlace) {
  feed_generated(0, 100);
  const ap_node* worst = list_->items[0];
  ASSERT_EQ(ssid_of(worst), "net-000");
  ASSERT_NE(worst->ie_len, 0u);
  BssAttributes better;
  better.bssid = {{0x02, 0xbb, 0, 0, 0, 1}};
  better.frequency = 2437;
  better.capability = kEss | kPrivacy;
  better.signal_mbm = -9500;  // weaker than all, but WPA2
  better.beacon_ies = join({ssid_element("secure"), kRsn});
  EXPECT_EQ(feed(better), NL_SKIP);
  EXPECT_EQ(list_->count, 100);
  EXPECT_EQ(list_->capacity, 128);
  ASSERT_EQ(list_->items[0], worst);  // the same node, overwritten
  EXPECT_EQ(ssid_of(worst), "secure");
  EXPECT_EQ(worst->bssid[1], 0xbb);
  EXPECT_EQ(worst->channel, 6);
  EXPECT_EQ(worst->encrypted, 1);
  EXPECT_EQ(worst->wpa_version, 2);
  EXPECT_EQ(worst->ie_len, 0u);  // the replaced node's block is cleared
  EXPECT_EQ(worst->ies[0], 0);
  EXPECT_EQ(worst->beacon_ie_len, better.beacon_ies->size());
  EXPECT_EQ(ssid_of(list_->items[1]), "net-001");
  // The next better one replaces the new worst: slot 1, the first of the
  // four at -89 dBm.
  BssAttributes next = generated_bss(800);
  next.signal_mbm = -8000;
  next.ies = ssid_element("next");
  EXPECT_EQ(feed(next), NL_SKIP);
  EXPECT_EQ(ssid_of(list_->items[1]), "next");
  EXPECT_EQ(ssid_of(list_->items[0]), "secure");
  EXPECT_EQ(ssid_of(list_->items[2]), "net-002");
}

// An element block of exactly `size` bytes: elements of 255 data bytes and
// one last element that fills the rest.
Bytes element_block(std::size_t size, std::uint8_t id) {
  Bytes block = ssid_element("big");
  while (block.size() < size) {
    const std::size_t rest = size - block.size();
    const std::size_t data = rest - 2 > 255 ? 255 : rest - 2;
    block = join({block, element(id, Bytes(data, static_cast<std::uint8_t>(block.size())))});
  }
  return block;
}

TEST_F(ScanListDump, ElementBlocksOf1024AreKeptWhole) {
  BssAttributes bss = generated_bss(1);
  bss.ies = element_block(1024, 221);
  bss.beacon_ies = element_block(1024, 222);
  ASSERT_EQ(bss.ies->size(), 1024u);
  ASSERT_EQ(bss.beacon_ies->size(), 1024u);
  EXPECT_EQ(feed(bss), NL_SKIP);
  const ap_node* node = list_->items[0];
  EXPECT_EQ(node->ie_len, 1024u);
  EXPECT_EQ(node->beacon_ie_len, 1024u);
  EXPECT_EQ(Bytes(node->ies, node->ies + 1024), *bss.ies);
  EXPECT_EQ(Bytes(node->beacon_ies, node->beacon_ies + 1024), *bss.beacon_ies);
  EXPECT_EQ(ssid_of(node), "big");
}

TEST_F(ScanListDump, ElementBlocksOf1025AreDroppedWhole) {
  BssAttributes bss = generated_bss(1);
  bss.ies = element_block(1025, 221);
  bss.beacon_ies = element_block(1024, 222);
  ASSERT_EQ(bss.ies->size(), 1025u);
  EXPECT_EQ(feed(bss), NL_SKIP);
  ASSERT_EQ(list_->count, 1);
  const ap_node* node = list_->items[0];
  EXPECT_EQ(node->ie_len, 0u);
  EXPECT_EQ(node->ies[0], 0);
  EXPECT_EQ(node->beacon_ie_len, 1024u);
  EXPECT_EQ(ssid_of(node), "big");  // the decoder still saw the SSID

  BssAttributes beacon_too_long = generated_bss(2);
  beacon_too_long.beacon_ies = element_block(1025, 222);
  EXPECT_EQ(feed(beacon_too_long), NL_SKIP);
  EXPECT_EQ(list_->items[1]->beacon_ie_len, 0u);
  EXPECT_EQ(list_->items[1]->ie_len, generated_bss(2).ies->size());
}

TEST_F(ScanListDump, EmptyElementBlocksAreKeptEmpty) {
  BssAttributes bss = generated_bss(1);
  bss.ies = Bytes{};
  bss.beacon_ies = Bytes{};
  EXPECT_EQ(feed(bss), NL_SKIP);
  EXPECT_EQ(list_->items[0]->ie_len, 0u);
  EXPECT_EQ(list_->items[0]->beacon_ie_len, 0u);
  EXPECT_EQ(list_->items[0]->ssid[0], '\0');
}

TEST_F(ScanListDump, AttributesAboveTheParseBoundsAreIgnored) {
  BssAttributes bss = generated_bss(3);
  // A nested attribute numbered above 14 (the per-chain signal) is not read.
  bss.extra = {{NL80211_BSS_CHAIN_SIGNAL, {1, 2, 3, 4}}};
  EXPECT_EQ(feed(bss), NL_SKIP);
  EXPECT_EQ(list_->count, 1);
  EXPECT_EQ(ssid_of(list_->items[0]), "net-003");
}

}  // namespace
}  // namespace qira::test
