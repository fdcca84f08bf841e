#include "options.h"

namespace qira::wifi {

namespace {

constexpr const char kModuleOption[] = "--module";

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
    } else {
      error = "unknown option " + word;
      return false;
    }
  }
  out = std::move(result);
  return true;
}

}  // namespace qira::wifi
