#include "support/strict_json.h"

#include <nlohmann/json.hpp>

namespace qira::test {

bool is_strict_json(const std::string& text, std::string& error) {
  try {
    const nlohmann::json value = nlohmann::json::parse(text);
    static_cast<void>(value);
  } catch (const nlohmann::json::exception& failure) {
    error = failure.what();
    return false;
  }
  return true;
}

bool is_strict_json_lines(const std::string& text, std::string& error) {
  if (!text.empty() && text.back() != '\n') {
    error = "the last line has no newline";
    return false;
  }
  std::size_t number = 0;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = text.find('\n', start);
    const std::string line = text.substr(start, end - start);
    ++number;
    try {
      if (!nlohmann::json::parse(line).is_object()) {
        error = "line " + std::to_string(number) + " is not an object: " + line;
        return false;
      }
    } catch (const nlohmann::json::exception& failure) {
      error = "line " + std::to_string(number) + ": " + failure.what() + ": " + line;
      return false;
    }
    start = end + 1;
  }
  return true;
}

}  // namespace qira::test
