// State of the scan module, one per library context, referenced from the
// context's scan slot. Members in the order the host and the network manager
// rely on (the network manager clears `recovery_enabled` on one board).
#ifndef QIRA_SRC_NETLIB_SCAN_SCAN_STATE_H
#define QIRA_SRC_NETLIB_SCAN_SCAN_STATE_H

#include <cstdint>

#include "qira/network/ap_selection.h"

struct nl_cb;

namespace qira::network::scan {

struct scan_state {
  std::uint8_t initialised;       // 1 as the last step of a successful init
  std::int32_t ifindex;           // interface of the last trigger
  std::uint8_t subscribed;        // holds a subscription to wireless events
  std::uint8_t scan_acked;        // the kernel confirmed the scan started
  std::uint8_t scan_finished;     // the scan ended, normally or by abort
  std::uint8_t scan_aborted;      // it ended by abort
  std::uint8_t recovery_enabled;  // results recover the radio after an abort
  std::uint32_t subscription_id;  // given back to the event module on close
  nl_cb* callbacks;               // owned: the results dump's callback set
  ::scan_list* scan_list;         // owned: the scan list of the last scan, or null
};

}  // namespace qira::network::scan

#endif  // QIRA_SRC_NETLIB_SCAN_SCAN_STATE_H
