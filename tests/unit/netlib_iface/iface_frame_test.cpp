// The interface module's frame: its check() on every query, and init/close.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "qira/netlib/context.h"
#include "qira/network/netlib_iface.h"
#include "unit/netlib_iface/iface_test_util.h"

namespace qira::test::iface {
namespace {

using namespace qira::network;

class CheckedQuery : public ::testing::TestWithParam<QueryCase> {
 protected:
  // Calls the query on `ctx` and expects false, the output untouched, no
  // request and exactly the one check line `message`.
  void expect_check_failure(void* ctx, const std::string& message) {
    bool untouched = false;
    EXPECT_FALSE(GetParam().call(ctx, "wlan0", untouched));
    EXPECT_TRUE(untouched);
    EXPECT_TRUE(wext_.requests().empty());
    expect_one_record(log_, "check", 0, message);
  }

  SimulatedWext wext_;
  qira::host::LogCapture log_;
};

TEST_P(CheckedQuery, NullContextFailsWithLibraryContextIsNull) {
  expect_check_failure(nullptr, "library context is null");
}

TEST_P(CheckedQuery, NullInterfaceStateFailsWithLibraryContextIsNull) {
  qira::netlib::library_context context{};
  context.iface = nullptr;
  expect_check_failure(&context, "library context is null");
}

TEST_P(CheckedQuery, UninitialisedStateFailsWithLibraryIsNotInitialized) {
  qira::netlib::iface_state state{};
  state.initialised = 0;
  state.ioctl_fd = -1;
  qira::netlib::library_context context{};
  context.iface = &state;
  expect_check_failure(&context, "library is not initialized");
}

INSTANTIATE_TEST_SUITE_P(EveryQuery, CheckedQuery, ::testing::ValuesIn(checked_queries()),
                         [](const ::testing::TestParamInfo<QueryCase>& info) {
                           return info.param.name;
                         });

void install_me(std::map<std::string, std::string>& settings) {
  settings["installed"] = "1";
}

TEST(IfaceInit, NullContextFailsWithLibraryContextIsNull) {
  qira::host::LogCapture log;
  EXPECT_FALSE(netlib_libiface_wireless_init(nullptr));
  expect_one_record(log, "check", 0, "library context is null");
}

TEST(IfaceInit, NullInterfaceStateFailsWithLibraryContextIsNull) {
  qira::netlib::library_context context{};
  context.internal_call = 1;
  qira::host::LogCapture log;
  EXPECT_FALSE(netlib_libiface_wireless_init(&context));
  expect_one_record(log, "check", 0, "library context is null");
}

TEST(IfaceInit, UninitialisedStateFailsAndKeepsTheHook) {
  qira::netlib::iface_state state{};
  state.initialised = 0;
  state.hostapd_conf_hook = &install_me;
  qira::netlib::library_context context{};
  context.internal_call = 1;
  context.iface = &state;
  qira::host::LogCapture log;
  EXPECT_FALSE(netlib_libiface_wireless_init(&context));
  EXPECT_EQ(state.hostapd_conf_hook, &install_me);
  expect_one_record(log, "check", 0, "library is not initialized");
}

TEST(IfaceInit, DoesNotRequireTheInternalCallFlag) {
  qira::netlib::iface_state state{};
  state.initialised = 1;
  state.hostapd_conf_hook = &install_me;
  qira::netlib::library_context context{};
  context.internal_call = 0;
  context.iface = &state;
  qira::host::LogCapture log;
  EXPECT_TRUE(netlib_libiface_wireless_init(&context));
  EXPECT_EQ(state.hostapd_conf_hook, nullptr);
  EXPECT_TRUE(log.records().empty());
}

using IfaceLoaded = LoadedModule;

TEST_F(IfaceLoaded, InitClearsAnInstalledHostapdHook) {
  module_.layout().iface->hostapd_conf_hook = &install_me;
  EXPECT_TRUE(netlib_libiface_wireless_init(ctx()));
  EXPECT_EQ(module_.layout().iface->hostapd_conf_hook, nullptr);
  EXPECT_TRUE(log_.records().empty());
  EXPECT_TRUE(wext_.requests().empty());
}

TEST_F(IfaceLoaded, InitLeavesTheRestOfTheContextAlone) {
  const qira::netlib::library_context before = module_.layout();
  const qira::netlib::iface_state state_before = *module_.layout().iface;
  EXPECT_TRUE(netlib_libiface_wireless_init(ctx()));
  EXPECT_EQ(module_.layout().internal_call, before.internal_call);
  EXPECT_EQ(module_.layout().iface, before.iface);
  EXPECT_EQ(module_.layout().wireless_events, before.wireless_events);
  EXPECT_EQ(module_.layout().wireless_scan, before.wireless_scan);
  EXPECT_EQ(module_.layout().iface->ioctl_fd, state_before.ioctl_fd);
  EXPECT_EQ(module_.layout().iface->initialised, state_before.initialised);
}

TEST_F(IfaceLoaded, CloseReturnsTrue) {
  EXPECT_TRUE(netlib_libiface_wireless_close(ctx()));
  EXPECT_TRUE(log_.records().empty());
}

TEST(IfaceClose, NullContextReturnsTrueWithoutLogging) {
  qira::host::LogCapture log;
  EXPECT_TRUE(netlib_libiface_wireless_close(nullptr));
  EXPECT_TRUE(log.records().empty());
}

TEST(IfaceClose, UninitialisedStateReturnsTrueWithoutLogging) {
  qira::netlib::iface_state state{};
  qira::netlib::library_context context{};
  context.iface = &state;
  qira::host::LogCapture log;
  EXPECT_TRUE(netlib_libiface_wireless_close(&context));
  EXPECT_TRUE(log.records().empty());
}

TEST(IfaceNoiseLevel, NullContextIsTrueAndMinus96WithoutLogging) {
  SimulatedWext wext;
  qira::host::LogCapture log;
  int level = 0;
  EXPECT_TRUE(netlib_iface_iw_get_noise_level(nullptr, "wlan0", level));
  EXPECT_EQ(level, -96);
  EXPECT_TRUE(log.records().empty());
  EXPECT_TRUE(wext.requests().empty());
}

TEST(IfaceNoiseLevel, UninitialisedStateIsTrueAndMinus96WithoutLogging) {
  qira::netlib::iface_state state{};
  qira::netlib::library_context context{};
  context.iface = &state;
  qira::host::LogCapture log;
  int level = 0;
  EXPECT_TRUE(netlib_iface_iw_get_noise_level(&context, "", level));
  EXPECT_EQ(level, -96);
  EXPECT_TRUE(log.records().empty());
}

TEST_F(IfaceLoaded, NoiseLevelIssuesNoRequest) {
  wlan0().quality.noise = 0x10;
  int level = 0;
  EXPECT_TRUE(netlib_iface_iw_get_noise_level(ctx(), "wlan0", level));
  EXPECT_EQ(level, -96);
  EXPECT_TRUE(wext_.requests().empty());
  EXPECT_TRUE(log_.records().empty());
}

}  // namespace
}  // namespace qira::test::iface
