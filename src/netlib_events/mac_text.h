// MAC address text of the event and scan modules: six bytes as lower-case
// hexadecimal pairs separated by colons, the text of
// "%02x:%02x:%02x:%02x:%02x:%02x".
#ifndef QIRA_SRC_NETLIB_EVENTS_MAC_TEXT_H
#define QIRA_SRC_NETLIB_EVENTS_MAC_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace qira::network::events {

constexpr std::size_t kMacLength = 6;
// 17 characters and the NUL, in the 19-byte buffer the text has always used.
constexpr std::size_t kMacTextLength = 17;
constexpr std::size_t kMacTextSize = 19;

// Writes the text of the six bytes at `mac`, which must be readable, into
// `text`, NUL-terminated. Digit by digit rather than through snprintf: every
// event with an address and every scan record formats one or two, and
// printf's format parser costs some 1,600 instructions per address.
inline void write_mac(const std::uint8_t* mac, char (&text)[kMacTextSize]) {
  constexpr char kDigits[] = "0123456789abcdef";
  char* out = text;
  for (std::size_t i = 0; i < kMacLength; ++i) {
    if (i != 0) {
      *out++ = ':';
    }
    *out++ = kDigits[mac[i] >> 4];
    *out++ = kDigits[mac[i] & 0x0f];
  }
  *out = '\0';
}

// "aa:bb:cc:dd:ee:ff" for the six bytes at `mac`, which must be readable.
inline std::string format_mac(const std::uint8_t* mac) {
  char text[kMacTextSize];
  write_mac(mac, text);
  return std::string(text, kMacTextLength);
}

}  // namespace qira::network::events

#endif  // QIRA_SRC_NETLIB_EVENTS_MAC_TEXT_H
