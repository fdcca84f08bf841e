#include "options.h"

#include <cerrno>
#include <cstdlib>

namespace qira::wifi {

namespace {

constexpr const char kModuleOption[] = "--module";
constexpr const char kTimeoutOption[] = "--timeout";
constexpr const char kCountOption[] = "--count";

// A number of milliseconds: decimal digits only, within 64 bits.
bool parse_milliseconds(const std::string& text, unsigned long long& out) {
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

// "--address" or "--netmask" for `word` ("--address", "--address=..."), else "".
std::string option_name(const std::string& word) {
  for (const char* name : {"--address", "--netmask"}) {
    const std::string option = name;
    if (word == option || word.rfind(option + "=", 0) == 0) {
      return option;
    }
  }
  return "";
}

// The field of a text option named by `word`, or null.
std::optional<std::string>* text_option(const std::string& word, GlobalOptions& options) {
  const std::string name = option_name(word);
  if (name == "--address") {
    return &options.address;
  }
  if (name == "--netmask") {
    return &options.netmask;
  }
  return nullptr;
}

}  // namespace

bool parse_command_line(const std::vector<std::string>& args, CommandLine& out,
                        std::string& error) {
  CommandLine result;
  bool options_ended = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& word = args[i];
    if (options_ended || word.empty() || word[0] != '-' || word == "-") {
      result.words.push_back(word);
    } else if (word == "--") {
      options_ended = true;
    } else if (word == "--json") {
      result.options.json = true;
    } else if (word == "--verbose") {
      result.options.verbose = true;
    } else if (word == "--help" || word == "-h") {
      result.options.help = true;
    } else if (word == "--ap") {
      result.options.ap_mode = true;
    } else if (word == "--again") {
      result.options.again = true;
    } else if (word == "--vendor") {
      result.options.vendor_tools = true;
    } else if (std::optional<std::string>* target = text_option(word, result.options)) {
      const std::string name = option_name(word);
      std::string value;
      if (word == name) {
        if (i + 1 < args.size()) {
          value = args[++i];
        }
      } else {
        value = word.substr(name.size() + 1);
      }
      if (value.empty()) {
        error = "option " + name + " needs a value";
        return false;
      }
      *target = value;
    } else if (word == kModuleOption) {
      if (i + 1 >= args.size() || args[i + 1].empty()) {
        error = "option --module needs a PATH";
        return false;
      }
      result.options.module_path = args[++i];
    } else if (word.rfind(std::string(kModuleOption) + "=", 0) == 0) {
      result.options.module_path = word.substr(sizeof(kModuleOption));
      if (result.options.module_path.empty()) {
        error = "option --module needs a PATH";
        return false;
      }
    } else if (word == kTimeoutOption || word.rfind(std::string(kTimeoutOption) + "=", 0) == 0) {
      std::string value;
      if (word == kTimeoutOption) {
        if (i + 1 < args.size()) {
          value = args[++i];
        }
      } else {
        value = word.substr(sizeof(kTimeoutOption));
      }
      unsigned long long milliseconds = 0;
      if (!parse_milliseconds(value, milliseconds)) {
        error = "option --timeout needs a number of milliseconds";
        return false;
      }
      if (milliseconds > kLongestTimeoutMs) {
        error = "option --timeout takes at most " + std::to_string(kLongestTimeoutMs) +
                " milliseconds (a day)";
        return false;
      }
      result.options.timeout_ms = milliseconds;
    } else if (word == kCountOption || word.rfind(std::string(kCountOption) + "=", 0) == 0) {
      std::string value;
      if (word == kCountOption) {
        if (i + 1 < args.size()) {
          value = args[++i];
        }
      } else {
        value = word.substr(sizeof(kCountOption));
      }
      unsigned long long count = 0;
      if (!parse_milliseconds(value, count)) {
        error = "option --count needs a number";
        return false;
      }
      result.options.count = count;
    } else {
      error = "unknown option " + word;
      return false;
    }
  }
  out = std::move(result);
  return true;
}

}  // namespace qira::wifi
