#include "events_command.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <ostream>

#include "commands.h"
#include "event_names.h"
#include "qira/host/outside_text.h"
#include "qira/netlib/events_view.h"
#include "qira/network/netlib_events.h"
#include "stop_signals.h"

namespace qira::wifi {

namespace {

namespace network = qira::network;
using qira::variant::Variant;

}  // namespace

std::string render_event_line(int type, const Variant& payload, bool json) {
  if (json) {
    Variant line;
    line["type"] = type;
    line["name"] = event_type_name(type);
    line["payload"] = qira::host::json_safe(payload);
    return line.ToJSON();
  }
  return std::to_string(type) + " " + event_type_name(type) + " " +
         qira::host::json_safe(payload).ToJSON();
}

EventListener::~EventListener() {
  if (subscribed_) {
    unsubscribe_(session_.context(), id_);
  }
}

bool EventListener::start(std::string& error) {
  auto* subscribe = session_.function(&network::netlib_libevents_wireless_subscribe, error);
  unsubscribe_ = session_.function(&network::netlib_libevents_wireless_unsubscribe, error);
  service_ = session_.function(&network::netlib_libevents_wireless_service, error);
  if (subscribe == nullptr || unsubscribe_ == nullptr || service_ == nullptr) {
    return false;
  }
  {
    qira::host::LogCapture capture;
    subscribed_ = subscribe(session_.context(), &EventListener::on_event, id_, this);
    if (subscribed_ && service_(session_.context())) {
      return true;
    }
    const std::vector<qira::host::LogRecord> records = capture.records();
    error = subscribed_ ? "the event module could not join nl80211's groups"
                        : "the event module refused the subscription";
    for (const qira::host::LogRecord& record : records) {
      error += "\n  " + qira::host::format_log_record(record);
    }
  }
  return false;
}

bool EventListener::service_once(std::vector<ReceivedEvent>& events,
                                 std::vector<qira::host::LogRecord>& log) {
  bool ok = false;
  {
    qira::host::LogCapture capture;
    ok = service_(session_.context());
    if (!ok) {
      const std::vector<qira::host::LogRecord> records = capture.records();
      log.insert(log.end(), records.begin(), records.end());
    }
  }
  take(events);
  return ok;
}

void EventListener::take(std::vector<ReceivedEvent>& events) {
  for (ReceivedEvent& event : taken_) {
    events.push_back(std::move(event));
  }
  taken_.clear();
}

int EventListener::socket_fd() {
  return qira::netlib::wireless_events_fd(session_.context());
}

void EventListener::on_event(network::event_type type, const Variant& payload, void* user) {
  static_cast<EventListener*>(user)->taken_.push_back({static_cast<int>(type), payload});
}

int start_listening(const GlobalOptions& options, ModuleSession& session, StopSignals& stop,
                    EventListener& listener, Streams& streams) {
  std::string error;
  if (!session.open(options.module_path, error, qira::host::kEventsSubsystem)) {
    streams.err << "qira-wifi: " << qira::host::terminal_line(error) << "\n";
    return kExitModuleError;
  }
  if (!stop.ok()) {
    streams.err << "qira-wifi: cannot watch for SIGINT and SIGTERM\n";
    return kExitActionFailed;
  }
  if (!listener.start(error)) {
    streams.err << "qira-wifi: " << qira::host::terminal_lines(error) << "\n";
    return kExitActionFailed;
  }
  if (listener.socket_fd() < 0) {
    streams.err << "qira-wifi: the event module has no socket to wait on\n";
    return kExitActionFailed;
  }
  return kExitOk;
}

int run_events(const GlobalOptions& options, const std::vector<std::string>& /*args*/,
               Streams& streams) {
  ModuleSession session;
  // Watched from before the groups are joined: a stop signal that comes
  // while they are joined ends the listening before its first wait.
  StopSignals stop;
  EventListener listener(session);
  if (int status = start_listening(options, session, stop, listener, streams); status != kExitOk) {
    return status;
  }
  const int fd = listener.socket_fd();
  streams.err << kEventsReadyLine << "\n";
  streams.err.flush();
  const auto started = std::chrono::steady_clock::now();
  const unsigned long long wanted =
      options.count.value_or(std::numeric_limits<unsigned long long>::max());
  unsigned long long printed = 0;
  const auto print = [&](const std::vector<ReceivedEvent>& events) {
    for (const ReceivedEvent& event : events) {
      if (printed >= wanted) {
        return;
      }
      streams.out << render_event_line(event.type, event.payload, options.json) << "\n";
      streams.out.flush();
      ++printed;
    }
  };
  {
    // The first service joined the groups and read once: a notification
    // that came in between is printed now, not at the next one.
    std::vector<ReceivedEvent> events;
    listener.take(events);
    print(events);
  }
  int failures_in_a_row = 0;
  while (printed < wanted) {
    std::optional<std::chrono::milliseconds> left;
    if (options.timeout_ms) {
      const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
          std::chrono::steady_clock::now() - started);
      const auto limit = std::chrono::milliseconds(static_cast<long long>(*options.timeout_ms));
      if (elapsed >= limit) {
        break;
      }
      left = limit - elapsed;
    }
    if (failures_in_a_row >= 2) {
      if (stop.wait(left ? std::min(*left, kEventRetryPause) : kEventRetryPause)) {
        return kExitInterrupted;
      }
      failures_in_a_row = 0;
      continue;
    }
    const StopSignals::Wake wake = stop.wait_readable(fd, left);
    if (wake == StopSignals::Wake::stop) {
      return kExitInterrupted;
    }
    if (wake == StopSignals::Wake::timeout) {
      break;
    }
    if (wake == StopSignals::Wake::failed) {
      streams.err << "qira-wifi: the event module's socket cannot be waited on\n";
      return kExitActionFailed;
    }
    std::vector<ReceivedEvent> events;
    std::vector<qira::host::LogRecord> log;
    if (listener.service_once(events, log)) {
      failures_in_a_row = 0;
    } else {
      // A lost or failed read (ENOBUFS after an overrun) is reported and the
      // listening goes on.
      ++failures_in_a_row;
      for (const qira::host::LogRecord& record : log) {
        streams.err << "qira-wifi: " << qira::host::format_log_record(record) << "\n";
      }
    }
    print(events);
  }
  return kExitOk;
}

}  // namespace qira::wifi
