// RealDoctorSystem's view of the loaded module (its file, its dynamic
// section, where its libnl functions come from) and of the kernel's nl80211.
#include <dlfcn.h>
#include <link.h>
#include <linux/nl80211.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>

#include <memory>

#include "doctor_system.h"
#include "qira/inspect/link_policy.h"
#include "qira/network/netlib_iface.h"

namespace qira::wifi {

namespace {

struct SocketRelease {
  void operator()(nl_sock* sock) const { nl_socket_free(sock); }
};
struct MessageRelease {
  void operator()(nl_msg* msg) const { nlmsg_free(msg); }
};
using SocketOwner = std::unique_ptr<nl_sock, SocketRelease>;
using MessageOwner = std::unique_ptr<nl_msg, MessageRelease>;

std::string file_name(const char* path) {
  if (path == nullptr) {
    return "";
  }
  const std::string text = path;
  const std::string::size_type slash = text.rfind('/');
  return slash == std::string::npos ? text : text.substr(slash + 1);
}

int collect_object(dl_phdr_info* info, size_t /*size*/, void* data) {
  const std::string name = file_name(info->dlpi_name);
  if (!name.empty()) {
    static_cast<std::vector<std::string>*>(data)->push_back(name);
  }
  return 0;
}

// The file name of the object of this process that defines `symbol`, or "".
std::string defining_object(const std::string& symbol) {
  void* address = ::dlsym(RTLD_DEFAULT, symbol.c_str());
  Dl_info info{};
  if (address == nullptr || ::dladdr(address, &info) == 0) {
    return "";
  }
  return file_name(info.dli_fname);
}

// Valid-message handler of the regulatory request: takes the domain's code.
int take_regulatory_domain(nl_msg* msg, void* data) {
  auto* domain = static_cast<std::optional<std::string>*>(data);
  nlattr* attributes[NL80211_ATTR_MAX + 1] = {};
  genlmsghdr* header = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(msg)));
  if (nla_parse(attributes, NL80211_ATTR_MAX, genlmsg_attrdata(header, 0),
                genlmsg_attrlen(header, 0), nullptr) == 0 &&
      attributes[NL80211_ATTR_REG_ALPHA2] != nullptr && !*domain) {
    const nlattr* code = attributes[NL80211_ATTR_REG_ALPHA2];
    const char* text = static_cast<const char*>(nla_data(code));
    *domain = std::string(text, strnlen(text, static_cast<std::size_t>(nla_len(code))));
  }
  return NL_SKIP;
}

}  // namespace

void describe_loaded_module(const ModuleSession& session, ModuleFacts& facts) {
  std::string error;
  void* init = reinterpret_cast<void*>(
      session.function(&qira::network::netlib_libiface_wireless_init, error));
  Dl_info info{};
  if (init != nullptr && ::dladdr(init, &info) != 0 && info.dli_fname != nullptr) {
    facts.file = info.dli_fname;
  }
  facts.dynamic_read = !facts.file.empty() && qira::inspect::read_elf_dynamic(
                                                  facts.file, facts.dynamic, facts.dynamic_error);
  if (facts.file.empty()) {
    facts.dynamic_error = "the loader does not say which file it opened";
  }
  ::dl_iterate_phdr(&collect_object, &facts.process_objects);
  if (!facts.dynamic_read) {
    return;
  }
  for (const qira::inspect::DynamicSymbol& symbol : facts.dynamic.symbols) {
    if (!symbol.defined && qira::inspect::undefined_symbol_source(symbol, true) ==
                               qira::inspect::SymbolSource::kLibnl) {
      facts.libnl_origin[symbol.name] = defining_object(symbol.name);
    }
  }
}

KernelFacts ask_kernel() {
  KernelFacts facts;
  SocketOwner sock(nl_socket_alloc());
  if (!sock) {
    facts.nl80211_error = "no netlink socket (out of memory)";
    return facts;
  }
  int result = genl_connect(sock.get());
  if (result != 0) {
    facts.nl80211_error = nl_geterror(result);
    return facts;
  }
  result = genl_ctrl_resolve(sock.get(), "nl80211");
  if (result < 0) {
    facts.nl80211_error = nl_geterror(result);
    return facts;
  }
  facts.nl80211_resolved = true;
  facts.nl80211_id = result;
  MessageOwner request(nlmsg_alloc());
  if (!request || genlmsg_put(request.get(), NL_AUTO_PORT, NL_AUTO_SEQ, facts.nl80211_id, 0, 0,
                              NL80211_CMD_GET_REG, 0) == nullptr) {
    facts.regulatory_error = "no request message (out of memory)";
    return facts;
  }
  result = nl_socket_modify_cb(sock.get(), NL_CB_VALID, NL_CB_CUSTOM, &take_regulatory_domain,
                               &facts.regulatory_domain);
  if (result == 0) {
    result = nl_send_auto(sock.get(), request.get());
  }
  if (result >= 0) {
    // The reply, then the acknowledgement that ends the exchange.
    result = nl_recvmsgs_default(sock.get());
  }
  if (result >= 0 && !facts.regulatory_domain) {
    result = nl_wait_for_ack(sock.get());
  }
  if (result < 0) {
    facts.regulatory_domain.reset();
    facts.regulatory_error = nl_geterror(result);
  } else if (!facts.regulatory_domain) {
    facts.regulatory_error = "the kernel named no domain";
  }
  return facts;
}

}  // namespace qira::wifi
