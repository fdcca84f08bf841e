// A simulated wpa_supplicant control interface: a real Unix datagram server
// bound at "/var/run/wpa_supplicant/<ifname>" inside the sandbox, run by its
// own thread, answering each request from a script.
//
// Every request is recorded in order. A scripted answer may send events
// ("<3>CTRL-EVENT-...") before and after its reply, stay silent, run a test
// action, or terminate the daemon (its socket file removed and the socket
// closed, as when wpa_supplicant exits). Requests without a script get
// wpa_supplicant's usual answers: "OK\n" for ATTACH and DETACH (which also
// add and remove the sender as an event monitor), "PONG\n" for PING and
// "UNKNOWN COMMAND\n" otherwise.
#ifndef QIRA_TESTS_SUPPORT_WPA_SUPPLICANT_SIM_H
#define QIRA_TESTS_SUPPORT_WPA_SUPPLICANT_SIM_H

#include <sys/socket.h>
#include <sys/un.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace qira::test {

class WpaSupplicantSim {
 public:
  // What the daemon does for one request.
  struct Answer {
    std::vector<std::string> events_before;  // sent to the requester first
    std::optional<std::string> reply;        // std::nullopt: no reply at all
    std::vector<std::string> events_after;   // sent to the requester after
    std::function<void()> action;            // run (on the daemon's thread) last
    bool terminate = false;                  // then unlink and close the socket
    unsigned int delay_ms = 0;               // the reply comes this long after the events
  };

  // Binds the socket (creating the folder) and starts the thread. Fails the
  // current test when the socket cannot be made.
  explicit WpaSupplicantSim(const std::string& ifname);
  // Stops the thread, closes the socket and removes its file.
  ~WpaSupplicantSim();
  WpaSupplicantSim(const WpaSupplicantSim&) = delete;
  WpaSupplicantSim& operator=(const WpaSupplicantSim&) = delete;

  // "/var/run/wpa_supplicant/<ifname>".
  const std::string& path() const { return path_; }

  // Answers the next request equal to `request` with `answer`. Several
  // scripts for the same request are used in the order given, once each.
  void script(const std::string& request, Answer answer);
  // A reply-only script.
  void reply(const std::string& request, const std::string& text);

  // Sends `line` to every attached monitor (from the daemon's thread; returns
  // once it was sent).
  void send_event(const std::string& line);
  // Removes the socket file and closes the socket now.
  void terminate();

  // The requests received so far, in order.
  std::vector<std::string> requests() const;
  // Forgets the requests received so far, for a long run that must not grow
  // with every request.
  void forget_requests();
  // Waits until at least `count` requests arrived; false after `deadline_ms`.
  bool wait_for_requests(std::size_t count, unsigned int deadline_ms) const;
  // Number of clients that sent ATTACH and no DETACH since.
  std::size_t monitor_count() const;
  bool terminated() const;

 private:
  struct Client {
    sockaddr_un address;
    socklen_t length;
  };

  void run();
  void handle_request(const std::string& request, const Client& client);
  void send_to(const Client& client, const std::string& text);
  void close_socket();
  // Runs `task` on the daemon's thread and waits for it.
  void on_daemon_thread(std::function<void()> task);

  std::string path_;
  int socket_fd_ = -1;
  int wake_fds_[2] = {-1, -1};
  bool stopping_ = false;

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<std::string> requests_;
  std::vector<std::pair<std::string, Answer>> scripts_;
  std::vector<Client> monitors_;
  std::deque<std::function<void()>> tasks_;
  std::size_t tasks_done_ = 0;
  std::size_t tasks_queued_ = 0;
  bool terminated_ = false;
  std::thread thread_;
};

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_WPA_SUPPLICANT_SIM_H
