// Descriptor helpers of the host library.
#ifndef QIRA_UTILS_FD_H
#define QIRA_UTILS_FD_H

namespace qira::utils {

// Sets O_NONBLOCK on `fd`. True on success.
bool SetFdNonBlock(int fd);

}  // namespace qira::utils

#endif  // QIRA_UTILS_FD_H
