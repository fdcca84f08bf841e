// Pure decoding of one BSS's attribute values into a scan entry: channel
// plans, signal units, and the SSID, RSN and WPA elements. The units are
// documented in qira/host/bss_decoder.h.
#include <algorithm>
#include <cstring>

#include "qira/host/bss_decoder.h"

namespace qira::host {

namespace {

constexpr std::uint8_t kSsidElement = 0;
constexpr std::uint8_t kRsnElement = 48;
constexpr std::uint8_t kVendorElement = 221;
constexpr std::size_t kElementHeader = 2;
constexpr std::size_t kMaximumSsid = 32;

constexpr std::array<std::uint8_t, 3> kRsnOui = {0x00, 0x0f, 0xac};
constexpr std::array<std::uint8_t, 3> kWpaOui = {0x00, 0x50, 0xf2};
constexpr std::uint8_t kWpaVendorType = 1;
constexpr std::size_t kSuiteLength = 4;
constexpr std::size_t kVersionLength = 2;
constexpr std::size_t kCountLength = 2;

// IEEE 802.11 capability information bits.
constexpr std::uint16_t kCapabilityEss = 0x0001;
constexpr std::uint16_t kCapabilityIbss = 0x0002;
constexpr std::uint16_t kCapabilityPrivacy = 0x0010;

constexpr std::uint8_t kWpaFlag = 1;
constexpr std::uint8_t kRsnFlag = 2;

constexpr std::uint32_t kHighestStoredFrequency = 0xffff;
constexpr int kMbmPerDbm = 100;
constexpr int kDbmToSignalByte = 256;
constexpr int kWeakestSignalByte = 1;
constexpr int kStrongestSignalByte = 255;
constexpr int kHighestFigure = 100;
// quality = 2 * (dBm + 100): 0 at -100 dBm, 100 at -50 dBm.
constexpr int kQualityFloorDbm = -100;
constexpr int kQualityPerDb = 2;

// The data of the first complete element of `block` that `wanted` accepts.
template <typename Predicate>
std::optional<byte_view> find_element(byte_view block, Predicate wanted) {
  std::size_t position = 0;
  while (block.length - position >= kElementHeader) {
    const std::uint8_t id = block.data[position];
    const std::size_t length = block.data[position + 1];
    if (block.length - position - kElementHeader < length) {
      break;  // truncated: nothing after it can be trusted
    }
    const byte_view data{block.data + position + kElementHeader, length};
    if (wanted(id, data)) {
      return data;
    }
    position += kElementHeader + length;
  }
  return std::nullopt;
}

// The element looked up in the information elements, then in the beacon's.
template <typename Predicate>
std::optional<byte_view> find_in_blocks(const bss_fields& fields, Predicate wanted) {
  for (const std::optional<byte_view>& block : {fields.ies, fields.beacon_ies}) {
    if (block) {
      if (std::optional<byte_view> element = find_element(*block, wanted)) {
        return element;
      }
    }
  }
  return std::nullopt;
}

bool is_wpa_element(std::uint8_t id, byte_view data) {
  return id == kVendorElement && data.length >= kWpaOui.size() + 1 &&
         std::equal(kWpaOui.begin(), kWpaOui.end(), data.data) &&
         data.data[kWpaOui.size()] == kWpaVendorType;
}

// The suite type of the suite selector at `offset`, 0 when it is cut off.
std::uint8_t suite_type(byte_view body, std::size_t offset,
                        const std::array<std::uint8_t, 3>& own_oui) {
  if (body.length < offset + kSuiteLength) {
    return 0;
  }
  const std::uint8_t* suite = body.data + offset;
  if (!std::equal(own_oui.begin(), own_oui.end(), suite)) {
    return kCipherOtherOui;
  }
  return suite[own_oui.size()];
}

// Group and first pairwise cipher of a body laid out as version, group suite,
// pairwise count, pairwise suites (the RSN element, and the WPA element after
// its OUI and type).
void read_ciphers(byte_view body, const std::array<std::uint8_t, 3>& own_oui, std::uint8_t& group,
                  std::uint8_t& pairwise) {
  const std::size_t group_offset = kVersionLength;
  const std::size_t count_offset = group_offset + kSuiteLength;
  group = suite_type(body, group_offset, own_oui);
  if (body.length < count_offset + kCountLength) {
    return;
  }
  const unsigned count = body.data[count_offset] | (body.data[count_offset + 1] << 8);
  if (count > 0) {
    pairwise = suite_type(body, count_offset + kCountLength, own_oui);
  }
}

int signal_dbm(std::int32_t mbm) {
  return static_cast<int>(mbm / kMbmPerDbm);
}

}  // namespace

std::uint8_t channel_from_frequency(std::uint32_t mhz) {
  if (mhz == 2484) {
    return 14;
  }
  if (mhz >= 2412 && mhz <= 2483) {
    return static_cast<std::uint8_t>((mhz - 2407) / 5);
  }
  if (mhz >= 4910 && mhz <= 4980) {
    return static_cast<std::uint8_t>((mhz - 4000) / 5);
  }
  if (mhz >= 5000 && mhz <= 5924) {
    return static_cast<std::uint8_t>((mhz - 5000) / 5);
  }
  if (mhz == 5935) {
    return 2;
  }
  if (mhz >= 5950 && mhz <= 7125) {
    return static_cast<std::uint8_t>((mhz - 5950) / 5);
  }
  if (mhz >= 58320 && mhz <= 70200) {
    return static_cast<std::uint8_t>((mhz - 56160) / 2160);
  }
  return 0;
}

std::uint8_t signal_from_mbm(std::int32_t mbm) {
  return static_cast<std::uint8_t>(
      std::clamp(signal_dbm(mbm) + kDbmToSignalByte, kWeakestSignalByte, kStrongestSignalByte));
}

std::optional<int> signal_dbm_of_byte(std::uint8_t signal, std::uint8_t source) {
  if (source != kSignalSourceMbm) {
    return std::nullopt;
  }
  return static_cast<int>(signal) - kDbmToSignalByte;
}

std::uint8_t quality_from_mbm(std::int32_t mbm) {
  return static_cast<std::uint8_t>(
      std::clamp(kQualityPerDb * (signal_dbm(mbm) - kQualityFloorDbm), 0, kHighestFigure));
}

void decode_bss(const bss_fields& fields, scan_entry& entry) {
  if (fields.bssid) {
    std::memcpy(entry.bssid, fields.bssid->data(), sizeof entry.bssid);
  }
  const std::optional<byte_view> ssid = find_in_blocks(
      fields, [](std::uint8_t id, byte_view /*data*/) { return id == kSsidElement; });
  if (ssid) {
    std::memcpy(entry.ssid, ssid->data, std::min(ssid->length, kMaximumSsid));
    entry.ssid[std::min(ssid->length, kMaximumSsid)] = '\0';
  }
  if (fields.frequency) {
    entry.frequency =
        static_cast<std::uint16_t>(std::min(*fields.frequency, kHighestStoredFrequency));
    entry.channel = channel_from_frequency(*fields.frequency);
  }
  const std::uint16_t capability = fields.capability.value_or(0);
  if ((capability & kCapabilityEss) != 0) {
    entry.mode = kBssModeInfrastructure;
  } else if ((capability & kCapabilityIbss) != 0) {
    entry.mode = kBssModeAdHoc;
  } else {
    entry.mode = kBssModeUnknown;
  }
  entry.encrypted = (capability & kCapabilityPrivacy) != 0 ? 1 : 0;

  if (fields.signal_mbm) {
    entry.signal = signal_from_mbm(*fields.signal_mbm);
    entry.quality = quality_from_mbm(*fields.signal_mbm);
    entry.link_byte_3 = kSignalSourceMbm;
  } else if (fields.signal_unspecified) {
    const auto figure = std::min<std::uint8_t>(*fields.signal_unspecified, kHighestFigure);
    entry.signal = figure;
    entry.quality = figure;
    entry.link_byte_3 = kSignalSourceUnspecified;
  } else {
    entry.link_byte_3 = kSignalSourceNone;
  }
  entry.link_byte_1 = 0;  // noise: not reported per BSS

  std::uint8_t wpa_version = 0;
  if (const std::optional<byte_view> rsn = find_in_blocks(
          fields, [](std::uint8_t id, byte_view /*data*/) { return id == kRsnElement; })) {
    wpa_version |= kRsnFlag;
    read_ciphers(*rsn, kRsnOui, entry.cipher_bytes[kRsnGroupCipher],
                 entry.cipher_bytes[kRsnPairwiseCipher]);
  }
  if (const std::optional<byte_view> wpa = find_in_blocks(fields, is_wpa_element)) {
    wpa_version |= kWpaFlag;
    const std::size_t header = kWpaOui.size() + 1;
    read_ciphers(byte_view{wpa->data + header, wpa->length - header}, kWpaOui,
                 entry.cipher_bytes[kWpaGroupCipher], entry.cipher_bytes[kWpaPairwiseCipher]);
  }
  entry.wpa_version = wpa_version;
}

}  // namespace qira::host
