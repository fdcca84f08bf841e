// The reference host's BSS decoder: the pure decoding by tables, and the
// nl80211 callback on scan result messages built with libnl from real
// beacon element bytes.
#include "qira/host/bss_decoder.h"

#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/handlers.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/bss_message.h"

namespace qira::test {
namespace {

using qira::host::bss_fields;
using qira::host::byte_view;

// Beacon elements as hostapd sends them: SSID, supported rates, DS parameter
// set (channel 6), TIM, ERP, extended rates.
Bytes common_elements(const std::string& ssid) {
  return join({ssid_element(ssid),
               {0x01, 0x08, 0x82, 0x84, 0x8b, 0x96, 0x0c, 0x12, 0x18, 0x24},
               {0x03, 0x01, 0x06},
               {0x05, 0x04, 0x00, 0x01, 0x00, 0x00},
               {0x2a, 0x01, 0x04},
               {0x32, 0x04, 0x30, 0x48, 0x60, 0x6c}});
}

// WMM parameter element: a 00:50:F2 vendor element of type 2, not WPA.
const Bytes kWmmElement = {0xdd, 0x18, 0x00, 0x50, 0xf2, 0x02, 0x01, 0x01, 0x00,
                           0x00, 0x03, 0xa4, 0x00, 0x00, 0x27, 0xa4, 0x00, 0x00,
                           0x42, 0x43, 0x5e, 0x00, 0x62, 0x32, 0x2f, 0x00};
// RSN: version 1, group CCMP, pairwise CCMP, AKM PSK, capabilities.
const Bytes kRsnWpa2Psk = {0x30, 0x14, 0x01, 0x00, 0x00, 0x0f, 0xac, 0x04, 0x01, 0x00, 0x00,
                           0x0f, 0xac, 0x04, 0x01, 0x00, 0x00, 0x0f, 0xac, 0x02, 0x0c, 0x00};
// RSN of a mixed network: group TKIP, pairwise CCMP then TKIP, AKM PSK.
const Bytes kRsnMixed = {0x30, 0x18, 0x01, 0x00, 0x00, 0x0f, 0xac, 0x02, 0x02,
                         0x00, 0x00, 0x0f, 0xac, 0x04, 0x00, 0x0f, 0xac, 0x02,
                         0x01, 0x00, 0x00, 0x0f, 0xac, 0x02, 0x00, 0x00};
// WPA of a mixed network: group TKIP, pairwise TKIP then CCMP, AKM PSK.
const Bytes kWpaMixed = {0xdd, 0x1a, 0x00, 0x50, 0xf2, 0x01, 0x01, 0x00, 0x00, 0x50,
                         0xf2, 0x02, 0x02, 0x00, 0x00, 0x50, 0xf2, 0x02, 0x00, 0x50,
                         0xf2, 0x04, 0x01, 0x00, 0x00, 0x50, 0xf2, 0x02};
// RSN of WPA3-Personal: group and pairwise CCMP, AKM SAE, MFP required.
const Bytes kRsnSae = {0x30, 0x14, 0x01, 0x00, 0x00, 0x0f, 0xac, 0x04, 0x01, 0x00, 0x00,
                       0x0f, 0xac, 0x04, 0x01, 0x00, 0x00, 0x0f, 0xac, 0x08, 0xc0, 0x00};
// RSN extension element (SAE hash-to-element).
const Bytes kRsnExtension = {0xf4, 0x01, 0x20};

constexpr std::uint16_t kEss = 0x0001;
constexpr std::uint16_t kIbss = 0x0002;
constexpr std::uint16_t kPrivacy = 0x0010;
constexpr std::uint16_t kShortSlot = 0x0400;

const std::array<std::uint8_t, 6> kBssid = {0x02, 0x00, 0x00, 0x00, 0x01, 0x00};

// Runs the host's callback on `bss` the way the module does.
scan_entry decode_message(const BssAttributes& bss, int* result = nullptr,
                          std::int32_t* count = nullptr) {
  MessagePtr msg = make_scan_result_message(bss);
  scan_entry entry;
  std::memset(&entry, 0, sizeof entry);
  scan_cursor cursor{&entry, 1};
  const int answer = nl80211_get_scanlist_cb(msg.get(), &cursor);
  if (result != nullptr) {
    *result = answer;
  }
  if (count != nullptr) {
    *count = cursor.count;
  }
  return entry;
}

BssAttributes beacon(const Bytes& ies, std::uint16_t capability) {
  BssAttributes bss;
  bss.bssid = kBssid;
  bss.frequency = 2437;
  bss.capability = capability;
  bss.signal_mbm = -4500;
  bss.ies = ies;
  bss.beacon_ies = ies;
  return bss;
}

std::vector<std::uint8_t> ciphers(const scan_entry& entry) {
  return {entry.cipher_bytes, entry.cipher_bytes + 4};
}

TEST(BssDecoder, OpenNetwork) {
  int result = 0;
  std::int32_t count = 0;
  const scan_entry entry = decode_message(
      beacon(join({common_elements("open-net"), kWmmElement}), kEss | kShortSlot), &result, &count);
  EXPECT_EQ(result, NL_SKIP);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(std::vector<std::uint8_t>(entry.bssid, entry.bssid + 6),
            std::vector<std::uint8_t>(kBssid.begin(), kBssid.end()));
  EXPECT_STREQ(entry.ssid, "open-net");
  EXPECT_EQ(entry.frequency, 2437);
  EXPECT_EQ(entry.channel, 6);
  EXPECT_EQ(entry.mode, 2u);
  EXPECT_EQ(entry.signal, 211);
  EXPECT_EQ(entry.quality, 100);
  EXPECT_EQ(entry.link_byte_1, 0);
  EXPECT_EQ(entry.link_byte_3, 1);
  EXPECT_EQ(entry.encrypted, 0);
  EXPECT_EQ(entry.wpa_version, 0);
  EXPECT_EQ(ciphers(entry), (std::vector<std::uint8_t>{0, 0, 0, 0}));
}

TEST(BssDecoder, Wpa2Psk) {
  const scan_entry entry = decode_message(
      beacon(join({common_elements("home"), kRsnWpa2Psk, kWmmElement}), kEss | kPrivacy));
  EXPECT_STREQ(entry.ssid, "home");
  EXPECT_EQ(entry.encrypted, 1);
  EXPECT_EQ(entry.wpa_version, 2);
  EXPECT_EQ(ciphers(entry), (std::vector<std::uint8_t>{4, 4, 0, 0}));
}

TEST(BssDecoder, WpaAndWpa2Mixed) {
  const scan_entry entry = decode_message(
      beacon(join({common_elements("mixed"), kRsnMixed, kWpaMixed}), kEss | kPrivacy));
  EXPECT_EQ(entry.encrypted, 1);
  EXPECT_EQ(entry.wpa_version, 3);
  EXPECT_EQ(ciphers(entry), (std::vector<std::uint8_t>{2, 4, 2, 2}));
}

TEST(BssDecoder, Wpa3Sae) {
  const scan_entry entry = decode_message(
      beacon(join({common_elements("sae"), kRsnSae, kRsnExtension}), kEss | kPrivacy));
  EXPECT_EQ(entry.encrypted, 1);
  EXPECT_EQ(entry.wpa_version, 2);
  EXPECT_EQ(ciphers(entry), (std::vector<std::uint8_t>{4, 4, 0, 0}));
}

TEST(BssDecoder, HiddenNetworkHasAnEmptySsid) {
  Bytes ies = common_elements("");
  const scan_entry entry = decode_message(beacon(ies, kEss | kPrivacy));
  EXPECT_EQ(entry.ssid[0], '\0');
  EXPECT_EQ(entry.channel, 6);
}

TEST(BssDecoder, HiddenNetworkWithZeroFilledSsid) {
  const scan_entry entry =
      decode_message(beacon(join({element(0, {0, 0, 0, 0, 0}), {0x03, 0x01, 0x01}}), kEss));
  EXPECT_EQ(std::vector<char>(entry.ssid, entry.ssid + 33), std::vector<char>(33, '\0'));
}

TEST(BssDecoder, ProbeResponseSsidWinsOverTheHiddenBeacon) {
  BssAttributes bss = beacon(common_elements("revealed"), kEss);
  bss.beacon_ies = common_elements("");
  EXPECT_STREQ(decode_message(bss).ssid, "revealed");
}

TEST(BssDecoder, BeaconElementsWhenTheInformationElementsAreAbsent) {
  BssAttributes bss = beacon(join({common_elements("beacon-only"), kRsnWpa2Psk}), kEss | kPrivacy);
  bss.ies.reset();
  const scan_entry entry = decode_message(bss);
  EXPECT_STREQ(entry.ssid, "beacon-only");
  EXPECT_EQ(entry.wpa_version, 2);
}

TEST(BssDecoder, BeaconElementsWhenTheInformationElementsLackTheSsid) {
  BssAttributes bss = beacon({0x03, 0x01, 0x01}, kEss);
  bss.beacon_ies = ssid_element("from-beacon");
  EXPECT_STREQ(decode_message(bss).ssid, "from-beacon");
}

TEST(BssDecoder, SsidOfThirtyTwoBytesIsKeptWhole) {
  const std::string name(32, 'x');
  EXPECT_EQ(std::string(decode_message(beacon(ssid_element(name), kEss)).ssid), name);
}

TEST(BssDecoder, OverlongSsidIsCutAtThirtyTwoBytes) {
  const scan_entry entry = decode_message(beacon(ssid_element(std::string(40, 'y')), kEss));
  EXPECT_EQ(std::string(entry.ssid), std::string(32, 'y'));
  EXPECT_EQ(entry.padding_0, 0);
}

TEST(BssDecoder, TruncatedElementEndsTheWalk) {
  // The RSN element announces 20 bytes but only 4 follow.
  const Bytes ies = join({ssid_element("cut"), {0x30, 0x14, 0x01, 0x00, 0x00, 0x0f}});
  const scan_entry entry = decode_message(beacon(ies, kEss | kPrivacy));
  EXPECT_STREQ(entry.ssid, "cut");
  EXPECT_EQ(entry.wpa_version, 0);
}

TEST(BssDecoder, RsnWithVersionOnlyHasNoCiphers) {
  const scan_entry entry =
      decode_message(beacon(join({ssid_element("v"), {0x30, 0x02, 0x01, 0x00}}), kEss | kPrivacy));
  EXPECT_EQ(entry.wpa_version, 2);
  EXPECT_EQ(ciphers(entry), (std::vector<std::uint8_t>{0, 0, 0, 0}));
}

TEST(BssDecoder, ForeignCipherOuiReads255) {
  const Bytes rsn = {0x30, 0x0c, 0x01, 0x00, 0x00, 0x0f, 0xac,
                     0x04, 0x01, 0x00, 0x00, 0x13, 0x74, 0x01};
  EXPECT_EQ(ciphers(decode_message(beacon(join({ssid_element("v"), rsn}), kEss | kPrivacy))),
            (std::vector<std::uint8_t>{4, 255, 0, 0}));
}

TEST(BssDecoder, ZeroPairwiseSuitesLeaveThePairwiseByteZero) {
  const Bytes rsn = {0x30, 0x08, 0x01, 0x00, 0x00, 0x0f, 0xac, 0x02, 0x00, 0x00};
  EXPECT_EQ(ciphers(decode_message(beacon(join({ssid_element("v"), rsn}), kEss | kPrivacy))),
            (std::vector<std::uint8_t>{2, 0, 0, 0}));
}

TEST(BssDecoder, WpaOnly) {
  const scan_entry entry =
      decode_message(beacon(join({ssid_element("old"), kWpaMixed}), kEss | kPrivacy));
  EXPECT_EQ(entry.wpa_version, 1);
  EXPECT_EQ(ciphers(entry), (std::vector<std::uint8_t>{0, 0, 2, 2}));
}

TEST(BssDecoder, ModeFromCapability) {
  EXPECT_EQ(decode_message(beacon(ssid_element("a"), kIbss)).mode, 1u);
  EXPECT_EQ(decode_message(beacon(ssid_element("a"), kEss)).mode, 2u);
  EXPECT_EQ(decode_message(beacon(ssid_element("a"), kEss | kIbss)).mode, 2u);
  EXPECT_EQ(decode_message(beacon(ssid_element("a"), 0)).mode, 0u);
  BssAttributes no_capability = beacon(ssid_element("a"), 0);
  no_capability.capability.reset();
  const scan_entry entry = decode_message(no_capability);
  EXPECT_EQ(entry.mode, 0u);
  EXPECT_EQ(entry.encrypted, 0);
}

TEST(BssDecoder, UnspecifiedSignalIsTheFigureItself) {
  BssAttributes bss = beacon(ssid_element("u"), kEss);
  bss.signal_mbm.reset();
  bss.signal_unspecified = 73;
  scan_entry entry = decode_message(bss);
  EXPECT_EQ(entry.signal, 73);
  EXPECT_EQ(entry.quality, 73);
  EXPECT_EQ(entry.link_byte_3, 2);
  bss.signal_unspecified = 180;
  entry = decode_message(bss);
  EXPECT_EQ(entry.signal, 100);
  EXPECT_EQ(entry.quality, 100);
}

TEST(BssDecoder, MbmWinsOverUnspecified) {
  BssAttributes bss = beacon(ssid_element("u"), kEss);
  bss.signal_mbm = -7000;
  bss.signal_unspecified = 90;
  const scan_entry entry = decode_message(bss);
  EXPECT_EQ(entry.signal, 186);
  EXPECT_EQ(entry.quality, 60);
  EXPECT_EQ(entry.link_byte_3, 1);
}

TEST(BssDecoder, NoSignalAttribute) {
  BssAttributes bss = beacon(ssid_element("u"), kEss);
  bss.signal_mbm.reset();
  const scan_entry entry = decode_message(bss);
  EXPECT_EQ(entry.signal, 0);
  EXPECT_EQ(entry.quality, 0);
  EXPECT_EQ(entry.link_byte_3, 0);
}

TEST(BssDecoder, MissingAttributesLeaveZeros) {
  BssAttributes bss;
  const scan_entry entry = decode_message(bss);
  scan_entry zero;
  std::memset(&zero, 0, sizeof zero);
  EXPECT_EQ(std::memcmp(&entry, &zero, sizeof zero), 0);
}

TEST(BssDecoder, ShortAttributesReadAsAbsent) {
  BssAttributes bss;
  bss.extra = {{NL80211_BSS_BSSID, {1, 2, 3}},
               {NL80211_BSS_FREQUENCY, {0x85, 0x09}},
               {NL80211_BSS_CAPABILITY, {0x11}},
               {NL80211_BSS_SIGNAL_MBM, {0x00}}};
  const scan_entry entry = decode_message(bss);
  EXPECT_EQ(entry.bssid[0], 0);
  EXPECT_EQ(entry.frequency, 0);
  EXPECT_EQ(entry.mode, 0u);
  EXPECT_EQ(entry.link_byte_3, 0);
}

TEST(BssDecoder, MessageWithoutBssLeavesTheEntryAndCountsNone) {
  MessagePtr msg = make_message_without_bss();
  scan_entry entry;
  std::memset(&entry, 0, sizeof entry);
  scan_cursor cursor{&entry, 1};
  EXPECT_EQ(nl80211_get_scanlist_cb(msg.get(), &cursor), NL_SKIP);
  EXPECT_EQ(cursor.count, 0);
  EXPECT_EQ(entry.ssid[0], '\0');
}

TEST(BssDecoder, NullArgumentsAreSkipped) {
  MessagePtr msg = make_scan_result_message(beacon(ssid_element("a"), kEss));
  scan_cursor empty{nullptr, 1};
  EXPECT_EQ(nl80211_get_scanlist_cb(msg.get(), nullptr), NL_SKIP);
  EXPECT_EQ(nl80211_get_scanlist_cb(msg.get(), &empty), NL_SKIP);
  EXPECT_EQ(empty.count, 1);
}

TEST(BssDecoder, SixtyGhzFrequencyIsClampedButTheChannelIsExact) {
  BssAttributes bss = beacon(ssid_element("dmg"), kEss);
  bss.frequency = 69120;
  const scan_entry entry = decode_message(bss);
  EXPECT_EQ(entry.frequency, 65535);
  EXPECT_EQ(entry.channel, 6);
}

struct ChannelCase {
  std::uint32_t mhz;
  std::uint8_t channel;
};

TEST(ChannelFromFrequency, KnownPlansAndTheirEdges) {
  const ChannelCase cases[] = {{2411, 0},   {2412, 1},   {2437, 6},  {2472, 13},  {2483, 15},
                               {2484, 14},  {2485, 0},   {4909, 0},  {4910, 182}, {4980, 196},
                               {4999, 0},   {5000, 0},   {5180, 36}, {5825, 165}, {5865, 173},
                               {5924, 184}, {5925, 0},   {5935, 2},  {5950, 0},   {5955, 1},
                               {7115, 233}, {7125, 235}, {7126, 0},  {58319, 0},  {58320, 1},
                               {60480, 2},  {70200, 6},  {70201, 0}, {0, 0},      {900, 0}};
  for (const ChannelCase& c : cases) {
    EXPECT_EQ(qira::host::channel_from_frequency(c.mhz), c.channel) << c.mhz;
  }
}

struct SignalCase {
  std::int32_t mbm;
  std::uint8_t signal;
  std::uint8_t quality;
};

TEST(SignalFromMbm, DbmPlus256ClampedAndQualityWindow) {
  const SignalCase cases[] = {
      {-3000, 226, 100}, {-4500, 211, 100}, {-5000, 206, 100}, {-5099, 206, 100}, {-5100, 205, 98},
      {-7550, 181, 50},  {-9900, 157, 2},   {-10000, 156, 0},  {-12000, 136, 0},  {-25500, 1, 0},
      {-30000, 1, 0},    {-100, 255, 100},  {0, 255, 100},     {1500, 255, 100}};
  for (const SignalCase& c : cases) {
    EXPECT_EQ(qira::host::signal_from_mbm(c.mbm), c.signal) << c.mbm;
    EXPECT_EQ(qira::host::quality_from_mbm(c.mbm), c.quality) << c.mbm;
  }
}

TEST(SignalFromMbm, StrongerIsLarger) {
  for (std::int32_t mbm = -25400; mbm < -100; mbm += 100) {
    EXPECT_LT(qira::host::signal_from_mbm(mbm), qira::host::signal_from_mbm(mbm + 100)) << mbm;
  }
}

// The byte read back: the dBm the decoder stored, for an mBm source only.
TEST(SignalDbmOfByte, TheDecodersByteReadBack) {
  EXPECT_EQ(qira::host::signal_dbm_of_byte(226, qira::host::kSignalSourceMbm), -30);
  EXPECT_EQ(qira::host::signal_dbm_of_byte(211, qira::host::kSignalSourceMbm), -45);
  EXPECT_EQ(qira::host::signal_dbm_of_byte(1, qira::host::kSignalSourceMbm), -255);
  EXPECT_EQ(qira::host::signal_dbm_of_byte(255, qira::host::kSignalSourceMbm), -1);
  for (std::int32_t mbm = -25400; mbm <= -100; mbm += 100) {
    EXPECT_EQ(qira::host::signal_dbm_of_byte(qira::host::signal_from_mbm(mbm),
                                             qira::host::kSignalSourceMbm),
              mbm / 100)
        << mbm;
  }
  EXPECT_EQ(qira::host::signal_dbm_of_byte(42, qira::host::kSignalSourceUnspecified), std::nullopt);
  EXPECT_EQ(qira::host::signal_dbm_of_byte(0, qira::host::kSignalSourceNone), std::nullopt);
}

TEST(DecodeBss, PureFieldsWithoutAMessage) {
  const Bytes ies = join({ssid_element("pure"), kRsnWpa2Psk});
  bss_fields fields;
  fields.frequency = 5180;
  fields.capability = kEss | kPrivacy;
  fields.signal_mbm = -6000;
  fields.ies = byte_view{ies.data(), ies.size()};
  scan_entry entry;
  std::memset(&entry, 0, sizeof entry);
  qira::host::decode_bss(fields, entry);
  EXPECT_STREQ(entry.ssid, "pure");
  EXPECT_EQ(entry.channel, 36);
  EXPECT_EQ(entry.signal, 196);
  EXPECT_EQ(entry.quality, 80);
  EXPECT_EQ(entry.wpa_version, 2);
}

}  // namespace
}  // namespace qira::test
