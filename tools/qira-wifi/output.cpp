#include "output.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "qira/host/outside_text.h"

namespace qira::wifi {

namespace {

using qira::host::LogRecord;
using qira::variant::Variant;

constexpr int kJsonIndent = 2;

// Names of the Linux IW_MODE_* numbers, in number order.
constexpr const char* kWirelessModeNames[] = {"auto",     "ad-hoc",    "managed", "master",
                                              "repeater", "secondary", "monitor", "mesh"};

std::string integer_text(const Variant& value) {
  if (value.Type() == qira::variant::V_UINT64) {
    return std::to_string(static_cast<unsigned long long>(value));
  }
  return std::to_string(static_cast<long long>(value));
}

}  // namespace

std::string describe_log_record(const LogRecord& record) {
  const std::string message = qira::host::terminal_line(record.message);
  if (record.error_number == 0) {
    return message;
  }
  return message + ": " + std::strerror(record.error_number);
}

std::string describe_failure(const std::vector<LogRecord>& log) {
  if (log.empty()) {
    return "failed";
  }
  std::string text = "failed (";
  for (std::size_t i = 0; i < log.size(); ++i) {
    if (i > 0) {
      text += "; ";
    }
    text += describe_log_record(log[i]);
  }
  return text + ")";
}

std::string wireless_mode_name(unsigned int mode) {
  if (mode < sizeof(kWirelessModeNames) / sizeof(kWirelessModeNames[0])) {
    return kWirelessModeNames[mode];
  }
  return "unknown";
}

std::string describe_value(const QueryResult& result) {
  if (result.value.IsNull()) {
    return "not reported";
  }
  switch (result.kind) {
    case ValueKind::kQuotedText:
      return "\"" + qira::host::terminal_text(static_cast<const std::string&>(result.value)) + "\"";
    case ValueKind::kText:
      return qira::host::terminal_text(static_cast<const std::string&>(result.value));
    case ValueKind::kNumber:
      return integer_text(result.value);
    case ValueKind::kMegahertz:
      return integer_text(result.value) + " MHz";
    case ValueKind::kMegabitsPerSecond:
      return integer_text(result.value) + " Mbit/s";
    case ValueKind::kWirelessMode: {
      const auto mode = static_cast<unsigned long long>(result.value);
      return std::to_string(mode) + " (" + wireless_mode_name(static_cast<unsigned int>(mode)) +
             ")";
    }
  }
  return integer_text(result.value);
}

std::string render_info_text(const InfoReport& report) {
  std::size_t width = 0;
  for (const QueryResult& result : report.queries) {
    width = std::max(width, result.name.size() + 1);
  }
  std::string text;
  for (const QueryResult& result : report.queries) {
    std::string label = result.name + ":";
    label.resize(width, ' ');
    text +=
        label + " " + (result.ok ? describe_value(result) : describe_failure(result.log)) + "\n";
  }
  return text;
}

Variant log_record_to_variant(const LogRecord& record) {
  Variant line;
  line["message"] = record.message;
  line["errno"] = record.error_number;
  line["error"] = record.error_number == 0 ? std::string() : std::strerror(record.error_number);
  line["level"] = record.level;
  line["module"] = record.module;
  line["file"] = record.file;
  line["function"] = record.function;
  line["line"] = record.line;
  return line;
}

Variant info_to_variant(const InfoReport& report) {
  Variant root;
  root["ifname"] = report.ifname;
  root["module"] = report.module_path;
  Variant& queries = root["queries"];
  queries.IsArray(false);
  for (const QueryResult& result : report.queries) {
    Variant& entry = queries[result.name];
    entry["ok"] = result.ok;
    // A quoted answer is a network's name, from the air.
    if (result.ok && result.kind == ValueKind::kQuotedText && !result.value.IsNull()) {
      qira::host::set_outside_string(entry, "value", result.value);
    } else if (result.ok) {
      entry["value"] = result.value;
    } else {
      Variant& log = entry["log"];
      log.IsArray(true);
      for (const LogRecord& record : result.log) {
        log.Append(log_record_to_variant(record));
      }
    }
  }
  return root;
}

std::string render_info_json(const InfoReport& report) {
  return qira::host::json_safe(info_to_variant(report)).ToJSON(kJsonIndent) + "\n";
}

}  // namespace qira::wifi
