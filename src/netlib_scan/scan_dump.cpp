#include "netlib_scan/scan_dump.h"

#include <netlink/errno.h>
#include <netlink/handlers.h>
#include <netlink/msg.h>
#include <netlink/socket.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "netlib_events/receive_result.h"

namespace qira::network::scan {

namespace {

// What nl_recvmsgs reports when the kernel dropped datagrams for want of
// room (ENOBUFS on the read): notifications were lost, never a dump reply,
// which the kernel only queues when it fits.
constexpr int kOverrun = -NLE_NOMEM;
// Bound on the reads of one dump, notifications included: far more than the
// datagrams of the largest table.
constexpr int kReadLimit = 4096;
// Datagrams are discarded unread: MSG_TRUNC drops what does not fit.
constexpr std::size_t kDrainBufferSize = 64;

// NL_CB_MSG_IN: lets through only the replies to this retrieval's requests.
// Notifications (sequence number 0) and replies to anything else are
// skipped, as the valid-message handler would skip them for carrying no BSS.
int accept_own_replies(nl_msg* msg, void* arg) {
  const auto* progress = static_cast<const dump_progress*>(arg);
  const std::uint32_t sequence = nlmsg_hdr(msg)->nlmsg_seq;
  const bool ours = std::find(progress->sequences.begin(), progress->sequences.end(), sequence) !=
                    progress->sequences.end();
  return ours ? NL_OK : NL_SKIP;
}

// NL_CB_FINISH: the dump's NLMSG_DONE.
int dump_finished(nl_msg* /*msg*/, void* arg) {
  static_cast<dump_progress*>(arg)->finished = true;
  return NL_STOP;
}

// Error replies to our requests. A refusal for want of room or because a
// dump of ours still runs is noted and reading goes on: the kernel resumes a
// dump whose first buffer did not fit once the socket is read.
int dump_error(sockaddr_nl* /*address*/, nlmsgerr* error, void* arg) {
  auto* progress = static_cast<dump_progress*>(arg);
  if (error->error == -ENOBUFS || error->error == -EBUSY) {
    progress->refusal = error->error;
    return NL_SKIP;
  }
  progress->error = error->error;
  return NL_STOP;
}

// Waits until the socket is readable or `deadline` passes; false on the
// deadline or a failed poll.
bool wait_readable(nl_sock* sock, std::chrono::steady_clock::time_point deadline) {
  while (true) {
    // Rounded up: the wait never ends before the deadline.
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      return false;
    }
    pollfd watched{nl_socket_get_fd(sock), POLLIN, 0};
    const int ready = poll(&watched, 1, static_cast<int>(left.count()));
    if (ready > 0) {
      return true;
    }
    if (ready < 0 && errno != EINTR) {
      return false;
    }
  }
}

}  // namespace

int drain_socket(nl_sock* sock) {
  const int fd = nl_socket_get_fd(sock);
  char discarded[kDrainBufferSize];
  int count = 0;
  for (int reads = 0; reads < kDrainLimit; ++reads) {
    const ssize_t received = recv(fd, discarded, sizeof(discarded), MSG_DONTWAIT | MSG_TRUNC);
    if (received >= 0) {
      ++count;
      continue;
    }
    // An overrun is reported once, by itself; what is queued stays there.
    if (errno != ENOBUFS && errno != EINTR) {
      break;
    }
  }
  return count;
}

dump_callbacks::dump_callbacks(nl_cb* callbacks, dump_progress& progress) : callbacks_(callbacks) {
  nl_cb_set(callbacks_, NL_CB_MSG_IN, NL_CB_CUSTOM, accept_own_replies, &progress);
  nl_cb_set(callbacks_, NL_CB_FINISH, NL_CB_CUSTOM, dump_finished, &progress);
  nl_cb_err(callbacks_, NL_CB_CUSTOM, dump_error, &progress);
}

dump_callbacks::~dump_callbacks() {
  nl_cb_set(callbacks_, NL_CB_MSG_IN, NL_CB_DEFAULT, nullptr, nullptr);
  nl_cb_set(callbacks_, NL_CB_FINISH, NL_CB_DEFAULT, nullptr, nullptr);
  nl_cb_err(callbacks_, NL_CB_DEFAULT, nullptr, nullptr);
}

dump_outcome read_dump(nl_sock* sock, nl_cb* callbacks, dump_progress& progress,
                       std::chrono::steady_clock::time_point deadline) {
  for (int reads = 0; reads < kReadLimit; ++reads) {
    const int received = nl_recvmsgs(sock, callbacks);
    if (progress.finished) {
      // libnl reads on to the end of an interrupted dump, then says so.
      return received == -NLE_DUMP_INTR ? dump_outcome::interrupted : dump_outcome::complete;
    }
    if (progress.error != 0) {
      return dump_outcome::failed;
    }
    if (received == 0 || received == kOverrun) {
      continue;
    }
    if (events::nothing_to_read(received)) {
      if (progress.refusal != 0) {
        return dump_outcome::refused;
      }
      if (!wait_readable(sock, deadline)) {
        return dump_outcome::timed_out;
      }
      continue;
    }
    return dump_outcome::failed;
  }
  return dump_outcome::timed_out;
}

}  // namespace qira::network::scan
