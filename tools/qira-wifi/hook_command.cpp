#include "hook_command.h"

#include <stdexcept>

#include "commands.h"
#include "input_table.h"
#include "qira/host/outside_text.h"
#include "qira/network/netlib_netm.h"

namespace qira::wifi {

namespace {

// The overrides of the hook being run. The module's hook is a plain function
// without a user pointer, so the one active request is kept here for the
// length of configure_ap_with_hook.
const std::map<std::string, std::optional<std::string>>* active_overrides = nullptr;

void override_settings(std::map<std::string, std::string>& settings) {
  if (active_overrides != nullptr) {
    apply_overrides(*active_overrides, settings);
  }
}

}  // namespace

std::optional<std::string> parse_hook_request(const std::vector<std::string>& args,
                                              const GlobalOptions& options, HookRequest& request) {
  request = HookRequest{};
  request.ifname = args.at(0);
  request.address = options.address.value_or(kDefaultApAddress);
  request.netmask = options.netmask.value_or(kDefaultApNetmask);
  if (auto fault = check_input(kAddressValue, request.address)) {
    return fault;
  }
  if (auto fault = check_input(kNetmaskValue, request.netmask)) {
    return fault;
  }
  for (std::size_t index = 1; index < args.size(); ++index) {
    const std::string& word = args[index];
    const std::string::size_type equals = word.find('=');
    if (equals == std::string::npos) {
      return "invalid override " + word + ": expected KEY=VALUE";
    }
    const std::string key = word.substr(0, equals);
    const std::string value = word.substr(equals + 1);
    if (auto fault = check_input(kHookKeyValue, key)) {
      return fault;
    }
    if (value.empty()) {
      request.overrides[key] = std::nullopt;
      continue;
    }
    if (auto fault = check_hook_setting(key, value)) {
      return fault;
    }
    request.overrides[key] = value;
  }
  return std::nullopt;
}

void apply_overrides(const std::map<std::string, std::optional<std::string>>& overrides,
                     std::map<std::string, std::string>& settings) {
  for (const auto& [key, value] : overrides) {
    if (value) {
      settings[key] = *value;
    } else {
      settings.erase(key);
    }
  }
}

bool configure_ap_with_hook(ModuleSession& session, const HookRequest& request,
                            ActionResult& result, std::string& error) {
  auto* set_hook =
      session.function(&qira::network::netlib_netm_wireless_set_hostapd_conf_handler, error);
  if (set_hook == nullptr) {
    return false;
  }
  auto* configure_ap = session.function(&qira::network::netlib_netm_configure_ap, error);
  if (configure_ap == nullptr) {
    return false;
  }
  qira::host::LogCapture capture;
  active_overrides = &request.overrides;
  const qira::network::hostapd_conf_handler previous =
      set_hook(session.context(), override_settings);
  try {
    result.ok = configure_ap(session.context(), request.ifname, request.address, request.netmask);
  } catch (const std::out_of_range& exception) {
    // The module's one deliberate exception: a hardware address too short
    // for the access point's name.
    result.ok = false;
    capture_exception(exception);
  }
  set_hook(session.context(), previous);
  active_overrides = nullptr;
  result.log = capture.records();
  return true;
}

int run_hook(const GlobalOptions& options, const std::vector<std::string>& args, Streams& streams) {
  HookRequest request;
  if (auto fault = parse_hook_request(args, options, request)) {
    return refuse(streams, *fault);
  }
  ModuleSession session;
  if (!open_module(options, session, streams)) {
    return kExitModuleError;
  }
  ActionResult result;
  std::string error;
  if (!configure_ap_with_hook(session, request, result, error)) {
    streams.err << "qira-wifi: " << qira::host::terminal_line(error) << "\n";
    return kExitModuleError;
  }
  return report_action(options, streams, "hook", request.ifname, result);
}

}  // namespace qira::wifi
