#include "support/wpa_supplicant_sim.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "support/sandbox.h"
#include "support/socket_interpose.h"

namespace qira::test {

namespace {

constexpr char kControlDirectory[] = "/var/run/wpa_supplicant";
// wpa_supplicant's own limit for one request.
constexpr std::size_t kRequestBufferSize = 4096;

bool starts_with_ok(const std::optional<std::string>& reply) {
  return reply && reply->compare(0, 2, "OK") == 0;
}

bool same_address(const sockaddr_un& a, socklen_t a_length, const sockaddr_un& b,
                  socklen_t b_length) {
  return a_length == b_length && std::memcmp(&a, &b, a_length) == 0;
}

}  // namespace

WpaSupplicantSim::WpaSupplicantSim(const std::string& ifname)
    : path_(std::string(kControlDirectory) + "/" + ifname) {
  make_dirs(kControlDirectory);
  // The sim's own socket calls go straight to libc: interposers installed by
  // a test are meant for the client's descriptors only.
  socket_fd_ = libc::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  EXPECT_GE(socket_fd_, 0) << std::strerror(errno);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  EXPECT_LT(path_.size(), sizeof(address.sun_path)) << path_;
  std::strncpy(address.sun_path, path_.c_str(), sizeof(address.sun_path) - 1);
  ::unlink(path_.c_str());
  EXPECT_EQ(0, libc::bind(socket_fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)))
      << path_ << ": " << std::strerror(errno);
  EXPECT_EQ(0, ::pipe2(wake_fds_, O_CLOEXEC | O_NONBLOCK)) << std::strerror(errno);
  thread_ = std::thread([this] { run(); });
}

WpaSupplicantSim::~WpaSupplicantSim() {
  on_daemon_thread([this] {
    stopping_ = true;
    close_socket();
  });
  thread_.join();
  libc::close(wake_fds_[0]);
  libc::close(wake_fds_[1]);
}

void WpaSupplicantSim::script(const std::string& request, Answer answer) {
  std::lock_guard<std::mutex> lock(mutex_);
  scripts_.emplace_back(request, std::move(answer));
}

void WpaSupplicantSim::reply(const std::string& request, const std::string& text) {
  Answer answer;
  answer.reply = text;
  script(request, std::move(answer));
}

void WpaSupplicantSim::send_event(const std::string& line) {
  on_daemon_thread([this, line] {
    std::vector<Client> monitors;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      monitors = monitors_;
    }
    for (const Client& monitor : monitors) {
      send_to(monitor, line);
    }
  });
}

void WpaSupplicantSim::terminate() {
  on_daemon_thread([this] { close_socket(); });
}

std::vector<std::string> WpaSupplicantSim::requests() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

void WpaSupplicantSim::forget_requests() {
  std::lock_guard<std::mutex> lock(mutex_);
  requests_.clear();
}

bool WpaSupplicantSim::wait_for_requests(std::size_t count, unsigned int deadline_ms) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, std::chrono::milliseconds(deadline_ms),
                           [this, count] { return requests_.size() >= count; });
}

std::size_t WpaSupplicantSim::monitor_count() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return monitors_.size();
}

bool WpaSupplicantSim::terminated() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return terminated_;
}

void WpaSupplicantSim::on_daemon_thread(std::function<void()> task) {
  if (std::this_thread::get_id() == thread_.get_id()) {
    task();  // from a scripted action: already on the daemon's thread
    return;
  }
  std::unique_lock<std::mutex> lock(mutex_);
  tasks_.push_back(std::move(task));
  const std::size_t ticket = ++tasks_queued_;
  const char wake = 1;
  // The pipe is non-blocking: when it is full, the thread is awake anyway.
  (void)!::write(wake_fds_[1], &wake, 1);
  changed_.wait(lock, [this, ticket] { return tasks_done_ >= ticket; });
}

void WpaSupplicantSim::run() {
  for (;;) {
    std::array<pollfd, 2> watched{};
    watched[0] = {wake_fds_[0], POLLIN, 0};
    watched[1] = {socket_fd_, POLLIN, 0};  // a negative descriptor is ignored
    if (::poll(watched.data(), watched.size(), -1) < 0) {
      if (errno == EINTR) {
        continue;
      }
      ADD_FAILURE() << "poll: " << std::strerror(errno);
      return;
    }
    if ((watched[0].revents & POLLIN) != 0) {
      char drained[64];
      while (::read(wake_fds_[0], drained, sizeof(drained)) > 0) {
      }
      for (;;) {
        std::function<void()> task;
        {
          std::lock_guard<std::mutex> lock(mutex_);
          if (tasks_.empty()) {
            break;
          }
          task = std::move(tasks_.front());
          tasks_.pop_front();
        }
        task();
        std::lock_guard<std::mutex> lock(mutex_);
        ++tasks_done_;
        changed_.notify_all();
      }
      if (stopping_) {
        return;
      }
    }
    if (socket_fd_ >= 0 && (watched[1].revents & POLLIN) != 0) {
      std::array<char, kRequestBufferSize> buffer{};
      Client client{};
      client.length = sizeof(client.address);
      const ssize_t received =
          libc::recvfrom(socket_fd_, buffer.data(), buffer.size(), MSG_DONTWAIT,
                         reinterpret_cast<sockaddr*>(&client.address), &client.length);
      if (received >= 0) {
        handle_request(std::string(buffer.data(), static_cast<std::size_t>(received)), client);
      }
    }
  }
}

void WpaSupplicantSim::handle_request(const std::string& request, const Client& client) {
  Answer answer;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(request);
    bool scripted = false;
    for (auto entry = scripts_.begin(); entry != scripts_.end(); ++entry) {
      if (entry->first == request) {
        answer = std::move(entry->second);
        scripts_.erase(entry);
        scripted = true;
        break;
      }
    }
    if (!scripted) {
      if (request == "ATTACH" || request == "DETACH") {
        answer.reply = "OK\n";
      } else if (request == "PING") {
        answer.reply = "PONG\n";
      } else {
        answer.reply = "UNKNOWN COMMAND\n";
      }
    }
    if (starts_with_ok(answer.reply)) {
      if (request == "ATTACH") {
        monitors_.push_back(client);
      } else if (request == "DETACH") {
        for (auto monitor = monitors_.begin(); monitor != monitors_.end(); ++monitor) {
          if (same_address(monitor->address, monitor->length, client.address, client.length)) {
            monitors_.erase(monitor);
            break;
          }
        }
      }
    }
    changed_.notify_all();
  }
  for (const std::string& event : answer.events_before) {
    send_to(client, event);
  }
  if (answer.delay_ms > 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(answer.delay_ms));
  }
  if (answer.reply) {
    send_to(client, *answer.reply);
  }
  for (const std::string& event : answer.events_after) {
    send_to(client, event);
  }
  if (answer.action) {
    answer.action();
  }
  if (answer.terminate) {
    close_socket();
  }
}

void WpaSupplicantSim::send_to(const Client& client, const std::string& text) {
  if (socket_fd_ < 0) {
    return;
  }
  // A client that went away is not the daemon's problem.
  libc::sendto(socket_fd_, text.data(), text.size(), MSG_DONTWAIT,
               reinterpret_cast<const sockaddr*>(&client.address), client.length);
}

void WpaSupplicantSim::close_socket() {
  if (socket_fd_ < 0) {
    return;
  }
  ::unlink(path_.c_str());
  libc::close(socket_fd_);
  socket_fd_ = -1;
  std::lock_guard<std::mutex> lock(mutex_);
  terminated_ = true;
  monitors_.clear();
  changed_.notify_all();
}

}  // namespace qira::test
