// The access points of one scan as qira-wifi shows them: ranked best first,
// as an aligned table or as JSON. Pure: no I/O.
#ifndef QIRA_TOOLS_QIRA_WIFI_SCAN_TABLE_H
#define QIRA_TOOLS_QIRA_WIFI_SCAN_TABLE_H

#include <optional>
#include <string>
#include <vector>

#include "qira/network/ap_info.h"
#include "qira/variant/variant.h"

namespace qira::wifi {

// Best first by the module's ranking (WPA2, then encryption, then band for
// close signals, then signal and quality); equally good records keep their
// order.
std::vector<qira::network::ap_info> rank_access_points(std::vector<qira::network::ap_info> records);
// "open", "WEP", "WPA", "WPA2" or "WPA/WPA2".
std::string security_text(const qira::network::ap_info& record);
// The band of `frequency` as text, "unknown" outside every band.
std::string band_text(unsigned int frequency);
// The record's signal in dBm, when its byte stands for dBm (the host's
// decoder read the kernel's mBm figure: link_byte_3 says so).
std::optional<int> signal_dbm(const qira::network::ap_info& record);
// "-30 dBm"; "42/100" for a driver's own 0..100 figure; "-" for none.
std::string signal_text(const qira::network::ap_info& record);
// One header line, then one line per record: BSSID, SSID (escaped for a
// terminal, as iw shows names), channel, frequency, band, signal
// (signal_text), security.
std::string render_scan_text(const std::vector<qira::network::ap_info>& records);
// The records as a JSON array of objects (bssid, ssid, ssid_hex, channel,
// frequency, band, signal, signal_raw, quality, security): "ssid" is the name
// when it is UTF-8 (else null), "ssid_hex" always its bytes; "signal" is the
// dBm (null when the byte is no dBm), "signal_raw" the record's byte.
qira::variant::Variant access_points_variant(const std::vector<qira::network::ap_info>& records);
// {"ifname":..., "aborted":..., "access_points":[{...}, ...]}
qira::variant::Variant scan_to_variant(const std::string& ifname, bool aborted,
                                       const std::vector<qira::network::ap_info>& records);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_SCAN_TABLE_H
