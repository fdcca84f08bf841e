// `events`: the nl80211 event module as a host runs it. The module keeps its
// socket to itself (a host never sees the descriptor), and servicing it never
// blocks, so the program services it on a short tick: it sleeps in poll() on
// its own signal pipe for at most kEventTick between services, and each tick
// services until a call delivers nothing. No busy loop, at most one tick of
// delay, and SIGINT or SIGTERM ends the wait at once.
#ifndef QIRA_TOOLS_QIRA_WIFI_EVENTS_COMMAND_H
#define QIRA_TOOLS_QIRA_WIFI_EVENTS_COMMAND_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "module_session.h"
#include "qira/host/seams.h"
#include "qira/network/event_type.h"
#include "qira/variant/variant.h"

namespace qira::wifi {

constexpr std::chrono::milliseconds kEventTick{100};

// One line per event, without its newline: "TYPE NAME PAYLOAD" with the
// payload as compact JSON, or with `json` one object {"type", "name",
// "payload"}.
std::string render_event_line(int type, const qira::variant::Variant& payload, bool json);

struct ReceivedEvent {
  int type = 0;
  qira::variant::Variant payload;  // a copy: the module reuses its own
};

// A subscription to the opened module's event subsystem.
class EventListener {
 public:
  explicit EventListener(ModuleSession& session) : session_(session) {}
  ~EventListener();  // unsubscribes
  EventListener(const EventListener&) = delete;
  EventListener& operator=(const EventListener&) = delete;

  // Subscribes and runs the first service, which joins the multicast groups.
  // False, with `error` set, when a function is missing or that fails.
  bool start(std::string& error);
  // Services until a call delivers nothing, or `limit` events were taken.
  // The events taken are appended to `events`, the module's log lines of a
  // failed service to `log`. False when a service call failed.
  bool pump(std::size_t limit, std::vector<ReceivedEvent>& events,
            std::vector<qira::host::LogRecord>& log);

 private:
  static void on_event(qira::network::event_type type, const qira::variant::Variant& payload,
                       void* user);

  ModuleSession& session_;
  bool (*service_)(void*) = nullptr;
  bool (*unsubscribe_)(void*, unsigned int) = nullptr;
  bool subscribed_ = false;
  unsigned int id_ = 0;
  std::vector<ReceivedEvent> taken_;
};

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_EVENTS_COMMAND_H
