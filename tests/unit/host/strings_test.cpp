// format, replaceAll, randomAlphaNumericString and the IPv4 validators.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "qira/utils/strings.h"

namespace {

using qira::utils::ipv4_address_valid;
using qira::utils::ipv4_netmask_valid;

TEST(FormatTest, FormatsLikePrintf) {
  EXPECT_EQ("/var/run/wpa_supplicant/wlan0",
            qira::utils::format("/var/run/wpa_supplicant/%s", "wlan0"));
  EXPECT_EQ("-3 00ff 2.50", qira::utils::format("%d %04x %.2f", -3, 255, 2.5));
  EXPECT_EQ("", qira::utils::format("%s", ""));
  std::string long_text(5000, 'a');
  EXPECT_EQ(long_text + "!", qira::utils::format("%s!", long_text.c_str()));
}

TEST(ReplaceAllTest, ReplacesEveryOccurrenceLeftToRight) {
  std::string s = "a.b.c";
  qira::utils::replaceAll(s, ".", "..");
  EXPECT_EQ("a..b..c", s);
  s = "aaa";
  qira::utils::replaceAll(s, "aa", "b");
  EXPECT_EQ("ba", s);
  s = "x-y";
  qira::utils::replaceAll(s, "-", "");
  EXPECT_EQ("xy", s);
  s = "same";
  qira::utils::replaceAll(s, "", "z");
  EXPECT_EQ("same", s);
  qira::utils::replaceAll(s, "none", "z");
  EXPECT_EQ("same", s);
}

TEST(RandomStringTest, HasTheLengthAndOnlyAlphanumerics) {
  for (unsigned int length : {0U, 1U, 8U, 200U}) {
    std::string s = qira::utils::randomAlphaNumericString("", length);
    ASSERT_EQ(length, s.size());
    for (char c : s) {
      EXPECT_TRUE((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) << c;
    }
  }
}

TEST(RandomStringTest, UsesTheGivenAlphabet) {
  std::string s = qira::utils::randomAlphaNumericString("ab", 400);
  ASSERT_EQ(400U, s.size());
  std::set<char> seen(s.begin(), s.end());
  EXPECT_EQ((std::set<char>{'a', 'b'}), seen);
}

TEST(RandomStringTest, DrawsDifferentStrings) {
  // 62^16 possibilities: two equal draws mean the source is not random.
  EXPECT_NE(qira::utils::randomAlphaNumericString("", 16),
            qira::utils::randomAlphaNumericString("", 16));
}

struct AddressCase {
  const char* text;
  bool host_address;
  bool allow_empty;
  bool valid;
};

TEST(Ipv4AddressValidTest, Table) {
  const AddressCase cases[] = {
      {"192.168.1.20", true, false, true},
      {"0.0.0.0", false, false, true},
      {"0.0.0.0", true, false, false},
      {"0.1.2.3", true, false, false},
      {"1.0.0.0", true, false, true},
      {"127.0.0.1", true, false, true},
      {"223.255.255.255", true, false, true},
      {"224.0.0.1", true, false, false},
      {"224.0.0.1", false, false, true},
      {"239.255.255.250", true, false, false},
      {"240.0.0.1", true, false, false},
      {"255.255.255.255", true, false, false},
      {"255.255.255.255", false, false, true},
      {"", false, false, false},
      {"", true, true, true},
      {"256.1.1.1", false, false, false},
      {"1.2.3", false, false, false},
      {"1.2.3.4.5", false, false, false},
      {"1.2.3.", false, false, false},
      {".1.2.3", false, false, false},
      {"1..2.3", false, false, false},
      {"01.2.3.4", false, false, false},
      {"1.2.3.04", false, false, false},
      {"1.2.3.0", false, false, true},
      {"1000.2.3.4", false, false, false},
      {"+1.2.3.4", false, false, false},
      {"-1.2.3.4", false, false, false},
      {" 1.2.3.4", false, false, false},
      {"1.2.3.4 ", false, false, false},
      {"1.2.3.a", false, false, false},
      {"0x1.2.3.4", false, false, false},
  };
  for (const AddressCase& c : cases) {
    EXPECT_EQ(c.valid, ipv4_address_valid(c.text, c.host_address, c.allow_empty))
        << "\"" << c.text << "\" host=" << c.host_address << " empty=" << c.allow_empty;
  }
}

struct NetmaskCase {
  const char* text;
  bool reject_zero;
  bool valid;
};

TEST(Ipv4NetmaskValidTest, Table) {
  const NetmaskCase cases[] = {
      {"255.255.255.0", true, true},
      {"255.255.255.255", true, true},
      {"255.255.255.254", true, true},
      {"128.0.0.0", true, true},
      {"255.255.0.0", true, true},
      {"255.255.252.0", true, true},
      {"0.0.0.0", true, false},
      {"0.0.0.0", false, true},
      {"255.0.255.0", true, false},
      {"255.255.255.1", true, false},
      {"0.255.255.255", true, false},
      {"255.255.253.0", true, false},
      {"", false, false},
      {"255.255.255", true, false},
      {"255.255.255.0 ", true, false},
      {"255.255.255.00", true, false},
      {"256.255.255.0", true, false},
  };
  for (const NetmaskCase& c : cases) {
    EXPECT_EQ(c.valid, ipv4_netmask_valid(c.text, c.reject_zero))
        << "\"" << c.text << "\" reject_zero=" << c.reject_zero;
  }
}

}  // namespace
