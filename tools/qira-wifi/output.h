// Rendering of qira-wifi results as text and as JSON. Pure functions of the
// results, apart from the I/O of the commands, so that every shape is tested.
#ifndef QIRA_TOOLS_QIRA_WIFI_OUTPUT_H
#define QIRA_TOOLS_QIRA_WIFI_OUTPUT_H

#include <string>
#include <vector>

#include "info_report.h"
#include "qira/host/seams.h"
#include "qira/variant/variant.h"

namespace qira::wifi {

// "message: strerror(errno)", or the message alone when errno is 0; the
// message escaped for a terminal (it may quote outside values).
std::string describe_log_record(const qira::host::LogRecord& record);
// "failed (<line>; <line>)", or "failed" when the module logged nothing.
std::string describe_failure(const std::vector<qira::host::LogRecord>& log);
// Name of a Linux IW_MODE_* number ("managed", "master", ...), "unknown" past them.
std::string wireless_mode_name(unsigned int mode);
// The value of a successful query as a person reads it.
std::string describe_value(const QueryResult& result);

// One aligned "name: value" line per query.
std::string render_info_text(const InfoReport& report);

// {"message", "errno", "error", "level", "module", "file", "function", "line"}
qira::variant::Variant log_record_to_variant(const qira::host::LogRecord& record);
// {"ifname", "module", "queries": {name: {"ok": true, "value": v} or
// {"ok": false, "log": [records]}}}; a success without an answer has a null
// value; a quoted answer (the ESSID, from the air) is a string only when it
// is UTF-8, and its bytes are always under "value_hex".
qira::variant::Variant info_to_variant(const InfoReport& report);
// info_to_variant as indented JSON text, ending in a newline.
std::string render_info_json(const InfoReport& report);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_OUTPUT_H
