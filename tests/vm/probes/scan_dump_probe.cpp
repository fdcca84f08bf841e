// scan-dump-probe: one scan on the virtual camera's real kernel, followed the
// way the scan module follows it, whose results request then runs one of two
// sequences, so that what each does on a socket shared with nl80211's
// notifications can be measured next to the module. It is a measuring
// instrument for the virtual camera only: it is not installed and the module
// never uses it.
//
//   scan-dump-probe IFNAME once|to-end [TIMEOUT_MS]
//
// The socket is the event module's: 8 KB buffers asked for before it is
// connected, non-blocking, joined to nl80211's "config", "scan", "regulatory"
// and "mlme" groups just before the trigger. The trigger is the module's
// (active, wildcard SSID). Each time the socket is readable one "service"
// reads it with one nl_recvmsgs (no sequence check, a valid handler that
// notes the command of the last notification), and the last notification of
// that read decides, as in the module: trigger_scan acknowledges, and
// new_scan_results or scan_aborted ends the scan and runs the results
// request of the chosen sequence:
//
//   once    the contract's sequence: one NL80211_CMD_GET_SCAN dump request,
//           then nl_recvmsgs once, with only the sequence check (off) and the
//           valid handler (which takes the messages carrying a BSS) set.
//   to-end  one request, then nl_recvmsgs again until the dump's end
//           (NLMSG_DONE) has been read. It notes what the reads met: the
//           notifications read before and during the dump, error replies,
//           overruns, and each time the queue was found empty before the
//           end, how long the socket then took to become readable (waiting
//           at most 1 s).
//
// After a "once" request the probe reads what the request left on the
// socket, to tell why a dump came back short: the dump's own datagrams still
// queued (the read returned with something else), an error reply, or an
// overrun.
//
// Prints one line, "probe SEQUENCE: OUTCOME key=value...", and exits 0 when
// a scan ended and its results request ran (whatever it found), 1 when the
// scan did not get that far, 2 on a usage or set-up error.
#include <net/if.h>
#include <netlink/errno.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/handlers.h>
#include <netlink/msg.h>
#include <netlink/socket.h>
#include <poll.h>
#include <sys/socket.h>

#include <linux/netlink.h>
#include <linux/nl80211.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

using clock_type = std::chrono::steady_clock;

constexpr int kSocketBufferSize = 8192;
constexpr std::array<const char*, 4> kGroups = {"config", "scan", "regulatory", "mlme"};
// Nothing waiting on the non-blocking socket: Debian's libnl and the camera's.
constexpr int kNothingToRead = -NLE_AGAIN;
constexpr int kNothingToReadCameraLibnl = -25;
// Reads of one to-end dump, notifications included.
constexpr int kReadLimit = 4096;
// Longest wait for the socket when a to-end read finds it empty before the end.
constexpr int kEmptyQueueWaitMs = 1000;
// Datagrams read after a "once" request to see what it left behind.
constexpr int kLeftoverLimit = 512;
constexpr std::size_t kDatagramBufferSize = 65536;
constexpr unsigned char kSsidElement = 0;

struct message_release {
  void operator()(nl_msg* msg) const { nlmsg_free(msg); }
};
struct callback_release {
  void operator()(nl_cb* cb) const { nl_cb_put(cb); }
};
struct socket_release {
  void operator()(nl_sock* sock) const { nl_socket_free(sock); }
};
using message_ptr = std::unique_ptr<nl_msg, message_release>;
using callback_ptr = std::unique_ptr<nl_cb, callback_release>;
using socket_ptr = std::unique_ptr<nl_sock, socket_release>;

bool nothing_to_read(int received) {
  return received == kNothingToRead || received == kNothingToReadCameraLibnl;
}

// What the event "service" saw in its last read.
struct service_state {
  bool event_pending = false;
  int command = 0;
};

// What the results request met. Replies to the request carry its sequence
// number; notifications carry 0.
struct dump_record {
  std::uint32_t sequence = 0;
  std::set<std::string> ssids;  // of every BSS the valid handler took
  int bss = 0;
  int first_seen = 0;  // 1: a reply came first, -1: a notification did, 0: nothing
  int notifications_before = 0;
  int notifications_during = 0;
  int replies = 0;
  int foreign = 0;  // replies to another request
  bool done = false;
  std::vector<int> errors;  // error replies to the request (negative errno)
  int overruns = 0;
  int reads = 0;
  int empty_before_end = 0;
  long longest_wait_ms = 0;
  int last_result = 0;
};

int no_seq_check(nl_msg* /*msg*/, void* /*arg*/) {
  return NL_OK;
}

int note_notification(nl_msg* msg, void* arg) {
  auto* service = static_cast<service_state*>(arg);
  service->event_pending = true;
  service->command = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(msg)))->cmd;
  return NL_SKIP;
}

std::string ssid_of(nlattr* elements) {
  const auto* bytes = static_cast<const unsigned char*>(nla_data(elements));
  const int length = nla_len(elements);
  for (int at = 0; at + 2 <= length;) {
    const int size = bytes[at + 1];
    if (at + 2 + size > length) {
      break;
    }
    if (bytes[at] == kSsidElement) {
      return std::string(reinterpret_cast<const char*>(bytes + at + 2), size);
    }
    at += 2 + size;
  }
  return {};
}

// The valid handler of the results request: takes what carries a BSS, as
// the module's scan list does, and notes where everything else came from.
int take_bss(nl_msg* msg, void* arg) {
  auto* record = static_cast<dump_record*>(arg);
  const nlmsghdr* header = nlmsg_hdr(msg);
  const bool reply = header->nlmsg_seq == record->sequence;
  if (record->first_seen == 0) {
    record->first_seen = reply ? 1 : -1;
  }
  if (!reply) {
    if (header->nlmsg_seq != 0) {
      ++record->foreign;
    } else if (record->replies == 0) {
      ++record->notifications_before;
    } else {
      ++record->notifications_during;
    }
    return NL_SKIP;
  }
  ++record->replies;
  auto* generic = static_cast<genlmsghdr*>(nlmsg_data(header));
  nlattr* attributes[NL80211_ATTR_MAX + 1];
  nla_parse(attributes, NL80211_ATTR_MAX, genlmsg_attrdata(generic, 0), genlmsg_attrlen(generic, 0),
            nullptr);
  if (attributes[NL80211_ATTR_BSS] == nullptr) {
    return NL_SKIP;
  }
  nlattr* bss[NL80211_BSS_MAX + 1];
  if (nla_parse_nested(bss, NL80211_BSS_MAX, attributes[NL80211_ATTR_BSS], nullptr) != 0) {
    return NL_SKIP;
  }
  ++record->bss;
  if (bss[NL80211_BSS_INFORMATION_ELEMENTS] != nullptr) {
    record->ssids.insert(ssid_of(bss[NL80211_BSS_INFORMATION_ELEMENTS]));
  }
  return NL_SKIP;
}

int note_done(nl_msg* /*msg*/, void* arg) {
  static_cast<dump_record*>(arg)->done = true;
  return NL_STOP;
}

int note_error(sockaddr_nl* /*address*/, nlmsgerr* error, void* arg) {
  static_cast<dump_record*>(arg)->errors.push_back(error->error);
  return NL_SKIP;
}

bool wait_readable(int fd, int timeout_ms) {
  pollfd watched{fd, POLLIN, 0};
  int ready = 0;
  do {
    ready = poll(&watched, 1, timeout_ms);
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

// Reads, without libnl, what a "once" request left on the socket.
struct leftovers {
  int replies = 0;
  bool done = false;
  std::vector<int> errors;
  int notifications = 0;
  int overruns = 0;
};

leftovers read_leftovers(int fd, std::uint32_t sequence) {
  leftovers left;
  std::vector<char> buffer(kDatagramBufferSize);
  for (int reads = 0; reads < kLeftoverLimit; ++reads) {
    const ssize_t received = recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (received < 0) {
      if (errno == ENOBUFS) {
        ++left.overruns;
        continue;
      }
      if (errno == EINTR) {
        continue;
      }
      break;
    }
    int remaining = static_cast<int>(received);
    for (auto* header = reinterpret_cast<nlmsghdr*>(buffer.data()); nlmsg_ok(header, remaining);
         header = nlmsg_next(header, &remaining)) {
      if (header->nlmsg_seq != sequence) {
        ++left.notifications;
      } else if (header->nlmsg_type == NLMSG_DONE) {
        left.done = true;
      } else if (header->nlmsg_type == NLMSG_ERROR) {
        left.errors.push_back(static_cast<nlmsgerr*>(nlmsg_data(header))->error);
      } else {
        ++left.replies;
      }
    }
  }
  return left;
}

std::string join(const std::vector<int>& values) {
  std::string text;
  for (const int value : values) {
    text += (text.empty() ? "" : ",") + std::to_string(value);
  }
  return text.empty() ? "none" : text;
}

std::string join(const std::set<std::string>& values) {
  std::string text;
  for (const std::string& value : values) {
    // SSIDs of the simulated world are printable; anything else is shown as '?'.
    std::string shown;
    for (const char c : value) {
      shown += (c > ' ' && c < 127 && c != ',') ? c : '?';
    }
    text += (text.empty() ? "" : ",") + shown;
  }
  return text.empty() ? "none" : text;
}

class probe {
 public:
  probe(std::string ifname, bool to_end) : ifname_(std::move(ifname)), to_end_(to_end) {}

  bool open(std::string& error) {
    sock_.reset(nl_socket_alloc());
    if (!sock_) {
      error = "nl_socket_alloc failed";
      return false;
    }
    nl_socket_set_buffer_size(sock_.get(), kSocketBufferSize, kSocketBufferSize);
    if (genl_connect(sock_.get()) != 0) {
      error = "genl_connect failed";
      return false;
    }
    family_ = genl_ctrl_resolve(sock_.get(), "nl80211");
    if (family_ < 0) {
      error = "nl80211 not found";
      return false;
    }
    // Group identifiers are asked for while the socket still blocks; the
    // memberships are joined at once, as the module's first service does
    // just before its trigger.
    for (const char* group : kGroups) {
      const int id = genl_ctrl_resolve_grp(sock_.get(), "nl80211", group);
      if (id < 0 || nl_socket_add_memberships(sock_.get(), id, 0) != 0) {
        error = std::string("cannot join nl80211 group ") + group;
        return false;
      }
    }
    if (nl_socket_set_nonblocking(sock_.get()) != 0) {
      error = "cannot make the socket non-blocking";
      return false;
    }
    events_.reset(nl_cb_alloc(NL_CB_DEFAULT));
    if (!events_) {
      error = "nl_cb_alloc failed";
      return false;
    }
    nl_cb_set(events_.get(), NL_CB_SEQ_CHECK, NL_CB_CUSTOM, no_seq_check, nullptr);
    nl_cb_set(events_.get(), NL_CB_VALID, NL_CB_CUSTOM, note_notification, &service_);
    ifindex_ = static_cast<int>(if_nametoindex(ifname_.c_str()));
    if (ifindex_ < 1) {
      error = "no interface " + ifname_;
      return false;
    }
    return true;
  }

  bool trigger(std::string& error) {
    const message_ptr msg(nlmsg_alloc());
    const message_ptr ssids(nlmsg_alloc());
    if (!msg || !ssids ||
        genlmsg_put(msg.get(), NL_AUTO_PORT, NL_AUTO_SEQ, family_, 0, 0, NL80211_CMD_TRIGGER_SCAN,
                    0) == nullptr ||
        nla_put_u32(msg.get(), NL80211_ATTR_IFINDEX, static_cast<std::uint32_t>(ifindex_)) != 0 ||
        nla_put(ssids.get(), 1, 0, "") != 0 ||
        nla_put_nested(msg.get(), NL80211_ATTR_SCAN_SSIDS, ssids.get()) != 0) {
      error = "cannot build the trigger";
      return false;
    }
    if (nl_send_auto_complete(sock_.get(), msg.get()) <= 0) {
      error = "cannot send the trigger";
      return false;
    }
    return true;
  }

  // Services the socket until the scan ends and its results request ran.
  // Answers the process's exit status and prints the line.
  int follow(int timeout_ms) {
    const auto deadline = clock_type::now() + std::chrono::milliseconds(timeout_ms);
    while (true) {
      service_ = service_state{};
      const int received = nl_recvmsgs(sock_.get(), events_.get());
      if (received != 0 && !nothing_to_read(received)) {
        std::printf("probe %s: service-failed result=%d\n", sequence_name(), received);
        return 1;
      }
      if (service_.event_pending) {
        if (service_.command == NL80211_CMD_TRIGGER_SCAN) {
          acknowledged_ = true;
        } else if (service_.command == NL80211_CMD_NEW_SCAN_RESULTS ||
                   service_.command == NL80211_CMD_SCAN_ABORTED) {
          return results(service_.command == NL80211_CMD_SCAN_ABORTED);
        }
      }
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock_type::now());
      if (left.count() <= 0) {
        std::printf("probe %s: no-scan-end acknowledged=%d\n", sequence_name(),
                    acknowledged_ ? 1 : 0);
        return 1;
      }
      wait_readable(nl_socket_get_fd(sock_.get()), static_cast<int>(left.count()));
    }
  }

 private:
  const char* sequence_name() const { return to_end_ ? "to-end" : "once"; }

  int results(bool aborted) {
    const int fd = nl_socket_get_fd(sock_.get());
    nlmsghdr peeked{};
    const bool queued_before =
        recv(fd, &peeked, sizeof peeked, MSG_PEEK | MSG_DONTWAIT) >= static_cast<ssize_t>(0);
    const message_ptr msg(nlmsg_alloc());
    const callback_ptr callbacks(nl_cb_alloc(NL_CB_DEFAULT));
    if (!msg || !callbacks ||
        genlmsg_put(msg.get(), NL_AUTO_PORT, NL_AUTO_SEQ, family_, 0, NLM_F_DUMP,
                    NL80211_CMD_GET_SCAN, 0) == nullptr ||
        nla_put_u32(msg.get(), NL80211_ATTR_IFINDEX, static_cast<std::uint32_t>(ifindex_)) != 0) {
      std::printf("probe %s: set-up-failed\n", sequence_name());
      return 2;
    }
    dump_record record;
    nl_cb_set(callbacks.get(), NL_CB_SEQ_CHECK, NL_CB_CUSTOM, no_seq_check, nullptr);
    nl_cb_set(callbacks.get(), NL_CB_VALID, NL_CB_CUSTOM, take_bss, &record);
    if (to_end_) {
      nl_cb_set(callbacks.get(), NL_CB_FINISH, NL_CB_CUSTOM, note_done, &record);
      nl_cb_err(callbacks.get(), NL_CB_CUSTOM, note_error, &record);
    }
    const auto started = clock_type::now();
    const int sent = nl_send_auto_complete(sock_.get(), msg.get());
    record.sequence = nlmsg_hdr(msg.get())->nlmsg_seq;
    if (sent < 0) {
      std::printf("probe %s: send-failed result=%d\n", sequence_name(), sent);
      return 0;
    }
    if (to_end_) {
      read_to_end(callbacks.get(), record, fd);
    } else {
      record.last_result = nl_recvmsgs(sock_.get(), callbacks.get());
      record.reads = 1;
    }
    const auto micros =
        std::chrono::duration_cast<std::chrono::microseconds>(clock_type::now() - started).count();
    std::printf(
        "probe %s: %s aborted=%d bss=%d ssids=%s result=%d queued_before=%d first=%s "
        "notes_before=%d notes_during=%d replies=%d foreign=%d done=%d errors=%s overruns=%d "
        "reads=%d empty_before_end=%d longest_wait_ms=%ld us=%lld",
        sequence_name(), record.bss > 0 ? "listed" : "empty", aborted ? 1 : 0, record.bss,
        join(record.ssids).c_str(), record.last_result, queued_before ? 1 : 0,
        record.first_seen > 0   ? "reply"
        : record.first_seen < 0 ? "notification"
                                : "nothing",
        record.notifications_before, record.notifications_during, record.replies, record.foreign,
        record.done ? 1 : 0, join(record.errors).c_str(), record.overruns, record.reads,
        record.empty_before_end, record.longest_wait_ms, static_cast<long long>(micros));
    if (!to_end_) {
      const leftovers left = read_leftovers(fd, record.sequence);
      std::printf(" left_replies=%d left_done=%d left_errors=%s left_notes=%d left_overruns=%d",
                  left.replies, left.done ? 1 : 0, join(left.errors).c_str(), left.notifications,
                  left.overruns);
    }
    std::printf("\n");
    return 0;
  }

  void read_to_end(nl_cb* callbacks, dump_record& record, int fd) {
    for (record.reads = 1; record.reads <= kReadLimit; ++record.reads) {
      record.last_result = nl_recvmsgs(sock_.get(), callbacks);
      if (record.done) {
        return;
      }
      if (record.last_result == -NLE_NOMEM) {
        ++record.overruns;
        continue;
      }
      if (nothing_to_read(record.last_result)) {
        ++record.empty_before_end;
        const auto waited_from = clock_type::now();
        const bool readable = wait_readable(fd, kEmptyQueueWaitMs);
        const long waited = static_cast<long>(
            std::chrono::duration_cast<std::chrono::milliseconds>(clock_type::now() - waited_from)
                .count());
        record.longest_wait_ms = std::max(record.longest_wait_ms, waited);
        if (!readable) {
          return;
        }
        continue;
      }
      if (record.last_result != 0) {
        return;
      }
    }
  }

  std::string ifname_;
  bool to_end_;
  socket_ptr sock_;
  callback_ptr events_;
  service_state service_;
  int family_ = -1;
  int ifindex_ = 0;
  bool acknowledged_ = false;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3 || argc > 4 ||
      (std::strcmp(argv[2], "once") != 0 && std::strcmp(argv[2], "to-end") != 0)) {
    std::fprintf(stderr, "usage: scan-dump-probe IFNAME once|to-end [TIMEOUT_MS]\n");
    return 2;
  }
  const int timeout_ms = argc == 4 ? std::atoi(argv[3]) : 30000;
  probe run(argv[1], std::strcmp(argv[2], "to-end") == 0);
  std::string error;
  if (!run.open(error) || !run.trigger(error)) {
    std::fprintf(stderr, "scan-dump-probe: %s\n", error.c_str());
    return 2;
  }
  return run.follow(timeout_ms > 0 ? timeout_ms : 30000);
}
