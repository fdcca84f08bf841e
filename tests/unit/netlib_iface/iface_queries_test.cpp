// The interface queries against the simulated wireless-extension driver:
// the exact requests sent and the answers derived from the driver's values.
#include <gtest/gtest.h>
#include <linux/wireless.h>

#include <string>
#include <vector>

#include "qira/network/netlib_iface.h"
#include "unit/netlib_iface/iface_test_util.h"

namespace qira::test::iface {
namespace {

using namespace qira::network;

constexpr int kSentinel = 12345;

iw_freq make_freq(std::int32_t m, std::int16_t e, std::uint8_t channel = 0) {
  iw_freq freq{};
  freq.m = m;
  freq.e = e;
  freq.i = channel;
  return freq;
}

class IfaceQuery : public LoadedModule {
 protected:
  // The data length and flags of the `index`th request as the driver got them.
  void expect_data(std::size_t index, std::uint16_t length, std::uint16_t flags) {
    ASSERT_LT(index, wext_.requests().size());
    EXPECT_EQ(wext_.requests()[index].length, length);
    EXPECT_EQ(wext_.requests()[index].flags, flags);
  }

  int channel_for(const iw_freq& reported) {
    wlan0().freq = reported;
    int channel = kSentinel;
    EXPECT_TRUE(netlib_iface_iw_get_channel(ctx(), "wlan0", channel));
    expect_requests({SIOCGIWFREQ, SIOCGIWRANGE});
    expect_data(1, 568, 0);
    EXPECT_TRUE(log_.records().empty());
    return channel;
  }
};

// ---- ESSID and BSSID ---------------------------------------------------------

TEST_F(IfaceQuery, EssidSendsLength34Flags0AndKeepsBytesUpToTheFirstNul) {
  wlan0().essid = std::string("cam\0tail", 8);
  std::string essid = "before";
  EXPECT_TRUE(netlib_iface_iw_get_essid(ctx(), "wlan0", essid));
  EXPECT_EQ(essid, "cam");
  expect_requests({SIOCGIWESSID});
  expect_data(0, 34, 0);
  EXPECT_TRUE(log_.records().empty());
}

TEST_F(IfaceQuery, EssidOf32BytesIsReturnedWhole) {
  wlan0().essid = "abcdefghijklmnopqrstuvwxyz012345";
  std::string essid;
  EXPECT_TRUE(netlib_iface_iw_get_essid(ctx(), "wlan0", essid));
  EXPECT_EQ(essid, "abcdefghijklmnopqrstuvwxyz012345");
}

TEST_F(IfaceQuery, EmptyEssidReplacesTheOutput) {
  wlan0().essid = "";
  std::string essid = "before";
  EXPECT_TRUE(netlib_iface_iw_get_essid(ctx(), "wlan0", essid));
  EXPECT_EQ(essid, "");
}

TEST_F(IfaceQuery, BssidIsLowerCaseColonSeparatedHex) {
  wlan0().bssid = {0x00, 0x1A, 0xBC, 0xDE, 0xF0, 0x09};
  std::string bssid;
  EXPECT_TRUE(netlib_iface_iw_get_bssid(ctx(), "wlan0", bssid));
  EXPECT_EQ(bssid, "00:1a:bc:de:f0:09");
  expect_requests({SIOCGIWAP});
  expect_data(0, 0, 0);
}

TEST_F(IfaceQuery, BssidOfAllOnes) {
  wlan0().bssid = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  std::string bssid;
  EXPECT_TRUE(netlib_iface_iw_get_bssid(ctx(), "wlan0", bssid));
  EXPECT_EQ(bssid, "ff:ff:ff:ff:ff:ff");
}

// ---- Interface name field ----------------------------------------------------

// The kernel looks a name of 16 bytes or more up by its first 15, so the
// driver's interface is "wlan0123456789a"; the field itself holds 16 bytes.
TEST_F(IfaceQuery, TwentyCharacterNameIsSentAsItsFirst16Bytes) {
  wext_.interface("wlan0123456789a").bitrate = 54000000;
  int bitrate = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_bitrate(ctx(), "wlan0123456789abcdef", bitrate));
  EXPECT_EQ(bitrate, 54);
  ASSERT_EQ(wext_.requests().size(), 1u);
  // All 16 bytes are the name's: no NUL inside the field.
  EXPECT_EQ(wext_.requests()[0].name, name_field("wlan0123456789ab"));
}

TEST_F(IfaceQuery, SixteenCharacterNameFillsTheFieldWithoutNul) {
  wext_.interface("abcdefghijklmno").bitrate = 11000000;
  int bitrate = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_bitrate(ctx(), "abcdefghijklmnop", bitrate));
  EXPECT_EQ(bitrate, 11);
  ASSERT_EQ(wext_.requests().size(), 1u);
  EXPECT_EQ(wext_.requests()[0].name, name_field("abcdefghijklmnop"));
}

TEST_F(IfaceQuery, ShortNameIsZeroPadded) {
  wext_.interface("ap0").bitrate = 6000000;
  int bitrate = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_bitrate(ctx(), "ap0", bitrate));
  EXPECT_EQ(bitrate, 6);
  ASSERT_EQ(wext_.requests().size(), 1u);
  const std::array<char, IFNAMSIZ> expected = {'a', 'p', '0'};
  EXPECT_EQ(wext_.requests()[0].name, expected);
}

// ---- Frequency -----------------------------------------------------------------

TEST_F(IfaceQuery, FreqOfMantissa241200000Exponent1Is2412) {
  wlan0().freq = make_freq(241200000, 1);
  int freq = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_freq(ctx(), "wlan0", freq));
  EXPECT_EQ(freq, 2412);
  expect_requests({SIOCGIWFREQ});
  expect_data(0, 0, 0);
  EXPECT_TRUE(log_.records().empty());
}

TEST_F(IfaceQuery, FreqWithExponent6IsTheMantissa) {
  wlan0().freq = make_freq(5180, 6);
  int freq = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_freq(ctx(), "wlan0", freq));
  EXPECT_EQ(freq, 5180);
  expect_requests({SIOCGIWFREQ});
}

TEST_F(IfaceQuery, FreqMantissa1000IsAFrequencyNotAChannel) {
  wlan0().freq = make_freq(1000, 6);
  int freq = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_freq(ctx(), "wlan0", freq));
  EXPECT_EQ(freq, 1000);
  expect_requests({SIOCGIWFREQ});
}

TEST_F(IfaceQuery, FreqOfChannel6IsTheRangeEntryWithIndex6) {
  wlan0().freq = make_freq(6, 0);
  wlan0().range_frequencies = {make_freq(241200000, 1, 1), make_freq(243700000, 1, 6),
                               make_freq(2462, 6, 11)};
  int freq = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_freq(ctx(), "wlan0", freq));
  EXPECT_EQ(freq, 2437);
  expect_requests({SIOCGIWFREQ, SIOCGIWRANGE});
  expect_data(1, 568, 0);
  EXPECT_TRUE(log_.records().empty());
}

TEST_F(IfaceQuery, FreqOfChannel999LooksUpTheRangeTable) {
  wlan0().freq = make_freq(999, 0);
  wlan0().range_frequencies = {make_freq(5180, 6, 36), make_freq(5200, 6, 999 & 0xFF)};
  int freq = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_freq(ctx(), "wlan0", freq));
  EXPECT_EQ(freq, 5200);
  expect_requests({SIOCGIWFREQ, SIOCGIWRANGE});
}

TEST_F(IfaceQuery, FreqTakesTheFirstMatchingRangeEntry) {
  wlan0().freq = make_freq(6, 0);
  wlan0().range_frequencies = {make_freq(2437, 6, 6), make_freq(2442, 6, 6)};
  int freq = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_freq(ctx(), "wlan0", freq));
  EXPECT_EQ(freq, 2437);
}

TEST_F(IfaceQuery, FreqComparesTheChannelAsAnEightBitIndex) {
  wlan0().freq = make_freq(256 + 6, 0);
  wlan0().range_frequencies = {make_freq(2412, 6, 1), make_freq(2437, 6, 6)};
  int freq = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_freq(ctx(), "wlan0", freq));
  EXPECT_EQ(freq, 2437);
}

TEST_F(IfaceQuery, FreqOfChannelMissingFromTheRangeIsTrueAndUntouched) {
  wlan0().freq = make_freq(6, 0);
  wlan0().range_frequencies = {make_freq(2412, 6, 1), make_freq(2462, 6, 11)};
  int freq = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_freq(ctx(), "wlan0", freq));
  EXPECT_EQ(freq, kSentinel);
  expect_requests({SIOCGIWFREQ, SIOCGIWRANGE});
  EXPECT_TRUE(log_.records().empty());
}

// The walk over the range table stops after its 32 entries whatever count
// the driver states (up to 255): a stricter rule than walking num_frequency
// entries, which would read past the table (and past the 568-byte record;
// an AddressSanitizer build stops at the first such read). Here no entry
// matches: true, untouched.
TEST_F(IfaceQuery, FreqWalksAtMostTheRangeTablesThirtyTwoEntries) {
  wlan0().freq = make_freq(6, 0);
  wlan0().range_frequencies.clear();
  for (int entry = 0; entry < IW_MAX_FREQUENCIES; ++entry) {
    // Channel indexes 100 to 131: none is 6.
    wlan0().range_frequencies.push_back(make_freq(5000 + 5 * entry, 6, 100 + entry));
  }
  wlan0().range_count_stated = 255;
  int freq = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_freq(ctx(), "wlan0", freq));
  EXPECT_EQ(freq, kSentinel);
  expect_requests({SIOCGIWFREQ, SIOCGIWRANGE});
  EXPECT_TRUE(log_.records().empty());
}

TEST_F(IfaceQuery, FreqFindsTheLastOfThirtyTwoEntriesWhenMoreAreStated) {
  wlan0().freq = make_freq(131, 0);
  wlan0().range_frequencies.clear();
  for (int entry = 0; entry < IW_MAX_FREQUENCIES; ++entry) {
    wlan0().range_frequencies.push_back(make_freq(5000 + 5 * entry, 6, 100 + entry));
  }
  wlan0().range_count_stated = 255;
  int freq = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_freq(ctx(), "wlan0", freq));
  EXPECT_EQ(freq, 5155);
}

TEST_F(IfaceQuery, FreqWithNoRangeFrequenciesIsTrueAndUntouched) {
  wlan0().freq = make_freq(6, 0);
  wlan0().range_frequencies = {};
  int freq = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_freq(ctx(), "wlan0", freq));
  EXPECT_EQ(freq, kSentinel);
  expect_requests({SIOCGIWFREQ, SIOCGIWRANGE});
  EXPECT_TRUE(log_.records().empty());
}

TEST_F(IfaceQuery, FreqOfAChannelFailsWhenTheRangeRequestFails) {
  wlan0().freq = make_freq(6, 0);
  wlan0().range_frequencies = {make_freq(2437, 6, 6)};
  wext_.fail(SIOCGIWRANGE, EOPNOTSUPP);
  int freq = kSentinel;
  EXPECT_FALSE(netlib_iface_iw_get_freq(ctx(), "wlan0", freq));
  EXPECT_EQ(freq, kSentinel);
  expect_requests({SIOCGIWFREQ, SIOCGIWRANGE});
  expect_one_record(log_, "do_ioctl", EOPNOTSUPP, "netlib: ioctl(8B0B) failed");
}

// ---- Channel -------------------------------------------------------------------

TEST_F(IfaceQuery, ChannelOfMantissa241200000Exponent1Is1) {
  EXPECT_EQ(channel_for(make_freq(241200000, 1)), 1);
}

TEST_F(IfaceQuery, ChannelOf2484MegahertzIs14) {
  EXPECT_EQ(channel_for(make_freq(248400000, 1)), 14);
}

TEST_F(IfaceQuery, ChannelOf5180MegahertzIs36) {
  EXPECT_EQ(channel_for(make_freq(5180, 6)), 36);
}

TEST_F(IfaceQuery, ChannelOf4920MegahertzIs184) {
  EXPECT_EQ(channel_for(make_freq(492000000, 1)), 184);
}

TEST_F(IfaceQuery, ChannelOf60480MegahertzIs2) {
  EXPECT_EQ(channel_for(make_freq(6048, 7)), 2);
}

TEST_F(IfaceQuery, ChannelOf50000MegahertzIs0) {
  EXPECT_EQ(channel_for(make_freq(50000, 6)), 0);
}

TEST_F(IfaceQuery, ChannelIgnoresTheRangeRecordItself) {
  wlan0().range_frequencies = {make_freq(2462, 6, 11)};
  EXPECT_EQ(channel_for(make_freq(2412, 6)), 1);
}

TEST_F(IfaceQuery, ChannelNumberFromTheDriverIsTakenDirectly) {
  wlan0().freq = make_freq(6, 0);
  wlan0().range_frequencies = {make_freq(2462, 6, 6)};
  int channel = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_channel(ctx(), "wlan0", channel));
  EXPECT_EQ(channel, 6);
  expect_requests({SIOCGIWFREQ});
  EXPECT_TRUE(log_.records().empty());
}

TEST_F(IfaceQuery, ChannelFailsWhenTheRangeRequestFails) {
  wlan0().freq = make_freq(241200000, 1);
  wext_.fail(SIOCGIWRANGE, EOPNOTSUPP);
  int channel = kSentinel;
  EXPECT_FALSE(netlib_iface_iw_get_channel(ctx(), "wlan0", channel));
  EXPECT_EQ(channel, kSentinel);
  expect_requests({SIOCGIWFREQ, SIOCGIWRANGE});
  expect_one_record(log_, "do_ioctl", EOPNOTSUPP, "netlib: ioctl(8B0B) failed");
}

// ---- Bit rate, power, quality, signal, noise, mode -------------------------------

TEST_F(IfaceQuery, Bitrate54000000Is54) {
  wlan0().bitrate = 54000000;
  int bitrate = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_bitrate(ctx(), "wlan0", bitrate));
  EXPECT_EQ(bitrate, 54);
  expect_requests({SIOCGIWRATE});
  expect_data(0, 0, 0);
}

TEST_F(IfaceQuery, BitrateIsTruncated) {
  wlan0().bitrate = 5500000;
  int bitrate = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_bitrate(ctx(), "wlan0", bitrate));
  EXPECT_EQ(bitrate, 5);
}

TEST_F(IfaceQuery, TxpowerIsTheDriverValueUnchanged) {
  wlan0().txpower = 20;
  int txpower = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_txpower(ctx(), "wlan0", txpower));
  EXPECT_EQ(txpower, 20);
  expect_requests({SIOCGIWTXPOW});
  expect_data(0, 0, 0);
}

TEST_F(IfaceQuery, TxpowerIsNotConverted) {
  wlan0().txpower = 1000;
  int txpower = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_txpower(ctx(), "wlan0", txpower));
  EXPECT_EQ(txpower, 1000);
}

TEST_F(IfaceQuery, QualitySendsLength32Flags1AndIsQualQual) {
  wlan0().quality.qual = 70;
  wlan0().quality.level = 0xC4;
  int quality = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_quality(ctx(), "wlan0", quality));
  EXPECT_EQ(quality, 70);
  expect_requests({SIOCGIWSTATS});
  expect_data(0, 32, 1);
}

TEST_F(IfaceQuery, QualityIsReadUnsigned) {
  wlan0().quality.qual = 255;
  int quality = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_quality(ctx(), "wlan0", quality));
  EXPECT_EQ(quality, 255);
}

TEST_F(IfaceQuery, QualityMaxSendsLength568Flags0AndIsMaxQual) {
  wlan0().max_quality = 100;
  int quality_max = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_quality_max(ctx(), "wlan0", quality_max));
  EXPECT_EQ(quality_max, 100);
  expect_requests({SIOCGIWRANGE});
  expect_data(0, 568, 0);
}

TEST_F(IfaceQuery, SignalLevelC4WithDbmFlagIsMinus60) {
  wlan0().quality.level = 0xC4;
  wlan0().quality.updated = IW_QUAL_DBM | IW_QUAL_LEVEL_UPDATED;
  int level = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_signal_level(ctx(), "wlan0", level));
  EXPECT_EQ(level, -60);
  expect_requests({SIOCGIWSTATS});
  expect_data(0, 32, 1);
}

TEST_F(IfaceQuery, SignalLevelC4WithoutDbmFlagIs196) {
  wlan0().quality.level = 0xC4;
  wlan0().quality.updated = IW_QUAL_LEVEL_UPDATED;
  int level = kSentinel;
  EXPECT_TRUE(netlib_iface_iw_get_signal_level(ctx(), "wlan0", level));
  EXPECT_EQ(level, 196);
}

TEST_F(IfaceQuery, WirelessModeIsTheLowByteOfTheMode) {
  wlan0().mode = 0x1203;
  unsigned char mode = 0xA5;
  EXPECT_TRUE(netlib_iface_iw_get_wireless_mode(ctx(), "wlan0", mode));
  EXPECT_EQ(mode, 0x03);
  expect_requests({SIOCGIWMODE});
  expect_data(0, 0, 0);
}

TEST_F(IfaceQuery, WirelessModeOfAStationIsInfra) {
  wlan0().mode = IW_MODE_INFRA;
  unsigned char mode = 0xA5;
  EXPECT_TRUE(netlib_iface_iw_get_wireless_mode(ctx(), "wlan0", mode));
  EXPECT_EQ(mode, IW_MODE_INFRA);
}

}  // namespace
}  // namespace qira::test::iface
