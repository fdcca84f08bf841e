// `qira-wifi monitor IFNAME`: one timeline of what the module hears, nl80211
// notifications through the event module and the events of the
// wpa_supplicant of IFNAME through its WpaClient, each with the milliseconds
// since the monitor started. The program sleeps in poll() on both sockets
// and its signal pipe, and services a source only when its socket is
// readable; the wpa_supplicant source also wakes it every second or so to
// see whether its daemon went away, and, once it has, every few hundred
// milliseconds to attach to the next one.
#include <algorithm>
#include <limits>
#include <optional>
#include <ostream>

#include "commands.h"
#include "event_names.h"
#include "events_command.h"
#include "monitor_timeline.h"
#include "qira/host/seams.h"
#include "qira/host_globals.h"
#include "stop_signals.h"
#include "wpa_event_source.h"

namespace qira::wifi {

namespace {

using qira::variant::Variant;

class Timeline {
 public:
  Timeline(bool json, std::ostream& out) : json_(json), out_(out), started_(nowMs()) {}

  void event(const char* source, const ReceivedEvent& event) {
    print(source, event.type, event_type_name(event.type), event.payload);
    ++events_;
  }

  void note(const std::string& name, const std::string& ifname,
            const std::string& reason = std::string()) {
    Variant payload;
    payload["ifname"] = ifname;
    if (!reason.empty()) {
      payload["reason"] = reason;
    }
    print(kMonitorSource, std::nullopt, name, payload);
  }

  unsigned long long events() const { return events_; }

 private:
  void print(const char* source, std::optional<int> type, const std::string& name,
             const Variant& payload) {
    TimelineEntry entry;
    entry.ms = nowMs() - started_;
    entry.source = source;
    entry.type = type;
    entry.name = name;
    entry.payload = payload;
    out_ << (json_ ? render_timeline_json(entry) : render_timeline_text(entry)) << "\n";
    // Flushed per line: a reader of a pipe sees each event as it comes.
    out_.flush();
  }

  bool json_;
  std::ostream& out_;
  unsigned long long started_;
  unsigned long long events_ = 0;
};

// The monitor's note for a change of the wpa_supplicant source, if any.
void note_change(Timeline& timeline, WpaEventSource& wpa, WpaEventSource::Change change) {
  if (change != WpaEventSource::Change::kNone) {
    timeline.note(wpa_change_name(change), wpa.ifname());
  }
}

// The module's lines of the wpa_supplicant source: shown with --verbose,
// dropped otherwise (so that a long run does not pile them up).
void echo_log(WpaEventSource& wpa, bool verbose, std::ostream& err) {
  for (const qira::host::LogRecord& record : wpa.take_log()) {
    if (verbose) {
      err << qira::host::format_log_record(record) << "\n";
    }
  }
}

}  // namespace

int run_monitor(const GlobalOptions& options, const std::vector<std::string>& args,
                Streams& streams) {
  const std::string& ifname = args.front();
  ModuleSession session;
  StopSignals stop;
  EventListener listener(session);
  if (int status = start_listening(options, session, stop, listener, streams); status != kExitOk) {
    return status;
  }
  const int nl80211_fd = listener.socket_fd();
  Timeline timeline(options.json, streams.out);
  timeline.note("listening", ifname);
  WpaEventSource wpa(ifname);
  {
    std::vector<ReceivedEvent> unused;
    if (WpaEventSource::Change change = wpa.watch(unused);
        change != WpaEventSource::Change::kNone) {
      note_change(timeline, wpa, change);
    } else {
      timeline.note("wpa_waiting", ifname, wpa.last_failure());
    }
    echo_log(wpa, options.verbose, streams.err);
  }
  const unsigned long long wanted =
      options.count.value_or(std::numeric_limits<unsigned long long>::max());
  // At most a day: the parser refuses more.
  const unsigned long long limit = options.timeout_ms.value_or(kLongestTimeoutMs);
  const unsigned long long started = nowMs();
  const auto print = [&](const char* source, const std::vector<ReceivedEvent>& events) {
    for (const ReceivedEvent& event : events) {
      if (timeline.events() < wanted) {
        timeline.event(source, event);
      }
    }
  };
  {
    // The first service joined the groups and read once.
    std::vector<ReceivedEvent> events;
    listener.take(events);
    print(kNl80211Source, events);
  }
  // After a failed read of the nl80211 socket it is left out of one wait, so
  // that a socket that keeps failing cannot make the loop spin.
  bool nl80211_resting = false;
  while (timeline.events() < wanted) {
    const unsigned long long elapsed = nowMs() - started;
    if (options.timeout_ms && elapsed >= limit) {
      break;
    }
    std::chrono::milliseconds wait = wpa.poll_interval();
    if (nl80211_resting) {
      wait = std::min(wait, kEventRetryPause);
    }
    if (options.timeout_ms) {
      wait = std::min(wait, std::chrono::milliseconds(static_cast<long long>(limit - elapsed)));
    }
    std::vector<StopSignals::Readiness> ready;
    const StopSignals::Wake wake =
        stop.wait_any({nl80211_resting ? -1 : nl80211_fd, wpa.fd()}, wait, ready);
    nl80211_resting = false;
    if (wake == StopSignals::Wake::stop) {
      // What had arrived before the interrupt is still printed: both
      // services return at once when nothing waits.
      std::vector<ReceivedEvent> events;
      std::vector<qira::host::LogRecord> log;
      listener.service_once(events, log);
      print(kNl80211Source, events);
      events.clear();
      note_change(timeline, wpa, wpa.service(events));
      print(kWpaSource, events);
      return kExitInterrupted;
    }
    if (wake == StopSignals::Wake::failed) {
      streams.err << "qira-wifi: waiting for events failed\n";
      return kExitActionFailed;
    }
    if (wake == StopSignals::Wake::readable && ready[0].failed) {
      streams.err << "qira-wifi: the event module's socket cannot be waited on\n";
      return kExitActionFailed;
    }
    if (wake == StopSignals::Wake::readable && ready[0].readable) {
      std::vector<ReceivedEvent> events;
      std::vector<qira::host::LogRecord> log;
      if (!listener.service_once(events, log)) {
        nl80211_resting = true;
        for (const qira::host::LogRecord& record : log) {
          streams.err << "qira-wifi: " << qira::host::format_log_record(record) << "\n";
        }
      }
      print(kNl80211Source, events);
    }
    std::vector<ReceivedEvent> events;
    WpaEventSource::Change change = WpaEventSource::Change::kNone;
    if (wake == StopSignals::Wake::readable && (ready[1].readable || ready[1].failed)) {
      change = wpa.service(events);
    }
    // A daemon just lost is looked for again only after a pause.
    if (change == WpaEventSource::Change::kNone) {
      change = wpa.watch(events);
    }
    print(kWpaSource, events);
    note_change(timeline, wpa, change);
    echo_log(wpa, options.verbose, streams.err);
  }
  return kExitOk;
}

}  // namespace qira::wifi
