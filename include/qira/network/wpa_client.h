// Client of wpa_supplicant's control interface ("/var/run/wpa_supplicant/IFNAME").
//
// The object is constructed by its user (often on the stack), so its data
// members and their order are part of the interface. Not thread-safe; event
// callbacks run inside Receive, Request and Service.
#ifndef QIRA_NETWORK_WPA_CLIENT_H
#define QIRA_NETWORK_WPA_CLIENT_H

#include <sys/un.h>

#include <list>
#include <map>
#include <string>
#include <utility>

#include "qira/network/event_type.h"
#include "qira/network/export.h"

namespace qira::network {

class QIRA_WIRELESS_API WpaClient {
 public:
  WpaClient();
  // Close(), then releases the subscribers.
  ~WpaClient();
  WpaClient(const WpaClient&) = delete;
  WpaClient& operator=(const WpaClient&) = delete;

  // True when "/var/run/wpa_supplicant" exists.
  static bool WpaSupplicantIsRunning();
  bool IsInitialized() const;

  // Binds a unique client socket under "/tmp" and connects it to the control
  // socket of `ifname`. True on success or when already initialised.
  bool Init(const std::string& ifname);
  // Sends `msg` as one datagram, retrying while the socket is busy for up to
  // `timeout` milliseconds.
  bool Send(const std::string& msg, unsigned long long timeout);
  // Waits up to `timeout` milliseconds for a reply, dispatching the events
  // that arrive first. True also on time-out (with `out` unchanged).
  bool Receive(std::string& out, unsigned long long timeout);
  // Clears `reply`, sends `cmd` and receives the reply, each with `timeout`.
  bool Request(const std::string& cmd, std::string& reply, unsigned long long timeout);
  // Receives and drops one reply: pumps events for up to `timeout` ms.
  bool Service(unsigned long long timeout);
  // Detaches, removes the client socket file and closes the socket.
  void Close();

  // Attaches as an event monitor ("ATTACH", 1000 ms); true when attached.
  bool Subscribe();
  // Attaches, then adds `callback` for every event.
  bool Subscribe(event_callback callback, void* data);
  // Attaches, then adds `callback` for events of `type`.
  bool Subscribe(event_type type, event_callback callback, void* data);
  // Detaches ("DETACH", 1000 ms); callbacks stay registered.
  bool Unsubscribe();

  // Parses one event line ("<N>NAME args") and dispatches it.
  void ProcessEvent(const std::string& msg);
  // True exactly for "CTRL-EVENT-TERMINATING".
  bool IsInternalEvent(const std::string& name);
  // "CTRL-EVENT-TERMINATING" closes the client; `args` is not used.
  void HandleInternalEvent(const std::string& name, const std::string& args);

 private:
  bool initialised_;
  bool subscribed_;
  int socket_fd_;
  sockaddr_un local_address_;
  std::string ifname_;
  std::list<std::pair<event_callback, void*>> event_subscribers_;
  std::multimap<event_type, std::pair<event_callback, void*>> type_subscribers_;
};

}  // namespace qira::network

#endif  // QIRA_NETWORK_WPA_CLIENT_H
