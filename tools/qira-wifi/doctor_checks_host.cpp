// Doctor's checks of the module as loaded, the identity, the kernel's nl80211
// and the interface.
#include <cerrno>
#include <cstring>
#include <set>

#include "doctor_checks.h"
#include "doctor_verdicts.h"
#include "output.h"
#include "qira/host/outside_text.h"
#include "qira/inspect/exported_interface.h"
#include "qira/inspect/link_policy.h"

namespace qira::wifi {

namespace doctor {

std::string shown(const std::string& text) {
  return qira::host::terminal_line(text);
}

std::string name_list(const std::vector<std::string>& names, std::size_t limit) {
  std::string text;
  for (std::size_t i = 0; i < names.size() && i < limit; ++i) {
    text += (i == 0 ? "" : ", ") + names[i];
  }
  if (names.size() > limit) {
    text += " and " + std::to_string(names.size() - limit) + " more";
  }
  return text;
}

std::string error_text(int error_number) {
  return std::strerror(error_number);
}

}  // namespace doctor

namespace {

using namespace doctor;

constexpr char kModuleSubject[] = "module";
constexpr char kInterfaceSubject[] = "module interface";
constexpr char kNeededSubject[] = "module needed libraries";
constexpr char kLibnlSubject[] = "libnl";
constexpr char kIdentitySubject[] = "identity";
constexpr char kNotLoaded[] = "the module did not load";
// How many names a line lists before "and N more".
constexpr std::size_t kListedNames = 3;
// The shortest hardware address the setup SSID can be cut from (its
// characters from index 8 on).
constexpr std::size_t kShortestHardwareAddress = 8;

bool contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

std::string load_fix(const std::string& error) {
  if (contains(error, "undefined symbol: nl") || contains(error, "undefined symbol: genl")) {
    return "load it from a process that links libnl-3 and libnl-genl-3 (the module takes libnl "
           "from its host)";
  }
  if (contains(error, "undefined symbol")) {
    return "load it from a process that links the host library (libqira_host)";
  }
  if (contains(error, "cannot open shared object file") || contains(error, "No such file")) {
    return "install it, or name it with --module PATH or QIRA_WIRELESS_MODULE";
  }
  return "install a module built for this board";
}

std::string interface_subject(const std::string& ifname, const char* what) {
  return "interface " + qira::host::terminal_text(ifname) + (what[0] == '\0' ? "" : " ") + what;
}

}  // namespace

CheckResult check_module_load(const ModuleFacts& facts) {
  if (!facts.loaded) {
    return fail(kModuleSubject, "cannot load " + shown(facts.path) + ": " + shown(facts.load_error),
                "no command can use the module", load_fix(facts.load_error));
  }
  if (facts.file.empty() || facts.file == facts.path) {
    return ok(kModuleSubject, "loads from " + shown(facts.path));
  }
  return ok(kModuleSubject, shown(facts.path) + " loads from " + shown(facts.file));
}

CheckResult check_module_interface(const ModuleFacts& facts) {
  if (!facts.loaded) {
    return not_checked(kInterfaceSubject, kNotLoaded);
  }
  if (!facts.dynamic_read) {
    return fail(kInterfaceSubject,
                "cannot read the dynamic section of " + shown(facts.file) + ": " +
                    shown(facts.dynamic_error),
                "the module's exported functions cannot be told", "install an intact module");
  }
  const std::vector<std::string>& expected = qira::inspect::exported_interface();
  const std::vector<std::string> missing =
      qira::inspect::names_missing_from(expected, qira::inspect::exported_names(facts.dynamic));
  if (missing.empty()) {
    return ok(kInterfaceSubject,
              "exports all " + std::to_string(expected.size()) + " functions of its interface");
  }
  std::vector<std::string> names;
  for (const std::string& name : missing) {
    names.push_back(shown(qira::inspect::base_name(name)));
  }
  return fail(kInterfaceSubject,
              "lacks " + std::to_string(missing.size()) + " of its " +
                  std::to_string(expected.size()) + " functions: " + name_list(names, kListedNames),
              "a host that calls them cannot resolve them",
              "install the module built from the same sources as its host");
}

CheckResult check_needed_libraries(const ModuleFacts& facts) {
  if (!facts.loaded) {
    return not_checked(kNeededSubject, kNotLoaded);
  }
  if (!facts.dynamic_read) {
    return not_checked(kNeededSubject, "its dynamic section cannot be read");
  }
  const std::set<std::string> loaded(facts.process_objects.begin(), facts.process_objects.end());
  std::vector<std::string> shown_names;
  std::vector<std::string> foreign;
  std::vector<std::string> absent;
  for (const std::string& library : facts.dynamic.needed) {
    shown_names.push_back(shown(library));
    // A sanitizer runtime is allowed: a sanitized build of the module is
    // still the module.
    if (!qira::inspect::is_allowed_needed_library(library, true)) {
      foreign.push_back(shown(library));
    }
    if (loaded.count(library) == 0) {
      absent.push_back(shown(library));
    }
  }
  if (!absent.empty()) {
    return fail(kNeededSubject, name_list(absent, kListedNames) + " not loaded in this process",
                "the module runs without a library it names", "install the missing libraries");
  }
  if (!foreign.empty()) {
    return warn(kNeededSubject,
                "names " + name_list(foreign, kListedNames) + " beside the system runtime",
                "a firmware without those libraries cannot load it",
                "build it as this tree does: its needed libraries are the system runtime only "
                "(libnl and the host come from the process)");
  }
  return ok(kNeededSubject,
            name_list(shown_names, shown_names.size()) + ": the system runtime, all loaded");
}

CheckResult check_libnl_origin(const ModuleFacts& facts) {
  if (!facts.loaded) {
    return not_checked(kLibnlSubject, kNotLoaded);
  }
  if (!facts.dynamic_read) {
    return not_checked(kLibnlSubject, "the module's dynamic section cannot be read");
  }
  if (facts.libnl_origin.empty()) {
    return warn(kLibnlSubject, "the module calls no libnl function of the process",
                "it carries libnl of its own: two libnl states in one process",
                "build it as this tree does: libnl comes from the process");
  }
  std::vector<std::string> unresolved;
  std::vector<std::string> elsewhere;
  std::set<std::string> origins;
  for (const auto& [symbol, origin] : facts.libnl_origin) {
    if (origin.empty()) {
      unresolved.push_back(shown(symbol));
    } else if (origin.rfind("libnl", 0) != 0) {
      elsewhere.push_back(shown(symbol) + " (from " + shown(origin) + ")");
    } else {
      origins.insert(shown(origin));
    }
  }
  if (!unresolved.empty()) {
    return fail(kLibnlSubject,
                name_list(unresolved, kListedNames) + " defined by no object of this process",
                "events and scans fail", "link the host with libnl-3 and libnl-genl-3");
  }
  if (!elsewhere.empty()) {
    return warn(kLibnlSubject, "not from libnl: " + name_list(elsewhere, kListedNames),
                "the module's netlink calls do not reach libnl",
                "load the module from a process that links libnl-3 and libnl-genl-3");
  }
  return ok(
      kLibnlSubject,
      std::to_string(facts.libnl_origin.size()) + " functions come from the process (" +
          name_list(std::vector<std::string>(origins.begin(), origins.end()), origins.size()) +
          ")");
}

CheckResult check_identity(const IdentityFacts& facts) {
  const std::string fix = "write the device's identity record (" + shown(facts.source) + ")";
  if (!facts.available) {
    return fail(kIdentitySubject, "not available (" + shown(facts.source) + ")",
                "the setup access point cannot be configured (\"Failed to initialize camera "
                "info manager\")",
                fix);
  }
  const char* crash = "the module ends the process (forceCrash) when it reads it";
  if (!facts.sysid) {
    return fail(kIdentitySubject,
                facts.sysid_present ? "\"sysid\" is not a number" : "no \"sysid\"", crash, fix);
  }
  if (!facts.name) {
    return fail(kIdentitySubject, facts.name_present ? "\"name\" is not a text" : "no \"name\"",
                crash, fix);
  }
  const std::string hwaddr = facts.hwaddr.value_or("");
  const std::string summary = "sysid " + std::to_string(*facts.sysid) + ", name \"" +
                              shown(*facts.name) + "\", hwaddr " + shown(hwaddr);
  if (hwaddr.size() < kShortestHardwareAddress) {
    return fail(kIdentitySubject, summary + ": hwaddr is shorter than 8 characters",
                "configuring the setup access point throws std::out_of_range", fix);
  }
  return ok(kIdentitySubject, summary);
}

CheckResult check_nl80211(const KernelFacts& facts) {
  if (facts.nl80211_resolved) {
    return ok("nl80211",
              "the generic netlink family resolves (id " + std::to_string(facts.nl80211_id) + ")");
  }
  return fail("nl80211",
              "the generic netlink family does not resolve: " + shown(facts.nl80211_error),
              "events and scans fail (\"netlib: nl80211 not found\")",
              "load cfg80211 and the radio's driver");
}

CheckResult check_interface_exists(const std::string& ifname, const InterfaceFacts& facts) {
  const std::string subject = interface_subject(ifname, "");
  if (facts.exists) {
    return ok(subject, "exists");
  }
  return fail(subject, "no such interface", "every query, scan and connect on it fails",
              "load the radio's driver, or name the interface: qira-wifi doctor IFNAME");
}

CheckResult check_interface_wireless(const std::string& ifname, const InterfaceFacts& facts) {
  const std::string subject = interface_subject(ifname, "radio");
  if (!facts.exists) {
    return not_checked(subject, "no such interface");
  }
  if (facts.wireless) {
    return ok(subject, shown(facts.phy));
  }
  return fail(subject, "none: not a wireless interface", "its queries and scans fail",
              "name the radio's interface");
}

CheckResult check_wireless_extensions(const std::string& ifname, const InterfaceFacts& facts) {
  const std::string subject = interface_subject(ifname, "wireless extensions");
  if (!facts.exists) {
    return not_checked(subject, "no such interface");
  }
  if (facts.wext_name) {
    return ok(subject, "the name request answers \"" + shown(*facts.wext_name) + "\"");
  }
  std::string fix =
      "build the kernel with CONFIG_CFG80211_WEXT (wireless-extension "
      "compatibility)";
  if (facts.wext_errno == EOPNOTSUPP && !facts.wireless) {
    fix = "name the radio's interface";
  }
  return fail(subject, "the name request fails: " + error_text(facts.wext_errno),
              "every interface query fails (\"netlib: ioctl(...) failed\")", fix);
}

CheckResult check_interface_mode(const std::string& ifname, const InterfaceFacts& facts,
                                 bool module_loaded) {
  const std::string subject = interface_subject(ifname, "mode");
  if (!facts.exists) {
    return not_checked(subject, "no such interface");
  }
  if (!module_loaded) {
    return not_checked(subject, kNotLoaded);
  }
  if (facts.mode) {
    return ok(subject, wireless_mode_name(*facts.mode) + " (" + std::to_string(*facts.mode) + ")");
  }
  return fail(subject, "the module's query fails: " + shown(facts.mode_failure),
              "the module cannot tell station from access point on it",
              "see the wireless extensions check above");
}

CheckResult check_regulatory_domain(const KernelFacts& facts) {
  const char* subject = "regulatory domain";
  if (!facts.nl80211_resolved) {
    return not_checked(subject, "nl80211 does not resolve");
  }
  if (!facts.regulatory_domain) {
    return warn(subject, "cannot be read: " + shown(facts.regulatory_error),
                "the radio may refuse the setup access point's channel",
                "set the country: iw reg set XX");
  }
  const std::string& code = *facts.regulatory_domain;
  return ok(subject, code == "00" ? std::string("world (00)") : "country " + shown(code));
}

}  // namespace qira::wifi
