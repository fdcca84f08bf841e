// Reading the kernel's BSS table on the event socket, which it shares with
// every nl80211 notification. Used by the scan module's results request.
//
// The socket's buffers are small (8 KB each) and every nl80211 group is
// joined, so notifications keep arriving around the dump. On the camera's
// kernel that has three consequences, each handled here:
//  - a notification already queued when the request is sent lies ahead of
//    the dump, and a single read would return with it instead of the dump;
//  - the dump's first buffer is refused (an error reply, -ENOBUFS) when the
//    queue does not have room for it;
//  - while a dump buffer waits in the queue, notifications that find no room
//    are dropped, and the next read reports the overrun (ENOBUFS) once.
// So the queue is emptied before the request, replies are told apart from
// notifications by their sequence number, a refused dump is asked for again a
// bounded number of times, and every wait has a deadline.
#ifndef QIRA_SRC_NETLIB_SCAN_SCAN_DUMP_H
#define QIRA_SRC_NETLIB_SCAN_SCAN_DUMP_H

#include <chrono>
#include <cstdint>
#include <vector>

struct nl_sock;
struct nl_cb;

namespace qira::network::scan {

// How many results requests one retrieval may send (the first and the ones
// repeating a refused dump).
inline constexpr int kDumpAttempts = 3;
// Longest wait for the kernel's replies, over all requests of one retrieval.
// The kernel queues dump replies as the socket is read, so a well-formed
// exchange never waits; the bound only keeps a lost reply from holding the
// host's loop.
inline constexpr std::chrono::milliseconds kDumpReplyWait{1000};
// Most datagrams discarded before a request: more than the receive buffer
// can hold, so the bound ends the emptying only if notifications arrive as
// fast as they are read.
inline constexpr int kDrainLimit = 64;

// How reading one dump ended.
enum class dump_outcome {
  complete,     // its end (NLMSG_DONE) was read
  refused,      // the kernel refused it for want of room or while busy
  interrupted,  // complete, but the table changed while it was dumped
  failed,       // an error reply or a failed read
  timed_out,    // no end before the deadline
};

// The requests of one retrieval and what their replies said. Replies carry
// the sequence number of their request; notifications carry none.
struct dump_progress {
  std::vector<std::uint32_t> sequences;  // of the requests sent so far
  bool finished = false;                 // an NLMSG_DONE of ours was read
  int refusal = 0;                       // -ENOBUFS or -EBUSY from an error reply
  int error = 0;                         // any other error reply (negative errno)
};

// Discards what is queued on the socket (at most kDrainLimit datagrams)
// without waiting; answers how many datagrams were discarded.
int drain_socket(nl_sock* sock);

// Installs on `callbacks`, for as long as it lives, the handlers that keep
// `progress` up to date and let only this retrieval's replies through to the
// valid-message handler; removes them again when destroyed.
class dump_callbacks {
 public:
  dump_callbacks(nl_cb* callbacks, dump_progress& progress);
  ~dump_callbacks();
  dump_callbacks(const dump_callbacks&) = delete;
  dump_callbacks& operator=(const dump_callbacks&) = delete;

 private:
  nl_cb* callbacks_;
};

// Reads replies of the requests in `progress` with `callbacks` (set up by a
// live dump_callbacks) until the dump's end, a refusal, a failure or
// `deadline`.
dump_outcome read_dump(nl_sock* sock, nl_cb* callbacks, dump_progress& progress,
                       std::chrono::steady_clock::time_point deadline);

}  // namespace qira::network::scan

#endif  // QIRA_SRC_NETLIB_SCAN_SCAN_DUMP_H
