#include "messages/message_catalogue.h"

#include <cctype>
#include <sstream>

#include "support/ledger_text.h"

namespace qira::test::messages {

namespace {

constexpr const char kMacro[] = "NETLIB_LOG(";

int line_of(const std::string& text, std::size_t offset) {
  int line = 1;
  for (std::size_t i = 0; i < offset && i < text.size(); ++i) {
    if (text[i] == '\n') {
      ++line;
    }
  }
  return line;
}

// Skips to just after the second top-level comma of the call whose argument
// list starts at `at`; npos when the call ends first.
std::size_t after_two_arguments(const std::string& text, std::size_t at) {
  int depth = 0;
  int commas = 0;
  for (std::size_t i = at; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '(') {
      ++depth;
    } else if (c == ')') {
      if (depth == 0) {
        return std::string::npos;
      }
      --depth;
    } else if (c == ',' && depth == 0 && ++commas == 2) {
      return i + 1;
    }
  }
  return std::string::npos;
}

// Reads one string literal starting at the quote at `at` into `out`;
// returns the offset after its closing quote.
std::size_t read_literal(const std::string& text, std::size_t at, std::string& out) {
  std::size_t i = at + 1;
  while (i < text.size() && text[i] != '"') {
    if (text[i] == '\\' && i + 1 < text.size()) {
      const char e = text[i + 1];
      switch (e) {
        case 'n':
          out += '\n';
          break;
        case 't':
          out += '\t';
          break;
        default:
          out += e;
          break;
      }
      i += 2;
    } else {
      out += text[i++];
    }
  }
  return i + 1;
}

std::size_t skip_space(const std::string& text, std::size_t i) {
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) {
    ++i;
  }
  return i;
}

std::string escape_for_regex(char c) {
  static const std::string kSpecial = R"(\^$.|?*+()[]{}/)";
  if (kSpecial.find(c) != std::string::npos) {
    return std::string("\\") + c;
  }
  if (c == '\n') {
    return "\\n";
  }
  return std::string(1, c);
}

// The pattern of one conversion's output, by conversion letter.
std::string conversion_pattern(char conversion) {
  switch (conversion) {
    case 'd':
    case 'i':
      return "-?[0-9]+";
    case 'u':
      return "[0-9]+";
    case 'x':
      return "[0-9a-f]+";
    case 'X':
      return "[0-9A-F]+";
    case 'c':
      return "[\\s\\S]";
    default:
      return "[\\s\\S]*";  // %s, %p and anything wider
  }
}

}  // namespace

std::vector<CallSite> find_call_sites(const std::string& file, const std::string& text) {
  std::vector<CallSite> sites;
  std::size_t at = 0;
  while ((at = text.find(kMacro, at)) != std::string::npos) {
    const std::size_t arguments = at + sizeof(kMacro) - 1;
    // The macro's own definition and its mentions in comments have no
    // literal format in the third place.
    std::size_t i = after_two_arguments(text, arguments);
    at = arguments;
    if (i == std::string::npos) {
      continue;
    }
    i = skip_space(text, i);
    if (i >= text.size() || text[i] != '"') {
      continue;
    }
    CallSite site{file, line_of(text, at), ""};
    while (i < text.size() && text[i] == '"') {
      i = skip_space(text, read_literal(text, i, site.format));
    }
    sites.push_back(std::move(site));
  }
  return sites;
}

std::regex format_pattern(const std::string& format) {
  std::string pattern;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') {
      pattern += escape_for_regex(format[i]);
      continue;
    }
    if (i + 1 < format.size() && format[i + 1] == '%') {
      pattern += '%';
      ++i;
      continue;
    }
    // Flags, width, precision and length, then the conversion letter.
    std::size_t j = i + 1;
    while (j < format.size() &&
           std::string("-+ #0123456789.hlLqjzt").find(format[j]) != std::string::npos) {
      ++j;
    }
    if (j >= format.size()) {
      pattern += "%";
      break;
    }
    pattern += conversion_pattern(format[j]);
    i = j;
  }
  return std::regex(pattern);
}

void read_ledger_text(const std::string& text, Ledger& ledger) {
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    const std::size_t tab = line.find('\t');
    if (tab == std::string::npos) {
      continue;
    }
    const std::string first = line.substr(0, tab);
    const std::string rest = line.substr(tab + 1);
    if (first == "#program") {
      ledger.programs.insert(rest);
    } else {
      ledger.messages_by_file[first].push_back(unescape_ledger_text(rest));
    }
  }
}

bool produced(const CallSite& site, const std::regex& pattern, const Ledger& ledger) {
  const auto found = ledger.messages_by_file.find(site.file);
  if (found == ledger.messages_by_file.end()) {
    return false;
  }
  for (const std::string& message : found->second) {
    if (std::regex_match(message, pattern)) {
      return true;
    }
  }
  return false;
}

}  // namespace qira::test::messages
