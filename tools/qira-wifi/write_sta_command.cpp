#include "write_sta_command.h"

#include <utility>

#include "commands.h"
#include "input_table.h"
#include "network_action.h"
#include "output.h"
#include "qira/host/outside_text.h"
#include "qira/network/netlib_netm.h"

namespace qira::wifi {

namespace {

constexpr const char* kStationFile = "/etc/wlan0.conf";
// The frequency is accepted by the module and not written; none is asked for.
constexpr int kNoFrequency = 0;

}  // namespace

std::optional<std::string> parse_station_request(const std::vector<std::string>& args,
                                                 StationRequest& request) {
  request = StationRequest{};
  request.ifname = args.at(0);
  request.ssid = args.at(1);
  request.key = args.at(2);
  request.auth = args.size() > 3 ? args[3] : "";
  request.psk = args.size() > 4 ? args[4] : "";
  const std::pair<const char*, const std::string*> values[] = {
      {kSsidValue, &request.ssid},
      {kKeyValue, &request.key},
      {kAuthValue, &request.auth},
      {kPskValue, &request.psk},
  };
  for (const auto& [name, value] : values) {
    if (std::optional<std::string> fault = check_input(name, *value)) {
      return fault;
    }
  }
  return std::nullopt;
}

bool write_station_file(ModuleSession& session, const StationRequest& request,
                        WriteStaResult& result, std::string& error) {
  auto* configure_sta = session.function(&qira::network::netlib_netm_configure_sta, error);
  if (configure_sta == nullptr) {
    return false;
  }
  qira::host::LogCapture capture;
  result.ok = configure_sta(session.context(), request.ifname, request.ssid, kNoFrequency,
                            request.key, request.auth, request.psk, "", "", "", "");
  result.log = capture.records();
  return true;
}

int run_write_sta(const GlobalOptions& options, const std::vector<std::string>& args,
                  Streams& streams) {
  StationRequest request;
  if (auto fault = parse_station_request(args, request)) {
    return refuse(streams, *fault);
  }
  ModuleSession session;
  std::string error;
  if (!session.open(options.module_path, error)) {
    streams.err << "qira-wifi: " << qira::host::terminal_line(error) << "\n";
    return kExitModuleError;
  }
  WriteStaResult result;
  if (!write_station_file(session, request, result, error)) {
    streams.err << "qira-wifi: " << qira::host::terminal_line(error) << "\n";
    return kExitModuleError;
  }
  if (options.verbose) {
    for (const qira::host::LogRecord& record : result.log) {
      streams.err << qira::host::format_log_record(record) << "\n";
    }
  }
  if (options.json) {
    qira::variant::Variant root;
    root["ifname"] = request.ifname;
    root["file"] = kStationFile;
    root["ok"] = result.ok;
    qira::variant::Variant& log = root["log"];
    log.IsArray(true);
    for (const qira::host::LogRecord& record : result.log) {
      log.Append(log_record_to_variant(record));
    }
    streams.out << qira::host::json_safe(root).ToJSON(2) << "\n";
  } else if (result.ok) {
    streams.out << kStationFile << ": written\n";
  } else {
    streams.err << "qira-wifi: " << kStationFile << ": " << describe_failure(result.log) << "\n";
  }
  return result.ok ? kExitOk : kExitActionFailed;
}

}  // namespace qira::wifi
