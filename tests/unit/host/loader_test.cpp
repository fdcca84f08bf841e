// WirelessModule: loading the real module the way a host does, and failures
// that leave nothing open.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>

#include <string>

#include "qira/host/loader.h"
#include "support/nl80211_sim.h"

namespace {

using qira::host::WirelessModule;

constexpr const char* kIfaceInit = "_ZN4qira7network29netlib_libiface_wireless_initEPv";

int open_descriptor_count() {
  DIR* folder = ::opendir("/proc/self/fd");
  int count = 0;
  while (dirent* entry = ::readdir(folder)) {
    if (entry->d_name[0] != '.') {
      ++count;
    }
  }
  ::closedir(folder);
  return count;
}

TEST(LoaderTest, DefaultPathComesFromTheEnvironmentElseTheSoname) {
  const char* saved = ::getenv("QIRA_WIRELESS_MODULE");
  std::string saved_value = saved != nullptr ? saved : "";
  ::setenv("QIRA_WIRELESS_MODULE", "/opt/module.so", 1);
  EXPECT_EQ("/opt/module.so", WirelessModule::default_path());
  ::unsetenv("QIRA_WIRELESS_MODULE");
  EXPECT_EQ("libqira_network_utils_wireless.so.1", WirelessModule::default_path());
  if (saved != nullptr) {
    ::setenv("QIRA_WIRELESS_MODULE", saved_value.c_str(), 1);
  }
}

TEST(LoaderTest, BogusPathFailsWithAnErrorAndLeavesNothingOpen) {
  const int before = open_descriptor_count();
  WirelessModule module;
  std::string error;
  EXPECT_FALSE(module.open("/tmp/no-such-module.so", &error));
  EXPECT_EQ(0U, error.rfind("cannot load /tmp/no-such-module.so: ", 0)) << error;
  EXPECT_NE(std::string::npos, error.find("No such file or directory")) << error;
  EXPECT_FALSE(module.is_open());
  EXPECT_EQ(nullptr, module.layout().iface);
  EXPECT_EQ(nullptr, module.symbol(kIfaceInit));
  EXPECT_EQ(before, open_descriptor_count());
}

TEST(LoaderTest, LibraryWithoutTheInterfaceInitIsRefused) {
  const int before = open_descriptor_count();
  WirelessModule module;
  std::string error;
  EXPECT_FALSE(module.open("libm.so.6", &error));
  EXPECT_EQ("libm.so.6 has no netlib_libiface_wireless_init", error);
  EXPECT_FALSE(module.is_open());
  EXPECT_EQ(before, open_descriptor_count());
}

TEST(LoaderTest, LoadsTheRealModuleAndBuildsTheContext) {
  ASSERT_NE(nullptr, ::getenv("QIRA_WIRELESS_MODULE")) << "ctest sets the module path";
  WirelessModule module;
  std::string error;
  ASSERT_TRUE(module.open("", &error)) << error;
  EXPECT_TRUE(module.is_open());
  qira::netlib::library_context& context = module.layout();
  EXPECT_EQ(&context, module.context());
  EXPECT_EQ(0, context.internal_call);
  ASSERT_NE(nullptr, context.iface);
  EXPECT_EQ(1, context.iface->initialised);
  EXPECT_EQ(nullptr, context.iface->hostapd_conf_hook);
  EXPECT_EQ(nullptr, context.host_slots[0]);
  EXPECT_EQ(nullptr, context.host_slots[1]);
  const int fd = context.iface->ioctl_fd;
  ASSERT_GE(fd, 0);
  int type = 0;
  socklen_t length = sizeof(type);
  ASSERT_EQ(0, ::getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length));
  EXPECT_EQ(SOCK_DGRAM, type);
  EXPECT_EQ(FD_CLOEXEC, ::fcntl(fd, F_GETFD) & FD_CLOEXEC);
  EXPECT_NE(nullptr, module.symbol(kIfaceInit));
  EXPECT_EQ(nullptr, module.symbol("no_such_symbol"));

  module.close();
  EXPECT_FALSE(module.is_open());
  EXPECT_EQ(nullptr, module.layout().iface);
  EXPECT_EQ(-1, ::fcntl(fd, F_GETFD));
}

TEST(LoaderTest, ByDefaultOnlyTheInterfaceSubsystemStarts) {
  // No generic netlink socket may be opened: this machine may have no nl80211.
  qira::test::SimulatedNl80211 kernel;
  WirelessModule module;
  std::string error;
  ASSERT_TRUE(module.open("", &error)) << error;
  EXPECT_FALSE(module.events_started());
  EXPECT_FALSE(module.scan_started());
  EXPECT_EQ(nullptr, module.layout().wireless_events);
  EXPECT_EQ(nullptr, module.layout().wireless_scan);
  EXPECT_EQ(0, kernel.sockets_created());
}

TEST(LoaderTest, EventsStartOnRequestAndStopOnClose) {
  qira::test::SimulatedNl80211 kernel;
  WirelessModule module;
  std::string error;
  ASSERT_TRUE(module.open("", &error, qira::host::kEventsSubsystem)) << error;
  EXPECT_TRUE(module.events_started());
  EXPECT_FALSE(module.scan_started());
  EXPECT_NE(nullptr, module.layout().wireless_events);
  EXPECT_EQ(0, module.layout().internal_call);
  EXPECT_EQ(1u, kernel.sockets().size());
  module.close();
  EXPECT_FALSE(module.events_started());
  EXPECT_TRUE(kernel.sockets().empty());
}

TEST(LoaderTest, AFailedEventsInitFailsTheLoadAndLeavesNothingOpen) {
  qira::test::SimulatedNl80211 kernel;
  kernel.remove_family("nl80211");
  const int before = open_descriptor_count();
  WirelessModule module;
  std::string error;
  EXPECT_FALSE(module.open("", &error, qira::host::kEventsSubsystem));
  EXPECT_EQ("netlib_libevents_wireless_init failed", error);
  EXPECT_FALSE(module.is_open());
  EXPECT_FALSE(module.events_started());
  EXPECT_EQ(nullptr, module.layout().wireless_events);
  EXPECT_EQ(nullptr, module.layout().iface);
  EXPECT_TRUE(kernel.sockets().empty());
  EXPECT_EQ(before, open_descriptor_count());
}

TEST(LoaderTest, InterfaceInitResetsAHookLeftInTheState) {
  WirelessModule module;
  std::string error;
  ASSERT_TRUE(module.open("", &error)) << error;
  auto hook = [](std::map<std::string, std::string>&) {};
  module.layout().iface->hostapd_conf_hook = hook;
  using init_routine = bool (*)(void*);
  auto init = reinterpret_cast<init_routine>(module.symbol(kIfaceInit));
  ASSERT_NE(nullptr, init);
  EXPECT_TRUE(init(module.context()));
  EXPECT_EQ(nullptr, module.layout().iface->hostapd_conf_hook);
}

TEST(LoaderTest, ReopenClosesTheFirstModule) {
  const int before = open_descriptor_count();
  {
    WirelessModule module;
    std::string error;
    ASSERT_TRUE(module.open("", &error)) << error;
    ASSERT_TRUE(module.open("", &error)) << error;
    EXPECT_EQ(before + 1, open_descriptor_count());
  }
  EXPECT_EQ(before, open_descriptor_count());
}

}  // namespace
