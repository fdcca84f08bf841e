// Address removal over NETLINK_ROUTE, through libnl's route library.
#ifndef QIRA_HOST_SRC_ROUTE_NETLINK_H
#define QIRA_HOST_SRC_ROUTE_NETLINK_H

namespace qira::host::internal {

// Removes every IPv4 address of the interface with index `ifindex`, in the
// network namespace of the calling thread. 0 on success, else an errno value
// (ETIMEDOUT when the kernel's reply does not come within a few seconds,
// ELIBACC when libnl's route library cannot be opened).
int flush_ipv4_addresses(unsigned int ifindex);

// Whether libnl's route library, as `soname`, opens and has every function
// the flush calls. The flush opens "libnl-route-3.so.200" the first time it
// runs; the host library does not name it as a needed library.
bool route_library_opens(const char* soname);

}  // namespace qira::host::internal

#endif  // QIRA_HOST_SRC_ROUTE_NETLINK_H
