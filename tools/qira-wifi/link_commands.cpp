#include "link_commands.h"

#include "commands.h"
#include "qira/host/outside_text.h"
#include "qira/network/netlib_netm.h"

namespace qira::wifi {

namespace {

int run_link_command(LinkAction action, const GlobalOptions& options,
                     const std::vector<std::string>& args, Streams& streams) {
  const LinkRequest request = link_request(action, args.at(0), options);
  ModuleSession session;
  if (!open_module(options, session, streams)) {
    return kExitModuleError;
  }
  ActionResult result;
  std::string error;
  if (!run_link_action(session, request, result, error)) {
    streams.err << "qira-wifi: " << qira::host::terminal_line(error) << "\n";
    return kExitModuleError;
  }
  return report_action(options, streams, link_action_name(action), request.ifname, result);
}

}  // namespace

LinkRequest link_request(LinkAction action, const std::string& ifname,
                         const GlobalOptions& options) {
  LinkRequest request;
  request.action = action;
  request.ifname = ifname;
  request.ap_mode = options.ap_mode;
  request.vendor_tools = options.vendor_tools;
  return request;
}

const char* link_action_name(LinkAction action) {
  switch (action) {
    case LinkAction::kConnect:
      return "connect";
    case LinkAction::kDisconnect:
      return "disconnect";
    case LinkAction::kRecover:
      return "recover";
  }
  return "";
}

bool run_link_action(ModuleSession& session, const LinkRequest& request, ActionResult& result,
                     std::string& error) {
  qira::host::LogCapture capture;
  switch (request.action) {
    case LinkAction::kConnect: {
      auto* connect = session.function(&qira::network::netlib_netm_wireless_connect, error);
      if (connect == nullptr) {
        return false;
      }
      result.ok = connect(session.context(), request.ifname, request.ap_mode, request.vendor_tools);
      break;
    }
    case LinkAction::kDisconnect: {
      auto* disconnect = session.function(&qira::network::netlib_netm_wireless_disconnect, error);
      if (disconnect == nullptr) {
        return false;
      }
      result.ok =
          disconnect(session.context(), request.ifname, request.ap_mode, request.vendor_tools);
      break;
    }
    case LinkAction::kRecover: {
      auto* recover = session.function(&qira::network::netlib_netm_recover_scan_ap, error);
      if (recover == nullptr) {
        return false;
      }
      result.ok = recover(session.context(), request.ifname, request.ap_mode);
      break;
    }
  }
  result.log = capture.records();
  return true;
}

int run_connect(const GlobalOptions& options, const std::vector<std::string>& args,
                Streams& streams) {
  return run_link_command(LinkAction::kConnect, options, args, streams);
}

int run_disconnect(const GlobalOptions& options, const std::vector<std::string>& args,
                   Streams& streams) {
  return run_link_command(LinkAction::kDisconnect, options, args, streams);
}

int run_recover(const GlobalOptions& options, const std::vector<std::string>& args,
                Streams& streams) {
  return run_link_command(LinkAction::kRecover, options, args, streams);
}

}  // namespace qira::wifi
