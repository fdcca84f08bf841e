// `events`: the nl80211 event module as a host runs it. Servicing the module
// never blocks, so the program sleeps in poll() on the module's socket (read
// through the host's view of the events state) and on its own signal pipe,
// and services the module once each time the socket is readable. A service
// reads one batch of the socket; poll() is level-triggered, so whatever is
// left wakes the next wait at once. Nothing runs while nothing arrives, and
// SIGINT or SIGTERM ends the wait at once.
#ifndef QIRA_TOOLS_QIRA_WIFI_EVENTS_COMMAND_H
#define QIRA_TOOLS_QIRA_WIFI_EVENTS_COMMAND_H

#include <chrono>
#include <string>
#include <vector>

#include "commands.h"
#include "module_session.h"
#include "options.h"
#include "qira/host/seams.h"
#include "qira/network/event_type.h"
#include "qira/variant/variant.h"
#include "stop_signals.h"

namespace qira::wifi {

// After two service calls in a row failed, the next wait for the socket
// starts only after this pause, so that a socket that keeps failing (rather
// than reporting one lost read) cannot make the loop spin.
constexpr std::chrono::milliseconds kEventRetryPause{100};

// What the program prints on stderr once the module has joined nl80211's
// groups: from then on every notification of the kernel reaches it.
inline constexpr char kEventsReadyLine[] = "qira-wifi: listening for nl80211 events";

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

  // Subscribes and runs the first service, which joins the multicast groups
  // (an event that service delivered waits for take()). False, with `error`
  // set, when a function is missing or that fails.
  bool start(std::string& error);
  // One service call: the event it delivered, if any (one read hands the
  // subscribers at most one), is appended to `events`, the module's log
  // lines of a failed call to `log`. False when the call failed.
  bool service_once(std::vector<ReceivedEvent>& events, std::vector<qira::host::LogRecord>& log);
  // Moves the events delivered but not yet taken to `events`.
  void take(std::vector<ReceivedEvent>& events);
  // The descriptor of the module's socket, or -1 (see events_view.h).
  int socket_fd();

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

// What `events` and `monitor` do before they listen: open the module's event
// subsystem (as `options` says), check that `stop` watches the stop signals,
// and start `listener` (made on `session`), which joins nl80211's groups.
// kExitOk, or the exit status after saying why on stderr.
int start_listening(const GlobalOptions& options, ModuleSession& session, StopSignals& stop,
                    EventListener& listener, Streams& streams);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_EVENTS_COMMAND_H
