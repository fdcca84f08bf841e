// Reading the kernel's BSS table on the event socket, which it shares with
// every nl80211 notification. Used by the scan module's results request.
//
// The socket's buffers are small (8 KB each) and every nl80211 group is
// joined, so notifications keep arriving around the dump. One that is
// queued before the dump's first reply (it may arrive between the request
// and the kernel's answer) makes a single nl_recvmsgs return with the
// notification, leaving the whole dump queued behind it. So the request
// reads on, with the same callbacks, until the dump's end (NLMSG_DONE).
// Nothing here waits: the kernel queues the dump's next buffer as the socket
// is read, so every reply is there when its read comes.
#ifndef QIRA_SRC_NETLIB_SCAN_SCAN_DUMP_H
#define QIRA_SRC_NETLIB_SCAN_SCAN_DUMP_H

struct nl_sock;
struct nl_cb;
struct nl_msg;

namespace qira::network::scan {

// Most nl_recvmsgs calls of one dump, notifications read on the way
// included: far more than the datagrams of the largest table, so the bound
// ends the reading only if notifications arrive as fast as they are read.
inline constexpr int kDumpReadLimit = 4096;

// Notes the dump's end on `callbacks` (NL_CB_FINISH) for as long as it
// lives, and removes that handler again when destroyed, so that the set is
// again the one of the module's init.
class dump_end_watch {
 public:
  explicit dump_end_watch(nl_cb* callbacks);
  ~dump_end_watch();
  dump_end_watch(const dump_end_watch&) = delete;
  dump_end_watch& operator=(const dump_end_watch&) = delete;

  // Whether the dump's NLMSG_DONE has been read.
  bool ended() const { return ended_; }

 private:
  static int note_end(nl_msg* msg, void* arg);

  nl_cb* callbacks_;
  bool ended_ = false;
};

// Calls nl_recvmsgs(sock, callbacks) until `watch` has seen the dump's end,
// a call answers a negative result, or kDumpReadLimit calls were made;
// answers the last call's result. Never waits: the socket is non-blocking,
// and a read that finds it empty answers "try again", a negative result.
int read_to_dump_end(nl_sock* sock, nl_cb* callbacks, const dump_end_watch& watch);

}  // namespace qira::network::scan

#endif  // QIRA_SRC_NETLIB_SCAN_SCAN_DUMP_H
