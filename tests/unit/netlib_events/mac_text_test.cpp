// MAC address text: the text of "%02x:%02x:%02x:%02x:%02x:%02x" for every
// byte value in every position.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "netlib_events/mac_text.h"

namespace qira::test::events {
namespace {

using qira::network::events::format_mac;
using qira::network::events::kMacTextSize;
using qira::network::events::write_mac;

TEST(MacText, EveryByteInEveryPositionReadsAsPrintfWritesIt) {
  for (unsigned int first = 0; first < 256; ++first) {
    std::uint8_t mac[6];
    for (unsigned int i = 0; i < 6; ++i) {
      mac[i] = static_cast<std::uint8_t>(first + 43 * i);
    }
    char expected[kMacTextSize];
    std::snprintf(expected, sizeof(expected), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1],
                  mac[2], mac[3], mac[4], mac[5]);
    char text[kMacTextSize];
    std::memset(text, 'x', sizeof(text));
    write_mac(mac, text);
    EXPECT_STREQ(text, expected);
    EXPECT_EQ(format_mac(mac), std::string(expected));
  }
}

}  // namespace
}  // namespace qira::test::events
