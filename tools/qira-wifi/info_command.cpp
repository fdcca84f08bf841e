#include "info_command.h"

#include <functional>
#include <limits>
#include <vector>

#include "commands.h"
#include "output.h"
#include "qira/host/outside_text.h"
#include "qira/network/netlib_iface.h"

namespace qira::wifi {

namespace {

namespace network = qira::network;
using qira::variant::Variant;

template <typename Output>
using QueryFunction = bool(void*, const std::string&, Output&);

// Output values a query can never produce: a query that succeeds and leaves
// its output alone (the frequency of a channel the range table lacks) is told
// apart from one that answered. A string query stops at the first NUL, so a
// lone NUL cannot be an answer.
template <typename Output>
Output unanswered();
template <>
std::string unanswered<std::string>() {
  return std::string(1, '\0');
}
template <>
int unanswered<int>() {
  return std::numeric_limits<int>::min();
}

// One query bound to its function in the opened module.
struct BoundQuery {
  const char* name;
  ValueKind kind;
  std::function<bool(void* ctx, const std::string& ifname, Variant& value)> call;
};

template <typename Output>
BoundQuery bind(const ModuleSession& session, const char* name, ValueKind kind,
                QueryFunction<Output>* linked, std::string& error) {
  QueryFunction<Output>* function = session.function(linked, error);
  if (function == nullptr) {
    return {name, kind, nullptr};
  }
  return {name, kind, [function](void* ctx, const std::string& ifname, Variant& value) {
            Output output = unanswered<Output>();
            const bool ok = function(ctx, ifname, output);
            if (ok && output != unanswered<Output>()) {
              value = output;
            }
            return ok;
          }};
}

// The mode query's output is a byte, so every value is an answer: it is
// always written on success.
BoundQuery bind_mode(const ModuleSession& session, std::string& error) {
  QueryFunction<unsigned char>* function =
      session.function(&network::netlib_iface_iw_get_wireless_mode, error);
  if (function == nullptr) {
    return {"wireless_mode", ValueKind::kWirelessMode, nullptr};
  }
  return {"wireless_mode", ValueKind::kWirelessMode,
          [function](void* ctx, const std::string& ifname, Variant& value) {
            unsigned char mode = 0;
            const bool ok = function(ctx, ifname, mode);
            if (ok) {
              value = static_cast<unsigned int>(mode);
            }
            return ok;
          }};
}

std::vector<BoundQuery> bind_queries(const ModuleSession& session, std::string& error) {
  return {
      bind<std::string>(session, "essid", ValueKind::kQuotedText,
                        &network::netlib_iface_iw_get_essid, error),
      bind<std::string>(session, "bssid", ValueKind::kText, &network::netlib_iface_iw_get_bssid,
                        error),
      bind<int>(session, "freq", ValueKind::kMegahertz, &network::netlib_iface_iw_get_freq, error),
      bind<int>(session, "channel", ValueKind::kNumber, &network::netlib_iface_iw_get_channel,
                error),
      bind<int>(session, "bitrate", ValueKind::kMegabitsPerSecond,
                &network::netlib_iface_iw_get_bitrate, error),
      bind<int>(session, "txpower", ValueKind::kNumber, &network::netlib_iface_iw_get_txpower,
                error),
      bind<int>(session, "quality", ValueKind::kNumber, &network::netlib_iface_iw_get_quality,
                error),
      bind<int>(session, "quality_max", ValueKind::kNumber,
                &network::netlib_iface_iw_get_quality_max, error),
      bind<int>(session, "signal_level", ValueKind::kNumber,
                &network::netlib_iface_iw_get_signal_level, error),
      bind<int>(session, "noise_level", ValueKind::kNumber,
                &network::netlib_iface_iw_get_noise_level, error),
      bind_mode(session, error),
  };
}

}  // namespace

bool collect_info(ModuleSession& session, const std::string& ifname, std::ostream* echo_log,
                  InfoReport& report, std::string& error) {
  std::string bind_error;
  const std::vector<BoundQuery> queries = bind_queries(session, bind_error);
  if (!bind_error.empty()) {
    error = bind_error;
    return false;
  }
  report.ifname = ifname;
  report.module_path = session.path();
  report.queries.clear();
  for (const BoundQuery& query : queries) {
    QueryResult result;
    result.name = query.name;
    result.kind = query.kind;
    {
      qira::host::LogCapture capture;
      result.ok = query.call(session.context(), ifname, result.value);
      result.log = capture.records();
    }
    if (echo_log != nullptr) {
      for (const qira::host::LogRecord& record : result.log) {
        *echo_log << qira::host::format_log_record(record) << "\n";
      }
    }
    report.queries.push_back(std::move(result));
  }
  return true;
}

int run_info(const GlobalOptions& options, const std::vector<std::string>& args, Streams& streams) {
  ModuleSession session;
  std::string error;
  if (options.verbose) {
    streams.err << "qira-wifi: loading module "
                << qira::host::terminal_text(options.module_path.empty()
                                                 ? qira::host::WirelessModule::default_path()
                                                 : options.module_path)
                << "\n";
  }
  if (!session.open(options.module_path, error)) {
    streams.err << "qira-wifi: " << qira::host::terminal_line(error) << "\n";
    return kExitModuleError;
  }
  InfoReport report;
  if (!collect_info(session, args.at(0), options.verbose ? &streams.err : nullptr, report, error)) {
    streams.err << "qira-wifi: " << qira::host::terminal_line(error) << "\n";
    return kExitModuleError;
  }
  streams.out << (options.json ? render_info_json(report) : render_info_text(report));
  return kExitOk;
}

}  // namespace qira::wifi
