// What `qira-wifi info` learned about one interface: the answer of every
// interface query, or the log lines the module wrote when the query failed.
#ifndef QIRA_TOOLS_QIRA_WIFI_INFO_REPORT_H
#define QIRA_TOOLS_QIRA_WIFI_INFO_REPORT_H

#include <string>
#include <vector>

#include "qira/host/seams.h"
#include "qira/variant/variant.h"

namespace qira::wifi {

// How a value reads to a person; JSON always carries the bare value.
enum class ValueKind {
  kQuotedText,  // a network name: quoted, non-printable bytes escaped
  kText,        // an address
  kNumber,      // a bare number with no unit of its own
  kMegahertz,
  kMegabitsPerSecond,
  kWirelessMode,  // a Linux IW_MODE_* number, shown with its name
};

struct QueryResult {
  std::string name;  // the query's name: "essid", "freq", ...
  ValueKind kind = ValueKind::kNumber;
  bool ok = false;
  // The answer when ok; null when the query succeeded without writing its
  // output (a frequency the driver's range table does not list).
  qira::variant::Variant value;
  // Every line the module logged during the query, in order.
  std::vector<qira::host::LogRecord> log;
};

struct InfoReport {
  std::string ifname;
  std::string module_path;  // as given to the loader
  std::vector<QueryResult> queries;
};

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_INFO_REPORT_H
