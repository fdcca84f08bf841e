// The options of qira-wifi and the split of the command line into those
// options and the command words. Pure: no I/O, so it is tested by tables.
#ifndef QIRA_TOOLS_QIRA_WIFI_OPTIONS_H
#define QIRA_TOOLS_QIRA_WIFI_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

namespace qira::wifi {

// The longest --timeout taken: a day. Larger values are refused, so that no
// wait can wrap where time is counted in 32 bits (a 32-bit ARM camera's
// timeval seconds, an unsigned int of milliseconds).
inline constexpr unsigned long long kLongestTimeoutMs = 24ULL * 3600 * 1000;

// Each option as a bit: which ones a command takes (commands.h) and which
// ones a command line gave.
enum OptionBit : unsigned int {
  kOptionJson = 1u << 0,
  kOptionVerbose = 1u << 1,
  kOptionModule = 1u << 2,
  kOptionHelp = 1u << 3,
  kOptionTimeout = 1u << 4,
  kOptionCount = 1u << 5,
  kOptionAp = 1u << 6,
  kOptionVendor = 1u << 7,
  kOptionAgain = 1u << 8,
  kOptionAddress = 1u << 9,
  kOptionNetmask = 1u << 10,
};
// The options every command takes.
inline constexpr unsigned int kCommonOptions =
    kOptionJson | kOptionVerbose | kOptionModule | kOptionHelp;

struct OptionSpec {
  OptionBit bit;
  const char* name;        // "--timeout"
  const char* value_name;  // "MS", or null for a flag
  const char* help;        // one line, for --help and the manual
};

// Every option, in the order --help lists them.
const std::vector<OptionSpec>& option_table();
// "--timeout MS" or "--ap": the option as a synopsis shows it.
std::string option_synopsis(const OptionSpec& option);
// The names of the options in `bits` ("--ap, --again"), in table order.
std::string option_names(unsigned int bits);

struct GlobalOptions {
  bool json = false;        // --json: one JSON object (or JSON Lines) instead of text
  bool verbose = false;     // --verbose: echo every module log line on stderr
  bool help = false;        // --help: print the usage and stop
  std::string module_path;  // --module PATH; empty means the loader's default
  // --timeout MS: how long the wpa commands wait; unset means their default.
  std::optional<unsigned long long> timeout_ms;
  // --count N: events and monitor stop after N events; unset means no limit.
  std::optional<unsigned long long> count;
  // --ap: apply, connect, disconnect, recover act on the setup access point.
  bool ap_mode = false;
  // --again: scan asks the module for the results a second time and shows
  // that answer too (a scan's results are delivered once).
  bool again = false;
  // --vendor: connect, disconnect hand the radio to the vendor tools.
  bool vendor_tools = false;
  // --address ADDR, --netmask MASK: hook, the access point's address; unset
  // means the command's default.
  std::optional<std::string> address;
  std::optional<std::string> netmask;
  // The OptionBit of every option the command line gave.
  unsigned int given = 0;
};

struct CommandLine {
  GlobalOptions options;
  std::vector<std::string> words;  // the command name, then its arguments
};

// Splits `args` (argv without the program name). Options are taken wherever
// they stand, a value as the next word or after "=" ("--timeout 500",
// "--timeout=500"; MS and N in decimal digits, MS up to kLongestTimeoutMs);
// "-h" is "--help"; "--" ends the options, so that a word after it that
// starts with "-" (a value such as "-1") is an argument; a lone "-" is a
// word. False, with `error` set, on an unknown option, a missing or bad
// value, or a value given to a flag. Which options a command takes is
// checked by the caller (`given`).
bool parse_command_line(const std::vector<std::string>& args, CommandLine& out, std::string& error);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_OPTIONS_H
