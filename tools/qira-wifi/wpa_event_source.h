// The events of the wpa_supplicant of one interface, through the module's
// WpaClient, for a listener that outlives the daemon, as `wpa-events` and
// `monitor` are: wpa_supplicant stops and a watchdog starts it again. A
// daemon that terminates says so ("CTRL-EVENT-TERMINATING" closes the
// client); one killed outright says nothing, and a datagram socket does not
// tell its owner that the peer is gone, so the source checks that the
// daemon's socket file is still the one it attached to and sends a PING
// every second (its send is refused once the daemon's socket is closed).
// Once the daemon is lost the client is closed (its "/tmp/wpacl-" file
// removed) and a new one tries to attach every 250 ms. The caller waits in
// poll() on fd() beside its other descriptors, calls service() when it is
// readable and watch() after every wait; neither blocks longer than one
// ATTACH or PING (1000 ms each).
#ifndef QIRA_TOOLS_QIRA_WIFI_WPA_EVENT_SOURCE_H
#define QIRA_TOOLS_QIRA_WIFI_WPA_EVENT_SOURCE_H

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "events_command.h"
#include "qira/host/seams.h"
#include "qira/network/wpa_client.h"

namespace qira::wifi {

// How often a detached source tries to attach, how often an attached one
// sends its PING, and how long it waits for the PONG.
constexpr std::chrono::milliseconds kWpaDetachedPoll{250};
constexpr std::chrono::milliseconds kWpaAttachedPoll{1000};
constexpr unsigned long long kWpaPingTimeoutMs = 1000;

class WpaEventSource {
 public:
  // What changed in a service() or watch() call.
  enum class Change {
    kNone,
    kAttached,    // attached to a daemon (the first time)
    kReattached,  // attached to a daemon after having lost one
    kStopped,     // the daemon said it is terminating; now detached
    kLost,        // the daemon went away without a word (its socket file gone or
                  // replaced, no PONG, a failed receive); now detached
  };

  explicit WpaEventSource(std::string ifname);
  ~WpaEventSource();
  WpaEventSource(const WpaEventSource&) = delete;
  WpaEventSource& operator=(const WpaEventSource&) = delete;

  const std::string& ifname() const { return ifname_; }
  bool attached() const;
  // The control socket to wait on, or -1 while detached.
  int fd() const;
  // How long the caller may wait before the next watch().
  std::chrono::milliseconds poll_interval() const;
  // Why the last attach failed, in the module's words ("failed (connect()
  // failed: ...)"), and whether the daemon was reached but refused ATTACH.
  const std::string& last_failure() const { return last_failure_; }
  bool last_refused() const { return last_refused_; }
  // The module's log lines since the last call (a command shows them with
  // --verbose), in order.
  std::vector<qira::host::LogRecord> take_log();

  // Detached: tries to attach. Attached: checks that the daemon's socket
  // file is still the one attached to and, once a second has passed since
  // the last one, sends a PING. Events that arrive meanwhile go to `events`.
  Change watch(std::vector<ReceivedEvent>& events);
  // Receives what is waiting on fd() (call it once fd() is readable): the
  // events go to `events`, in order.
  Change service(std::vector<ReceivedEvent>& events);

 private:
  static void on_event(qira::network::event_type type, const qira::variant::Variant& payload,
                       void* data);
  Change attach();
  Change check_alive();
  void detach();
  void keep_log(const qira::host::LogCapture& capture);

  std::string ifname_;
  std::string socket_path_;
  std::unique_ptr<qira::network::WpaClient> client_;
  unsigned long long socket_inode_ = 0;
  unsigned long long last_ping_ms_ = 0;
  bool ever_attached_ = false;
  std::string last_failure_;
  bool last_refused_ = false;
  std::vector<qira::host::LogRecord> log_;
  std::vector<ReceivedEvent>* events_ = nullptr;
};

// The name of a change as `monitor` prints it ("wpa_attached",
// "wpa_reattached", "wpa_stopped", "wpa_lost"; "" for none).
std::string wpa_change_name(WpaEventSource::Change change);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_WPA_EVENT_SOURCE_H
