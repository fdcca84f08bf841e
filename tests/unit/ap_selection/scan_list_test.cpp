// The scan list's building blocks: the entry and node layouts, get_result
// with the host's decoder, make_ap_from_entry, search_node_to_replace and
// free_scanlist.
#include <gtest/gtest.h>
#include <netlink/handlers.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "qira/network/ap_selection.h"
#include "support/bss_message.h"
#include "unit/ap_selection/ap_node_util.h"

namespace qira::test {
namespace {

static_assert(sizeof(scan_entry) == 60, "the platform decoder's 60-byte record");
static_assert(offsetof(scan_entry, cipher_bytes) == 53, "cipher bytes end the figures");
static_assert(offsetof(ap_node, ssid) == 6, "node: bssid then ssid");
static_assert(offsetof(ap_node, mode) == 39, "node: mode after the 33-byte ssid");
static_assert(offsetof(ap_node, channel) == 40, "node: channel after mode");
static_assert(offsetof(ap_node, frequency) == 42, "node: 16-bit frequency");
static_assert(offsetof(ap_node, signal) == 44, "node: ten figure bytes");
static_assert(offsetof(ap_node, cipher_bytes) == 50, "node: four cipher bytes last");
static_assert(offsetof(ap_node, ie_len) == 56, "node: element lengths after the figures");
static_assert(offsetof(ap_node, beacon_ie_len) == 60, "node: beacon length second");
static_assert(offsetof(ap_node, ies) == 64, "node: inline element blocks");
static_assert(offsetof(ap_node, beacon_ies) == 64 + 1024, "node: 1024-byte blocks");
static_assert(sizeof(ap_node) == 64 + 2048, "node: one fixed-size allocation");
static_assert(offsetof(scan_list, count) == sizeof(void*), "list: slots, then count");
static_assert(offsetof(scan_list, capacity) == sizeof(void*) + 2, "list: then capacity");
static_assert(offsetof(scan_list, growth) == sizeof(void*) + 4, "list: then growth");
static_assert(sizeof(scan_cursor) == 2 * sizeof(void*), "cursor: entry pointer, then count");
static_assert(offsetof(scan_cursor, count) == sizeof(void*), "cursor: count second");

scan_entry filled_entry(std::uint8_t byte) {
  scan_entry entry;
  std::memset(&entry, byte, sizeof entry);
  return entry;
}

TEST(GetResult, NullArgumentsAreSkipped) {
  scan_entry entry = filled_entry(0xaa);
  EXPECT_EQ(get_result(nullptr, &entry), NL_SKIP);
  EXPECT_EQ(entry.channel, 0xaa);  // not touched
  MessagePtr msg = make_message_without_bss();
  EXPECT_EQ(get_result(msg.get(), nullptr), NL_SKIP);
}

TEST(GetResult, ZeroesTheEntryBeforeTheDecoderRuns) {
  scan_entry entry = filled_entry(0xaa);
  MessagePtr msg = make_message_without_bss();
  EXPECT_EQ(get_result(msg.get(), &entry), NL_SKIP);
  const scan_entry zero = filled_entry(0);
  EXPECT_EQ(std::memcmp(&entry, &zero, sizeof entry), 0);
}

TEST(GetResult, TheHostDecoderFillsTheEntry) {
  BssAttributes bss;
  bss.bssid = {{0x02, 0x11, 0x22, 0x33, 0x44, 0x55}};
  bss.frequency = 5180;
  bss.capability = 0x0011;
  bss.signal_mbm = -5500;
  bss.ies = ssid_element("lab");
  MessagePtr msg = make_scan_result_message(bss);
  scan_entry entry = filled_entry(0xaa);
  EXPECT_EQ(get_result(msg.get(), &entry), NL_SKIP);
  EXPECT_EQ(entry.bssid[1], 0x11);
  EXPECT_EQ(entry.bssid[5], 0x55);
  EXPECT_STREQ(entry.ssid, "lab");
  EXPECT_EQ(entry.frequency, 5180);
  EXPECT_EQ(entry.channel, 36);
  EXPECT_EQ(entry.mode, 2u);
  EXPECT_EQ(entry.signal, 201);
  EXPECT_EQ(entry.quality, 90);
  EXPECT_EQ(entry.encrypted, 1);
  EXPECT_EQ(entry.padding_0, 0);
  EXPECT_EQ(entry.padding_1[0], 0);
}

TEST(MakeApFromEntry, CopiesEveryFieldAndZeroesTheRest) {
  scan_entry entry = filled_entry(0);
  const std::uint8_t bssid[6] = {1, 2, 3, 4, 5, 6};
  std::memcpy(entry.bssid, bssid, 6);
  std::strcpy(entry.ssid, "cafe");
  entry.mode = 0x12345602;
  entry.frequency = 2462;
  entry.channel = 11;
  entry.signal = 190;
  entry.link_byte_1 = 7;
  entry.quality = 80;
  entry.link_byte_3 = 1;
  entry.encrypted = 1;
  entry.wpa_version = 3;
  const std::uint8_t cipher[4] = {4, 4, 2, 2};
  std::memcpy(entry.cipher_bytes, cipher, 4);

  ap_node node;
  std::memset(&node, 0xaa, sizeof node);
  make_ap_from_entry(&entry, &node);
  EXPECT_EQ(std::memcmp(node.bssid, bssid, 6), 0);
  EXPECT_EQ(std::string(node.ssid), "cafe");
  EXPECT_EQ(std::vector<char>(node.ssid + 4, node.ssid + 33), std::vector<char>(29, '\0'));
  EXPECT_EQ(node.mode, 0x02);
  EXPECT_EQ(node.channel, 11);
  EXPECT_EQ(node.frequency, 2462);
  EXPECT_EQ(node.signal, 190);
  EXPECT_EQ(node.link_byte_1, 7);
  EXPECT_EQ(node.quality, 80);
  EXPECT_EQ(node.link_byte_3, 1);
  EXPECT_EQ(node.encrypted, 1);
  EXPECT_EQ(node.wpa_version, 3);
  EXPECT_EQ(std::memcmp(node.cipher_bytes, cipher, 4), 0);
  EXPECT_EQ(node.ie_len, 0u);
  EXPECT_EQ(node.beacon_ie_len, 0u);
  EXPECT_EQ(node.ies[0], 0);
  EXPECT_EQ(node.beacon_ies[1023], 0);
}

TEST(MakeApFromEntry, SsidWithoutNulIsCutAtThirtyTwoBytes) {
  scan_entry entry = filled_entry(0);
  std::memset(entry.ssid, 'q', sizeof entry.ssid);
  ap_node node;
  make_ap_from_entry(&entry, &node);
  EXPECT_EQ(std::string(node.ssid), std::string(32, 'q'));
}

TEST(MakeApFromEntry, NullArgumentsDoNothing) {
  ap_node node;
  std::memset(&node, 0xaa, sizeof node);
  make_ap_from_entry(nullptr, &node);
  EXPECT_EQ(node.channel, 0xaa);
  const scan_entry entry = filled_entry(0);
  make_ap_from_entry(&entry, nullptr);
}

scan_entry entry_with(std::uint8_t signal, std::uint8_t quality, std::uint8_t encrypted = 0,
                      std::uint8_t wpa_version = 0) {
  scan_entry entry = filled_entry(0);
  std::strcpy(entry.ssid, "new");
  entry.frequency = 2412;
  entry.channel = 1;
  entry.signal = signal;
  entry.quality = quality;
  entry.encrypted = encrypted;
  entry.wpa_version = wpa_version;
  return entry;
}

NodeSpec ranked(std::uint8_t signal, std::uint8_t quality) {
  NodeSpec shape;
  shape.signal = signal;
  shape.quality = quality;
  return shape;
}

class SearchNodeToReplace : public ::testing::Test {
 protected:
  void TearDown() override { free_scanlist(&list_); }
  scan_list* list_ = nullptr;
};

TEST_F(SearchNodeToReplace, NullOrEmptyGivesNull) {
  const scan_entry entry = entry_with(250, 100, 1, 2);
  EXPECT_EQ(search_node_to_replace(nullptr, &entry), nullptr);
  list_ = make_list({});
  EXPECT_EQ(search_node_to_replace(list_, &entry), nullptr);
  EXPECT_EQ(search_node_to_replace(list_, nullptr), nullptr);
}

TEST_F(SearchNodeToReplace, WorstSlotWhenTheEntryIsStrictlyBetter) {
  list_ = make_list({ranked(200, 50), ranked(180, 50), ranked(190, 50), ranked(180, 40)});
  const scan_entry better = entry_with(181, 0);
  EXPECT_EQ(search_node_to_replace(list_, &better), &list_->items[3]);
}

TEST_F(SearchNodeToReplace, EqualToTheWorstGivesNull) {
  list_ = make_list({ranked(200, 50), ranked(180, 40)});
  const scan_entry equal = entry_with(180, 40);
  EXPECT_EQ(search_node_to_replace(list_, &equal), nullptr);
  const scan_entry worse = entry_with(180, 39);
  EXPECT_EQ(search_node_to_replace(list_, &worse), nullptr);
}

TEST_F(SearchNodeToReplace, TiesKeepTheEarlierSlot) {
  list_ = make_list({ranked(200, 50), ranked(170, 30), ranked(170, 30), ranked(170, 30)});
  const scan_entry better = entry_with(171, 30);
  EXPECT_EQ(search_node_to_replace(list_, &better), &list_->items[1]);
}

TEST_F(SearchNodeToReplace, SecurityOutranksSignal) {
  NodeSpec weak_wpa2 = ranked(100, 10);
  weak_wpa2.encrypted = 1;
  weak_wpa2.wpa_version = 2;
  list_ = make_list({weak_wpa2, ranked(250, 100)});
  // The open node is the worst; an open entry must beat it on signal...
  const scan_entry open_weaker = entry_with(249, 100);
  EXPECT_EQ(search_node_to_replace(list_, &open_weaker), nullptr);
  // ...while any WPA2 entry beats it.
  const scan_entry wpa2 = entry_with(1, 0, 1, 2);
  EXPECT_EQ(search_node_to_replace(list_, &wpa2), &list_->items[1]);
}

TEST(FreeScanlist, FreesAndNullsThePointer) {
  scan_list* list = make_list({ranked(1, 1), ranked(2, 2), ranked(3, 3)});
  free_scanlist(&list);
  EXPECT_EQ(list, nullptr);
  free_scanlist(&list);
  free_scanlist(nullptr);
  EXPECT_EQ(list, nullptr);
}

}  // namespace
}  // namespace qira::test
