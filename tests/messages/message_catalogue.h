// The wireless module's messages as its sources state them, and the lines
// its tests made it log: the two halves of the suite's message coverage check.
#ifndef QIRA_TESTS_MESSAGES_MESSAGE_CATALOGUE_H
#define QIRA_TESTS_MESSAGES_MESSAGE_CATALOGUE_H

#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace qira::test::messages {

// One NETLIB_LOG call: where it is and its printf format.
struct CallSite {
  std::string file;  // relative to the source tree, as __FILE__ gives it: "src/..."
  int line = 0;
  std::string format;
};

// The NETLIB_LOG calls in `text`, the contents of source file `file`. The
// format is the run of adjacent string literals after the call's second
// argument, with C escapes resolved.
std::vector<CallSite> find_call_sites(const std::string& file, const std::string& text);

// A regular expression that matches exactly the texts `format` can produce.
std::regex format_pattern(const std::string& format);

// What one run of the unit suite logged: the messages by source file, and the
// test programs that ran.
struct Ledger {
  std::map<std::string, std::vector<std::string>> messages_by_file;
  std::set<std::string> programs;
};

// Adds one ledger file's lines ("#program\t<name>" and "<file>\t<message>").
void read_ledger_text(const std::string& text, Ledger& ledger);

// Whether some line the ledger holds for the call site's file matches its format.
bool produced(const CallSite& site, const std::regex& pattern, const Ledger& ledger);

}  // namespace qira::test::messages

#endif  // QIRA_TESTS_MESSAGES_MESSAGE_CATALOGUE_H
