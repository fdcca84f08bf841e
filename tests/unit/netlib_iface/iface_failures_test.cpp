// A failing wireless-extension request: the query fails, its output keeps
// what the caller put there, and do_ioctl logs exactly one line with errno.
#include <gtest/gtest.h>
#include <linux/wireless.h>

#include <cerrno>
#include <ostream>
#include <string>
#include <vector>

#include "qira/network/netlib_iface.h"
#include "unit/netlib_iface/iface_test_util.h"

namespace qira::test::iface {
namespace {

using namespace qira::network;

// The request each query issues first, and its number as logged.
struct FailureCase {
  QueryCase query;
  unsigned long request;
  std::string message;
};

void PrintTo(const FailureCase& failure, std::ostream* out) {
  *out << failure.query.name << " (" << failure.message << ")";
}

std::vector<FailureCase> failure_cases() {
  const std::vector<QueryCase> queries = checked_queries();
  const std::vector<std::pair<unsigned long, std::string>> requests = {
      {SIOCGIWESSID, "netlib: ioctl(8B1B) failed"}, {SIOCGIWAP, "netlib: ioctl(8B15) failed"},
      {SIOCGIWFREQ, "netlib: ioctl(8B05) failed"},  {SIOCGIWFREQ, "netlib: ioctl(8B05) failed"},
      {SIOCGIWRATE, "netlib: ioctl(8B21) failed"},  {SIOCGIWTXPOW, "netlib: ioctl(8B27) failed"},
      {SIOCGIWSTATS, "netlib: ioctl(8B0F) failed"}, {SIOCGIWRANGE, "netlib: ioctl(8B0B) failed"},
      {SIOCGIWSTATS, "netlib: ioctl(8B0F) failed"}, {SIOCGIWMODE, "netlib: ioctl(8B07) failed"},
  };
  std::vector<FailureCase> cases;
  for (std::size_t index = 0; index < queries.size(); ++index) {
    cases.push_back({queries[index], requests.at(index).first, requests.at(index).second});
  }
  return cases;
}

class FailingRequest : public LoadedModule, public ::testing::WithParamInterface<FailureCase> {
 protected:
  void SetUp() override {
    LoadedModule::SetUp();
    wlan0().essid = "home";
    wlan0().freq.m = 241200000;
    wlan0().freq.e = 1;
    wlan0().bitrate = 54000000;
  }
};

TEST_P(FailingRequest, EopnotsuppFailsWithOneIoctlLine) {
  wext_.fail(GetParam().request, EOPNOTSUPP);
  bool untouched = false;
  EXPECT_FALSE(GetParam().query.call(ctx(), "wlan0", untouched));
  EXPECT_TRUE(untouched);
  expect_requests({GetParam().request});
  expect_one_record(log_, "do_ioctl", EOPNOTSUPP, GetParam().message);
}

TEST_P(FailingRequest, UnknownInterfaceFailsWithEnodev) {
  // The simulated driver has no model of "wlan9", like a kernel without it.
  bool untouched = false;
  EXPECT_FALSE(GetParam().query.call(ctx(), "wlan9", untouched));
  EXPECT_TRUE(untouched);
  ASSERT_EQ(wext_.requests().size(), 1u);
  EXPECT_EQ(wext_.requests()[0].request, GetParam().request);
  EXPECT_EQ(wext_.requests()[0].name, name_field("wlan9"));
  expect_one_record(log_, "do_ioctl", ENODEV, GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(EveryQuery, FailingRequest, ::testing::ValuesIn(failure_cases()),
                         [](const ::testing::TestParamInfo<FailureCase>& info) {
                           return info.param.query.name;
                         });

TEST(FailingRequestLog, RequestNumberIsUpperCaseHex) {
  // The ESSID request is 0x8B1B: its letters are logged upper case.
  SimulatedWext wext;
  qira::host::WirelessModule module;
  ASSERT_TRUE(module.open(""));
  wext.interface("wlan0").essid = "home";
  wext.fail(SIOCGIWESSID, EIO);
  qira::host::LogCapture log;
  std::string essid = "before";
  EXPECT_FALSE(netlib_iface_iw_get_essid(module.context(), "wlan0", essid));
  EXPECT_EQ(essid, "before");
  expect_one_record(log, "do_ioctl", EIO, "netlib: ioctl(8B1B) failed");
}

}  // namespace
}  // namespace qira::test::iface
