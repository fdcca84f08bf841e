// Address removal over a raw NETLINK_ROUTE socket (the host links libnl's
// generic netlink part only).
#ifndef QIRA_HOST_SRC_ROUTE_NETLINK_H
#define QIRA_HOST_SRC_ROUTE_NETLINK_H

namespace qira::host::internal {

// Removes every IPv4 address of the interface with index `ifindex`, in the
// network namespace of the calling thread. 0 on success, else an errno value.
int flush_ipv4_addresses(unsigned int ifindex);

}  // namespace qira::host::internal

#endif  // QIRA_HOST_SRC_ROUTE_NETLINK_H
