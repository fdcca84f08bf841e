// dedup_scanlist: sorted by SSID, channel and frequency, one node kept per
// run of the same access point.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "qira/network/ap_selection.h"
#include "unit/ap_selection/ap_node_util.h"

namespace qira::test {
namespace {

NodeSpec bss(const std::string& ssid, std::uint8_t channel, std::uint16_t frequency,
             std::uint8_t bssid_tail, std::uint8_t signal = 200) {
  NodeSpec shape;
  shape.ssid = ssid;
  shape.channel = channel;
  shape.frequency = frequency;
  shape.bssid_tail = bssid_tail;
  shape.signal = signal;
  return shape;
}

// "ssid/channel/frequency" of each node in list order.
std::vector<std::string> keys(const scan_list* list) {
  std::vector<std::string> out;
  for (unsigned slot = 0; slot < list->count; ++slot) {
    const ap_node* node = list->items[slot];
    out.push_back(std::string(node->ssid) + "/" + std::to_string(node->channel) + "/" +
                  std::to_string(node->frequency));
  }
  return out;
}

class Dedup : public ::testing::Test {
 protected:
  void TearDown() override { free_scanlist(&list_); }
  scan_list* list_ = nullptr;
};

TEST_F(Dedup, NullListsAreLeftAlone) {
  dedup_scanlist(nullptr);
  dedup_scanlist(&list_);
  EXPECT_EQ(list_, nullptr);
}

TEST_F(Dedup, EmptyAndSingleNodeListsAreUnchanged) {
  list_ = make_list({});
  dedup_scanlist(&list_);
  EXPECT_EQ(list_->count, 0);
  free_scanlist(&list_);
  list_ = make_list({bss("solo", 1, 2412, 1)});
  ap_node* only = list_->items[0];
  dedup_scanlist(&list_);
  EXPECT_EQ(list_->count, 1);
  EXPECT_EQ(list_->items[0], only);
}

TEST_F(Dedup, SameSsidChannelAndFrequencyWithOtherBssidsBecomeOne) {
  list_ = make_list({bss("home", 6, 2437, 1, 180), bss("home", 6, 2437, 2, 220)});
  const std::set<const ap_node*> before = {list_->items[0], list_->items[1]};
  dedup_scanlist(&list_);
  ASSERT_EQ(list_->count, 1);
  EXPECT_EQ(before.count(list_->items[0]), 1u);
  EXPECT_EQ(keys(list_), (std::vector<std::string>{"home/6/2437"}));
}

TEST_F(Dedup, SortsBySsidThenChannelThenFrequency) {
  list_ =
      make_list({bss("zeta", 1, 2412, 1), bss("alpha", 11, 2462, 2), bss("alpha", 1, 2412, 3),
                 bss("Beta", 36, 5180, 4), bss("alpha", 1, 2411, 5), bss("alpha2", 1, 2412, 6)});
  dedup_scanlist(&list_);
  EXPECT_EQ(keys(list_),
            (std::vector<std::string>{"Beta/36/5180", "alpha/1/2411", "alpha/1/2412",
                                      "alpha/11/2462", "alpha2/1/2412", "zeta/1/2412"}));
  EXPECT_EQ(list_->capacity, 8);
}

TEST_F(Dedup, KeepsOneOfEachRunAndClosesTheGaps) {
  list_ = make_list({bss("b", 6, 2437, 1), bss("a", 1, 2412, 2), bss("b", 6, 2437, 3),
                     bss("c", 11, 2462, 4), bss("a", 1, 2412, 5), bss("b", 6, 2437, 6),
                     bss("a", 1, 2412, 7), bss("b", 6, 2437, 8), bss("d", 36, 5180, 9)});
  std::vector<std::uint8_t> a_tails = {2, 5, 7};
  std::vector<std::uint8_t> b_tails = {1, 3, 6, 8};
  dedup_scanlist(&list_);
  ASSERT_EQ(list_->count, 4);
  EXPECT_EQ(keys(list_),
            (std::vector<std::string>{"a/1/2412", "b/6/2437", "c/11/2462", "d/36/5180"}));
  // The kept node of each run is one of the run's own nodes.
  EXPECT_NE(std::find(a_tails.begin(), a_tails.end(), list_->items[0]->bssid[5]), a_tails.end());
  EXPECT_NE(std::find(b_tails.begin(), b_tails.end(), list_->items[1]->bssid[5]), b_tails.end());
  EXPECT_EQ(list_->items[2]->bssid[5], 4);
  EXPECT_EQ(list_->items[3]->bssid[5], 9);
}

TEST_F(Dedup, SameSsidOnOtherChannelsOrFrequenciesAreKept) {
  list_ = make_list({bss("home", 1, 2412, 1), bss("home", 6, 2437, 2), bss("home", 6, 2438, 3)});
  dedup_scanlist(&list_);
  EXPECT_EQ(keys(list_), (std::vector<std::string>{"home/1/2412", "home/6/2437", "home/6/2438"}));
}

TEST_F(Dedup, AllTheSameLeavesOne) {
  std::vector<NodeSpec> nodes;
  for (std::uint8_t tail = 0; tail < 20; ++tail) {
    nodes.push_back(bss("same", 1, 2412, tail, static_cast<std::uint8_t>(150 + tail)));
  }
  list_ = make_list(nodes);
  dedup_scanlist(&list_);
  EXPECT_EQ(list_->count, 1);
  EXPECT_EQ(keys(list_), (std::vector<std::string>{"same/1/2412"}));
}

TEST_F(Dedup, SecondDedupChangesNothing) {
  list_ = make_list({bss("b", 6, 2437, 1), bss("a", 1, 2412, 2), bss("b", 6, 2437, 3)});
  dedup_scanlist(&list_);
  const std::vector<ap_node*> once(list_->items, list_->items + list_->count);
  dedup_scanlist(&list_);
  EXPECT_EQ(std::vector<ap_node*>(list_->items, list_->items + list_->count), once);
}

// The sort's comparator as the selection functions define it: 0 for the same
// access point, -1 when the first sorts before the second, else 1.
int ranking_comparator(const void* left, const void* right) {
  const ap_node* a = *static_cast<const ap_node* const*>(left);
  const ap_node* b = *static_cast<const ap_node* const*>(right);
  if (ap_same(a, b) != 0) {
    return 0;
  }
  return ap_less(a, b) != 0 ? -1 : 1;
}

// Which node of a run survives depends on the moves the C library's qsort
// makes, which depend on every answer of the comparator: de-duplication
// keeps, node for node, what qsort with ap_same and ap_less and the walk over
// the runs keep, on a full list of many runs in scattered order.
TEST_F(Dedup, KeepsTheNodesThatSortingWithApSameAndApLessKeeps) {
  const char* const ssids[] = {"home", "home-5G", "cafe", "Cafe", "", "home2", "h"};
  std::vector<NodeSpec> nodes;
  unsigned int seed = 12345;
  for (std::uint8_t tail = 0; tail < 100; ++tail) {
    seed = seed * 1103515245u + 12345u;
    const unsigned int pick = seed >> 16;
    const std::uint8_t channel = static_cast<std::uint8_t>(1 + pick % 3);
    nodes.push_back(bss(ssids[pick % 7], channel,
                        static_cast<std::uint16_t>(2407 + 5 * channel + (pick >> 5) % 2), tail,
                        static_cast<std::uint8_t>(pick >> 8)));
  }
  list_ = make_list(nodes);
  std::vector<ap_node*> expected(list_->items, list_->items + list_->count);
  std::qsort(expected.data(), expected.size(), sizeof(ap_node*), ranking_comparator);
  std::vector<ap_node*> kept = {expected[0]};
  for (ap_node* node : expected) {
    if (ap_same(kept.back(), node) == 0) {
      kept.push_back(node);
    }
  }
  dedup_scanlist(&list_);
  // 7 SSIDs, 3 channels, 2 frequencies each: at most 42 runs of 100 nodes.
  ASSERT_LE(kept.size(), 42u);
  EXPECT_EQ(std::vector<ap_node*>(list_->items, list_->items + list_->count), kept);
}

}  // namespace
}  // namespace qira::test
