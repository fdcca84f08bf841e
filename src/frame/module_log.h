// Logging of the wireless module: every line goes to the host's logInternal
// with the module name, this source file, the calling function and line.
#ifndef QIRA_SRC_FRAME_MODULE_LOG_H
#define QIRA_SRC_FRAME_MODULE_LOG_H

#include "qira/host_globals.h"

namespace qira::network::frame {

constexpr const char* kModuleName = "qira_network_utils_wireless";

// syslog severities used by the module.
constexpr int kLogError = 3;
constexpr int kLogWarning = 4;
constexpr int kLogInfo = 6;
constexpr int kLogDebug = 7;

}  // namespace qira::network::frame

// NETLIB_LOG(level, errno value or 0, printf format, arguments...)
#define NETLIB_LOG(level, error_number, ...)                                                \
  ::logInternal(::qira::network::frame::kModuleName, __FILE__, __func__, __LINE__, (level), \
                (error_number), 0, __VA_ARGS__)

#endif  // QIRA_SRC_FRAME_MODULE_LOG_H
