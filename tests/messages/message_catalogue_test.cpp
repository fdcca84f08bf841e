#include "messages/message_catalogue.h"

#include <gtest/gtest.h>

#include "support/ledger_text.h"

namespace qira::test::messages {
namespace {

TEST(FindCallSites, TakesTheLiteralFormatOfEveryCallWithItsLine) {
  const std::string text =
      "#define NETLIB_LOG(level, error_number, ...) x\n"
      "// NETLIB_LOG(level, errno value or 0, printf format, arguments...)\n"
      "void f() {\n"
      "  NETLIB_LOG(kLogError, 0, \"library context is null\");\n"
      "  NETLIB_LOG(kLogWarning, f(a, b),\n"
      "             \"netlib: ioctl(%X) \"\n"
      "             \"failed \\\"quoted\\\"\\n\", request);\n"
      "}\n";
  const std::vector<CallSite> sites = find_call_sites("src/x/y.cpp", text);
  ASSERT_EQ(2u, sites.size());
  EXPECT_EQ("src/x/y.cpp", sites[0].file);
  EXPECT_EQ(4, sites[0].line);
  EXPECT_EQ("library context is null", sites[0].format);
  EXPECT_EQ(5, sites[1].line);
  EXPECT_EQ("netlib: ioctl(%X) failed \"quoted\"\n", sites[1].format);
}

TEST(FindCallSites, IgnoresACallWhoseFormatIsNotALiteral) {
  EXPECT_TRUE(find_call_sites("src/a.cpp", "NETLIB_LOG(3, 0, text);").empty());
  EXPECT_TRUE(find_call_sites("src/a.cpp", "NETLIB_LOG(3);").empty());
}

struct PatternCase {
  const char* format;
  const char* text;
  bool matches;
};

TEST(FormatPattern, MatchesExactlyWhatTheFormatCanProduce) {
  const PatternCase cases[] = {
      {"nl_get_multicast_id() failed: %d", "nl_get_multicast_id() failed: -4", true},
      {"nl_get_multicast_id() failed: %d", "nl_get_multicast_id() failed: x", false},
      {"nl_get_multicast_id() failed: %d", "nl_get_multicast_id() failed: 4 more", false},
      {"netlib: ioctl(%X) failed", "netlib: ioctl(8B1B) failed", true},
      {"netlib: ioctl(%X) failed", "netlib: ioctl(8b1b) failed", false},
      {"id %u", "id -1", false},
      {"mac %02x:%02x", "mac 0a:ff", true},
      {"100%% of %s.", "100% of a.b c.", true},
      {"100%% of %s.", "100% of a.b cX", false},
      {"reply: %s", "reply: two\nlines", true},
      {"size %zu, %ld", "size 12, -3", true},
      {"a.b", "axb", false},
  };
  for (const PatternCase& c : cases) {
    EXPECT_EQ(c.matches, std::regex_match(std::string(c.text), format_pattern(c.format)))
        << c.format << " against " << c.text;
  }
}

TEST(Ledger, CountsAMessageOnlyForTheFileThatLoggedIt) {
  Ledger ledger;
  read_ledger_text(
      "#program\tnetlib_iface_tests\n"
      "src/a.cpp\tnetlib: ioctl(8B1B) failed\n"
      "src/b.cpp\t" +
          escape_ledger_text("two\nlines \\ here") + "\n",
      ledger);
  EXPECT_EQ(std::set<std::string>{"netlib_iface_tests"}, ledger.programs);
  const CallSite in_a{"src/a.cpp", 1, "netlib: ioctl(%X) failed"};
  const CallSite in_c{"src/c.cpp", 1, "netlib: ioctl(%X) failed"};
  EXPECT_TRUE(produced(in_a, format_pattern(in_a.format), ledger));
  EXPECT_FALSE(produced(in_c, format_pattern(in_c.format), ledger));
  const CallSite in_b{"src/b.cpp", 1, "two\nlines \\ %s"};
  EXPECT_TRUE(produced(in_b, format_pattern(in_b.format), ledger));
}

TEST(Ledger, EscapingRoundTrips) {
  const std::string text = "a\\b\nc\\nd";
  EXPECT_EQ("a\\\\b\\nc\\\\nd", escape_ledger_text(text));
  EXPECT_EQ(text, unescape_ledger_text(escape_ledger_text(text)));
}

}  // namespace
}  // namespace qira::test::messages
