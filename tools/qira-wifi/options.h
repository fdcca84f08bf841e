// Global options of qira-wifi and the split of the command line into those
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

struct GlobalOptions {
  bool json = false;        // --json: one JSON object instead of aligned text
  bool verbose = false;     // --verbose: echo every module log line on stderr
  bool help = false;        // --help: print the usage and stop
  std::string module_path;  // --module PATH; empty means the loader's default
  // --timeout MS: how long the wpa commands wait; unset means their default.
  std::optional<unsigned long long> timeout_ms;
  // --count N: events stops after N events; unset means no limit.
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
};

struct CommandLine {
  GlobalOptions options;
  std::vector<std::string> words;  // the command name, then its arguments
};

// Splits `args` (argv without the program name). Global options are taken
// wherever they stand, as "--module PATH" or "--module=PATH" (and the same
// for "--timeout MS", MS in decimal digits up to kLongestTimeoutMs, "--address ADDR" and
// "--netmask MASK"); the
// flags "--ap", "--vendor" and "--again" likewise; "--" ends the options. Any other word that
// starts with
// '-' is an error: commands take no options of their own yet. False, with `error` set, on a bad
// option.
bool parse_command_line(const std::vector<std::string>& args, CommandLine& out, std::string& error);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_OPTIONS_H
