// Arithmetic on the values wireless-extension drivers report: frequency
// records, channel numbers and signal levels. Plain functions over values, so
// the interface queries stay thin and these rules can be tested by tables.
// Private to the module (hidden like everything not exported).
#ifndef QIRA_SRC_NETLIB_IFACE_WEXT_MATH_H
#define QIRA_SRC_NETLIB_IFACE_WEXT_MATH_H

#include <linux/wireless.h>

#include <cstdint>

namespace qira::network::iface {

// 10^exponent in double precision, as the driver's frequency scale.
double power_of_ten(std::int16_t exponent);

// mantissa × scale ÷ 1 000 000 in double precision, truncated towards zero.
// Values beyond the int range saturate (what the camera's ARM conversion
// does); a NaN gives 0.
int scaled_megahertz(std::int32_t mantissa, double scale);

// MHz of a frequency record: with exponent 6 the mantissa is already MHz and
// is taken as it is; otherwise mantissa × 10^e ÷ 1 000 000, truncated.
int frequency_megahertz(const iw_freq& freq);

// Channel number of a frequency in MHz (2.4 GHz, 4.9 GHz, 5 GHz and 60 GHz
// plans); 0 for a frequency no plan covers. Signed integer division, so
// frequencies below a plan's base give truncated negative numbers.
int frequency_to_channel(int megahertz);

// Signal level of a statistics record: the level byte read unsigned, minus
// 256 when the driver flags it as dBm (IW_QUAL_DBM), else the byte itself.
int signal_level(const iw_quality& quality);

}  // namespace qira::network::iface

#endif  // QIRA_SRC_NETLIB_IFACE_WEXT_MATH_H
