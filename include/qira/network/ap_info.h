// One scanned access point, as handed to the host. A plain value type; its
// implicit copy constructor (a deep copy) and destructor are exported, since
// the host copies and destroys these records itself.
#ifndef QIRA_NETWORK_AP_INFO_H
#define QIRA_NETWORK_AP_INFO_H

#include <string>
#include <vector>

#include "qira/network/export.h"

namespace qira::network {

struct QIRA_WIRELESS_API ap_info {
  std::string bssid;  // "xx:xx:xx:xx:xx:xx", lower case
  std::string ssid;   // raw bytes up to the first NUL, at most 32, never empty
  unsigned char mode;
  unsigned char channel;
  unsigned short frequency;  // MHz
  unsigned char signal;      // larger is stronger
  unsigned char link_byte_1;
  unsigned char quality;  // larger is better
  unsigned char link_byte_3;
  unsigned char encrypted;    // nonzero when the BSS requires encryption
  unsigned char wpa_version;  // 0 none, 1 WPA, 2 WPA2, 3 both
  unsigned char cipher_bytes[4];
  unsigned int reserved_a;                // not assigned by the scan path
  unsigned int reserved_b;                // not assigned by the scan path
  std::vector<unsigned char> ies;         // probe response / beacon IEs, <= 1024 bytes
  std::vector<unsigned char> beacon_ies;  // beacon IEs, <= 1024 bytes
  std::vector<ap_info> children;          // left empty by the scan path
};

}  // namespace qira::network

#endif  // QIRA_NETWORK_AP_INFO_H
