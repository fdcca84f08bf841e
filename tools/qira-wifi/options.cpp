#include "options.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace qira::wifi {

namespace {

// A count or a number of milliseconds: decimal digits only, within 64 bits.
bool parse_number(const std::string& text, unsigned long long& out) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  errno = 0;
  const unsigned long long value = std::strtoull(text.c_str(), nullptr, 10);
  if (errno == ERANGE) {
    return false;
  }
  out = value;
  return true;
}

// The option `word` names ("--timeout" or "--timeout=...", "-h" for
// "--help"), or null.
const OptionSpec* find_option(const std::string& word) {
  for (const OptionSpec& option : option_table()) {
    const std::string name = option.name;
    if (word == name || (option.value_name != nullptr && word.rfind(name + "=", 0) == 0) ||
        (option.bit == kOptionHelp && word == "-h")) {
      return &option;
    }
  }
  return nullptr;
}

// Stores the value of `option`; false, with `error` set, when the value
// is not one the option takes.
bool store(const OptionSpec& option, const std::string& value, GlobalOptions& options,
           std::string& error) {
  unsigned long long number = 0;
  switch (option.bit) {
    case kOptionModule:
      options.module_path = value;
      return true;
    case kOptionTimeout:
      if (!parse_number(value, number)) {
        error = "option --timeout needs a number of milliseconds";
        return false;
      }
      if (number > kLongestTimeoutMs) {
        error = "option --timeout takes at most " + std::to_string(kLongestTimeoutMs) +
                " milliseconds (a day)";
        return false;
      }
      options.timeout_ms = number;
      return true;
    case kOptionCount:
      if (!parse_number(value, number)) {
        error = "option --count needs a number";
        return false;
      }
      options.count = number;
      return true;
    case kOptionAddress:
      options.address = value;
      return true;
    case kOptionNetmask:
      options.netmask = value;
      return true;
    case kOptionJson:
      options.json = true;
      return true;
    case kOptionVerbose:
      options.verbose = true;
      return true;
    case kOptionHelp:
      options.help = true;
      return true;
    case kOptionAp:
      options.ap_mode = true;
      return true;
    case kOptionVendor:
      options.vendor_tools = true;
      return true;
    case kOptionAgain:
      options.again = true;
      return true;
  }
  error = std::string("option ") + option.name + " is not known";
  return false;
}

}  // namespace

const std::vector<OptionSpec>& option_table() {
  static const std::vector<OptionSpec> options = {
      {kOptionJson, "--json", nullptr,
       "print JSON: one object, or JSON Lines for events, wpa-events and monitor"},
      {kOptionVerbose, "--verbose", nullptr, "also print every module log line on stderr"},
      {kOptionModule, "--module", "PATH",
       "load the module from PATH (default: $QIRA_WIRELESS_MODULE, else "
       "libqira_network_utils_wireless.so.1)"},
      {kOptionHelp, "--help", nullptr, "print this help"},
      {kOptionTimeout, "--timeout", "MS",
       "wpa: wait this long for the reply (default 10000); scan: for the scan's end (default "
       "10000); events, wpa-events, monitor: stop after this long"},
      {kOptionCount, "--count", "N", "events, monitor: stop after N events"},
      {kOptionAp, "--ap", nullptr,
       "apply, connect, disconnect, recover, scan: the setup access point"},
      {kOptionVendor, "--vendor", nullptr, "connect, disconnect: the vendor tools"},
      {kOptionAgain, "--again", nullptr,
       "scan: ask for the results a second time and show that answer too"},
      {kOptionAddress, "--address", "A", "hook: the access point's address (default 192.168.1.1)"},
      {kOptionNetmask, "--netmask", "M", "hook: its netmask (default 255.255.255.0)"},
  };
  return options;
}

std::string option_synopsis(const OptionSpec& option) {
  return option.value_name == nullptr ? std::string(option.name)
                                      : std::string(option.name) + " " + option.value_name;
}

std::string option_names(unsigned int bits) {
  std::string names;
  for (const OptionSpec& option : option_table()) {
    if ((bits & option.bit) != 0) {
      names += (names.empty() ? "" : ", ") + std::string(option.name);
    }
  }
  return names;
}

bool parse_command_line(const std::vector<std::string>& args, CommandLine& out,
                        std::string& error) {
  CommandLine result;
  bool options_ended = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& word = args[i];
    if (options_ended || word.empty() || word[0] != '-' || word == "-") {
      result.words.push_back(word);
      continue;
    }
    if (word == "--") {
      options_ended = true;
      continue;
    }
    const OptionSpec* option = find_option(word);
    if (option == nullptr) {
      const std::string name = word.substr(0, word.find('='));
      const OptionSpec* flag = find_option(name);
      error = flag != nullptr ? "option " + name + " takes no value" : "unknown option " + word;
      return false;
    }
    std::string value;
    if (option->value_name != nullptr) {
      const std::string name = option->name;
      if (word == name) {
        if (i + 1 < args.size()) {
          value = args[++i];
        }
      } else {
        value = word.substr(name.size() + 1);
      }
      // An empty number is refused by its own check, with its own words.
      if (value.empty() && option->bit != kOptionTimeout && option->bit != kOptionCount) {
        error =
            "option " + name + " needs " + (option->bit == kOptionModule ? "a PATH" : "a value");
        return false;
      }
    }
    if (!store(*option, value, result.options, error)) {
      return false;
    }
    result.options.given |= option->bit;
  }
  out = std::move(result);
  return true;
}

}  // namespace qira::wifi
