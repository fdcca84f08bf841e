// get_escaped_ssid: printable bytes as they are, inner spaces kept, and
// everything else as "\x" followed by the raw byte in a two-wide field.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qira/network/netlib_scan.h"

namespace qira::test {
namespace {

using qira::network::get_escaped_ssid;

std::string escaped(const std::string& bytes) {
  return get_escaped_ssid(static_cast<unsigned char>(bytes.size()),
                          reinterpret_cast<const unsigned char*>(bytes.data()));
}

struct EscapeCase {
  const char* name;
  std::string input;
  std::string output;
};

TEST(EscapedSsid, Table) {
  const EscapeCase cases[] = {
      {"empty", "", ""},
      {"plain", "home-net_5G", "home-net_5G"},
      {"inner space kept", "a b", "a b"},
      {"leading space", " ab", std::string("\\x  ab")},
      {"trailing space", "ab ", std::string("ab\\x  ")},
      {"single space is both first and last", " ", std::string("\\x  ")},
      {"two spaces", "  ", std::string("\\x  \\x  ")},
      {"three spaces keep the middle one", "   ", std::string("\\x   \\x  ")},
      {"control byte", std::string("\x01", 1), std::string("\\x \x01")},
      {"backslash", "a\\b", std::string("a\\x \\b")},
      {"NUL byte", std::string("a\0b", 3), std::string("a\\x \0b", 6)},
      {"tab", "a\tb", std::string("a\\x \tb")},
      {"DEL", "a\x7f", std::string("a\\x \x7f")},
      {"high byte", "\xc3\xa9", std::string("\\x \xc3\\x \xa9")},
      {"punctuation and digits", "~!@#$%^&*()0129", "~!@#$%^&*()0129"},
  };
  for (const EscapeCase& c : cases) {
    EXPECT_EQ(escaped(c.input), c.output) << c.name;
  }
}

TEST(EscapedSsid, CasesFromTheInterface) {
  const unsigned char a_space_b[] = {'a', ' ', 'b'};
  EXPECT_EQ(get_escaped_ssid(3, a_space_b), "a b");
  const unsigned char space_a_b[] = {' ', 'a', 'b'};
  EXPECT_EQ(get_escaped_ssid(3, space_a_b), "\\x  ab");
  const unsigned char one[] = {0x01};
  EXPECT_EQ(get_escaped_ssid(1, one), std::string("\\x \x01"));
}

TEST(EscapedSsid, LengthBoundsTheBytesRead) {
  const unsigned char bytes[] = {'a', 'b', 'c', 'd'};
  EXPECT_EQ(get_escaped_ssid(2, bytes), "ab");
  EXPECT_EQ(get_escaped_ssid(0, bytes), "");
  EXPECT_EQ(get_escaped_ssid(0, nullptr), "");
}

TEST(EscapedSsid, TwoHundredFiftyFiveBytes) {
  const std::string name(255, 'z');
  EXPECT_EQ(escaped(name), name);
}

}  // namespace
}  // namespace qira::test
