// Table tests of the driver-value arithmetic behind the interface queries.
#include "netlib_iface/wext_math.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>

namespace qira::network::iface {
namespace {

iw_freq make_freq(std::int32_t m, std::int16_t e) {
  iw_freq freq{};
  freq.m = m;
  freq.e = e;
  return freq;
}

struct FrequencyCase {
  std::int32_t m;
  std::int16_t e;
  int megahertz;
};

TEST(FrequencyMegahertz, ExponentSixIsTakenAsMegahertz) {
  const FrequencyCase cases[] = {{2412, 6, 2412}, {5180, 6, 5180}, {0, 6, 0}, {-3, 6, -3}};
  for (const FrequencyCase& c : cases) {
    EXPECT_EQ(frequency_megahertz(make_freq(c.m, c.e)), c.megahertz) << c.m << "e" << c.e;
  }
}

TEST(FrequencyMegahertz, OtherExponentsScaleAndTruncate) {
  const FrequencyCase cases[] = {
      {241200000, 1, 2412},  // the usual driver encoding in units of 10 Hz
      {2412000, 3, 2412},    //
      {24120, 5, 2412},      //
      {6048, 7, 60480},      // 60 GHz
      {24125, 5, 2412},      // 2412.5 MHz truncates down
      {-24125, 5, -2412},    // and towards zero when negative
      {999999, 0, 0},        // below one MHz
      {1000000, 0, 1},       //
      {5180, -1, 0},         // a negative exponent is honoured
      {0, 9, 0},             //
  };
  for (const FrequencyCase& c : cases) {
    EXPECT_EQ(frequency_megahertz(make_freq(c.m, c.e)), c.megahertz) << c.m << "e" << c.e;
  }
}

TEST(FrequencyMegahertz, OutOfRangeSaturates) {
  EXPECT_EQ(frequency_megahertz(make_freq(INT32_MAX, 20)), INT_MAX);
  EXPECT_EQ(frequency_megahertz(make_freq(INT32_MIN, 20)), INT_MIN);
  EXPECT_EQ(frequency_megahertz(make_freq(0, 32767)), 0);  // 0 × infinity
}

TEST(ScaledMegahertz, HasNoExponentSixShortCut) {
  EXPECT_EQ(power_of_ten(6), 1000000.0);
  EXPECT_EQ(power_of_ten(1), 10.0);
  EXPECT_EQ(power_of_ten(0), 1.0);
  EXPECT_EQ(scaled_megahertz(5180, power_of_ten(6)), 5180);
  EXPECT_EQ(scaled_megahertz(241200000, power_of_ten(1)), 2412);
  EXPECT_EQ(scaled_megahertz(24129, power_of_ten(5)), 2412);
}

struct ChannelCase {
  int megahertz;
  int channel;
};

void expect_channels(const ChannelCase* begin, const ChannelCase* end) {
  for (const ChannelCase* c = begin; c != end; ++c) {
    EXPECT_EQ(frequency_to_channel(c->megahertz), c->channel) << c->megahertz << " MHz";
  }
}

// 2485 MHz falls through to the 5 GHz plan: (2485 - 5000) / 5.
TEST(FrequencyToChannel, TwoPointFourGigahertzAroundChannel14) {
  const ChannelCase cases[] = {
      {2412, 1}, {2437, 6}, {2472, 13}, {2483, 15}, {2484, 14}, {2485, -503},
  };
  expect_channels(std::begin(cases), std::end(cases));
}

TEST(FrequencyToChannel, BelowTheTwoGigahertzBaseTruncatesTowardsZero) {
  const ChannelCase cases[] = {{2407, 0}, {2403, 0}, {2402, -1}, {0, -481}, {-100, -501}};
  expect_channels(std::begin(cases), std::end(cases));
}

TEST(FrequencyToChannel, FourPointNineGigahertzBounds) {
  const ChannelCase cases[] = {
      {4909, -18}, {4910, 182}, {4920, 184}, {4980, 196}, {4981, -3},
  };
  expect_channels(std::begin(cases), std::end(cases));
}

TEST(FrequencyToChannel, FiveGigahertzUpTo45000) {
  const ChannelCase cases[] = {
      {5180, 36}, {5825, 165}, {5003, 0}, {45000, 8000}, {45001, 0},
  };
  expect_channels(std::begin(cases), std::end(cases));
}

TEST(FrequencyToChannel, SixtyGigahertzBounds) {
  const ChannelCase cases[] = {
      {58319, 0}, {58320, 1}, {60480, 2}, {62639, 2}, {64800, 4}, {64801, 0},
  };
  expect_channels(std::begin(cases), std::end(cases));
}

TEST(FrequencyToChannel, BetweenFiveAndSixtyGigahertzIsZero) {
  const ChannelCase cases[] = {{50000, 0}, {45001, 0}, {58000, 0}};
  expect_channels(std::begin(cases), std::end(cases));
}

TEST(FrequencyToChannel, ExtremesDoNotOverflow) {
  const ChannelCase cases[] = {{INT_MIN, -429497211}, {INT_MAX, 0}};
  expect_channels(std::begin(cases), std::end(cases));
}

iw_quality make_quality(std::uint8_t level, std::uint8_t updated) {
  iw_quality quality{};
  quality.level = level;
  quality.updated = updated;
  return quality;
}

TEST(SignalLevel, DbmFlagMakesTheByteNegative) {
  EXPECT_EQ(signal_level(make_quality(0xC4, IW_QUAL_DBM)), -60);
  EXPECT_EQ(signal_level(make_quality(0xC4, IW_QUAL_DBM | IW_QUAL_LEVEL_UPDATED)), -60);
  EXPECT_EQ(signal_level(make_quality(0x00, IW_QUAL_DBM)), -256);
  EXPECT_EQ(signal_level(make_quality(0xFF, IW_QUAL_DBM)), -1);
}

TEST(SignalLevel, WithoutDbmFlagTheByteIsUnsigned) {
  EXPECT_EQ(signal_level(make_quality(0xC4, 0)), 196);
  EXPECT_EQ(signal_level(make_quality(0xC4, IW_QUAL_LEVEL_UPDATED | IW_QUAL_QUAL_UPDATED)), 196);
  EXPECT_EQ(signal_level(make_quality(0xFF, 0)), 255);
  EXPECT_EQ(signal_level(make_quality(0x00, 0)), 0);
}

}  // namespace
}  // namespace qira::network::iface
