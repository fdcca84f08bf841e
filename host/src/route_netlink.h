// Address removal over NETLINK_ROUTE, through libnl's route library.
#ifndef QIRA_HOST_SRC_ROUTE_NETLINK_H
#define QIRA_HOST_SRC_ROUTE_NETLINK_H

namespace qira::host::internal {

// Removes every IPv4 address of the interface with index `ifindex`, in the
// network namespace of the calling thread. 0 on success, else an errno value
// (ETIMEDOUT when the kernel's reply does not come within a few seconds).
int flush_ipv4_addresses(unsigned int ifindex);

}  // namespace qira::host::internal

#endif  // QIRA_HOST_SRC_ROUTE_NETLINK_H
