// Generic netlink helpers: the controller lookup of a family's multicast
// group and the small callbacks such request/response exchanges need. They
// keep no state and log nothing; callers log the codes they return.
#include "qira/network/nl_helpers.h"

#include <linux/genetlink.h>
#include <netlink/attr.h>
#include <netlink/genl/ctrl.h>
#include <netlink/handlers.h>
#include <netlink/msg.h>

#include <cerrno>
#include <cstring>

#include "netlib_events/nl_owners.h"

namespace {

using qira::network::events::callback_ptr;
using qira::network::events::message_ptr;

// What family_handler looks for and what it found.
struct group_lookup {
  const char* group;  // the wanted multicast group name
  int id;             // -ENOENT until the controller's answer names the group
};

constexpr const char kControllerFamily[] = "nlctrl";
// Status word of one exchange: waiting while positive, 0 once acknowledged,
// a negative error code after an error message.
constexpr int kAwaitingAnswer = 1;

}  // namespace

int nl_get_multicast_id(nl_sock* sock, const char* family, const char* group) {
  // Declared message first, callback set second: released in the other order.
  message_ptr msg(nlmsg_alloc());
  if (!msg) {
    return -ENOMEM;
  }
  callback_ptr cb(nl_cb_alloc(NL_CB_DEFAULT));
  if (!cb) {
    return -ENOMEM;
  }
  // The controller's own identifier is used unchecked: a failed lookup ends
  // in the send's or the controller's error code below.
  const int controller_id = genl_ctrl_resolve(sock, kControllerFamily);
  genlmsg_put(msg.get(), NL_AUTO_PORT, NL_AUTO_SEQ, controller_id, 0, 0, CTRL_CMD_GETFAMILY, 0);
  if (nla_put(msg.get(), CTRL_ATTR_FAMILY_NAME, static_cast<int>(std::strlen(family) + 1), family) <
      0) {
    return -ENOBUFS;
  }
  const int sent = nl_send_auto_complete(sock, msg.get());
  if (sent < 0) {
    return sent;
  }
  int status = kAwaitingAnswer;
  group_lookup lookup{group, -ENOENT};
  nl_cb_err(cb.get(), NL_CB_CUSTOM, error_handler, &status);
  nl_cb_set(cb.get(), NL_CB_ACK, NL_CB_CUSTOM, ack_handler, &status);
  nl_cb_set(cb.get(), NL_CB_VALID, NL_CB_CUSTOM, family_handler, &lookup);
  // Only the callbacks end the exchange; nl_recvmsgs' own result says
  // nothing the status word does not.
  while (status > 0) {
    nl_recvmsgs(sock, cb.get());
  }
  return status == 0 ? lookup.id : status;
}

int error_handler(sockaddr_nl* /*nla*/, nlmsgerr* err, void* arg) {
  *static_cast<int*>(arg) = err->error;
  return NL_STOP;
}

int ack_handler(nl_msg* /*msg*/, void* arg) {
  *static_cast<int*>(arg) = 0;
  return NL_STOP;
}

int family_handler(nl_msg* msg, void* arg) {
  auto* lookup = static_cast<group_lookup*>(arg);
  nlattr* attributes[CTRL_ATTR_MAX + 1];
  genlmsghdr* header = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(msg)));
  nla_parse(attributes, CTRL_ATTR_MAX, genlmsg_attrdata(header, 0), genlmsg_attrlen(header, 0),
            nullptr);
  if (attributes[CTRL_ATTR_MCAST_GROUPS] == nullptr) {
    return NL_SKIP;
  }
  nlattr* entry = nullptr;
  int remaining = 0;
  nla_for_each_nested(entry, attributes[CTRL_ATTR_MCAST_GROUPS], remaining) {
    nlattr* fields[CTRL_ATTR_MCAST_GRP_MAX + 1];
    nla_parse(fields, CTRL_ATTR_MCAST_GRP_MAX, static_cast<nlattr*>(nla_data(entry)),
              nla_len(entry), nullptr);
    if (fields[CTRL_ATTR_MCAST_GRP_NAME] == nullptr || fields[CTRL_ATTR_MCAST_GRP_ID] == nullptr) {
      continue;
    }
    // The advertised length counts the name's NUL, so only the exact name
    // matches: neither a prefix nor a longer wanted name does.
    if (std::strncmp(static_cast<const char*>(nla_data(fields[CTRL_ATTR_MCAST_GRP_NAME])),
                     lookup->group,
                     static_cast<std::size_t>(nla_len(fields[CTRL_ATTR_MCAST_GRP_NAME]))) != 0) {
      continue;
    }
    // The first match wins; later entries are not looked at.
    lookup->id = static_cast<int>(nla_get_u32(fields[CTRL_ATTR_MCAST_GRP_ID]));
    break;
  }
  return NL_SKIP;
}

int no_seq_check(nl_msg* /*msg*/, void* /*arg*/) {
  return NL_OK;
}
