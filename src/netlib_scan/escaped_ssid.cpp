// An SSID as printable text, for logs and listings.
#include <cctype>
#include <cstddef>
#include <iomanip>
#include <sstream>
#include <string>

#include "qira/network/netlib_scan.h"

namespace qira::network {

std::string get_escaped_ssid(unsigned char len, const unsigned char* ssid) {
  std::ostringstream text;
  if (ssid == nullptr) {
    return text.str();
  }
  const std::size_t last = static_cast<std::size_t>(len) - 1;
  for (std::size_t i = 0; i < len; ++i) {
    const unsigned char c = ssid[i];
    if (std::isprint(c) != 0 && c != ' ' && c != '\\') {
      text << static_cast<char>(c);
    } else if (c == ' ' && i != 0 && i != last) {
      // Spaces inside the name are kept; only leading and trailing ones are
      // escaped, so that they stay visible.
      text << ' ';
    } else {
      // Deliberately "\x", then the raw byte right-aligned in a field of two
      // (a space and the byte), not hexadecimal digits: hosts compare names
      // against exactly this text.
      text << "\\x" << std::setw(2) << static_cast<char>(c);
    }
  }
  return text.str();
}

}  // namespace qira::network
