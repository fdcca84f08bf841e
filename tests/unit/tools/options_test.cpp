// Splitting the qira-wifi command line into global options and command words.
#include "options.h"

#include <gtest/gtest.h>

namespace qira::wifi {
namespace {

CommandLine parse_ok(const std::vector<std::string>& args) {
  CommandLine line;
  std::string error;
  EXPECT_TRUE(parse_command_line(args, line, error)) << error;
  EXPECT_EQ(error, "");
  return line;
}

std::string parse_error(const std::vector<std::string>& args) {
  CommandLine line;
  std::string error;
  EXPECT_FALSE(parse_command_line(args, line, error));
  return error;
}

TEST(Options, NoArgumentsGiveDefaults) {
  const CommandLine line = parse_ok({});
  EXPECT_FALSE(line.options.json);
  EXPECT_FALSE(line.options.verbose);
  EXPECT_FALSE(line.options.help);
  EXPECT_EQ(line.options.module_path, "");
  EXPECT_TRUE(line.words.empty());
}

TEST(Options, CommandAndArgumentsKeepTheirOrder) {
  const CommandLine line = parse_ok({"info", "wlan0"});
  EXPECT_EQ(line.words, (std::vector<std::string>{"info", "wlan0"}));
}

TEST(Options, GlobalFlagsBeforeTheCommand) {
  const CommandLine line = parse_ok({"--json", "--verbose", "info", "wlan0"});
  EXPECT_TRUE(line.options.json);
  EXPECT_TRUE(line.options.verbose);
  EXPECT_EQ(line.words, (std::vector<std::string>{"info", "wlan0"}));
}

TEST(Options, AgainIsAFlagOffByDefault) {
  EXPECT_FALSE(parse_ok({"scan", "wlan1"}).options.again);
  const CommandLine line = parse_ok({"scan", "wlan1", "--again"});
  EXPECT_TRUE(line.options.again);
  EXPECT_EQ(line.words, (std::vector<std::string>{"scan", "wlan1"}));
}

TEST(Options, GlobalFlagsAfterTheCommand) {
  const CommandLine line = parse_ok({"info", "wlan0", "--json"});
  EXPECT_TRUE(line.options.json);
  EXPECT_EQ(line.words, (std::vector<std::string>{"info", "wlan0"}));
}

TEST(Options, ModuleTakesTheNextWord) {
  const CommandLine line = parse_ok({"--module", "/opt/lib/mod.so", "info", "wlan0"});
  EXPECT_EQ(line.options.module_path, "/opt/lib/mod.so");
  EXPECT_EQ(line.words, (std::vector<std::string>{"info", "wlan0"}));
}

TEST(Options, ModuleWithEqualsSign) {
  EXPECT_EQ(parse_ok({"--module=./mod.so", "info", "lo"}).options.module_path, "./mod.so");
}

TEST(Options, ModuleWithoutPathIsAnError) {
  EXPECT_EQ(parse_error({"info", "lo", "--module"}), "option --module needs a PATH");
  EXPECT_EQ(parse_error({"--module=", "info", "lo"}), "option --module needs a PATH");
  EXPECT_EQ(parse_error({"--module", "", "info"}), "option --module needs a PATH");
}

TEST(Options, TimeoutIsUnsetByDefault) {
  EXPECT_FALSE(parse_ok({"wpa-events", "wlan0"}).options.timeout_ms.has_value());
}

TEST(Options, TimeoutTakesTheNextWordOrEqualsSign) {
  const CommandLine line = parse_ok({"wpa-events", "wlan0", "--timeout", "1500"});
  EXPECT_EQ(line.options.timeout_ms, 1500ULL);
  EXPECT_EQ(line.words, (std::vector<std::string>{"wpa-events", "wlan0"}));
  EXPECT_EQ(parse_ok({"--timeout=0", "wpa", "wlan0", "PING"}).options.timeout_ms, 0ULL);
  EXPECT_EQ(parse_ok({"--timeout", "86400000"}).options.timeout_ms, 86400000ULL);
}

// A day at most: every wait stays within 32-bit seconds and milliseconds.
TEST(Options, TimeoutAboveADayIsRefused) {
  const std::string error = "option --timeout takes at most 86400000 milliseconds (a day)";
  EXPECT_EQ(parse_error({"--timeout", "86400001"}), error);
  EXPECT_EQ(parse_error({"--timeout=4294967296", "wpa", "wlan0", "PING"}), error);
  EXPECT_EQ(parse_error({"--timeout", "18446744073709551615"}), error);
}

TEST(Options, TimeoutNeedsDecimalMilliseconds) {
  const std::string error = "option --timeout needs a number of milliseconds";
  EXPECT_EQ(parse_error({"wpa-events", "wlan0", "--timeout"}), error);
  EXPECT_EQ(parse_error({"--timeout=", "wpa-events", "wlan0"}), error);
  EXPECT_EQ(parse_error({"--timeout", "1s"}), error);
  EXPECT_EQ(parse_error({"--timeout", "-1"}), error);
  EXPECT_EQ(parse_error({"--timeout", "+1"}), error);
  EXPECT_EQ(parse_error({"--timeout", "99999999999999999999"}), error);
}

TEST(Options, HelpInBothSpellings) {
  EXPECT_TRUE(parse_ok({"--help"}).options.help);
  EXPECT_TRUE(parse_ok({"info", "-h"}).options.help);
}

TEST(Options, UnknownOptionIsAnError) {
  EXPECT_EQ(parse_error({"--jsn", "info", "lo"}), "unknown option --jsn");
  EXPECT_EQ(parse_error({"info", "-x"}), "unknown option -x");
}

TEST(Options, DoubleDashEndsTheOptions) {
  const CommandLine line = parse_ok({"--json", "info", "--", "--verbose"});
  EXPECT_TRUE(line.options.json);
  EXPECT_FALSE(line.options.verbose);
  EXPECT_EQ(line.words, (std::vector<std::string>{"info", "--verbose"}));
}

TEST(Options, LoneDashIsAWord) {
  EXPECT_EQ(parse_ok({"info", "-"}).words, (std::vector<std::string>{"info", "-"}));
}

TEST(Options, CountIsUnsetByDefaultAndTakesANumber) {
  EXPECT_FALSE(parse_ok({"events"}).options.count.has_value());
  EXPECT_EQ(parse_ok({"events", "--count", "3"}).options.count, 3ULL);
  EXPECT_EQ(parse_ok({"--count=0", "events"}).options.count, 0ULL);
  EXPECT_EQ(parse_ok({"events", "--count", "2"}).words, (std::vector<std::string>{"events"}));
}

TEST(Options, CountNeedsADecimalNumber) {
  EXPECT_EQ(parse_error({"events", "--count"}), "option --count needs a number");
  EXPECT_EQ(parse_error({"events", "--count", "-1"}), "option --count needs a number");
  EXPECT_EQ(parse_error({"events", "--count=x"}), "option --count needs a number");
}

TEST(Options, AFlagTakesNoValue) {
  EXPECT_EQ(parse_error({"scan", "wlan0", "--ap=1"}), "option --ap takes no value");
  EXPECT_EQ(parse_error({"--json=yes", "info", "lo"}), "option --json takes no value");
}

// Which options the line gave, for the command to refuse those it does not
// take.
TEST(Options, GivenHoldsEveryOptionOfTheLine) {
  EXPECT_EQ(parse_ok({"info", "lo"}).options.given, 0u);
  EXPECT_EQ(parse_ok({"--json", "scan", "--ap", "--timeout=5", "wlan0"}).options.given,
            static_cast<unsigned int>(kOptionJson | kOptionAp | kOptionTimeout));
  EXPECT_EQ(parse_ok({"-h"}).options.given, static_cast<unsigned int>(kOptionHelp));
  EXPECT_EQ(parse_ok({"info", "--", "--ap"}).options.given, 0u);
}

TEST(Options, TheTableInHelpOrder) {
  std::vector<std::string> names;
  for (const OptionSpec& option : option_table()) {
    names.push_back(option_synopsis(option));
  }
  EXPECT_EQ(names, (std::vector<std::string>{"--json", "--verbose", "--module PATH", "--help",
                                             "--timeout MS", "--count N", "--ap", "--vendor",
                                             "--again", "--address A", "--netmask M"}));
  EXPECT_EQ(option_names(kOptionAgain | kOptionJson | kOptionCount), "--json, --count, --again");
  EXPECT_EQ(option_names(0), "");
}

}  // namespace
}  // namespace qira::wifi
