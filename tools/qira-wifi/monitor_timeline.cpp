#include "monitor_timeline.h"

#include <algorithm>
#include <string>

#include "qira/host/outside_text.h"

namespace qira::wifi {

namespace {

using qira::variant::Variant;

// Wide enough for a day of milliseconds; later times just push the line on.
constexpr std::size_t kTimeWidth = 8;
// "wpa_supplicant", the longest source.
constexpr std::size_t kSourceWidth = 14;

// A text value as one word: escaped for the terminal (a backslash itself
// becomes "\x5c", so an escape cannot be forged), and in double quotes when
// it is empty or holds a space, "=" or a quote (which becomes "\x22").
std::string value_text(const Variant& value) {
  if (!qira::variant::IsStringType(value.Type())) {
    return qira::host::json_safe(value).ToJSON();
  }
  const std::string text = qira::host::terminal_line(static_cast<const std::string&>(value));
  if (!text.empty() && text.find_first_of(" \t=\"") == std::string::npos) {
    return text;
  }
  std::string quoted = "\"";
  for (char c : text) {
    quoted += c == '"' ? std::string("\\x22") : std::string(1, c);
  }
  return quoted + "\"";
}

}  // namespace

std::string render_timeline_text(const TimelineEntry& entry) {
  std::string time = std::to_string(entry.ms);
  if (time.size() < kTimeWidth) {
    time.insert(0, kTimeWidth - time.size(), ' ');
  }
  std::string source = entry.source;
  source.resize(std::max(source.size(), kSourceWidth), ' ');
  std::string line = time + " " + source + " " + entry.name;
  if (const Variant::Map* members = entry.payload.AsMap()) {
    for (const auto& [key, value] : *members) {
      if (key != "eventName") {
        line += " " + qira::host::terminal_text(key) + "=" + value_text(value);
      }
    }
  }
  return line;
}

std::string render_timeline_json(const TimelineEntry& entry) {
  Variant line;
  line["ms"] = entry.ms;
  line["source"] = entry.source;
  if (entry.type) {
    line["type"] = *entry.type;
  }
  line["name"] = entry.name;
  line["payload"] = qira::host::json_safe(entry.payload);
  if (!qira::variant::IsMapType(line["payload"].Type())) {
    line["payload"].IsArray(false);
  }
  return line.ToJSON();
}

}  // namespace qira::wifi
