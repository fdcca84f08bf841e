// Text and JSON rendering of qira-wifi's results, from hand-made reports.
#include "output.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace qira::wifi {
namespace {

using qira::host::LogRecord;
using qira::variant::Variant;

LogRecord ioctl_failure(const std::string& request, int error_number) {
  LogRecord record;
  record.module = "qira_network_utils_wireless";
  record.file = "src/netlib_iface/netlib_iface.cpp";
  record.function = "do_ioctl";
  record.line = 42;
  record.level = 3;
  record.error_number = error_number;
  record.message = "netlib: ioctl(" + request + ") failed";
  return record;
}

template <typename T>
QueryResult answered(const std::string& name, ValueKind kind, const T& value) {
  QueryResult result;
  result.name = name;
  result.kind = kind;
  result.ok = true;
  result.value = value;
  return result;
}

QueryResult failed(const std::string& name, ValueKind kind, std::vector<LogRecord> log) {
  QueryResult result;
  result.name = name;
  result.kind = kind;
  result.ok = false;
  result.log = std::move(log);
  return result;
}

TEST(Output, LogRecordWithErrnoNamesTheError) {
  EXPECT_EQ(describe_log_record(ioctl_failure("8B1B", ENODEV)),
            "netlib: ioctl(8B1B) failed: No such device");
}

TEST(Output, LogRecordWithoutErrnoIsTheMessage) {
  LogRecord record;
  record.message = "library is not initialized";
  EXPECT_EQ(describe_log_record(record), "library is not initialized");
}

TEST(Output, FailureJoinsEveryLogLine) {
  LogRecord check;
  check.message = "library context is null";
  EXPECT_EQ(describe_failure({check, ioctl_failure("8B05", EOPNOTSUPP)}),
            "failed (library context is null; netlib: ioctl(8B05) failed: Operation not "
            "supported)");
}

TEST(Output, FailureWithoutLogLine) {
  EXPECT_EQ(describe_failure({}), "failed");
}

TEST(Output, WirelessModeNames) {
  EXPECT_EQ(wireless_mode_name(0), "auto");
  EXPECT_EQ(wireless_mode_name(1), "ad-hoc");
  EXPECT_EQ(wireless_mode_name(2), "managed");
  EXPECT_EQ(wireless_mode_name(3), "master");
  EXPECT_EQ(wireless_mode_name(4), "repeater");
  EXPECT_EQ(wireless_mode_name(5), "secondary");
  EXPECT_EQ(wireless_mode_name(6), "monitor");
  EXPECT_EQ(wireless_mode_name(7), "mesh");
  EXPECT_EQ(wireless_mode_name(8), "unknown");
  EXPECT_EQ(wireless_mode_name(255), "unknown");
}

TEST(Output, AnEssidFromTheAirIsShownSafely) {
  EXPECT_EQ(describe_value(answered("essid", ValueKind::kQuotedText,
                                    std::string("a\"b\\c\n\x7f\xff\x1B[2J", 12))),
            "\"a\"b\\x5cc\\x0a\\x7f\\xff\\x1b[2J\"");
  EXPECT_EQ(describe_value(answered("essid", ValueKind::kQuotedText, std::string("Caf\xC3\xA9"))),
            "\"Caf\xC3\xA9\"");
}

TEST(Output, ALogMessageQuotingOutsideTextStaysOneSafeLine) {
  LogRecord record;
  record.message = "Failed: \"FAIL\nforged\x1B[2J\"";
  EXPECT_EQ(describe_log_record(record), "Failed: \"FAIL\\x0aforged\\x1b[2J\"");
}

TEST(Output, JsonEssidIsAStringOnlyWhenUtf8AndAlwaysHex) {
  InfoReport report;
  report.ifname = "wlan0";
  report.module_path = "m.so";
  report.queries.push_back(answered("essid", ValueKind::kQuotedText, std::string("\xFFHome", 5)));
  const std::string json = render_info_json(report);
  EXPECT_NE(json.find("\"value\": null"), std::string::npos) << json;
  EXPECT_NE(json.find("\"value_hex\": \"ff486f6d65\""), std::string::npos) << json;
  Variant parsed;
  std::string error;
  EXPECT_TRUE(Variant::FromJSON(json, parsed, &error)) << error;
}

TEST(Output, ValuesWithUnits) {
  EXPECT_EQ(describe_value(answered("essid", ValueKind::kQuotedText, std::string("Home"))),
            "\"Home\"");
  EXPECT_EQ(describe_value(answered("essid", ValueKind::kQuotedText, std::string())), "\"\"");
  EXPECT_EQ(describe_value(answered("bssid", ValueKind::kText, std::string("02:00:00:00:01:00"))),
            "02:00:00:00:01:00");
  EXPECT_EQ(describe_value(answered("freq", ValueKind::kMegahertz, 2412)), "2412 MHz");
  EXPECT_EQ(describe_value(answered("bitrate", ValueKind::kMegabitsPerSecond, 54)), "54 Mbit/s");
  EXPECT_EQ(describe_value(answered("signal_level", ValueKind::kNumber, -60)), "-60");
  EXPECT_EQ(describe_value(answered("wireless_mode", ValueKind::kWirelessMode, 2u)), "2 (managed)");
}

TEST(Output, SuccessWithoutAnswerIsNotReported) {
  EXPECT_EQ(describe_value(answered("freq", ValueKind::kMegahertz, Variant())), "not reported");
}

InfoReport sample_report() {
  InfoReport report;
  report.ifname = "wlan0";
  report.module_path = "libqira_network_utils_wireless.so.1";
  report.queries = {
      answered("essid", ValueKind::kQuotedText, std::string("Home")),
      failed("freq", ValueKind::kMegahertz, {ioctl_failure("8B05", ENODEV)}),
      answered("quality_max", ValueKind::kNumber, 70),
      answered("wireless_mode", ValueKind::kWirelessMode, 3u),
  };
  return report;
}

TEST(Output, TextAlignsValuesAfterTheLongestName) {
  EXPECT_EQ(render_info_text(sample_report()),
            "essid:         \"Home\"\n"
            "freq:          failed (netlib: ioctl(8B05) failed: No such device)\n"
            "quality_max:   70\n"
            "wireless_mode: 3 (master)\n");
}

TEST(Output, TextOfNoQueriesIsEmpty) {
  EXPECT_EQ(render_info_text(InfoReport{}), "");
}

TEST(Output, JsonHasOneEntryPerQuery) {
  const Variant json = info_to_variant(sample_report());
  EXPECT_EQ(static_cast<const std::string&>(json["ifname"]), "wlan0");
  EXPECT_EQ(static_cast<const std::string&>(json["module"]), "libqira_network_utils_wireless.so.1");
  ASSERT_NE(json["queries"].AsMap(), nullptr);
  EXPECT_EQ(json["queries"].Size(), 4u);
  EXPECT_EQ(json.Size(), 3u);

  const Variant& essid = json["queries"]["essid"];
  EXPECT_EQ(essid.Size(), 3u);
  EXPECT_TRUE(essid["ok"].AsBool());
  EXPECT_EQ(static_cast<const std::string&>(essid["value"]), "Home");
  EXPECT_EQ(static_cast<const std::string&>(essid["value_hex"]), "486f6d65");

  const Variant& mode = json["queries"]["wireless_mode"];
  EXPECT_EQ(static_cast<long long>(mode["value"]), 3);
}

TEST(Output, JsonFailureCarriesEveryLogRecordField) {
  const Variant json = info_to_variant(sample_report());
  const Variant& freq = json["queries"]["freq"];
  EXPECT_EQ(freq.Size(), 2u);
  EXPECT_EQ(freq["ok"].Type(), qira::variant::V_BOOL);
  EXPECT_FALSE(freq["ok"].AsBool());
  EXPECT_FALSE(freq.HasKey("value"));
  ASSERT_NE(freq["log"].AsArray(), nullptr);
  ASSERT_EQ(freq["log"].Size(), 1u);
  const Variant& line = (*freq["log"].AsArray())[0];
  EXPECT_EQ(line.Size(), 8u);
  EXPECT_EQ(static_cast<const std::string&>(line["message"]), "netlib: ioctl(8B05) failed");
  EXPECT_EQ(static_cast<long long>(line["errno"]), ENODEV);
  EXPECT_EQ(static_cast<const std::string&>(line["error"]), "No such device");
  EXPECT_EQ(static_cast<long long>(line["level"]), 3);
  EXPECT_EQ(static_cast<const std::string&>(line["module"]), "qira_network_utils_wireless");
  EXPECT_EQ(static_cast<const std::string&>(line["file"]), "src/netlib_iface/netlib_iface.cpp");
  EXPECT_EQ(static_cast<const std::string&>(line["function"]), "do_ioctl");
  EXPECT_EQ(static_cast<long long>(line["line"]), 42);
}

TEST(Output, JsonFailureWithoutLogHasAnEmptyArray) {
  InfoReport report;
  report.queries = {failed("bssid", ValueKind::kText, {})};
  const Variant json = info_to_variant(report);
  ASSERT_NE(json["queries"]["bssid"]["log"].AsArray(), nullptr);
  EXPECT_EQ(json["queries"]["bssid"]["log"].Size(), 0u);
}

TEST(Output, JsonSuccessWithoutAnswerHasNullValue) {
  InfoReport report;
  report.queries = {answered("freq", ValueKind::kMegahertz, Variant())};
  const Variant json = info_to_variant(report);
  EXPECT_TRUE(json["queries"]["freq"].HasKey("value"));
  EXPECT_TRUE(json["queries"]["freq"]["value"].IsNull());
}

TEST(Output, JsonTextRoundTripsAndEndsInNewline) {
  const std::string text = render_info_json(sample_report());
  ASSERT_FALSE(text.empty());
  EXPECT_EQ(text.back(), '\n');
  Variant parsed;
  std::string error;
  ASSERT_TRUE(Variant::FromJSON(text, parsed, &error)) << error;
  EXPECT_EQ(parsed.ToJSON(), info_to_variant(sample_report()).ToJSON());
}

}  // namespace
}  // namespace qira::wifi
