#include "apply_command.h"

#include <fstream>
#include <stdexcept>

#include "commands.h"
#include "input_table.h"
#include "qira/host/outside_text.h"
#include "qira/network/netlib_netm.h"

namespace qira::wifi {

namespace {

using qira::variant::Variant;

constexpr std::size_t kLongestConfig = 64 * 1024;

// The whole file at `path`, or why not. A stored configuration is a few
// hundred bytes: a longer file (or a device that never ends) is refused
// after kLongestConfig bytes rather than read into memory.
std::optional<std::string> read_config_file(const std::string& path, std::string& text) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return "cannot read " + path;
  }
  text.clear();
  char buffer[4096];
  while (file.read(buffer, sizeof(buffer)) || file.gcount() > 0) {
    text.append(buffer, static_cast<std::size_t>(file.gcount()));
    if (text.size() > kLongestConfig) {
      return path + ": longer than " + std::to_string(kLongestConfig) + " bytes";
    }
  }
  if (file.bad()) {
    return "cannot read " + path;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> parse_network_config(const std::string& text, Variant& config) {
  std::string error;
  if (!Variant::FromJSON(text, config, &error)) {
    return "invalid configuration: " + error;
  }
  if (!qira::variant::IsMapType(config.Type())) {
    return std::string("invalid configuration: not a JSON object");
  }
  // In every mode: a value the other mode would read is not let through
  // either.
  return check_network_config(config);
}

bool apply_network_config(ModuleSession& session, const std::string& ifname, const Variant& config,
                          bool ap_mode, ActionResult& result, std::string& error) {
  auto* init_network = session.function(&qira::network::netlib_netm_wireless_init_network, error);
  if (init_network == nullptr) {
    return false;
  }
  qira::host::LogCapture capture;
  try {
    result.ok = init_network(session.context(), ifname, config, ap_mode);
  } catch (const std::out_of_range& exception) {
    // The module's one deliberate exception: a hardware address too short
    // for the access point's name.
    result.ok = false;
    capture_exception(exception);
  }
  result.log = capture.records();
  return true;
}

int run_apply(const GlobalOptions& options, const std::vector<std::string>& args,
              Streams& streams) {
  const std::string& ifname = args.at(0);
  const std::string& path = args.at(1);
  std::string text;
  if (auto fault = read_config_file(path, text)) {
    return refuse(streams, *fault);
  }
  Variant config;
  if (auto fault = parse_network_config(text, config)) {
    return refuse(streams, path + ": " + *fault);
  }
  ModuleSession session;
  if (!open_module(options, session, streams)) {
    return kExitModuleError;
  }
  ActionResult result;
  std::string error;
  if (!apply_network_config(session, ifname, config, options.ap_mode, result, error)) {
    streams.err << "qira-wifi: " << qira::host::terminal_line(error) << "\n";
    return kExitModuleError;
  }
  return report_action(options, streams, "apply", ifname, result);
}

}  // namespace qira::wifi
