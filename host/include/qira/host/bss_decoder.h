// The reference host's decoder of one nl80211 BSS (a NL80211_CMD_NEW_SCAN_RESULTS
// message of a scan dump) into the wireless module's scan entry. The module
// imports nl80211_get_scanlist_cb (qira/network/ap_selection.h) from the host
// process; the pure decoding below is what that callback runs once the
// message's attributes are read.
//
// How the entry is filled (every member not listed stays 0):
// - bssid: NL80211_BSS_BSSID (six bytes; absent or short: all zero).
// - ssid: the SSID element (id 0) of NL80211_BSS_INFORMATION_ELEMENTS, or,
//   when that block is absent or holds no SSID element, of
//   NL80211_BSS_BEACON_IES. At most 32 bytes, raw (not escaped), followed by
//   a NUL. A hidden network's empty or zero-filled SSID gives an entry whose
//   first SSID byte is 0.
// - frequency: NL80211_BSS_FREQUENCY in MHz; values above 65535 (the 60 GHz
//   channels 5 and 6) are stored as 65535, which still classifies as 60 GHz.
// - channel: from the unclamped frequency by the IEEE 802.11 channel plans:
//   2.4 GHz 2412..2483 -> (f - 2407) / 5 and 2484 -> 14; 4.9 GHz (Japan)
//   4910..4980 -> (f - 4000) / 5; 5 GHz 5000..5924 -> (f - 5000) / 5;
//   6 GHz 5935 -> 2 and 5950..7125 -> (f - 5950) / 5; 60 GHz 58320..70200 ->
//   (f - 56160) / 2160. Any other frequency: 0.
// - mode: the wireless-extensions mode number from NL80211_BSS_CAPABILITY:
//   ESS bit (0x0001) set -> 2 (IW_MODE_INFRA), else IBSS bit (0x0002) set -> 1
//   (IW_MODE_ADHOC), else (mesh, or no capability) 0 (IW_MODE_AUTO).
// - signal, quality and link_byte_3 (the signal source):
//   * NL80211_BSS_SIGNAL_MBM present: source 1. The mBm figure divided by 100
//     (towards zero) is dBm; signal = dBm + 256 clamped to 1..255 (-45 dBm is
//     211; the wireless-extensions dBm byte, one unit per dB);
//     quality = 2 * (dBm + 100) clamped to 0..100 (-50 dBm or more is 100,
//     -100 dBm or less is 0).
//   * else NL80211_BSS_SIGNAL_UNSPEC present: source 2; signal and quality
//     are both that 0..100 figure (clamped to 100).
//   * else: source 0, signal 0, quality 0.
//   So a larger signal is a stronger one and a larger quality a better link.
// - link_byte_1: the noise level, which nl80211 does not report per BSS:
//   always 0 (unknown).
// - encrypted: 1 when the capability's privacy bit (0x0010) is set, else 0.
// - wpa_version: 1 when a WPA element (vendor element 221 with OUI 00:50:F2,
//   type 1) is present, plus 2 when an RSN element (id 48) is present: 0, 1,
//   2 or 3, whatever the privacy bit says (WPA3 networks carry RSN: 2).
// - cipher_bytes: cipher suite types (the last byte of the suite selector:
//   1 WEP-40, 2 TKIP, 4 CCMP-128, 5 WEP-104, 8 GCMP-128, 9 GCMP-256,
//   10 CCMP-256, ...):
//   [0] RSN group cipher, [1] RSN first pairwise cipher,
//   [2] WPA group cipher, [3] WPA first pairwise cipher.
//   0 when the element or the field is absent (a pairwise suite of type 0,
//   "use the group cipher", also reads 0); 255 when the suite's OUI is not
//   the element's own (00:0F:AC for RSN, 00:50:F2 for WPA).
// Each of the SSID, RSN and WPA elements is looked up first in the
// information elements, then in the beacon elements; the first occurrence
// counts, and a truncated element (length past the block's end) ends the
// walk of its block.
#ifndef QIRA_HOST_BSS_DECODER_H
#define QIRA_HOST_BSS_DECODER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "qira/network/ap_selection.h"

namespace qira::host {

// Mode codes (the wireless-extensions numbers).
constexpr std::uint32_t kBssModeUnknown = 0;
constexpr std::uint32_t kBssModeAdHoc = 1;
constexpr std::uint32_t kBssModeInfrastructure = 2;

// Signal sources, in link_byte_3.
constexpr std::uint8_t kSignalSourceNone = 0;
constexpr std::uint8_t kSignalSourceMbm = 1;
constexpr std::uint8_t kSignalSourceUnspecified = 2;

// Positions in cipher_bytes, and the value of a suite of a foreign OUI.
constexpr std::size_t kRsnGroupCipher = 0;
constexpr std::size_t kRsnPairwiseCipher = 1;
constexpr std::size_t kWpaGroupCipher = 2;
constexpr std::size_t kWpaPairwiseCipher = 3;
constexpr std::uint8_t kCipherOtherOui = 255;

// Bytes owned elsewhere.
struct byte_view {
  const std::uint8_t* data = nullptr;
  std::size_t length = 0;
};

// The attributes of one BSS that the decoder reads, each present or not.
struct bss_fields {
  std::optional<std::array<std::uint8_t, 6>> bssid;
  std::optional<std::uint32_t> frequency;
  std::optional<std::uint16_t> capability;
  std::optional<std::int32_t> signal_mbm;
  std::optional<std::uint8_t> signal_unspecified;
  std::optional<byte_view> ies;
  std::optional<byte_view> beacon_ies;
};

// Channel number of a centre frequency in MHz, 0 outside the known plans.
std::uint8_t channel_from_frequency(std::uint32_t mhz);
// Signal byte and quality figure of a signal in mBm.
std::uint8_t signal_from_mbm(std::int32_t mbm);
std::uint8_t quality_from_mbm(std::int32_t mbm);
// The dBm that a record's signal byte stands for when its source (its
// link_byte_3) is kSignalSourceMbm: the byte less 256 (211 is -45 dBm);
// std::nullopt for the other sources, whose figure is no dBm.
std::optional<int> signal_dbm_of_byte(std::uint8_t signal, std::uint8_t source);

// Fills `entry` (which the caller has zeroed) from `fields`.
void decode_bss(const bss_fields& fields, scan_entry& entry);

// Reads the BSS attributes of a scan result message; false when it carries
// no NL80211_ATTR_BSS (then `fields` is left as it was). The views point into
// `msg`, which must outlive them.
bool read_bss_fields(nl_msg* msg, bss_fields& fields);

}  // namespace qira::host

#endif  // QIRA_HOST_BSS_DECODER_H
