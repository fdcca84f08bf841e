// Band classification by centre frequency: every bound of every band, the
// 16-bit quirk of the 5 GHz test, band comparison and band names.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "qira/network/ap_selection.h"

namespace qira::test {
namespace {

// Expected membership of one frequency: sub-GHz, 2.4, 3.6, 4.9, 5, 5.9, 60.
struct BandCase {
  unsigned int freq;
  int sub_ghz, ghz_2_4, ghz_3_6, ghz_4_9, ghz_5, ghz_5_9, ghz_60;
  const char* text;  // null: no band
};

const BandCase kBandCases[] = {
    {0, 0, 0, 0, 0, 0, 0, 0, nullptr},
    {750, 0, 0, 0, 0, 0, 0, 0, nullptr},
    {751, 1, 0, 0, 0, 0, 0, 0, "900 MHz"},
    {999, 1, 0, 0, 0, 0, 0, 0, "900 MHz"},
    {1000, 0, 0, 0, 0, 0, 0, 0, nullptr},
    {1500, 0, 0, 0, 0, 0, 0, 0, nullptr},
    {2400, 0, 0, 0, 0, 0, 0, 0, nullptr},
    {2401, 0, 1, 0, 0, 0, 0, 0, "2.4 GHz"},
    {2412, 0, 1, 0, 0, 0, 0, 0, "2.4 GHz"},
    {2484, 0, 1, 0, 0, 0, 0, 0, "2.4 GHz"},
    {2499, 0, 1, 0, 0, 0, 0, 0, "2.4 GHz"},
    {2500, 0, 0, 0, 0, 0, 0, 0, nullptr},
    {3649, 0, 0, 0, 0, 0, 0, 0, nullptr},
    {3650, 0, 0, 1, 0, 0, 0, 0, "3.6 GHz"},
    {3700, 0, 0, 1, 0, 0, 0, 0, "3.6 GHz"},
    {3701, 0, 0, 0, 0, 0, 0, 0, nullptr},
    {4939, 0, 0, 0, 0, 0, 0, 0, nullptr},
    {4940, 0, 0, 0, 1, 0, 0, 0, "4.9 GHz"},
    {4990, 0, 0, 0, 1, 0, 0, 0, "4.9 GHz"},
    {4991, 0, 0, 0, 0, 0, 0, 0, nullptr},
    {5003, 0, 0, 0, 0, 0, 0, 0, nullptr},
    {5004, 0, 0, 0, 0, 1, 0, 0, "5 GHz"},
    {5180, 0, 0, 0, 0, 1, 0, 0, "5 GHz"},
    {5849, 0, 0, 0, 0, 1, 0, 0, "5 GHz"},
    {5850, 0, 0, 0, 0, 0, 1, 0, "4.9 GHz"},
    {5865, 0, 0, 0, 0, 0, 1, 0, "4.9 GHz"},
    {5925, 0, 0, 0, 0, 0, 1, 0, "4.9 GHz"},
    {5926, 0, 0, 0, 0, 0, 0, 0, nullptr},
    {57239, 0, 0, 0, 0, 0, 0, 0, nullptr},
    {57240, 0, 0, 0, 0, 0, 0, 1, "60 GHz"},
    {65535, 0, 0, 0, 0, 0, 0, 1, "60 GHz"},
    // 5 GHz values 65536 higher: the 5 GHz test wins in table order.
    {5004 + 65536, 0, 0, 0, 0, 1, 0, 1, "5 GHz"},
    {5849 + 65536, 0, 0, 0, 0, 1, 0, 1, "5 GHz"},
    {5850 + 65536, 0, 0, 0, 0, 0, 0, 1, "60 GHz"},
    {5180 + 3 * 65536u, 0, 0, 0, 0, 1, 0, 1, "5 GHz"},
    {UINT_MAX, 0, 0, 0, 0, 0, 0, 1, "60 GHz"},
};

TEST(Bands, EveryBoundOfEveryBand) {
  for (const BandCase& c : kBandCases) {
    SCOPED_TRACE(c.freq);
    EXPECT_EQ(is_sub_ghz_band(c.freq), c.sub_ghz);
    EXPECT_EQ(is_2_4_ghz_band(c.freq), c.ghz_2_4);
    EXPECT_EQ(is_3_6_ghz_band(c.freq), c.ghz_3_6);
    EXPECT_EQ(is_4_9_ghz_band(c.freq), c.ghz_4_9);
    EXPECT_EQ(is_5_ghz_band(c.freq), c.ghz_5);
    EXPECT_EQ(is_5_9_ghz_band(c.freq), c.ghz_5_9);
    EXPECT_EQ(is_60_ghz_band(c.freq), c.ghz_60);
    const char* text = freq_to_band_string(c.freq);
    if (c.text == nullptr) {
      EXPECT_EQ(text, nullptr);
    } else {
      ASSERT_NE(text, nullptr);
      EXPECT_STREQ(text, c.text);
    }
  }
}

TEST(Bands, FiveGhzTestWrapsBelowItsStart) {
  // 5003 - 5004 is 0xffffffff: low 16 bits 65535, outside.
  EXPECT_EQ(is_5_ghz_band(5003), 0);
  EXPECT_EQ(is_5_ghz_band(0), 0);
  // 65536 below 5004 (wrapped to a full-width value): offset's low 16 bits 0.
  EXPECT_EQ(is_5_ghz_band(5004u - 65536u), 1);
  EXPECT_STREQ(freq_to_band_string(5004u - 65536u), "5 GHz");
  EXPECT_EQ(is_5_ghz_band(5849u + 65536u * 100u), 1);
  EXPECT_EQ(is_5_ghz_band(5850u + 65536u * 100u), 0);
}

TEST(Bands, TextsAreStatic) {
  EXPECT_EQ(freq_to_band_string(2412), freq_to_band_string(2484));
  EXPECT_EQ(freq_to_band_string(4940), freq_to_band_string(5900));
}

struct SameBandCase {
  unsigned int a, b;
  int same;
};

TEST(Bands, IsSameBand) {
  const SameBandCase cases[] = {
      {2412, 2484, 1},   {5180, 5865, 0},         {0, 0, 0},       {1500, 1500, 0},
      {751, 999, 1},     {999, 1000, 0},          {2401, 2499, 1}, {2400, 2401, 0},
      {3650, 3700, 1},   {4940, 4990, 1},         {4990, 5004, 0}, {5004, 5849, 1},
      {5849, 5850, 0},   {5850, 5925, 1},         {4940, 5850, 0}, {57240, 90000, 1},
      {57239, 57240, 0}, {5180, 5180 + 65536, 1}, {2412, 5180, 0}};
  for (const SameBandCase& c : cases) {
    EXPECT_EQ(is_same_band(c.a, c.b), c.same) << c.a << " " << c.b;
    EXPECT_EQ(is_same_band(c.b, c.a), c.same) << c.b << " " << c.a;
  }
}

}  // namespace
}  // namespace qira::test
