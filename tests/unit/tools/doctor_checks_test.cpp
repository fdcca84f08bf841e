// Every decision of doctor's checks of the module, the identity, the kernel
// and the interface, by table of facts, with the exact line each gives.
#include <gtest/gtest.h>

#include <cerrno>

#include "doctor_checks.h"
#include "doctor_command.h"
#include "qira/inspect/exported_interface.h"

namespace qira::wifi {
namespace {

using qira::inspect::DynamicSymbol;

constexpr char kSoname[] = "libqira_network_utils_wireless.so.1";

std::string line(const CheckResult& check) {
  return render_check_line(check);
}

// A module that loaded, whose dynamic section exports `exported`.
ModuleFacts loaded_module(const std::vector<std::string>& exported) {
  ModuleFacts facts;
  facts.path = kSoname;
  facts.loaded = true;
  facts.file = "/usr/lib/libqira_network_utils_wireless.so.1";
  facts.dynamic_read = true;
  facts.dynamic.needed = {"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6"};
  for (const std::string& name : exported) {
    DynamicSymbol symbol;
    // Not a mangled name: demangling leaves it as it is.
    symbol.name = name;
    symbol.defined = true;
    symbol.binding = 1;  // STB_GLOBAL
    facts.dynamic.symbols.push_back(symbol);
  }
  facts.process_objects = {"libqira_host.so.1",   "libnl-3.so.200",
                           "libnl-genl-3.so.200", "libstdc++.so.6",
                           "libm.so.6",           "libgcc_s.so.1",
                           "libc.so.6",           "libqira_network_utils_wireless.so.1"};
  facts.libnl_origin = {{"genl_connect", "libnl-genl-3.so.200"},
                        {"nl_socket_alloc", "libnl-3.so.200"}};
  return facts;
}

ModuleFacts complete_module() {
  return loaded_module(qira::inspect::exported_interface());
}

ModuleFacts unloaded_module(const std::string& error) {
  ModuleFacts facts;
  facts.path = kSoname;
  facts.load_error = error;
  return facts;
}

TEST(DoctorModuleLoad, NamesTheFileTheLoaderFound) {
  EXPECT_EQ(line(check_module_load(complete_module())),
            "ok   module: libqira_network_utils_wireless.so.1 loads from "
            "/usr/lib/libqira_network_utils_wireless.so.1");
}

TEST(DoctorModuleLoad, APathThatIsTheFileIsNamedOnce) {
  ModuleFacts facts = complete_module();
  facts.path = facts.file = "/opt/camera/module.so";
  EXPECT_EQ(line(check_module_load(facts)), "ok   module: loads from /opt/camera/module.so");
}

TEST(DoctorModuleLoad, AMissingFileSaysHowToNameIt) {
  EXPECT_EQ(line(check_module_load(unloaded_module(
                "cannot load libqira_network_utils_wireless.so.1: "
                "libqira_network_utils_wireless.so.1: cannot open shared object file: No such "
                "file or directory"))),
            "fail module: cannot load libqira_network_utils_wireless.so.1: cannot load "
            "libqira_network_utils_wireless.so.1: libqira_network_utils_wireless.so.1: cannot "
            "open shared object file: No such file or directory; no command can use the module; "
            "fix: install it, or name it with --module PATH or QIRA_WIRELESS_MODULE");
}

TEST(DoctorModuleLoad, AMissingLibnlFunctionAsksForLibnlInTheHost) {
  const CheckResult check = check_module_load(
      unloaded_module("cannot load x.so: x.so: undefined symbol: nl_socket_alloc"));
  EXPECT_EQ(check.status, CheckStatus::kFail);
  EXPECT_EQ(check.fix,
            "load it from a process that links libnl-3 and libnl-genl-3 (the module takes libnl "
            "from its host)");
}

TEST(DoctorModuleLoad, AMissingHostFunctionAsksForTheHostLibrary) {
  const CheckResult check =
      check_module_load(unloaded_module("cannot load x.so: x.so: undefined symbol: logInternal"));
  EXPECT_EQ(check.fix, "load it from a process that links the host library (libqira_host)");
}

TEST(DoctorModuleLoad, AnyOtherReasonAsksForABuildForThisBoard) {
  const CheckResult check =
      check_module_load(unloaded_module("netlib_libiface_wireless_init failed (module x.so)"));
  EXPECT_EQ(check.fix, "install a module built for this board");
}

TEST(DoctorModuleLoad, ControlBytesOfTheLoadersWordsAreEscaped) {
  const CheckResult check = check_module_load(unloaded_module("bad\x1b[2Jname"));
  EXPECT_EQ(check.finding, "cannot load libqira_network_utils_wireless.so.1: bad\\x1b[2Jname");
}

TEST(DoctorModuleInterface, CompleteWhenEveryNameIsExported) {
  EXPECT_EQ(line(check_module_interface(complete_module())),
            "ok   module interface: exports all " +
                std::to_string(qira::inspect::exported_interface().size()) +
                " functions of its interface");
}

TEST(DoctorModuleInterface, ExtraExportsDoNotMatter) {
  std::vector<std::string> names = qira::inspect::exported_interface();
  names.push_back("something_more");
  EXPECT_EQ(check_module_interface(loaded_module(names)).status, CheckStatus::kOk);
}

TEST(DoctorModuleInterface, ListsThreeMissingNamesByTheirBaseNameAndCountsTheRest) {
  const std::vector<std::string>& all = qira::inspect::exported_interface();
  ASSERT_GT(all.size(), 4u);
  const std::vector<std::string> names(all.begin() + 4, all.end());
  const std::string total = std::to_string(all.size());
  EXPECT_EQ(line(check_module_interface(loaded_module(names))),
            "fail module interface: lacks 4 of its " + total +
                " functions: ack_handler, ap_less, ap_same and 1 more; a "
                "host that calls them cannot resolve them; fix: install the module built from the "
                "same sources as its host");
}

TEST(DoctorModuleInterface, NotCheckedWhenTheModuleDidNotLoad) {
  EXPECT_EQ(line(check_module_interface(unloaded_module("x"))),
            "warn module interface: not checked: the module did not load");
}

TEST(DoctorModuleInterface, AnUnreadableFileFails) {
  ModuleFacts facts = complete_module();
  facts.dynamic_read = false;
  facts.dynamic_error = "truncated section header table";
  EXPECT_EQ(line(check_module_interface(facts)),
            "fail module interface: cannot read the dynamic section of "
            "/usr/lib/libqira_network_utils_wireless.so.1: truncated section header table; the "
            "module's exported functions cannot be told; fix: install an intact module");
}

TEST(DoctorNeededLibraries, TheSystemRuntimeLoaded) {
  EXPECT_EQ(line(check_needed_libraries(complete_module())),
            "ok   module needed libraries: libstdc++.so.6, libm.so.6, libgcc_s.so.1, libc.so.6: "
            "the system runtime, all loaded");
}

TEST(DoctorNeededLibraries, ALibraryBesideTheRuntimeWarns) {
  ModuleFacts facts = complete_module();
  facts.dynamic.needed.push_back("libnl-3.so.200");
  EXPECT_EQ(line(check_needed_libraries(facts)),
            "warn module needed libraries: names libnl-3.so.200 beside the system runtime; a "
            "firmware without those libraries cannot load it; fix: build it as this tree does: "
            "its needed libraries are the system runtime only (libnl and the host come from the "
            "process)");
}

TEST(DoctorNeededLibraries, ASanitizerRuntimeIsAllowed) {
  ModuleFacts facts = complete_module();
  facts.dynamic.needed.push_back("libasan.so.8");
  facts.process_objects.push_back("libasan.so.8");
  EXPECT_EQ(check_needed_libraries(facts).status, CheckStatus::kOk);
}

TEST(DoctorNeededLibraries, ALibraryNotInTheProcessFails) {
  ModuleFacts facts = complete_module();
  facts.process_objects = {"libc.so.6"};
  EXPECT_EQ(line(check_needed_libraries(facts)),
            "fail module needed libraries: libstdc++.so.6, libm.so.6, libgcc_s.so.1 not loaded in "
            "this process; the module runs without a library it names; fix: install the missing "
            "libraries");
}

TEST(DoctorNeededLibraries, NotCheckedWithoutTheModuleOrItsDynamicSection) {
  EXPECT_EQ(line(check_needed_libraries(unloaded_module("x"))),
            "warn module needed libraries: not checked: the module did not load");
  ModuleFacts facts = complete_module();
  facts.dynamic_read = false;
  EXPECT_EQ(line(check_needed_libraries(facts)),
            "warn module needed libraries: not checked: its dynamic section cannot be read");
}

TEST(DoctorLibnl, EveryFunctionFromLibnlOfTheProcess) {
  EXPECT_EQ(line(check_libnl_origin(complete_module())),
            "ok   libnl: 2 functions come from the process (libnl-3.so.200, libnl-genl-3.so.200)");
}

TEST(DoctorLibnl, AFunctionNoObjectDefinesFails) {
  ModuleFacts facts = complete_module();
  facts.libnl_origin["nla_put"] = "";
  EXPECT_EQ(line(check_libnl_origin(facts)),
            "fail libnl: nla_put defined by no object of this process; events and scans fail; "
            "fix: link the host with libnl-3 and libnl-genl-3");
}

TEST(DoctorLibnl, AFunctionFromAnotherObjectWarns) {
  ModuleFacts facts = complete_module();
  facts.libnl_origin["nla_put"] = "libfake.so";
  EXPECT_EQ(line(check_libnl_origin(facts)),
            "warn libnl: not from libnl: nla_put (from libfake.so); the module's netlink calls do "
            "not reach libnl; fix: load the module from a process that links libnl-3 and "
            "libnl-genl-3");
}

TEST(DoctorLibnl, AModuleThatCallsNoLibnlFunctionCarriesItsOwn) {
  ModuleFacts facts = complete_module();
  facts.libnl_origin.clear();
  EXPECT_EQ(line(check_libnl_origin(facts)),
            "warn libnl: the module calls no libnl function of the process; it carries libnl of "
            "its own: two libnl states in one process; fix: build it as this tree does: libnl "
            "comes from the process");
}

TEST(DoctorLibnl, NotCheckedWithoutTheModule) {
  EXPECT_EQ(line(check_libnl_origin(unloaded_module("x"))),
            "warn libnl: not checked: the module did not load");
}

IdentityFacts camera_identity() {
  IdentityFacts facts;
  facts.available = true;
  facts.source = "/etc/qira/identity.json";
  facts.sysid = 25248;
  facts.sysid_present = true;
  facts.name = "Virtual Camera";
  facts.name_present = true;
  facts.hwaddr = "02000000AB12";
  return facts;
}

TEST(DoctorIdentity, AllThreeKeys) {
  EXPECT_EQ(line(check_identity(camera_identity())),
            "ok   identity: sysid 25248, name \"Virtual Camera\", hwaddr 02000000AB12");
}

TEST(DoctorIdentity, NotAvailable) {
  IdentityFacts facts;
  facts.source = "/etc/qira/identity.json";
  EXPECT_EQ(line(check_identity(facts)),
            "fail identity: not available (/etc/qira/identity.json); the setup access point "
            "cannot be configured (\"Failed to initialize camera info manager\"); fix: write the "
            "device's identity record (/etc/qira/identity.json)");
}

TEST(DoctorIdentity, MissingOrMistypedKeysEndTheProcessInTheModule) {
  IdentityFacts facts = camera_identity();
  facts.sysid.reset();
  facts.sysid_present = false;
  EXPECT_EQ(line(check_identity(facts)),
            "fail identity: no \"sysid\"; the module ends the process (forceCrash) when it reads "
            "it; fix: write the device's identity record (/etc/qira/identity.json)");
  facts.sysid_present = true;
  EXPECT_EQ(check_identity(facts).finding, "\"sysid\" is not a number");
  facts = camera_identity();
  facts.name.reset();
  facts.name_present = false;
  EXPECT_EQ(check_identity(facts).finding, "no \"name\"");
  facts.name_present = true;
  EXPECT_EQ(check_identity(facts).finding, "\"name\" is not a text");
}

TEST(DoctorIdentity, AShortHardwareAddressMakesTheModuleThrow) {
  IdentityFacts facts = camera_identity();
  facts.hwaddr = "0200000";
  EXPECT_EQ(line(check_identity(facts)),
            "fail identity: sysid 25248, name \"Virtual Camera\", hwaddr 0200000: hwaddr is "
            "shorter than 8 characters; configuring the setup access point throws "
            "std::out_of_range; fix: write the device's identity record "
            "(/etc/qira/identity.json)");
  facts.hwaddr = "02000000";
  EXPECT_EQ(check_identity(facts).status, CheckStatus::kOk);
}

KernelFacts camera_kernel() {
  KernelFacts facts;
  facts.nl80211_resolved = true;
  facts.nl80211_id = 28;
  facts.regulatory_domain = "00";
  return facts;
}

TEST(DoctorKernel, Nl80211Resolves) {
  EXPECT_EQ(line(check_nl80211(camera_kernel())),
            "ok   nl80211: the generic netlink family resolves (id 28)");
}

TEST(DoctorKernel, Nl80211DoesNotResolve) {
  KernelFacts facts;
  facts.nl80211_error = "Object not found";
  EXPECT_EQ(line(check_nl80211(facts)),
            "fail nl80211: the generic netlink family does not resolve: Object not found; events "
            "and scans fail (\"netlib: nl80211 not found\"); fix: load cfg80211 and the radio's "
            "driver");
}

TEST(DoctorKernel, RegulatoryDomainWorldOrCountry) {
  EXPECT_EQ(line(check_regulatory_domain(camera_kernel())), "ok   regulatory domain: world (00)");
  KernelFacts facts = camera_kernel();
  facts.regulatory_domain = "DE";
  EXPECT_EQ(line(check_regulatory_domain(facts)), "ok   regulatory domain: country DE");
}

TEST(DoctorKernel, RegulatoryDomainUnreadableWarns) {
  KernelFacts facts = camera_kernel();
  facts.regulatory_domain.reset();
  facts.regulatory_error = "Operation not supported";
  EXPECT_EQ(line(check_regulatory_domain(facts)),
            "warn regulatory domain: cannot be read: Operation not supported; the radio may "
            "refuse the setup access point's channel; fix: set the country: iw reg set XX");
  facts.nl80211_resolved = false;
  EXPECT_EQ(line(check_regulatory_domain(facts)),
            "warn regulatory domain: not checked: nl80211 does not resolve");
}

InterfaceFacts camera_interface() {
  InterfaceFacts facts;
  facts.exists = true;
  facts.phy = "phy0";
  facts.wireless = true;
  facts.wext_name = "IEEE 802.11";
  facts.mode = 2;
  return facts;
}

TEST(DoctorInterface, TheCamerasStation) {
  const InterfaceFacts facts = camera_interface();
  EXPECT_EQ(line(check_interface_exists("wlan0", facts)), "ok   interface wlan0: exists");
  EXPECT_EQ(line(check_interface_wireless("wlan0", facts)), "ok   interface wlan0 radio: phy0");
  EXPECT_EQ(line(check_wireless_extensions("wlan0", facts)),
            "ok   interface wlan0 wireless extensions: the name request answers \"IEEE 802.11\"");
  EXPECT_EQ(line(check_interface_mode("wlan0", facts, true)),
            "ok   interface wlan0 mode: managed (2)");
}

TEST(DoctorInterface, NoSuchInterfaceLeavesTheRestUnchecked) {
  const InterfaceFacts facts;
  EXPECT_EQ(line(check_interface_exists("wlan9", facts)),
            "fail interface wlan9: no such interface; every query, scan and connect on it fails; "
            "fix: load the radio's driver, or name the interface: qira-wifi doctor IFNAME");
  EXPECT_EQ(line(check_interface_wireless("wlan9", facts)),
            "warn interface wlan9 radio: not checked: no such interface");
  EXPECT_EQ(line(check_wireless_extensions("wlan9", facts)),
            "warn interface wlan9 wireless extensions: not checked: no such interface");
  EXPECT_EQ(line(check_interface_mode("wlan9", facts, true)),
            "warn interface wlan9 mode: not checked: no such interface");
}

TEST(DoctorInterface, AnInterfaceWithoutARadio) {
  InterfaceFacts facts;
  facts.exists = true;
  facts.wext_errno = EOPNOTSUPP;
  EXPECT_EQ(line(check_interface_wireless("eth0", facts)),
            "fail interface eth0 radio: none: not a wireless interface; its queries and scans "
            "fail; fix: name the radio's interface");
  EXPECT_EQ(line(check_wireless_extensions("eth0", facts)),
            "fail interface eth0 wireless extensions: the name request fails: Operation not "
            "supported; every interface query fails (\"netlib: ioctl(...) failed\"); fix: name "
            "the radio's interface");
}

TEST(DoctorInterface, AKernelWithoutWirelessExtensionCompatibility) {
  InterfaceFacts facts = camera_interface();
  facts.wext_name.reset();
  facts.wext_errno = ENOTTY;
  EXPECT_EQ(line(check_wireless_extensions("wlan0", facts)),
            "fail interface wlan0 wireless extensions: the name request fails: Inappropriate "
            "ioctl for device; every interface query fails (\"netlib: ioctl(...) failed\"); fix: "
            "build the kernel with CONFIG_CFG80211_WEXT (wireless-extension compatibility)");
  facts.wext_errno = EOPNOTSUPP;  // a radio whose driver has no wireless extensions
  EXPECT_EQ(check_wireless_extensions("wlan0", facts).fix,
            "build the kernel with CONFIG_CFG80211_WEXT (wireless-extension compatibility)");
}

TEST(DoctorInterface, ModeQueryFailsOrCannotBeAsked) {
  InterfaceFacts facts = camera_interface();
  facts.mode.reset();
  facts.mode_failure = "failed (netlib: ioctl(8B07) failed: Operation not supported)";
  EXPECT_EQ(line(check_interface_mode("wlan0", facts, true)),
            "fail interface wlan0 mode: the module's query fails: failed (netlib: ioctl(8B07) "
            "failed: Operation not supported); the module cannot tell station from access point "
            "on it; fix: see the wireless extensions check above");
  EXPECT_EQ(line(check_interface_mode("wlan0", camera_interface(), false)),
            "warn interface wlan0 mode: not checked: the module did not load");
  facts.mode = 3;
  EXPECT_EQ(line(check_interface_mode("ap0", facts, true)), "ok   interface ap0 mode: master (3)");
}

TEST(DoctorInterface, AnInterfaceNameWithControlBytesIsEscaped) {
  EXPECT_EQ(check_interface_exists("wl\x01n", InterfaceFacts{}).subject, "interface wl\\x01n");
}

}  // namespace
}  // namespace qira::wifi
