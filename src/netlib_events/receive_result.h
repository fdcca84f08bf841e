// Results of nl_recvmsgs on the module's non-blocking event socket, shared by
// the event service and the scan results dump that reads the same socket.
#ifndef QIRA_SRC_NETLIB_EVENTS_RECEIVE_RESULT_H
#define QIRA_SRC_NETLIB_EVENTS_RECEIVE_RESULT_H

#include <netlink/errno.h>

namespace qira::network::events {

// A read that found nothing waiting. The camera's libnl build says -25;
// Debian's libnl 3.7 says -NLE_AGAIN (-4). Both mean "nothing waiting", never
// an error, so both are accepted.
constexpr int kNothingToReadCameraLibnl = -25;
constexpr int kNothingToRead = -NLE_AGAIN;

inline bool nothing_to_read(int received) {
  return received == kNothingToRead || received == kNothingToReadCameraLibnl;
}

}  // namespace qira::network::events

#endif  // QIRA_SRC_NETLIB_EVENTS_RECEIVE_RESULT_H
