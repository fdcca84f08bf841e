// The simulated wireless-extension driver, driven through real ioctl() calls
// on a real datagram socket, as the module drives the kernel.
#include "support/wext_sim.h"

#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string>

namespace qira::test {
namespace {

// The record as the module fills it: zeroed, then a bounded copy of at most
// 16 name bytes (no NUL when the name has 16 characters or more).
iwreq request_for(const std::string& ifname) {
  iwreq request{};
  std::memcpy(request.ifr_name, ifname.data(), std::min<std::size_t>(ifname.size(), IFNAMSIZ));
  return request;
}

class WextSim : public testing::Test {
 protected:
  void SetUp() override {
    socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(socket_, 0);
  }
  void TearDown() override { close(socket_); }

  // ioctl() with errno captured right after it.
  int call(unsigned long request, iwreq& record) {
    errno = 0;
    const int result = ioctl(socket_, request, &record);
    error_ = errno;
    return result;
  }

  SimulatedWext driver_;
  WextInterfaceModel& wlan0_ = driver_.interface("wlan0");
  int socket_ = -1;
  int error_ = 0;
};

TEST_F(WextSim, EssidIsCopiedWithItsLengthAndFlagOne) {
  wlan0_.essid = "HomeNet";
  char buffer[36] = {};
  iwreq record = request_for("wlan0");
  record.u.essid.pointer = buffer;
  record.u.essid.length = 34;
  ASSERT_EQ(call(SIOCGIWESSID, record), 0);
  EXPECT_EQ(std::string(buffer, sizeof buffer), std::string("HomeNet") + std::string(29, '\0'));
  EXPECT_EQ(record.u.essid.length, 7);
  EXPECT_EQ(record.u.essid.flags, 1);
}

TEST_F(WextSim, EssidBytesAreCopiedRaw) {
  wlan0_.essid = std::string("a\0b", 3);
  char buffer[36];
  std::memset(buffer, 0x55, sizeof buffer);
  iwreq record = request_for("wlan0");
  record.u.essid.pointer = buffer;
  record.u.essid.length = 34;
  ASSERT_EQ(call(SIOCGIWESSID, record), 0);
  EXPECT_EQ(std::string(buffer, 4), std::string("a\0b\x55", 4));
  EXPECT_EQ(record.u.essid.length, 3);
}

TEST_F(WextSim, EmptyEssidAnswersLengthZeroAndFlagZero) {
  char buffer[36] = {};
  iwreq record = request_for("wlan0");
  record.u.essid.pointer = buffer;
  record.u.essid.length = 34;
  record.u.essid.flags = 7;
  ASSERT_EQ(call(SIOCGIWESSID, record), 0);
  EXPECT_EQ(record.u.essid.length, 0);
  EXPECT_EQ(record.u.essid.flags, 0);
}

TEST_F(WextSim, EssidLongerThanTheCallersLengthFailsWithE2bigAndChangesNothing) {
  wlan0_.essid = "HomeNet";
  char buffer[8];
  std::memset(buffer, 0x55, sizeof buffer);
  iwreq record = request_for("wlan0");
  record.u.essid.pointer = buffer;
  record.u.essid.length = 6;
  const iwreq before = record;
  EXPECT_EQ(call(SIOCGIWESSID, record), -1);
  EXPECT_EQ(error_, E2BIG);
  EXPECT_EQ(std::memcmp(&record, &before, sizeof record), 0);
  EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(8, '\x55'));
}

TEST_F(WextSim, EssidCompatibilityLengthCountsTheNul) {
  wlan0_.essid = "HomeNet";
  char buffer[36];
  std::memset(buffer, 0x55, sizeof buffer);
  iwreq record = request_for("wlan0");
  record.u.essid.pointer = buffer;
  record.u.essid.length = IW_ESSID_MAX_SIZE + 1;
  ASSERT_EQ(call(SIOCGIWESSID, record), 0);
  EXPECT_EQ(record.u.essid.length, 8);
  EXPECT_EQ(std::string(buffer, 9), std::string("HomeNet\0\x55", 9));
}

TEST_F(WextSim, ThirtyTwoByteEssidDoesNotFitTheCompatibilityLength) {
  wlan0_.essid = std::string(32, 'x');
  char buffer[36] = {};
  iwreq record = request_for("wlan0");
  record.u.essid.pointer = buffer;
  record.u.essid.length = IW_ESSID_MAX_SIZE + 1;
  EXPECT_EQ(call(SIOCGIWESSID, record), -1);
  EXPECT_EQ(error_, E2BIG);
  record.u.essid.length = 34;
  ASSERT_EQ(call(SIOCGIWESSID, record), 0);
  EXPECT_EQ(record.u.essid.length, 32);
  EXPECT_EQ(std::string(buffer, 32), std::string(32, 'x'));
}

TEST_F(WextSim, EssidOfMoreThan32BytesIsInvalid) {
  wlan0_.essid = std::string(33, 'x');
  char buffer[40] = {};
  iwreq record = request_for("wlan0");
  record.u.essid.pointer = buffer;
  record.u.essid.length = 40;
  EXPECT_EQ(call(SIOCGIWESSID, record), -1);
  EXPECT_EQ(error_, EINVAL);
}

TEST_F(WextSim, NullDataPointerFailsWithEfault) {
  wlan0_.essid = "HomeNet";
  iwreq record = request_for("wlan0");
  record.u.essid.length = 34;
  EXPECT_EQ(call(SIOCGIWESSID, record), -1);
  EXPECT_EQ(error_, EFAULT);
  record = request_for("wlan0");
  record.u.data.length = sizeof(iw_range);
  EXPECT_EQ(call(SIOCGIWRANGE, record), -1);
  EXPECT_EQ(error_, EFAULT);
}

TEST_F(WextSim, ApAddressIsTheBssidAsAnEthernetAddress) {
  wlan0_.bssid = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0xfe};
  iwreq record = request_for("wlan0");
  ASSERT_EQ(call(SIOCGIWAP, record), 0);
  EXPECT_EQ(record.u.ap_addr.sa_family, ARPHRD_ETHER);
  EXPECT_EQ(std::memcmp(record.u.ap_addr.sa_data, "\x00\x1a\x2b\x3c\x4d\xfe", 6), 0);
}

TEST_F(WextSim, FrequencyIsCopied) {
  wlan0_.freq.m = 241200000;
  wlan0_.freq.e = 1;
  wlan0_.freq.i = 3;
  wlan0_.freq.flags = IW_FREQ_FIXED;
  iwreq record = request_for("wlan0");
  ASSERT_EQ(call(SIOCGIWFREQ, record), 0);
  EXPECT_EQ(record.u.freq.m, 241200000);
  EXPECT_EQ(record.u.freq.e, 1);
  EXPECT_EQ(record.u.freq.i, 3);
  EXPECT_EQ(record.u.freq.flags, IW_FREQ_FIXED);
}

iw_freq channel(int index, int mhz) {
  iw_freq entry{};
  entry.m = mhz;
  entry.e = 6;
  entry.i = static_cast<std::uint8_t>(index);
  return entry;
}

TEST_F(WextSim, RangeHoldsTheFrequenciesAndMaximumQuality) {
  wlan0_.range_frequencies = {channel(1, 2412), channel(6, 2437), channel(36, 5180)};
  wlan0_.max_quality = 70;
  iw_range range;
  std::memset(&range, 0x55, sizeof range);
  iwreq record = request_for("wlan0");
  record.u.data.pointer = &range;
  record.u.data.length = 568;
  ASSERT_EQ(call(SIOCGIWRANGE, record), 0);
  EXPECT_EQ(record.u.data.length, sizeof(iw_range));
  EXPECT_EQ(range.num_frequency, 3);
  EXPECT_EQ(range.num_channels, 3);
  EXPECT_EQ(range.freq[1].m, 2437);
  EXPECT_EQ(range.freq[1].e, 6);
  EXPECT_EQ(range.freq[1].i, 6);
  EXPECT_EQ(range.freq[2].i, 36);
  EXPECT_EQ(range.freq[3].m, 0);
  EXPECT_EQ(range.max_qual.qual, 70);
  EXPECT_EQ(range.we_version_compiled, WIRELESS_EXT);
}

TEST_F(WextSim, RangeLengthBelowTheRecordFailsWithE2big) {
  iw_range range{};
  iwreq record = request_for("wlan0");
  record.u.data.pointer = &range;
  record.u.data.length = sizeof(iw_range) - 1;
  EXPECT_EQ(call(SIOCGIWRANGE, record), -1);
  EXPECT_EQ(error_, E2BIG);
  EXPECT_EQ(record.u.data.length, sizeof(iw_range) - 1);
}

TEST_F(WextSim, RangeKeepsAtMost32Frequencies) {
  for (int index = 1; index <= 40; ++index) {
    wlan0_.range_frequencies.push_back(channel(index, 5000 + 5 * index));
  }
  iw_range range{};
  iwreq record = request_for("wlan0");
  record.u.data.pointer = &range;
  record.u.data.length = sizeof(iw_range);
  ASSERT_EQ(call(SIOCGIWRANGE, record), 0);
  EXPECT_EQ(range.num_frequency, IW_MAX_FREQUENCIES);
  EXPECT_EQ(range.freq[IW_MAX_FREQUENCIES - 1].i, IW_MAX_FREQUENCIES);
}

TEST_F(WextSim, RateIsTheBitrateInBitsPerSecond) {
  wlan0_.bitrate = 54000000;
  iwreq record = request_for("wlan0");
  ASSERT_EQ(call(SIOCGIWRATE, record), 0);
  EXPECT_EQ(record.u.bitrate.value, 54000000);
}

TEST_F(WextSim, TransmitPowerIsAFixedDbmValue) {
  wlan0_.txpower = 20;
  iwreq record = request_for("wlan0");
  ASSERT_EQ(call(SIOCGIWTXPOW, record), 0);
  EXPECT_EQ(record.u.txpower.value, 20);
  EXPECT_EQ(record.u.txpower.flags, IW_TXPOW_DBM);
  EXPECT_EQ(record.u.txpower.fixed, 1);
  EXPECT_EQ(record.u.txpower.disabled, 0);
}

TEST_F(WextSim, ModeIsCopied) {
  wlan0_.mode = IW_MODE_MASTER;
  iwreq record = request_for("wlan0");
  ASSERT_EQ(call(SIOCGIWMODE, record), 0);
  EXPECT_EQ(record.u.mode, static_cast<__u32>(IW_MODE_MASTER));
}

class WextSimStatistics : public WextSim {
 protected:
  void SetUp() override {
    WextSim::SetUp();
    wlan0_.quality.qual = 50;
    wlan0_.quality.level = 0xC4;
    wlan0_.quality.noise = 0xA0;
    wlan0_.quality.updated = IW_QUAL_ALL_UPDATED | IW_QUAL_DBM;
  }
  iw_statistics read(std::uint16_t flags) {
    iw_statistics statistics;
    std::memset(&statistics, 0x55, sizeof statistics);
    iwreq record = request_for("wlan0");
    record.u.data.pointer = &statistics;
    record.u.data.length = 32;
    record.u.data.flags = flags;
    EXPECT_EQ(call(SIOCGIWSTATS, record), 0);
    EXPECT_EQ(record.u.data.length, sizeof(iw_statistics));
    return statistics;
  }
};

TEST_F(WextSimStatistics, QualityIsCopied) {
  const iw_statistics statistics = read(1);
  EXPECT_EQ(statistics.status, 0);
  EXPECT_EQ(statistics.qual.qual, 50);
  EXPECT_EQ(statistics.qual.level, 0xC4);
  EXPECT_EQ(statistics.qual.noise, 0xA0);
  EXPECT_EQ(statistics.qual.updated, IW_QUAL_ALL_UPDATED | IW_QUAL_DBM);
  EXPECT_EQ(statistics.discard.nwid, 0u);
  EXPECT_EQ(statistics.miss.beacon, 0u);
}

TEST_F(WextSimStatistics, ReadWithFlagsClearsTheUpdatedBitsForTheNextRead) {
  EXPECT_EQ(read(1).qual.updated, IW_QUAL_ALL_UPDATED | IW_QUAL_DBM);
  EXPECT_EQ(read(1).qual.updated, IW_QUAL_DBM);
}

TEST_F(WextSimStatistics, ReadWithoutFlagsKeepsTheUpdatedBits) {
  EXPECT_EQ(read(0).qual.updated, IW_QUAL_ALL_UPDATED | IW_QUAL_DBM);
  EXPECT_EQ(read(0).qual.updated, IW_QUAL_ALL_UPDATED | IW_QUAL_DBM);
}

TEST_F(WextSim, EveryRequestIsRecordedWithItsEntryFields) {
  char buffer[36] = {};
  iwreq essid = request_for("wlan0");
  essid.u.essid.pointer = buffer;
  essid.u.essid.length = 34;
  iwreq mode = request_for("eth7");
  ASSERT_EQ(call(SIOCGIWESSID, essid), 0);
  ASSERT_EQ(call(SIOCGIWMODE, mode), -1);
  const std::vector<WextRequest>& seen = driver_.requests();
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].fd, socket_);
  EXPECT_EQ(seen[0].request, static_cast<unsigned long>(SIOCGIWESSID));
  EXPECT_EQ(std::string(seen[0].name.data(), IFNAMSIZ),
            std::string("wlan0") + std::string(11, '\0'));
  EXPECT_EQ(seen[0].length, 34);
  EXPECT_EQ(seen[0].flags, 0);
  EXPECT_EQ(seen[1].request, static_cast<unsigned long>(SIOCGIWMODE));
  EXPECT_EQ(std::string(seen[1].name.data(), IFNAMSIZ),
            std::string("eth7") + std::string(12, '\0'));
  driver_.clear_requests();
  EXPECT_TRUE(driver_.requests().empty());
}

TEST_F(WextSim, TwentyCharacterNameArrivesAsItsFirst16Bytes) {
  // The kernel looks a name up by at most 15 bytes: it ends its copy there.
  driver_.interface("wlan0_abcdefghi").mode = IW_MODE_INFRA;
  iwreq record = request_for("wlan0_abcdefghijklmn");
  ASSERT_EQ(call(SIOCGIWMODE, record), 0);
  EXPECT_EQ(record.u.mode, static_cast<__u32>(IW_MODE_INFRA));
  ASSERT_EQ(driver_.requests().size(), 1u);
  EXPECT_EQ(std::string(driver_.requests()[0].name.data(), IFNAMSIZ), "wlan0_abcdefghij");
  // ...and copies the whole record back, its ended name included.
  EXPECT_EQ(std::string(record.ifr_name, IFNAMSIZ), std::string("wlan0_abcdefghi") + '\0');
}

TEST_F(WextSim, UnknownInterfaceFailsWithEnodev) {
  iwreq record = request_for("eth9");
  record.u.mode = 77;
  EXPECT_EQ(call(SIOCGIWMODE, record), -1);
  EXPECT_EQ(error_, ENODEV);
  EXPECT_EQ(record.u.mode, 77u);
  ASSERT_EQ(driver_.requests().size(), 1u);
}

TEST_F(WextSim, ProgrammedFailureAnswersItsErrnoForThatRequestOnly) {
  wlan0_.bitrate = 6000000;
  driver_.fail(SIOCGIWRATE, EBUSY);
  iwreq record = request_for("wlan0");
  EXPECT_EQ(call(SIOCGIWRATE, record), -1);
  EXPECT_EQ(error_, EBUSY);
  EXPECT_EQ(record.u.bitrate.value, 0);
  EXPECT_EQ(call(SIOCGIWMODE, record), 0);
  driver_.fail(SIOCGIWRATE, 0);
  EXPECT_EQ(call(SIOCGIWRATE, record), 0);
  EXPECT_EQ(record.u.bitrate.value, 6000000);
  EXPECT_EQ(driver_.requests().size(), 3u);
}

TEST_F(WextSim, ProgrammedFailureComesBeforeTheInterfaceLookup) {
  driver_.fail(SIOCGIWAP, ENETDOWN);
  iwreq record = request_for("eth9");
  EXPECT_EQ(call(SIOCGIWAP, record), -1);
  EXPECT_EQ(error_, ENETDOWN);
}

TEST_F(WextSim, RequestsTheDriverDoesNotServeFailWithEopnotsupp) {
  iwreq record = request_for("wlan0");
  EXPECT_EQ(call(SIOCGIWSENS, record), -1);
  EXPECT_EQ(error_, EOPNOTSUPP);
  EXPECT_EQ(call(SIOCSIWMODE, record), -1);
  EXPECT_EQ(error_, EOPNOTSUPP);
  EXPECT_EQ(driver_.requests().size(), 2u);
}

SimulatedWext* current_driver = nullptr;

TEST_F(WextSim, ModelNameThatNoKernelInterfaceCanHaveIsATestError) {
  current_driver = &driver_;
  EXPECT_NONFATAL_FAILURE(current_driver->interface("wlan0_abcdefghij"),
                          "no kernel interface can be named \"wlan0_abcdefghij\"");
  EXPECT_NONFATAL_FAILURE(current_driver->interface(""), "no kernel interface can be named \"\"");
}

TEST_F(WextSim, SecondActiveDriverIsATestError) {
  EXPECT_NONFATAL_FAILURE({ SimulatedWext second; }, "a SimulatedWext is already active");
  EXPECT_EQ(SimulatedWext::active(), &driver_);
}

TEST(WextSimLifetime, DriverIsActiveWhileItLives) {
  EXPECT_EQ(SimulatedWext::active(), nullptr);
  {
    SimulatedWext driver;
    EXPECT_EQ(SimulatedWext::active(), &driver);
  }
  EXPECT_EQ(SimulatedWext::active(), nullptr);
}

}  // namespace
}  // namespace qira::test
