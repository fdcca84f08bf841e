#include "apply_command.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "commands.h"
#include "input_checks.h"
#include "qira/network/netlib_netm.h"

namespace qira::wifi {

namespace {

using qira::variant::Variant;

// The text under `path` when it is a string, else "" (the module then takes
// its default, which is checked as well by being empty).
std::string text_at(const Variant& config, const char* path) {
  const Variant* value = config.GetKeyChain(qira::variant::V_STRING, path, true);
  return value == nullptr ? std::string() : static_cast<const std::string&>(*value);
}

// The message of a check of `ssid`'s kind, reworded for the key `path`.
std::optional<std::string> check_quoted_value(const Variant& config, const char* path) {
  std::optional<std::string> fault = check_ssid(text_at(config, path), TargetFile::kStation);
  if (!fault) {
    return std::nullopt;
  }
  const std::string::size_type reason = fault->find(':');
  return "invalid " + std::string(path) + fault->substr(reason);
}

bool read_whole_file(const std::string& path, std::string& text) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return false;
  }
  std::ostringstream content;
  content << file.rdbuf();
  text = content.str();
  return !file.bad();
}

}  // namespace

std::optional<std::string> parse_network_config(const std::string& text, bool ap_mode,
                                                Variant& config) {
  std::string error;
  if (!Variant::FromJSON(text, config, &error)) {
    return "invalid configuration: " + error;
  }
  if (!qira::variant::IsMapType(config.Type())) {
    return std::string("invalid configuration: not a JSON object");
  }
  if (ap_mode) {
    return std::nullopt;
  }
  if (auto fault = check_ssid(text_at(config, "wifi/ssid"), TargetFile::kStation)) {
    return fault;
  }
  if (auto fault = check_passphrase(text_at(config, "wifi/wpa/psk"), TargetFile::kStation)) {
    return fault;
  }
  for (const char* path :
       {"wifi/wpa/ident", "wifi/wpa/username", "wifi/wpa/password", "experiments/bgscan"}) {
    if (auto fault = check_quoted_value(config, path)) {
      return fault;
    }
  }
  return std::nullopt;
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
  if (auto fault = check_device_name(ifname)) {
    return refuse(streams, *fault);
  }
  std::string text;
  if (!read_whole_file(path, text)) {
    return refuse(streams, "cannot read " + path);
  }
  Variant config;
  if (auto fault = parse_network_config(text, options.ap_mode, config)) {
    return refuse(streams, path + ": " + *fault);
  }
  ModuleSession session;
  if (!open_module(options, session, streams)) {
    return kExitModuleError;
  }
  ActionResult result;
  std::string error;
  if (!apply_network_config(session, ifname, config, options.ap_mode, result, error)) {
    streams.err << "qira-wifi: " << error << "\n";
    return kExitModuleError;
  }
  return report_action(options, streams, "apply", ifname, result);
}

}  // namespace qira::wifi
