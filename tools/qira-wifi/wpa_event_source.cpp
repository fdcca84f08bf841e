#include "wpa_event_source.h"

#include <sys/stat.h>

#include "output.h"
#include "qira/host_globals.h"
#include "qira/netlib/wpa_client_view.h"

namespace qira::wifi {

namespace {

// Where wpa_supplicant keeps the control socket of an interface (the client
// connects to the same path).
constexpr char kControlFolder[] = "/var/run/wpa_supplicant/";

// The inode of the socket file at `path`, or 0 when there is none.
unsigned long long socket_inode(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) {
    return 0;
  }
  return status.st_ino;
}

}  // namespace

WpaEventSource::WpaEventSource(std::string ifname)
    : ifname_(std::move(ifname)), socket_path_(kControlFolder + ifname_) {}

WpaEventSource::~WpaEventSource() {
  detach();
}

bool WpaEventSource::attached() const {
  return client_ != nullptr && client_->IsInitialized();
}

int WpaEventSource::fd() const {
  return attached() ? qira::netlib::wpa_client_fd(*client_) : -1;
}

std::chrono::milliseconds WpaEventSource::poll_interval() const {
  return attached() ? kWpaAttachedPoll : kWpaDetachedPoll;
}

std::vector<qira::host::LogRecord> WpaEventSource::take_log() {
  std::vector<qira::host::LogRecord> records;
  records.swap(log_);
  return records;
}

WpaEventSource::Change WpaEventSource::watch(std::vector<ReceivedEvent>& events) {
  if (!attached()) {
    return attach();
  }
  events_ = &events;
  const Change change = check_alive();
  events_ = nullptr;
  return change;
}

WpaEventSource::Change WpaEventSource::service(std::vector<ReceivedEvent>& events) {
  if (!attached()) {
    return Change::kNone;
  }
  bool ok = false;
  {
    qira::host::LogCapture capture;
    events_ = &events;
    // A zero wait: what is waiting is received and dispatched, and the call
    // returns as soon as nothing more is.
    ok = client_->Service(0);
    events_ = nullptr;
    keep_log(capture);
  }
  if (!client_->IsInitialized()) {
    detach();
    return Change::kStopped;
  }
  if (!ok) {
    detach();
    return Change::kLost;
  }
  return Change::kNone;
}

void WpaEventSource::on_event(qira::network::event_type type, const qira::variant::Variant& payload,
                              void* data) {
  auto* source = static_cast<WpaEventSource*>(data);
  if (source->events_ != nullptr) {
    source->events_->push_back({static_cast<int>(type), payload});
  }
}

WpaEventSource::Change WpaEventSource::attach() {
  qira::host::LogCapture capture;
  auto client = std::make_unique<qira::network::WpaClient>();
  last_refused_ = false;
  if (!client->Init(ifname_)) {
    last_failure_ = describe_failure(capture.records());
    keep_log(capture);
    return Change::kNone;
  }
  if (!client->Subscribe(&WpaEventSource::on_event, this)) {
    last_failure_ = "the daemon refused ATTACH";
    last_refused_ = true;
    client->Close();
    keep_log(capture);
    return Change::kNone;
  }
  keep_log(capture);
  client_ = std::move(client);
  socket_inode_ = socket_inode(socket_path_);
  last_ping_ms_ = nowMs();
  last_failure_.clear();
  const bool again = ever_attached_;
  ever_attached_ = true;
  return again ? Change::kReattached : Change::kAttached;
}

WpaEventSource::Change WpaEventSource::check_alive() {
  // A daemon that exits removes its socket file, and a new one makes another.
  if (socket_inode(socket_path_) != socket_inode_) {
    detach();
    return Change::kLost;
  }
  if (nowMs() - last_ping_ms_ < static_cast<unsigned long long>(kWpaAttachedPoll.count())) {
    return Change::kNone;
  }
  // One killed outright leaves its file behind: the PING's send is refused.
  last_ping_ms_ = nowMs();
  std::string reply;
  bool answered = false;
  {
    qira::host::LogCapture capture;
    answered = client_->Request("PING", reply, kWpaPingTimeoutMs);
    keep_log(capture);
  }
  if (!client_->IsInitialized()) {
    detach();
    return Change::kStopped;
  }
  if (!answered || reply.rfind("PONG", 0) != 0) {
    detach();
    return Change::kLost;
  }
  return Change::kNone;
}

void WpaEventSource::detach() {
  if (client_ == nullptr) {
    return;
  }
  // A daemon that is gone cannot take the DETACH: the failed send is
  // expected, and kept only for --verbose.
  qira::host::LogCapture capture;
  client_.reset();
  keep_log(capture);
  socket_inode_ = 0;
}

void WpaEventSource::keep_log(const qira::host::LogCapture& capture) {
  const std::vector<qira::host::LogRecord> records = capture.records();
  log_.insert(log_.end(), records.begin(), records.end());
}

std::string wpa_change_name(WpaEventSource::Change change) {
  switch (change) {
    case WpaEventSource::Change::kNone:
      return "";
    case WpaEventSource::Change::kAttached:
      return "wpa_attached";
    case WpaEventSource::Change::kReattached:
      return "wpa_reattached";
    case WpaEventSource::Change::kStopped:
      return "wpa_stopped";
    case WpaEventSource::Change::kLost:
      return "wpa_lost";
  }
  return "";
}

}  // namespace qira::wifi
