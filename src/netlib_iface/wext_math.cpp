#include "netlib_iface/wext_math.h"

#include <cmath>
#include <limits>

namespace qira::network::iface {

namespace {

constexpr double kHertzPerMegahertz = 1000000.0;
// A mantissa already in MHz is reported with this exponent.
constexpr std::int16_t kMegahertzExponent = 6;

// Channel plans: base frequencies, spacings and bounds in MHz.
// Channel 14 (Japan) sits off the 5 MHz raster of 2.4 GHz.
constexpr int kChannel14Megahertz = 2484;
constexpr int kChannel14 = 14;
constexpr int k2GhzBase = 2407;
constexpr int k4GhzFirst = 4910;
constexpr int k4GhzLast = 4980;
constexpr int k4GhzBase = 4000;
constexpr int k5GhzLast = 45000;
constexpr int k5GhzBase = 5000;
constexpr int kChannelSpacing = 5;
constexpr int k60GhzFirst = 58320;
constexpr int k60GhzLast = 64800;
constexpr int k60GhzBase = 56160;
constexpr int k60GhzSpacing = 2160;

constexpr int kSignedByteOffset = 256;

int truncate_to_int(double value) {
  if (std::isnan(value)) {
    return 0;
  }
  if (value >= static_cast<double>(std::numeric_limits<int>::max())) {
    return std::numeric_limits<int>::max();
  }
  if (value <= static_cast<double>(std::numeric_limits<int>::min())) {
    return std::numeric_limits<int>::min();
  }
  return static_cast<int>(value);
}

// (f - base) / spacing with truncation towards zero; widened so that a
// saturated frequency near INT_MIN cannot overflow the subtraction.
int channel_in_plan(int megahertz, int base, int spacing) {
  return static_cast<int>((static_cast<long long>(megahertz) - base) / spacing);
}

}  // namespace

double power_of_ten(std::int16_t exponent) {
  return std::pow(10.0, exponent);
}

int scaled_megahertz(std::int32_t mantissa, double scale) {
  return truncate_to_int(static_cast<double>(mantissa) * scale / kHertzPerMegahertz);
}

int frequency_megahertz(const iw_freq& freq) {
  if (freq.e == kMegahertzExponent) {
    return freq.m;
  }
  return scaled_megahertz(freq.m, power_of_ten(freq.e));
}

int frequency_to_channel(int megahertz) {
  if (megahertz == kChannel14Megahertz) {
    return kChannel14;
  }
  if (megahertz < kChannel14Megahertz) {
    return channel_in_plan(megahertz, k2GhzBase, kChannelSpacing);
  }
  if (megahertz >= k4GhzFirst && megahertz <= k4GhzLast) {
    return channel_in_plan(megahertz, k4GhzBase, kChannelSpacing);
  }
  if (megahertz <= k5GhzLast) {
    return channel_in_plan(megahertz, k5GhzBase, kChannelSpacing);
  }
  if (megahertz >= k60GhzFirst && megahertz <= k60GhzLast) {
    return channel_in_plan(megahertz, k60GhzBase, k60GhzSpacing);
  }
  return 0;
}

int signal_level(const iw_quality& quality) {
  const int level = quality.level;  // __u8: 0..255
  if ((quality.updated & IW_QUAL_DBM) != 0) {
    return level - kSignedByteOffset;
  }
  return level;
}

}  // namespace qira::network::iface
