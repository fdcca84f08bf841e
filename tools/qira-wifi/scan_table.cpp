#include "scan_table.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iomanip>
#include <sstream>

#include "qira/host/bss_decoder.h"
#include "qira/host/outside_text.h"
#include "qira/network/ap_selection.h"
#include "qira/network/netlib_scan.h"

namespace qira::wifi {

namespace {

using qira::network::ap_info;

constexpr std::uint8_t kWpa = 1;
constexpr std::uint8_t kWpa2 = 2;
constexpr std::uint8_t kWpaAndWpa2 = 3;

// The ranking's view of a record: the members it reads.
ap_node node_of(const ap_info& record) {
  ap_node node;
  std::memset(&node, 0, sizeof(node));
  node.frequency = record.frequency;
  node.channel = record.channel;
  node.signal = record.signal;
  node.quality = record.quality;
  node.encrypted = record.encrypted;
  node.wpa_version = record.wpa_version;
  return node;
}

// The name as a terminal shows it (the module's own rendering keeps
// non-printable bytes raw, so it is not used for output).
std::string shown_ssid(const ap_info& record) {
  return qira::host::terminal_text(record.ssid);
}

// `text` followed by spaces up to `columns` terminal columns.
std::string padded(const std::string& text, std::size_t columns) {
  const std::size_t used = qira::host::terminal_columns(text);
  return used >= columns ? text : text + std::string(columns - used, ' ');
}

}  // namespace

std::vector<ap_info> rank_access_points(std::vector<ap_info> records) {
  // Insertion: a record moves ahead only past records it strictly beats.
  // The ranking is not a strict weak order (its band rule has a tolerance),
  // so library sorts, which require one, are not used.
  std::vector<ap_info> ranked;
  std::vector<ap_node> nodes;
  ranked.reserve(records.size());
  nodes.reserve(records.size());
  for (ap_info& record : records) {
    const ap_node node = node_of(record);
    std::size_t position = ranked.size();
    while (position > 0 && ap_weight_function(&node, &nodes[position - 1]) > 0) {
      --position;
    }
    ranked.insert(ranked.begin() + static_cast<std::ptrdiff_t>(position), std::move(record));
    nodes.insert(nodes.begin() + static_cast<std::ptrdiff_t>(position), node);
  }
  return ranked;
}

std::string security_text(const ap_info& record) {
  if (record.encrypted == 0) {
    return "open";
  }
  switch (record.wpa_version) {
    case kWpa:
      return "WPA";
    case kWpa2:
      return "WPA2";
    case kWpaAndWpa2:
      return "WPA/WPA2";
    default:
      return "WEP";
  }
}

std::optional<int> signal_dbm(const ap_info& record) {
  return qira::host::signal_dbm_of_byte(record.signal, record.link_byte_3);
}

std::string signal_text(const ap_info& record) {
  if (std::optional<int> dbm = signal_dbm(record)) {
    return std::to_string(*dbm) + " dBm";
  }
  if (record.link_byte_3 == qira::host::kSignalSourceUnspecified) {
    return std::to_string(record.signal) + "/100";
  }
  return "-";
}

std::string band_text(unsigned int frequency) {
  const char* band = freq_to_band_string(frequency);
  return band == nullptr ? "unknown" : band;
}

std::string render_scan_text(const std::vector<ap_info>& records) {
  std::size_t ssid_width = 4;
  for (const ap_info& record : records) {
    ssid_width = std::max(ssid_width, qira::host::terminal_columns(shown_ssid(record)));
  }
  std::ostringstream text;
  text << std::left << std::setw(18) << "BSSID"
       << " " << padded("SSID", ssid_width) << " " << std::right << std::setw(7) << "CHANNEL"
       << " " << std::setw(9) << "FREQUENCY"
       << " " << std::left << std::setw(8) << "BAND"
       << " " << std::right << std::setw(8) << "SIGNAL"
       << " "
       << "SECURITY\n";
  for (const ap_info& record : records) {
    text << std::left << std::setw(18) << qira::host::terminal_text(record.bssid) << " "
         << padded(shown_ssid(record), ssid_width) << " " << std::right << std::setw(7)
         << static_cast<unsigned int>(record.channel) << " " << std::setw(9) << record.frequency
         << " " << std::left << std::setw(8) << band_text(record.frequency) << " " << std::right
         << std::setw(8) << signal_text(record) << " " << security_text(record) << "\n";
  }
  return text.str();
}

qira::variant::Variant scan_to_variant(const std::string& ifname, bool aborted,
                                       const std::vector<ap_info>& records) {
  qira::variant::Variant root;
  root["ifname"] = ifname;
  root["aborted"] = aborted;
  root["access_points"] = access_points_variant(records);
  return root;
}

qira::variant::Variant access_points_variant(const std::vector<ap_info>& records) {
  qira::variant::Variant list;
  list.IsArray(true);
  for (const ap_info& record : records) {
    qira::variant::Variant entry;
    entry["bssid"] = record.bssid;
    qira::host::set_outside_string(entry, "ssid", record.ssid);
    entry["channel"] = static_cast<unsigned int>(record.channel);
    entry["frequency"] = static_cast<unsigned int>(record.frequency);
    entry["band"] = band_text(record.frequency);
    // dBm where the byte stands for dBm (null otherwise), and the byte itself.
    if (std::optional<int> dbm = signal_dbm(record)) {
      entry["signal"] = *dbm;
    } else {
      entry["signal"] = qira::variant::Variant();
    }
    entry["signal_raw"] = static_cast<unsigned int>(record.signal);
    entry["quality"] = static_cast<unsigned int>(record.quality);
    entry["security"] = security_text(record);
    list.Append(entry);
  }
  return list;
}

}  // namespace qira::wifi
