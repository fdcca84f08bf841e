// What a child of the host keeps: standard input, output and error, and
// nothing else. The host process holds sockets and files that its children
// must not inherit (a daemon started with "-B" keeps every descriptor it is
// given for its whole life), and not every descriptor of the process is
// opened close-on-exec: the module's, or those the host inherited.
#ifndef QIRA_HOST_SRC_DESCRIPTORS_H
#define QIRA_HOST_SRC_DESCRIPTORS_H

namespace qira::host::internal {

// Closes every descriptor above standard error except `keep` (-1: none), on
// any kernel: close_range() where the kernel has it (Linux 5.9 and later),
// else each entry of /proc/self/fd, else every number below the descriptor
// limit. Async-signal-safe: meant for a child between fork() and exec.
void close_inherited_descriptors(int keep);

}  // namespace qira::host::internal

#endif  // QIRA_HOST_SRC_DESCRIPTORS_H
