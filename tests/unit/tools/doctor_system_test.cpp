// RealDoctorSystem in the sandbox: each fact it gathers from the file system,
// a program run, the accounts, the identity, the interface (simulated
// wireless extensions), the kernel (simulated nl80211), wpa_supplicant
// (simulated daemon) and the module this suite built.
#include "doctor_system.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/genetlink.h>
#include <linux/nl80211.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "doctor_checks.h"
#include "qira/host/seams.h"
#include "qira/variant/camera_info.h"
#include "support/nl80211_sim.h"
#include "support/sandbox.h"
#include "support/wext_sim.h"
#include "support/wpa_supplicant_sim.h"

namespace qira::wifi {
namespace {

using qira::test::make_dirs;
using qira::test::write_file;

TEST(DoctorSystemPaths, AFileAFolderAndNothing) {
  RealDoctorSystem system;
  write_file("/tmp/doctor/plain", "x");
  ASSERT_EQ(::chmod("/tmp/doctor/plain", 0644), 0);
  const PathFacts file = system.path_facts("/tmp/doctor/plain");
  EXPECT_TRUE(file.exists);
  EXPECT_FALSE(file.directory);
  EXPECT_EQ(file.mode, 0644u);
  EXPECT_FALSE(file.executable);
  const PathFacts folder = system.path_facts("/tmp/doctor");
  EXPECT_TRUE(folder.exists);
  EXPECT_TRUE(folder.directory);
  const PathFacts nothing = system.path_facts("/tmp/doctor/none");
  EXPECT_FALSE(nothing.exists);
  EXPECT_EQ(nothing.stat_errno, ENOENT);
}

TEST(DoctorSystemPaths, AReadOnlyFileSystemIsNotWritable) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "writability as root is what doctor checks; this test runs as uid "
                 << ::geteuid();
  }
  make_dirs("/tmp/doctor/readonly");
  ASSERT_EQ(::mount("qira-doctor-ro", "/tmp/doctor/readonly", "tmpfs", MS_RDONLY, nullptr), 0)
      << std::strerror(errno);
  RealDoctorSystem system;
  const PathFacts facts = system.path_facts("/tmp/doctor/readonly");
  EXPECT_EQ(facts.write_errno, EROFS);
  EXPECT_EQ(system.path_facts("/tmp/doctor").write_errno, 0);
  ASSERT_EQ(::umount("/tmp/doctor/readonly"), 0);
}

TEST(DoctorSystemPaths, TmpOnATmpfsOfItsOwnIsAnotherDevice) {
  RealDoctorSystem system;
  EXPECT_EQ(system.path_facts("/tmp").device, system.path_facts("/etc").device);
  ASSERT_EQ(::mount("qira-doctor-tmp", "/tmp", "tmpfs", 0, "mode=1777"), 0) << std::strerror(errno);
  EXPECT_NE(system.path_facts("/tmp").device, system.path_facts("/etc").device);
  EXPECT_EQ(check_one_file_system(system.path_facts("/tmp"), system.path_facts("/etc")).status,
            CheckStatus::kFail);
  ASSERT_EQ(::umount("/tmp"), 0) << std::strerror(errno);
}

TEST(DoctorSystemAccounts, FromTheSandboxsPasswdAndGroup) {
  write_file("/etc/passwd", "root:x:0:0::/root:/bin/sh\nqira:x:1000:1001::/:/bin/false\n");
  write_file("/etc/group", "root:x:0:\nadmin:x:1001:\n");
  RealDoctorSystem system;
  EXPECT_EQ(system.user_id("qira"), std::optional<unsigned int>(1000));
  EXPECT_EQ(system.group_id("admin"), std::optional<unsigned int>(1001));
  EXPECT_EQ(system.user_id("nobody-here"), std::nullopt);
  EXPECT_EQ(system.group_id("nobody-here"), std::nullopt);
}

TEST(DoctorSystemIdentity, TheHostsRecordReadWithoutItsCrashingAccessors) {
  RealDoctorSystem system;
  qira::variant::Variant record;
  record["sysid"] = 25248U;
  record["name"] = "Virtual Camera";
  record["hwaddr"] = "02000000AB12";
  qira::host::set_identity_record(record);
  IdentityFacts facts = system.identity_facts();
  EXPECT_TRUE(facts.available);
  EXPECT_EQ(facts.sysid, std::optional<unsigned long long>(25248));
  EXPECT_EQ(facts.name, std::optional<std::string>("Virtual Camera"));
  EXPECT_EQ(facts.hwaddr, std::optional<std::string>("02000000AB12"));

  qira::variant::Variant partial;
  partial["sysid"] = "not a number";
  qira::host::set_identity_record(partial);
  facts = system.identity_facts();
  EXPECT_TRUE(facts.available);
  EXPECT_TRUE(facts.sysid_present);
  EXPECT_EQ(facts.sysid, std::nullopt);
  EXPECT_FALSE(facts.name_present);
  qira::host::clear_identity_record();
}

TEST(DoctorSystemIdentity, NoRecordAtAll) {
  RealDoctorSystem system;
  const IdentityFacts facts = system.identity_facts();
  EXPECT_FALSE(facts.available);
  EXPECT_EQ(facts.source, qira::variant::CameraInfo::IdentityPath());
}

TEST(DoctorSystemModule, TheBuiltModuleLoadsCompleteWithLibnlFromThisProcess) {
  RealDoctorSystem system;
  const ModuleFacts facts = system.module_facts(QIRA_MODULE_FILE);
  ASSERT_TRUE(facts.loaded) << facts.load_error;
  EXPECT_EQ(facts.path, QIRA_MODULE_FILE);
  // The file the loader opened: the suite's own link may have named it by
  // its SONAME first, and the loader then answers with that name.
  struct stat opened {};
  struct stat built {};
  ASSERT_EQ(::stat(facts.file.c_str(), &opened), 0) << facts.file;
  ASSERT_EQ(::stat(QIRA_MODULE_FILE, &built), 0);
  EXPECT_EQ(opened.st_ino, built.st_ino) << facts.file;
  ASSERT_TRUE(facts.dynamic_read) << facts.dynamic_error;
  EXPECT_EQ(check_module_interface(facts).status, CheckStatus::kOk)
      << check_module_interface(facts).finding;
  EXPECT_EQ(check_needed_libraries(facts).status, CheckStatus::kOk)
      << check_needed_libraries(facts).finding;
  ASSERT_FALSE(facts.libnl_origin.empty());
  // The suite's support library interposes some of libnl's functions (to
  // make them fail on purpose); every other one is libnl's own.
  std::set<std::string> origins;
  for (const auto& [symbol, origin] : facts.libnl_origin) {
    origins.insert(origin);
    EXPECT_TRUE(origin.rfind("libnl", 0) == 0 || origin == "libqira_test_support.so")
        << symbol << " from " << origin;
  }
  EXPECT_EQ(origins.count("libnl-3.so.200"), 1u);
  EXPECT_EQ(origins.count("libnl-genl-3.so.200"), 1u);
}

TEST(DoctorSystemModule, AModuleThatIsNotThereSaysWhy) {
  RealDoctorSystem system;
  const ModuleFacts facts = system.module_facts("/tmp/doctor/no-module.so");
  EXPECT_FALSE(facts.loaded);
  EXPECT_NE(facts.load_error.find("/tmp/doctor/no-module.so"), std::string::npos)
      << facts.load_error;
  EXPECT_TRUE(facts.file.empty());
}

TEST(DoctorSystemInterface, ARadioWithWirelessExtensionsAndItsMode) {
  qira::test::SimulatedWext driver;
  driver.interface("wlan7").mode = 3;
  write_file("/sys/class/net/wlan7/phy80211/name", "phy3\n");
  RealDoctorSystem system;
  ASSERT_TRUE(system.module_facts(QIRA_MODULE_FILE).loaded);
  const InterfaceFacts facts = system.interface_facts("wlan7");
  EXPECT_TRUE(facts.exists);
  EXPECT_TRUE(facts.wireless);
  EXPECT_EQ(facts.phy, "phy3");
  EXPECT_EQ(facts.wext_name, std::optional<std::string>("IEEE 802.11"));
  EXPECT_EQ(facts.mode, std::optional<unsigned int>(3));
}

TEST(DoctorSystemInterface, AnInterfaceWithoutRadioOrWirelessExtensions) {
  qira::test::SimulatedWext driver;
  make_dirs("/sys/class/net/eth7");
  RealDoctorSystem system;
  ASSERT_TRUE(system.module_facts(QIRA_MODULE_FILE).loaded);
  const InterfaceFacts facts = system.interface_facts("eth7");
  EXPECT_TRUE(facts.exists);
  EXPECT_FALSE(facts.wireless);
  EXPECT_EQ(facts.wext_name, std::nullopt);
  EXPECT_EQ(facts.wext_errno, ENODEV);  // the simulated driver has no model of it
  EXPECT_EQ(facts.mode, std::nullopt);
  EXPECT_EQ(facts.mode_failure, "failed (netlib: ioctl(8B07) failed: No such device)");
  EXPECT_FALSE(system.interface_facts("none7").exists);
}

// nl80211 that also answers the regulatory request.
class RegulatoryKernel : public qira::test::SimulatedNl80211 {
 public:
  std::string alpha2 = "DE";

 protected:
  std::vector<std::vector<std::uint8_t>> answer_nl80211(
      const nlmsghdr& request, const std::uint8_t* message,
      qira::test::SimulatedGenlSocket& socket) override {
    const auto* generic = reinterpret_cast<const genlmsghdr*>(message + NLMSG_HDRLEN);
    if (generic->cmd != NL80211_CMD_GET_REG) {
      return SimulatedNl80211::answer_nl80211(request, message, socket);
    }
    return {qira::test::genl_message(request.nlmsg_type, NL80211_CMD_GET_REG,
                                     {qira::test::attr_string(NL80211_ATTR_REG_ALPHA2, alpha2)},
                                     request.nlmsg_seq, socket.port),
            qira::test::error_message(request, 0)};
  }
};

TEST(DoctorSystemKernel, Nl80211AndTheRegulatoryDomain) {
  RegulatoryKernel kernel;
  const KernelFacts facts = ask_kernel();
  EXPECT_TRUE(facts.nl80211_resolved) << facts.nl80211_error;
  EXPECT_EQ(facts.nl80211_id, qira::test::SimulatedNl80211::kDefaultNl80211Id);
  EXPECT_EQ(facts.regulatory_domain, std::optional<std::string>("DE")) << facts.regulatory_error;
}

TEST(DoctorSystemKernel, ARefusedRegulatoryRequest) {
  qira::test::SimulatedNl80211 kernel;
  const KernelFacts facts = ask_kernel();
  EXPECT_TRUE(facts.nl80211_resolved);
  EXPECT_EQ(facts.regulatory_domain, std::nullopt);
  EXPECT_EQ(facts.regulatory_error, "Operation not supported");
}

TEST(DoctorSystemKernel, NoNl80211) {
  qira::test::SimulatedNl80211 kernel;
  kernel.remove_family("nl80211");
  const KernelFacts facts = ask_kernel();
  EXPECT_FALSE(facts.nl80211_resolved);
  EXPECT_EQ(facts.nl80211_error, "Object not found");
}

TEST(DoctorSystemWpa, PingAnsweredByTheDaemon) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "doctor sends PING as root only; this test runs as uid " << ::geteuid();
  }
  qira::test::WpaSupplicantSim daemon("qs0");
  RealDoctorSystem system;
  const WpaFacts facts = system.wpa_facts("qs0");
  EXPECT_TRUE(facts.socket_exists);
  EXPECT_TRUE(facts.answered) << facts.failure;
  EXPECT_EQ(facts.reply, "PONG");
  EXPECT_EQ(daemon.requests(), std::vector<std::string>{"PING"});
}

TEST(DoctorSystemWpa, NoDaemon) {
  RealDoctorSystem system;
  const WpaFacts facts = system.wpa_facts("qs0");
  EXPECT_FALSE(facts.socket_exists);
  EXPECT_FALSE(facts.answered);
}

TEST(DoctorSystemFiles, FirstLineStopsAtANul) {
  RealDoctorSystem system;
  write_file("/tmp/doctor/parameter", std::string("/lib/firmware/fw.bin\0\n", 22));
  EXPECT_EQ(system.first_line("/tmp/doctor/parameter"),
            std::optional<std::string>("/lib/firmware/fw.bin"));
  EXPECT_EQ(system.first_line("/tmp/doctor/none"), std::nullopt);
}

}  // namespace
}  // namespace qira::wifi
