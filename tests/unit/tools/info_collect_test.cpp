// `info` against the simulated wireless-extension driver: the module loaded
// through the host's loader in this process, every query answered or failed
// as the driver model says, and the exact text the program prints.
#include <gtest/gtest.h>
#include <linux/wireless.h>

#include <cerrno>
#include <sstream>

#include "info_command.h"
#include "module_session.h"
#include "output.h"
#include "qira/network/netlib_iface.h"
#include "support/wext_sim.h"

namespace qira::wifi {
namespace {

using qira::test::SimulatedWext;
using qira::test::WextInterfaceModel;

iw_freq frequency(int mantissa, short exponent, unsigned char index = 0) {
  iw_freq value{};
  value.m = mantissa;
  value.e = exponent;
  value.i = index;
  return value;
}

void model_station(WextInterfaceModel& model) {
  model.essid = "Home";
  model.bssid = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
  model.freq = frequency(241200000, 1);
  model.max_quality = 70;
  model.bitrate = 54000000;
  model.txpower = 20;
  model.quality.qual = 50;
  model.quality.level = 0xC4;
  model.quality.updated = IW_QUAL_DBM;
  model.mode = IW_MODE_INFRA;
}

class InfoCollect : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(session_.open("", error)) << error;
  }

  std::string info_text(const std::string& ifname) {
    InfoReport report;
    std::string error;
    EXPECT_TRUE(collect_info(session_, ifname, nullptr, report, error)) << error;
    return render_info_text(report);
  }

  SimulatedWext driver_;
  ModuleSession session_;
};

TEST_F(InfoCollect, FunctionsResolveToTheLoadedModule) {
  std::string error;
  EXPECT_EQ(session_.function(&qira::network::netlib_iface_iw_get_essid, error),
            &qira::network::netlib_iface_iw_get_essid);
  EXPECT_EQ(session_.function(&qira::network::netlib_iface_iw_get_wireless_mode, error),
            &qira::network::netlib_iface_iw_get_wireless_mode);
  EXPECT_EQ(error, "");
}

TEST_F(InfoCollect, StationAnswersEveryQuery) {
  model_station(driver_.interface("wlan0"));
  EXPECT_EQ(info_text("wlan0"),
            "essid:         \"Home\"\n"
            "bssid:         02:11:22:33:44:55\n"
            "freq:          2412 MHz\n"
            "channel:       1\n"
            "bitrate:       54 Mbit/s\n"
            "txpower:       20\n"
            "quality:       50\n"
            "quality_max:   70\n"
            "signal_level:  -60\n"
            "noise_level:   -96\n"
            "wireless_mode: 2 (managed)\n");
}

TEST_F(InfoCollect, QueriesRunInTheirFixedOrder) {
  model_station(driver_.interface("wlan0"));
  driver_.clear_requests();
  InfoReport report;
  std::string error;
  ASSERT_TRUE(collect_info(session_, "wlan0", nullptr, report, error)) << error;
  std::vector<unsigned long> requests;
  for (const auto& request : driver_.requests()) {
    requests.push_back(request.request);
  }
  // freq with a frequency needs one request; channel a second for the range.
  EXPECT_EQ(requests,
            (std::vector<unsigned long>{SIOCGIWESSID, SIOCGIWAP, SIOCGIWFREQ, SIOCGIWFREQ,
                                        SIOCGIWRANGE, SIOCGIWRATE, SIOCGIWTXPOW, SIOCGIWSTATS,
                                        SIOCGIWRANGE, SIOCGIWSTATS, SIOCGIWMODE}));
  std::vector<std::string> names;
  for (const QueryResult& result : report.queries) {
    names.push_back(result.name);
  }
  EXPECT_EQ(names, (std::vector<std::string>{"essid", "bssid", "freq", "channel", "bitrate",
                                             "txpower", "quality", "quality_max", "signal_level",
                                             "noise_level", "wireless_mode"}));
}

TEST_F(InfoCollect, FailedRequestShowsTheModulesLogLine) {
  model_station(driver_.interface("wlan0"));
  driver_.fail(SIOCGIWFREQ, ENETDOWN);
  EXPECT_EQ(info_text("wlan0"),
            "essid:         \"Home\"\n"
            "bssid:         02:11:22:33:44:55\n"
            "freq:          failed (netlib: ioctl(8B05) failed: Network is down)\n"
            "channel:       failed (netlib: ioctl(8B05) failed: Network is down)\n"
            "bitrate:       54 Mbit/s\n"
            "txpower:       20\n"
            "quality:       50\n"
            "quality_max:   70\n"
            "signal_level:  -60\n"
            "noise_level:   -96\n"
            "wireless_mode: 2 (managed)\n");
}

TEST_F(InfoCollect, UnknownInterfaceFailsEveryDriverQuery) {
  EXPECT_EQ(info_text("eth9"),
            "essid:         failed (netlib: ioctl(8B1B) failed: No such device)\n"
            "bssid:         failed (netlib: ioctl(8B15) failed: No such device)\n"
            "freq:          failed (netlib: ioctl(8B05) failed: No such device)\n"
            "channel:       failed (netlib: ioctl(8B05) failed: No such device)\n"
            "bitrate:       failed (netlib: ioctl(8B21) failed: No such device)\n"
            "txpower:       failed (netlib: ioctl(8B27) failed: No such device)\n"
            "quality:       failed (netlib: ioctl(8B0F) failed: No such device)\n"
            "quality_max:   failed (netlib: ioctl(8B0B) failed: No such device)\n"
            "signal_level:  failed (netlib: ioctl(8B0F) failed: No such device)\n"
            "noise_level:   -96\n"
            "wireless_mode: failed (netlib: ioctl(8B07) failed: No such device)\n");
}

TEST_F(InfoCollect, ChannelMissingFromRangeTableIsNotReported) {
  WextInterfaceModel& model = driver_.interface("wlan0");
  model_station(model);
  model.freq = frequency(6, 0);
  model.range_frequencies = {frequency(2412, 6, 1), frequency(2417, 6, 2)};
  InfoReport report;
  std::string error;
  ASSERT_TRUE(collect_info(session_, "wlan0", nullptr, report, error)) << error;
  ASSERT_EQ(report.queries.size(), 11u);
  EXPECT_EQ(report.queries[2].name, "freq");
  EXPECT_TRUE(report.queries[2].ok);
  EXPECT_TRUE(report.queries[2].value.IsNull());
  EXPECT_EQ(describe_value(report.queries[2]), "not reported");
  EXPECT_EQ(report.queries[3].name, "channel");
  EXPECT_EQ(static_cast<long long>(report.queries[3].value), 6);
}

TEST_F(InfoCollect, EchoWritesEachCapturedLineAsTheHostFormatsIt) {
  driver_.fail(SIOCGIWAP, EIO);
  model_station(driver_.interface("wlan0"));
  InfoReport report;
  std::string error;
  std::ostringstream echo;
  ASSERT_TRUE(collect_info(session_, "wlan0", &echo, report, error)) << error;
  ASSERT_EQ(report.queries[1].log.size(), 1u);
  EXPECT_EQ(report.queries[1].log[0].message, "netlib: ioctl(8B15) failed");
  EXPECT_EQ(report.queries[1].log[0].error_number, EIO);
  EXPECT_EQ(report.queries[1].log[0].level, 3);
  EXPECT_EQ(echo.str(), qira::host::format_log_record(report.queries[1].log[0]) + "\n");
}

}  // namespace
}  // namespace qira::wifi
