#include "qira/inspect/exported_interface.h"

#include <elf.h>

#include <algorithm>
#include <iterator>

#include "exported_symbols_text.h"

namespace qira::inspect {

namespace {

std::vector<std::string> split_lines(const std::string& text) {
  std::vector<std::string> lines;
  std::string::size_type start = 0;
  while (start < text.size()) {
    std::string::size_type end = text.find('\n', start);
    if (end == std::string::npos) {
      end = text.size();
    }
    if (end > start) {
      lines.push_back(text.substr(start, end - start));
    }
    start = end + 1;
  }
  return lines;
}

}  // namespace

const std::vector<std::string>& exported_interface() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> lines = split_lines(detail::exported_symbols_text());
    std::sort(lines.begin(), lines.end());
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    return lines;
  }();
  return names;
}

std::vector<std::string> exported_names(const DynamicInfo& info) {
  std::vector<std::string> names;
  for (const DynamicSymbol& symbol : info.symbols) {
    if (symbol.defined && symbol.binding != STB_LOCAL) {
      names.push_back(demangle(symbol.name));
    }
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

std::vector<std::string> names_missing_from(const std::vector<std::string>& from,
                                            const std::vector<std::string>& other) {
  std::vector<std::string> out;
  std::set_difference(from.begin(), from.end(), other.begin(), other.end(),
                      std::back_inserter(out));
  return out;
}

}  // namespace qira::inspect
