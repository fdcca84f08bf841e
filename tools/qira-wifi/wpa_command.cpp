#include "wpa_command.h"

#include <signal.h>

#include <algorithm>
#include <csignal>
#include <optional>
#include <ostream>
#include <utility>

#include "commands.h"
#include "event_names.h"
#include "events_command.h"
#include "input_table.h"
#include "network_action.h"
#include "output.h"
#include "qira/host/outside_text.h"
#include "qira/host/seams.h"
#include "qira/host_globals.h"
#include "qira/network/wpa_client.h"
#include "stop_signals.h"
#include "wpa_event_source.h"

namespace qira::wifi {

namespace {

namespace network = qira::network;
using qira::host::LogCapture;
using qira::host::LogRecord;

// The module's log lines of one command: kept to explain a failure and, with
// --verbose, echoed to stderr in the host's format (at the latest when the
// command ends).
class CommandLog {
 public:
  CommandLog(bool verbose, std::ostream& err) : verbose_(verbose), err_(err) {}
  ~CommandLog() { echo(); }
  CommandLog(const CommandLog&) = delete;
  CommandLog& operator=(const CommandLog&) = delete;

  // The lines logged since the last take, echoed first with --verbose.
  std::vector<LogRecord> take() {
    echo();
    std::vector<LogRecord> records = capture_.records();
    capture_.clear();
    echoed_ = 0;
    return records;
  }

 private:
  void echo() {
    if (!verbose_) {
      return;
    }
    const std::vector<LogRecord> records = capture_.records();
    for (; echoed_ < records.size(); ++echoed_) {
      err_ << qira::host::format_log_record(records[echoed_]) << "\n";
    }
  }

  bool verbose_;
  std::ostream& err_;
  LogCapture capture_;
  std::size_t echoed_ = 0;
};

// The client could not be set up: says why, in the module's words.
int unreachable(const std::string& ifname, CommandLog& log, Streams& streams) {
  streams.err << "qira-wifi: cannot reach the wpa_supplicant of "
              << qira::host::terminal_text(ifname) << ": " << describe_failure(log.take()) << "\n";
  return kExitActionFailed;
}

}  // namespace

std::string join_command(const std::vector<std::string>& words) {
  std::string command;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i > 0) {
      command += " ";
    }
    command += words[i];
  }
  return command;
}

int run_wpa(const GlobalOptions& options, const std::vector<std::string>& args, Streams& streams) {
  const std::string& ifname = args.at(0);
  const std::string command = join_command(std::vector<std::string>(args.begin() + 1, args.end()));
  if (std::optional<std::string> fault = check_input(kWpaCommandValue, command)) {
    return refuse(streams, *fault);
  }
  const unsigned long long timeout = options.timeout_ms.value_or(kDefaultWpaReplyTimeoutMs);
  CommandLog log(options.verbose, streams.err);
  network::WpaClient client;
  if (!client.Init(ifname)) {
    return unreachable(ifname, log, streams);
  }
  std::string reply;
  if (!client.Request(command, reply, timeout)) {
    streams.err << "qira-wifi: " << qira::host::terminal_text(command)
                << " to the wpa_supplicant of " << qira::host::terminal_text(ifname) << ": "
                << describe_failure(log.take()) << "\n";
    return kExitActionFailed;
  }
  if (reply.empty()) {
    streams.err << "qira-wifi: no reply from the wpa_supplicant of "
                << qira::host::terminal_text(ifname) << " within " << timeout << " ms\n";
    return kExitActionFailed;
  }
  if (options.json) {
    qira::variant::Variant root;
    root["ifname"] = ifname;
    root["command"] = command;
    root["reply"] = reply;
    streams.out << qira::host::json_safe(root).ToJSON(2) << "\n";
    return kExitOk;
  }
  // The reply is the daemon's text, which may quote names from the air.
  streams.out << qira::host::terminal_lines(reply);
  return kExitOk;
}

int run_wpa_events(const GlobalOptions& options, const std::vector<std::string>& args,
                   Streams& streams) {
  const std::string& ifname = args.at(0);
  StopSignals signals;
  WpaEventSource source(ifname);
  const auto echo_log = [&] {
    for (const qira::host::LogRecord& record : source.take_log()) {
      if (options.verbose) {
        streams.err << qira::host::format_log_record(record) << "\n";
      }
    }
  };
  std::vector<ReceivedEvent> events;
  if (source.watch(events) != WpaEventSource::Change::kAttached) {
    echo_log();
    if (source.last_refused()) {
      streams.err << "qira-wifi: the wpa_supplicant of " << qira::host::terminal_text(ifname)
                  << " refused ATTACH\n";
    } else {
      streams.err << "qira-wifi: cannot reach the wpa_supplicant of "
                  << qira::host::terminal_text(ifname) << ": " << source.last_failure() << "\n";
    }
    return kExitActionFailed;
  }
  echo_log();
  const auto say = [&](const char* what) {
    streams.err << "qira-wifi: the wpa_supplicant of " << qira::host::terminal_text(ifname) << " "
                << what << "\n";
    streams.err.flush();
  };
  const auto print_events = [&](const std::vector<ReceivedEvent>& received) {
    for (const ReceivedEvent& event : received) {
      // Written at once, so that a reader of a pipe sees events as they come.
      streams.out << render_event_line(event.type, event.payload, options.json) << "\n"
                  << std::flush;
    }
  };
  const unsigned long long started = nowMs();
  while (true) {
    std::chrono::milliseconds wait = source.poll_interval();
    if (options.timeout_ms) {
      const unsigned long long elapsed = nowMs() - started;
      if (elapsed >= *options.timeout_ms) {
        break;
      }
      // The parser took at most a day: the difference fits.
      wait = std::min(
          wait, std::chrono::milliseconds(static_cast<long long>(*options.timeout_ms - elapsed)));
    }
    std::vector<StopSignals::Readiness> ready;
    const StopSignals::Wake wake = signals.wait_any({source.fd()}, wait, ready);
    if (wake == StopSignals::Wake::stop) {
      // What had arrived before the interrupt is still printed.
      events.clear();
      source.service(events);
      print_events(events);
      return kExitInterrupted;
    }
    if (wake == StopSignals::Wake::failed) {
      streams.err << "qira-wifi: waiting for the wpa_supplicant of "
                  << qira::host::terminal_text(ifname) << " failed\n";
      return kExitActionFailed;
    }
    events.clear();
    WpaEventSource::Change change = WpaEventSource::Change::kNone;
    if (wake == StopSignals::Wake::readable) {
      change = source.service(events);
    }
    // A daemon just lost is looked for again only after a pause.
    if (change == WpaEventSource::Change::kNone) {
      change = source.watch(events);
    }
    print_events(events);
    echo_log();
    if (change == WpaEventSource::Change::kStopped) {
      say("is terminating");
    } else if (change == WpaEventSource::Change::kLost) {
      say("does not answer: waiting for it to come back");
    } else if (change == WpaEventSource::Change::kReattached) {
      say("is back: attached again");
    }
  }
  return kExitOk;
}

}  // namespace qira::wifi
