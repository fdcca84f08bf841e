// The lines of `qira-wifi monitor`: one per thing heard, with the time since
// the monitor started, its source ("nl80211", "wpa_supplicant", or "monitor"
// for the monitor's own notes: listening, wpa_supplicant attached, lost,
// attached again), the event's name and its payload. Pure: no I/O.
#ifndef QIRA_TOOLS_QIRA_WIFI_MONITOR_TIMELINE_H
#define QIRA_TOOLS_QIRA_WIFI_MONITOR_TIMELINE_H

#include <optional>
#include <string>

#include "qira/variant/variant.h"

namespace qira::wifi {

inline constexpr char kNl80211Source[] = "nl80211";
inline constexpr char kWpaSource[] = "wpa_supplicant";
inline constexpr char kMonitorSource[] = "monitor";

struct TimelineEntry {
  unsigned long long ms = 0;  // since the monitor started (monotonic)
  std::string source;
  std::optional<int> type;  // the event_type number of an event; none for a note
  std::string name;
  qira::variant::Variant payload;  // a map
};

// "MS SOURCE NAME KEY=VALUE ...": the time right-aligned, the source padded
// to one width, then each payload member but "eventName" (the name says it),
// in key order; a text value holding a space, a quote, "=" or a byte a
// terminal would act on is written in double quotes with those escaped.
// No newline.
std::string render_timeline_text(const TimelineEntry& entry);
// One compact JSON object: {"ms", "source", "type" (events only), "name",
// "payload"}. No newline.
std::string render_timeline_json(const TimelineEntry& entry);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_MONITOR_TIMELINE_H
