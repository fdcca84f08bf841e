#include "events_command.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <ostream>

#include "commands.h"
#include "event_names.h"
#include "qira/network/netlib_events.h"
#include "stop_signals.h"

namespace qira::wifi {

namespace {

namespace network = qira::network;
using qira::variant::Variant;

// The write end of the pipe that SIGINT and SIGTERM wake the wait through.
}  // namespace

std::string render_event_line(int type, const Variant& payload, bool json) {
  if (json) {
    Variant line;
    line["type"] = type;
    line["name"] = event_type_name(type);
    line["payload"] = payload;
    return line.ToJSON();
  }
  return std::to_string(type) + " " + event_type_name(type) + " " + payload.ToJSON();
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

bool EventListener::pump(std::size_t limit, std::vector<ReceivedEvent>& events,
                         std::vector<qira::host::LogRecord>& log) {
  std::size_t taken = 0;
  while (taken < limit) {
    taken_.clear();
    bool ok = false;
    {
      qira::host::LogCapture capture;
      ok = service_(session_.context());
      if (!ok) {
        const std::vector<qira::host::LogRecord> records = capture.records();
        log.insert(log.end(), records.begin(), records.end());
      }
    }
    if (!ok) {
      return false;
    }
    if (taken_.empty()) {
      return true;
    }
    // One notification read per service: the one the subscriber was given.
    for (ReceivedEvent& event : taken_) {
      events.push_back(std::move(event));
      ++taken;
    }
  }
  return true;
}

void EventListener::on_event(network::event_type type, const Variant& payload, void* user) {
  static_cast<EventListener*>(user)->taken_.push_back({static_cast<int>(type), payload});
}

int run_events(const GlobalOptions& options, const std::vector<std::string>& /*args*/,
               Streams& streams) {
  ModuleSession session;
  std::string error;
  if (!session.open(options.module_path, error, qira::host::kEventsSubsystem)) {
    streams.err << "qira-wifi: " << error << "\n";
    return kExitModuleError;
  }
  EventListener listener(session);
  if (!listener.start(error)) {
    streams.err << "qira-wifi: " << error << "\n";
    return kExitActionFailed;
  }
  StopSignals stop;
  if (!stop.ok()) {
    streams.err << "qira-wifi: cannot watch for SIGINT and SIGTERM\n";
    return kExitActionFailed;
  }
  const auto started = std::chrono::steady_clock::now();
  const unsigned long long wanted =
      options.count.value_or(std::numeric_limits<unsigned long long>::max());
  unsigned long long printed = 0;
  while (printed < wanted) {
    std::vector<ReceivedEvent> events;
    std::vector<qira::host::LogRecord> log;
    const std::size_t limit = static_cast<std::size_t>(
        std::min<unsigned long long>(wanted - printed, std::numeric_limits<std::size_t>::max()));
    if (!listener.pump(limit, events, log)) {
      // A lost or failed read (ENOBUFS after an overrun) is reported and the
      // listening goes on.
      for (const qira::host::LogRecord& record : log) {
        streams.err << "qira-wifi: " << qira::host::format_log_record(record) << "\n";
      }
    }
    for (const ReceivedEvent& event : events) {
      streams.out << render_event_line(event.type, event.payload, options.json) << "\n";
      streams.out.flush();
      ++printed;
    }
    if (printed >= wanted) {
      break;
    }
    std::chrono::milliseconds wait = kEventTick;
    if (options.timeout_ms) {
      const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
          std::chrono::steady_clock::now() - started);
      const auto limit_ms = std::chrono::milliseconds(static_cast<long long>(
          std::min<unsigned long long>(*options.timeout_ms, std::numeric_limits<int>::max())));
      if (elapsed >= limit_ms) {
        break;
      }
      wait = std::min(wait, limit_ms - elapsed);
    }
    if (stop.wait(wait)) {
      break;
    }
  }
  return kExitOk;
}

}  // namespace qira::wifi
