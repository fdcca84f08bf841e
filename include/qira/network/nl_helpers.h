// Generic netlink helpers shared by the event and scan modules. They log
// nothing and return negative libnl or errno codes.
#ifndef QIRA_NETWORK_NL_HELPERS_H
#define QIRA_NETWORK_NL_HELPERS_H

#include <linux/netlink.h>
#include <netlink/genl/genl.h>
#include <netlink/netlink.h>

#include "qira/network/export.h"

// Identifier of multicast group `group` of generic netlink family `family`,
// asked of the controller on `sock`; -2 when the family does not advertise
// the group, a negative error code otherwise. Blocks until the controller
// has answered.
QIRA_WIRELESS_API int nl_get_multicast_id(nl_sock* sock, const char* family, const char* group);
// Stores the error into the int that `arg` points to; NL_STOP.
QIRA_WIRELESS_API int error_handler(sockaddr_nl* nla, nlmsgerr* err, void* arg);
// Stores 0 into the int that `arg` points to; NL_STOP.
QIRA_WIRELESS_API int ack_handler(nl_msg* msg, void* arg);
// Looks for the wanted group in a controller answer; NL_SKIP.
QIRA_WIRELESS_API int family_handler(nl_msg* msg, void* arg);
// Accepts every sequence number (multicast notifications carry none); NL_OK.
QIRA_WIRELESS_API int no_seq_check(nl_msg* msg, void* arg);

#endif  // QIRA_NETWORK_NL_HELPERS_H
