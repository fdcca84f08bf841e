#include "netlib_scan/scan_dump.h"

#include <netlink/handlers.h>
#include <netlink/msg.h>

namespace qira::network::scan {

dump_end_watch::dump_end_watch(nl_cb* callbacks) : callbacks_(callbacks) {
  nl_cb_set(callbacks_, NL_CB_FINISH, NL_CB_CUSTOM, note_end, this);
}

dump_end_watch::~dump_end_watch() {
  nl_cb_set(callbacks_, NL_CB_FINISH, NL_CB_DEFAULT, nullptr, nullptr);
}

// Stops the read at the end, as libnl's default does.
int dump_end_watch::note_end(nl_msg* /*msg*/, void* arg) {
  static_cast<dump_end_watch*>(arg)->ended_ = true;
  return NL_STOP;
}

int read_to_dump_end(nl_sock* sock, nl_cb* callbacks, const dump_end_watch& watch) {
  int received = 0;
  // A read that succeeds before the end read a notification (which the
  // valid handler skips, as it carries no BSS) or part of the dump.
  for (int reads = 0; reads < kDumpReadLimit && !watch.ended(); ++reads) {
    received = nl_recvmsgs(sock, callbacks);
    if (received < 0) {
      break;
    }
  }
  return received;
}

}  // namespace qira::network::scan
