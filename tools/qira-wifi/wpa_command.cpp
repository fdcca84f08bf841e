#include "wpa_command.h"

#include <signal.h>

#include <algorithm>
#include <csignal>
#include <optional>
#include <ostream>
#include <utility>

#include "commands.h"
#include "event_names.h"
#include "input_table.h"
#include "network_action.h"
#include "output.h"
#include "qira/host/outside_text.h"
#include "qira/host/seams.h"
#include "qira/host_globals.h"
#include "qira/network/wpa_client.h"
#include "stop_signals.h"

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
  // Taking them also keeps a long `wpa-events` run from piling them up.
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

// Where `wpa-events` prints, handed to the client as the subscriber's data.
struct EventPrinter {
  std::ostream* out;
  CommandLog* log;
};

// Subscriber of every event: one line each, written at once so that a
// reader of a pipe sees events as they come.
void print_event(network::event_type type, const qira::variant::Variant& payload, void* data) {
  auto* printer = static_cast<EventPrinter*>(data);
  printer->log->take();
  *printer->out << format_event_line(type, payload) << std::flush;
}

}  // namespace

std::string format_event_line(network::event_type type, const qira::variant::Variant& payload) {
  return std::to_string(static_cast<int>(type)) + " " + event_type_name(static_cast<int>(type)) +
         " " + qira::host::json_safe(payload).ToJSON() + "\n";
}

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
  // The reply is the daemon's text, which may quote names from the air.
  streams.out << qira::host::terminal_lines(reply);
  return kExitOk;
}

int run_wpa_events(const GlobalOptions& options, const std::vector<std::string>& args,
                   Streams& streams) {
  const std::string& ifname = args.at(0);
  StopSignals signals;
  CommandLog log(options.verbose, streams.err);
  // Made before the client so that it outlives it: the client's destructor
  // detaches, and events that arrive before the reply still reach it.
  EventPrinter printer{&streams.out, &log};
  std::optional<network::WpaClient> client(std::in_place);
  if (!client->Init(ifname)) {
    return unreachable(ifname, log, streams);
  }
  if (!client->Subscribe(&print_event, &printer)) {
    streams.err << "qira-wifi: the wpa_supplicant of " << qira::host::terminal_text(ifname)
                << " refused ATTACH\n";
    return kExitActionFailed;
  }
  const unsigned long long started = nowMs();
  unsigned long long last_ping = started;
  // The time left of --timeout (or a slice when there is none); 0 once it
  // has passed.
  const auto time_left = [&](unsigned long long slice) -> unsigned long long {
    if (!options.timeout_ms) {
      return slice;
    }
    const unsigned long long elapsed = nowMs() - started;
    return elapsed >= *options.timeout_ms ? 0 : std::min(slice, *options.timeout_ms - elapsed);
  };
  const auto say = [&](const char* what) {
    streams.err << "qira-wifi: the wpa_supplicant of " << qira::host::terminal_text(ifname) << " "
                << what << "\n";
    streams.err.flush();
  };
  while (!signals.requested()) {
    if (!client) {
      // Away: a new client tries to attach now and then until one succeeds.
      const unsigned long long pause = time_left(kReattachPauseMs);
      if (pause == 0 || signals.wait(std::chrono::milliseconds(pause))) {
        break;
      }
      client.emplace();
      if (client->Init(ifname) && client->Subscribe(&print_event, &printer)) {
        say("is back: attached again");
        last_ping = nowMs();
      } else {
        client.reset();
      }
      log.take();
      continue;
    }
    const unsigned long long slice = time_left(kEventSliceMs);
    if (slice == 0) {
      break;
    }
    bool answering = client->Service(slice);
    // A datagram socket does not tell that its peer is gone: a daemon that
    // was killed leaves the client waiting in silence. A PING now and then
    // finds out (its send is refused once the daemon's socket is closed).
    if (answering && client->IsInitialized() && nowMs() - last_ping >= kPingIntervalMs) {
      last_ping = nowMs();
      std::string reply;
      answering = client->Request("PING", reply, kPingTimeoutMs) &&
                  (!client->IsInitialized() || reply.rfind("PONG", 0) == 0);
    }
    log.take();
    if (!client->IsInitialized()) {
      say("is terminating");
      client.reset();
    } else if (!answering) {
      say("does not answer: waiting for it to come back");
      client.reset();
      log.take();
    }
  }
  return kExitOk;
}

}  // namespace qira::wifi
