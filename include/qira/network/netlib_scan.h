// Scan module: nl80211 scans on one interface, driven by the application.
// Trigger once, call netlib_libscan_service until `finished`, then fetch the
// access points with netlib_libscan_results.
#ifndef QIRA_NETWORK_NETLIB_SCAN_H
#define QIRA_NETWORK_NETLIB_SCAN_H

#include <string>
#include <vector>

#include "qira/network/ap_info.h"
#include "qira/network/export.h"

namespace qira::network {

struct scan_status {
  bool finished;  // the scan ended (results collected)
  bool aborted;   // it ended by abort: results may be partial
};

// Reserved to the host: needs the initialised event module.
QIRA_WIRELESS_API bool netlib_libscan_wireless_init(void* ctx);
QIRA_WIRELESS_API bool netlib_libscan_wireless_close(void* ctx);

// Asks for an active wildcard-SSID scan on `ifname`, with `ies_len` bytes of
// extra information elements `ies` in the probe requests. When a scan is
// already running, `in_progress` becomes true and nothing is sent. Does not
// wait for the kernel's answer.
QIRA_WIRELESS_API bool netlib_libscan_trigger(void* ctx, const std::string& ifname,
                                              const unsigned char* ies, unsigned int ies_len,
                                              bool& in_progress);
// Services the event module once (never blocks) and reports the scan's state.
QIRA_WIRELESS_API bool netlib_libscan_service(void* ctx, const std::string& ifname,
                                              scan_status& status);
// Replaces `out` with the de-duplicated, ranked access points of the last
// ended scan (hidden networks left out) and consumes them. After an aborted
// scan the radio is first recovered (`ap_mode`: hostapd restarted, else
// wpa_supplicant on `ifname` reassociated).
QIRA_WIRELESS_API bool netlib_libscan_results(void* ctx, const std::string& ifname,
                                              std::vector<ap_info>& out, bool ap_mode);
// `len` SSID bytes as printable text.
QIRA_WIRELESS_API std::string get_escaped_ssid(unsigned char len, const unsigned char* ssid);

}  // namespace qira::network

#endif  // QIRA_NETWORK_NETLIB_SCAN_H
