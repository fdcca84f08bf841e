#include "monitor_timeline.h"

#include <algorithm>
#include <string>

#include "output.h"

namespace qira::wifi {

namespace {

using qira::variant::Variant;

// Wide enough for a day of milliseconds; later times just push the line on.
constexpr std::size_t kTimeWidth = 8;
// "wpa_supplicant", the longest source.
constexpr std::size_t kSourceWidth = 14;

bool needs_quotes(const std::string& text) {
  if (text.empty()) {
    return true;
  }
  for (unsigned char byte : text) {
    if (byte <= ' ' || byte >= 0x7f || byte == '"' || byte == '=' || byte == '\\') {
      return true;
    }
  }
  return false;
}

std::string value_text(const Variant& value) {
  if (!qira::variant::IsStringType(value.Type())) {
    return value.ToJSON();
  }
  const std::string& text = value;
  return needs_quotes(text) ? "\"" + escape_text(text) + "\"" : text;
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
        line += " " + escape_text(key) + "=" + value_text(value);
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
  line["payload"] = entry.payload;
  if (!qira::variant::IsMapType(line["payload"].Type())) {
    line["payload"].IsArray(false);
  }
  return line.ToJSON();
}

}  // namespace qira::wifi
