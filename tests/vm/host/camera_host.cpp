// qira-vm-host: the virtual camera's long-lived host. A camera's host loads
// the wireless module once and keeps it for months; qira-wifi loads it anew
// for every command. The fault scenarios need the former: a module that
// meets a vanished interface, an overrun event socket or a hundred mode
// switches, and keeps working without being initialised again, in a process
// whose resident set and descriptors can be watched.
//
// It opens the module with its three subsystems, then reads commands from
// standard input, one per line, "ID VERB ARGS...", and answers on standard
// output with lines "@ID ..." ending with "@ID end ok" or "@ID end failed":
//
//   info IFNAME                 every interface query: "@ID query NAME ok VALUE"
//                               or "@ID query NAME failed"
//   scan IFNAME TIMEOUT_MS      trigger, service until the end, results:
//                               "@ID scan triggered", then "@ID scan ended
//                               finished=F aborted=A ms=N" (or "@ID scan
//                               timeout ms=N"), "@ID bss BSSID SSID" per record
//   events on|off               subscribe to the event module / unsubscribe
//   pause, resume               stop / start servicing the event module
//                               between commands (notifications pile up)
//   service                     one service call of the event module now
//   apply IFNAME FILE [ap]      the stored configuration FILE (JSON)
//   connect IFNAME [ap]         the link up
//   disconnect IFNAME [ap]      the link down
//
// Every module log line of a command is "@ID log LEVEL ERRNO FUNCTION: MESSAGE".
// While subscribed and not paused, the host services the module whenever its
// socket is readable, between commands and during scans, and prints each
// event it was handed as "event TYPE NAME PAYLOAD" (payload as JSON), and a
// failed service as "event-failure LEVEL ERRNO FUNCTION: MESSAGE" lines.
// Texts from outside (SSIDs, messages) are escaped. End of input ends it.
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "apply_command.h"
#include "events_command.h"
#include "info_command.h"
#include "link_commands.h"
#include "module_session.h"
#include "network_action.h"
#include "output.h"
#include "qira/host/outside_text.h"
#include "qira/host/seams.h"
#include "qira/netlib/events_view.h"
#include "qira/network/netlib_scan.h"

namespace {

using qira::host::LogRecord;
using qira::wifi::ModuleSession;
using Clock = std::chrono::steady_clock;

std::string log_line(const LogRecord& record) {
  return std::to_string(record.level) + " " + std::to_string(record.error_number) + " " +
         record.function + ": " + qira::host::terminal_line(record.message);
}

long long milliseconds_since(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

class CameraHost {
 public:
  bool open(std::string& error) {
    return session_.open("", error,
                         qira::host::kInterfaceSubsystem | qira::host::kEventsSubsystem |
                             qira::host::kScanSubsystem);
  }

  // Runs one command line and prints its answer.
  void run(const std::string& line);
  // The descriptor to wait on for events, or -1 when none is to be serviced.
  int event_fd() { return listener_ && !paused_ ? listener_->socket_fd() : -1; }
  // Services the event module once and prints what it delivered.
  void service_events(const std::string& reply_prefix);

 private:
  void say(const std::string& text) { std::cout << prefix_ << text << "\n"; }
  void say_log(const std::vector<LogRecord>& records) {
    for (const LogRecord& record : records) {
      say("log " + log_line(record));
    }
  }
  void print_events();
  bool info(const std::vector<std::string>& words);
  bool scan(const std::vector<std::string>& words);
  bool events(const std::vector<std::string>& words);
  bool apply(const std::vector<std::string>& words);
  bool link(qira::wifi::LinkAction action, const std::vector<std::string>& words);

  ModuleSession session_;
  std::optional<qira::wifi::EventListener> listener_;
  bool paused_ = false;
  std::string prefix_;
};

void CameraHost::print_events() {
  if (!listener_) {
    return;
  }
  std::vector<qira::wifi::ReceivedEvent> events;
  listener_->take(events);
  for (const qira::wifi::ReceivedEvent& event : events) {
    std::cout << "event " << qira::wifi::render_event_line(event.type, event.payload, false)
              << "\n";
  }
}

void CameraHost::service_events(const std::string& reply_prefix) {
  std::vector<qira::wifi::ReceivedEvent> events;
  std::vector<LogRecord> log;
  const bool ok = listener_->service_once(events, log);
  for (const qira::wifi::ReceivedEvent& event : events) {
    std::cout << "event " << qira::wifi::render_event_line(event.type, event.payload, false)
              << "\n";
  }
  for (const LogRecord& record : log) {
    std::cout << "event-failure " << log_line(record) << "\n";
  }
  if (!reply_prefix.empty()) {
    std::cout << reply_prefix << "service " << (ok ? "ok" : "failed") << "\n";
  }
  std::cout.flush();
}

bool CameraHost::info(const std::vector<std::string>& words) {
  if (words.size() != 2) {
    return false;
  }
  qira::wifi::InfoReport report;
  std::string error;
  if (!qira::wifi::collect_info(session_, words[1], nullptr, report, error)) {
    say("error " + error);
    return false;
  }
  for (const qira::wifi::QueryResult& query : report.queries) {
    if (query.ok) {
      say("query " + query.name + " ok " + qira::wifi::describe_value(query));
    } else {
      say("query " + query.name + " failed");
    }
    say_log(query.log);
  }
  return true;
}

bool CameraHost::scan(const std::vector<std::string>& words) {
  if (words.size() != 3) {
    return false;
  }
  const std::string& ifname = words[1];
  char* end = nullptr;
  const long long limit = std::strtoll(words[2].c_str(), &end, 10);
  if (end == words[2].c_str() || *end != '\0' || limit <= 0) {
    return false;
  }
  std::string error;
  auto* trigger = session_.function(&qira::network::netlib_libscan_trigger, error);
  auto* service = session_.function(&qira::network::netlib_libscan_service, error);
  auto* results = session_.function(&qira::network::netlib_libscan_results, error);
  const int fd = qira::netlib::wireless_events_fd(session_.context());
  if (trigger == nullptr || service == nullptr || results == nullptr || fd < 0) {
    say("error " + (fd < 0 ? std::string("no event socket") : error));
    return false;
  }
  qira::host::LogCapture capture;
  const Clock::time_point started = Clock::now();
  bool in_progress = false;
  if (!trigger(session_.context(), ifname, nullptr, 0, in_progress) || in_progress) {
    say(in_progress ? "scan in-progress" : "scan trigger-failed");
    say_log(capture.records());
    return false;
  }
  say("scan triggered");
  std::cout.flush();
  qira::network::scan_status status{false, false};
  bool serviced = true;
  while ((serviced = service(session_.context(), ifname, status)) && !status.finished) {
    const long long left = limit - milliseconds_since(started);
    if (left <= 0) {
      break;
    }
    pollfd waiting{fd, POLLIN, 0};
    if (::poll(&waiting, 1, static_cast<int>(left)) < 0 && errno != EINTR) {
      break;
    }
  }
  const long long took = milliseconds_since(started);
  print_events();
  if (!status.finished) {
    say(std::string(serviced ? "scan timeout" : "scan service-failed") +
        " ms=" + std::to_string(took));
    say_log(capture.records());
    return false;
  }
  say("scan ended finished=1 aborted=" + std::to_string(status.aborted ? 1 : 0) +
      " ms=" + std::to_string(took));
  std::vector<qira::network::ap_info> records;
  const bool ok = results(session_.context(), ifname, records, false);
  for (const qira::network::ap_info& record : records) {
    say("bss " + qira::host::terminal_text(record.bssid) + " " +
        qira::host::terminal_text(record.ssid));
  }
  say_log(capture.records());
  return ok;
}

bool CameraHost::events(const std::vector<std::string>& words) {
  if (words.size() != 2) {
    return false;
  }
  if (words[1] == "off") {
    listener_.reset();
    return true;
  }
  if (words[1] != "on" || listener_) {
    return false;
  }
  listener_.emplace(session_);
  std::string error;
  if (!listener_->start(error)) {
    say("error " + qira::host::terminal_line(error));
    listener_.reset();
    return false;
  }
  print_events();
  return true;
}

bool CameraHost::apply(const std::vector<std::string>& words) {
  if (words.size() < 3 || words.size() > 4) {
    return false;
  }
  const bool ap_mode = words.size() == 4 && words[3] == "ap";
  std::ifstream file(words[2]);
  std::ostringstream text;
  text << file.rdbuf();
  qira::variant::Variant config;
  if (auto fault = qira::wifi::parse_network_config(text.str(), config)) {
    say("error " + *fault);
    return false;
  }
  qira::wifi::ActionResult result;
  std::string error;
  if (!qira::wifi::apply_network_config(session_, words[1], config, ap_mode, result, error)) {
    say("error " + error);
    return false;
  }
  say_log(result.log);
  return result.ok;
}

bool CameraHost::link(qira::wifi::LinkAction action, const std::vector<std::string>& words) {
  if (words.size() < 2 || words.size() > 3) {
    return false;
  }
  qira::wifi::LinkRequest request;
  request.action = action;
  request.ifname = words[1];
  request.ap_mode = words.size() == 3 && words[2] == "ap";
  qira::wifi::ActionResult result;
  std::string error;
  if (!qira::wifi::run_link_action(session_, request, result, error)) {
    say("error " + error);
    return false;
  }
  say_log(result.log);
  return result.ok;
}

void CameraHost::run(const std::string& line) {
  std::istringstream words_in(line);
  std::string id;
  std::vector<std::string> words;
  words_in >> id;
  for (std::string word; words_in >> word;) {
    words.push_back(word);
  }
  if (id.empty()) {
    return;
  }
  prefix_ = "@" + id + " ";
  bool ok = false;
  const std::string verb = words.empty() ? "" : words[0];
  if (verb == "info") {
    ok = info(words);
  } else if (verb == "scan") {
    ok = scan(words);
  } else if (verb == "events") {
    ok = events(words);
  } else if (verb == "pause" || verb == "resume") {
    paused_ = verb == "pause";
    ok = true;
  } else if (verb == "service" && listener_) {
    service_events(prefix_);
    ok = true;
  } else if (verb == "apply") {
    ok = apply(words);
  } else if (verb == "connect") {
    ok = link(qira::wifi::LinkAction::kConnect, words);
  } else if (verb == "disconnect") {
    ok = link(qira::wifi::LinkAction::kDisconnect, words);
  } else {
    say("error unknown command");
  }
  say(std::string("end ") + (ok ? "ok" : "failed"));
  std::cout.flush();
}

}  // namespace

int main() {
  CameraHost host;
  std::string error;
  if (!host.open(error)) {
    std::cerr << "qira-vm-host: " << error << "\n";
    return 1;
  }
  std::cout << "ready " << ::getpid() << std::endl;
  std::string pending;
  while (true) {
    pollfd waiting[2] = {{STDIN_FILENO, POLLIN, 0}, {host.event_fd(), POLLIN, 0}};
    const int count = waiting[1].fd >= 0 ? 2 : 1;
    if (::poll(waiting, count, -1) < 0) {
      if (errno == EINTR) {
        continue;
      }
      return 1;
    }
    if (count == 2 && (waiting[1].revents & (POLLIN | POLLERR)) != 0) {
      host.service_events("");
    }
    if (waiting[0].revents == 0) {
      continue;
    }
    char buffer[4096];
    const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof(buffer));
    if (got <= 0) {
      return got == 0 ? 0 : 1;
    }
    pending.append(buffer, static_cast<std::size_t>(got));
    for (std::string::size_type end; (end = pending.find('\n')) != std::string::npos;) {
      host.run(pending.substr(0, end));
      pending.erase(0, end + 1);
    }
  }
}
