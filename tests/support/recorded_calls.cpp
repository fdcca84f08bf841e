#include "support/recorded_calls.h"

namespace qira::test {

std::vector<std::string> describe_process_calls(const std::vector<qira::host::ProcessCall>& calls) {
  std::vector<std::string> lines;
  for (const qira::host::ProcessCall& call : calls) {
    std::string line;
    switch (call.kind) {
      case qira::host::ProcessCall::kShell:
        line = "shell ";
        break;
      case qira::host::ProcessCall::kExec:
        line = "run ";
        break;
      case qira::host::ProcessCall::kDaemon:
        line = "daemon ";
        break;
      case qira::host::ProcessCall::kSignal:
        line = "signal " + std::to_string(call.signal) + " ";
        break;
    }
    line += call.program;
    for (const std::string& arg : call.args) {
      line += " " + arg;
    }
    lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> describe_netlib_calls(const std::vector<qira::host::NetlibCall>& calls) {
  std::vector<std::string> lines;
  for (const qira::host::NetlibCall& call : calls) {
    std::string line = call.function + "(";
    for (std::size_t index = 0; index < call.args.size(); ++index) {
      line += (index == 0 ? "" : ", ") + call.args[index];
    }
    if (!call.name_servers.empty()) {
      line += ", [";
      for (std::size_t index = 0; index < call.name_servers.size(); ++index) {
        line += (index == 0 ? "" : " ") + call.name_servers[index];
      }
      line += "]";
    }
    lines.push_back(line + ")");
  }
  return lines;
}

}  // namespace qira::test
