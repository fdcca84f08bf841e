// Ranking of access points: the security predicates, the weight rules in
// their order with the band rule's windows, and the sort order and sameness.
#include <gtest/gtest.h>

#include "qira/network/ap_selection.h"
#include "unit/ap_selection/ap_node_util.h"

namespace qira::test {
namespace {

struct SecurityCase {
  std::uint8_t encrypted;
  std::uint8_t wpa_version;
  int wpa, wpa2, both;
};

TEST(Security, PredicatesOverEveryVersion) {
  const SecurityCase cases[] = {{0, 0, 0, 0, 0},   {0, 1, 0, 0, 0},  {0, 2, 0, 0, 0},
                                {0, 3, 0, 0, 0},   {1, 0, 0, 0, 0},  {1, 1, 1, 0, 0},
                                {1, 2, 0, 1, 0},   {1, 3, 1, 1, 1},  {1, 4, 0, 0, 0},
                                {255, 3, 1, 1, 1}, {7, 255, 0, 0, 0}};
  for (const SecurityCase& c : cases) {
    NodeSpec shape;
    shape.encrypted = c.encrypted;
    shape.wpa_version = c.wpa_version;
    const ap_node node = make_node(shape);
    SCOPED_TRACE(testing::Message() << int(c.encrypted) << "/" << int(c.wpa_version));
    EXPECT_EQ(ap_supports_wpa(&node), c.wpa);
    EXPECT_EQ(ap_supports_wpa2(&node), c.wpa2);
    EXPECT_EQ(ap_supports_wpa_and_wpa2(&node), c.both);
  }
}

TEST(Security, NullNode) {
  EXPECT_EQ(ap_supports_wpa(nullptr), 0);
  EXPECT_EQ(ap_supports_wpa2(nullptr), 0);
  EXPECT_EQ(ap_supports_wpa_and_wpa2(nullptr), 0);
}

NodeSpec open_node(std::uint8_t signal, std::uint8_t quality, std::uint16_t frequency) {
  NodeSpec shape;
  shape.signal = signal;
  shape.quality = quality;
  shape.frequency = frequency;
  return shape;
}

NodeSpec secured(NodeSpec shape, std::uint8_t wpa_version) {
  shape.encrypted = 1;
  shape.wpa_version = wpa_version;
  return shape;
}

struct WeightCase {
  const char* name;
  NodeSpec a;
  NodeSpec b;
  int weight;  // ap_weight_function(a, b)
};

TEST(Weight, RulesInOrder) {
  const WeightCase cases[] = {
      {"WPA2 beats open despite a far stronger signal", secured(open_node(100, 0, 2412), 2),
       open_node(250, 100, 5180), 1},
      {"WPA and WPA2 counts as WPA2", secured(open_node(100, 0, 2412), 3),
       secured(open_node(250, 100, 5180), 1), 1},
      {"WPA2 flag without encryption is not WPA2", open_node(250, 100, 2412),
       secured(open_node(100, 0, 2412), 2), -1},
      {"both WPA2: encryption equal, band decides", secured(open_node(200, 10, 2412), 2),
       secured(open_node(203, 50, 5180), 2), -1},
      {"encrypted WPA beats open", secured(open_node(100, 0, 2412), 1), open_node(250, 100, 5180),
       1},
      {"WEP (encrypted, no WPA) beats open", secured(open_node(100, 0, 2412), 0),
       open_node(250, 100, 2412), 1},
      {"open loses to encrypted", open_node(250, 100, 5180), secured(open_node(1, 0, 2412), 0), -1},
      {"signals within 4: 5 GHz wins", open_node(200, 10, 2412), open_node(203, 50, 5180), -1},
      {"signals within 4, other way round", open_node(203, 50, 5180), open_node(200, 10, 2412), 1},
      {"signals 4 apart: band applies", open_node(204, 10, 5180), open_node(200, 90, 2412), 1},
      {"signals 5 apart, qualities 9 apart: band applies", open_node(195, 50, 5180),
       open_node(200, 59, 2412), 1},
      {"signals 5 apart, qualities 10 apart: signal", open_node(195, 50, 5180),
       open_node(200, 60, 2412), -1},
      {"signals 10 apart, qualities 40 apart: stronger signal wins", open_node(200, 10, 5180),
       open_node(210, 50, 2412), -1},
      {"both on 5 GHz: signal", open_node(200, 10, 5180), open_node(203, 50, 5240), -1},
      {"5.9 GHz is not 5 GHz", open_node(203, 50, 5865), open_node(200, 10, 5180), -1},
      {"equal signals: quality", open_node(200, 51, 2412), open_node(200, 50, 2412), 1},
      {"equal signals and qualities: equal", open_node(200, 50, 2412), open_node(200, 50, 2437), 0},
      {"signal compares as unsigned", open_node(255, 0, 2412), open_node(1, 100, 2412), 1},
  };
  for (const WeightCase& c : cases) {
    const ap_node a = make_node(c.a);
    const ap_node b = make_node(c.b);
    EXPECT_EQ(ap_weight_function(&a, &b), c.weight) << c.name;
    EXPECT_EQ(ap_weight_function(&b, &a), -c.weight) << c.name << " (swapped)";
    EXPECT_EQ(node_weight_function(&a, &b), c.weight) << c.name;
  }
}

TEST(Weight, NullNodes) {
  const ap_node a = make_node(NodeSpec{});
  EXPECT_EQ(ap_weight_function(nullptr, &a), 0);
  EXPECT_EQ(ap_weight_function(&a, nullptr), 0);
  EXPECT_EQ(ap_weight_function(nullptr, nullptr), 0);
  EXPECT_EQ(node_weight_function(nullptr, &a), 0);
  EXPECT_EQ(node_weight_function(&a, nullptr), 0);
}

NodeSpec named(const std::string& ssid, std::uint8_t channel, std::uint16_t frequency,
               std::uint8_t signal = 200) {
  NodeSpec shape;
  shape.ssid = ssid;
  shape.channel = channel;
  shape.frequency = frequency;
  shape.signal = signal;
  return shape;
}

struct LessCase {
  const char* name;
  NodeSpec a;
  NodeSpec b;
  int less;
};

TEST(Order, ApLess) {
  const LessCase cases[] = {
      {"ssid first", named("a", 11, 2462), named("b", 1, 2412), 1},
      {"ssid first, reversed", named("b", 1, 2412), named("a", 11, 2462), 0},
      {"prefix is smaller", named("net", 6, 2437), named("net2", 1, 2412), 1},
      {"byte-wise: upper case first", named("Z", 6, 2437), named("a", 6, 2437), 1},
      {"then channel", named("x", 1, 2472), named("x", 6, 2437), 1},
      {"then channel, reversed", named("x", 6, 2437), named("x", 1, 2472), 0},
      {"then frequency", named("x", 6, 2437), named("x", 6, 2438), 1},
      {"then frequency, reversed", named("x", 6, 2438), named("x", 6, 2437), 0},
      {"then the better one first", named("x", 6, 2437, 210), named("x", 6, 2437, 200), 1},
      {"the worse one is not less", named("x", 6, 2437, 200), named("x", 6, 2437, 210), 0},
      {"equal ones are less", named("x", 6, 2437), named("x", 6, 2437), 1},
  };
  for (const LessCase& c : cases) {
    const ap_node a = make_node(c.a);
    const ap_node b = make_node(c.b);
    EXPECT_EQ(ap_less(&a, &b), c.less) << c.name;
  }
  const ap_node a = make_node(NodeSpec{});
  EXPECT_EQ(ap_less(nullptr, &a), 0);
  EXPECT_EQ(ap_less(&a, nullptr), 0);
}

TEST(Order, ApSame) {
  NodeSpec first = named("x", 6, 2437, 200);
  first.bssid_tail = 1;
  NodeSpec other_bssid = named("x", 6, 2437, 150);
  other_bssid.bssid_tail = 2;
  other_bssid.encrypted = 1;
  const ap_node a = make_node(first);
  const ap_node b = make_node(other_bssid);
  EXPECT_EQ(ap_same(&a, &b), 1);
  const ap_node other_ssid = make_node(named("y", 6, 2437));
  const ap_node other_channel = make_node(named("x", 7, 2437));
  const ap_node other_frequency = make_node(named("x", 6, 2442));
  EXPECT_EQ(ap_same(&a, &other_ssid), 0);
  EXPECT_EQ(ap_same(&a, &other_channel), 0);
  EXPECT_EQ(ap_same(&a, &other_frequency), 0);
  EXPECT_EQ(ap_same(&a, nullptr), 0);
  EXPECT_EQ(ap_same(nullptr, &a), 0);
  EXPECT_EQ(ap_same(nullptr, nullptr), 0);
}

}  // namespace
}  // namespace qira::test
