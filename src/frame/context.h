// The module's view of the host's library context.
#ifndef QIRA_SRC_FRAME_CONTEXT_H
#define QIRA_SRC_FRAME_CONTEXT_H

#include "qira/netlib/context.h"

namespace qira::network::frame {

inline qira::netlib::library_context* as_context(void* ctx) {
  return static_cast<qira::netlib::library_context*>(ctx);
}

}  // namespace qira::network::frame

#endif  // QIRA_SRC_FRAME_CONTEXT_H
