// MAC address text of the event module: six bytes as lower-case hexadecimal
// pairs separated by colons.
#ifndef QIRA_SRC_NETLIB_EVENTS_MAC_TEXT_H
#define QIRA_SRC_NETLIB_EVENTS_MAC_TEXT_H

#include <cstdint>
#include <cstdio>
#include <string>

namespace qira::network::events {

constexpr std::size_t kMacLength = 6;

// "aa:bb:cc:dd:ee:ff" for the six bytes at `mac`, which must be readable.
inline std::string format_mac(const std::uint8_t* mac) {
  // 17 characters and the NUL, in the 19-byte buffer the text has always used.
  char text[19];
  std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
  return text;
}

}  // namespace qira::network::events

#endif  // QIRA_SRC_NETLIB_EVENTS_MAC_TEXT_H
