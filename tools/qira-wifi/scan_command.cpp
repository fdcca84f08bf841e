#include "scan_command.h"

#include <algorithm>
#include <ostream>

#include "module_session.h"
#include "output.h"
#include "qira/host/outside_text.h"
#include "qira/host/seams.h"
#include "qira/netlib/events_view.h"
#include "qira/network/netlib_scan.h"
#include "scan_table.h"
#include "stop_signals.h"

namespace qira::wifi {

namespace {

namespace network = qira::network;

// Prints the module's lines of a failed step and answers the failure code.
int report_failure(const std::string& what, const std::vector<qira::host::LogRecord>& log,
                   Streams& streams) {
  streams.err << "qira-wifi: " << what << ": " << describe_failure(log) << "\n";
  return kExitActionFailed;
}

}  // namespace

int run_scan(const GlobalOptions& options, const std::vector<std::string>& args, Streams& streams) {
  const std::string& ifname = args.front();
  ModuleSession session;
  std::string error;
  if (!session.open(options.module_path, error,
                    qira::host::kInterfaceSubsystem | qira::host::kEventsSubsystem |
                        qira::host::kScanSubsystem)) {
    streams.err << "qira-wifi: " << qira::host::terminal_line(error) << "\n";
    return kExitModuleError;
  }
  auto* trigger = session.function(&network::netlib_libscan_trigger, error);
  auto* service = session.function(&network::netlib_libscan_service, error);
  auto* results = session.function(&network::netlib_libscan_results, error);
  if (trigger == nullptr || service == nullptr || results == nullptr) {
    streams.err << "qira-wifi: " << qira::host::terminal_line(error) << "\n";
    return kExitModuleError;
  }
  StopSignals stop;
  if (!stop.ok()) {
    streams.err << "qira-wifi: cannot watch for SIGINT and SIGTERM\n";
    return kExitActionFailed;
  }
  qira::host::LogCapture capture;
  bool in_progress = false;
  if (!trigger(session.context(), ifname, nullptr, 0, in_progress)) {
    return report_failure("scan trigger failed", capture.records(), streams);
  }
  if (in_progress) {
    streams.err << "qira-wifi: another scan is in progress on " << qira::host::terminal_text(ifname)
                << "\n";
    return kExitActionFailed;
  }
  const std::chrono::milliseconds limit =
      options.timeout_ms ? std::chrono::milliseconds(static_cast<long long>(*options.timeout_ms))
                         : kScanDefaultTimeout;
  // The scan's notifications arrive on the event module's socket, which the
  // trigger has joined to nl80211's groups: each time it is readable the
  // scan module is serviced once, and nothing runs in between.
  const int fd = qira::netlib::wireless_events_fd(session.context());
  if (fd < 0) {
    streams.err << "qira-wifi: the event module has no socket to wait on\n";
    return kExitActionFailed;
  }
  const auto started = std::chrono::steady_clock::now();
  network::scan_status status{false, false};
  while (true) {
    if (!service(session.context(), ifname, status)) {
      return report_failure("scan service failed", capture.records(), streams);
    }
    if (status.finished) {
      break;
    }
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - started);
    if (elapsed >= limit) {
      streams.err << "qira-wifi: the scan on " << qira::host::terminal_text(ifname)
                  << " did not end within " << limit.count() << " ms\n";
      return kExitActionFailed;
    }
    const StopSignals::Wake wake = stop.wait_readable(fd, limit - elapsed);
    if (wake == StopSignals::Wake::stop) {
      streams.err << "qira-wifi: interrupted\n";
      return kExitInterrupted;
    }
    if (wake == StopSignals::Wake::failed) {
      streams.err << "qira-wifi: the event module's socket cannot be waited on\n";
      return kExitActionFailed;
    }
  }
  std::vector<network::ap_info> records;
  if (!results(session.context(), ifname, records, options.ap_mode)) {
    return report_failure("scan results failed", capture.records(), streams);
  }
  // --again: the module hands a scan's results out once; the second answer
  // shows what a later call gets.
  std::vector<network::ap_info> again;
  if (options.again && !results(session.context(), ifname, again, options.ap_mode)) {
    return report_failure("second scan results call failed", capture.records(), streams);
  }
  if (options.verbose) {
    for (const qira::host::LogRecord& record : capture.records()) {
      streams.err << qira::host::format_log_record(record) << "\n";
    }
  }
  const std::vector<network::ap_info> ranked = rank_access_points(std::move(records));
  const std::vector<network::ap_info> ranked_again = rank_access_points(std::move(again));
  if (options.json) {
    qira::variant::Variant root = scan_to_variant(ifname, status.aborted, ranked);
    if (options.again) {
      root["again"] = access_points_variant(ranked_again);
    }
    streams.out << qira::host::json_safe(root).ToJSON(2) << "\n";
  } else {
    if (status.aborted) {
      streams.out << "scan aborted: results may be incomplete\n";
    }
    streams.out << render_scan_text(ranked);
    if (options.again) {
      streams.out << "results asked again: " << ranked_again.size() << " access points\n";
      if (!ranked_again.empty()) {
        streams.out << render_scan_text(ranked_again);
      }
    }
  }
  return kExitOk;
}

}  // namespace qira::wifi
