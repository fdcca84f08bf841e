// A long run of the control client: 10,000 control requests (PING, an
// unknown command, ATTACH and DETACH in turn) against the simulated
// wpa_supplicant, each answered with its exact reply, and the heap and the
// descriptors as they were after the warm-up.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "qira/network/wpa_client.h"
#include "support/endurance_check.h"
#include "support/wpa_supplicant_sim.h"
#include "unit/wpa_client/wpa_test_util.h"

namespace qira::test::wpa {
namespace {

using qira::network::WpaClient;

constexpr int kWarmUp = 100;
constexpr int kRequests = 10000;

// The requests of one round, in the order the daemon must receive them.
const std::vector<std::string> kRound = {"PING", "STATUS", "ATTACH", "DETACH"};

TEST(WpaClientEndurance, TenThousandRequestsKeepHeapAndDescriptorsFlat) {
  WpaSupplicantSim daemon("qs0");
  WpaClient client;
  ASSERT_TRUE(client.Init("qs0"));

  int sent = 0;
  int failed = 0;
  int wrong_replies = 0;
  int wrong_records = 0;
  std::string first_failure;
  std::string reply;
  auto note = [&first_failure, &sent](const std::string& what) {
    if (first_failure.empty()) {
      first_failure = "request " + std::to_string(sent) + ": " + what;
    }
  };
  // One round: four requests, checked, then the daemon's record of them.
  auto round = [&] {
    reply.clear();
    if (!client.Request("PING", reply, 1000)) {
      ++failed;
      note("PING failed");
    } else if (reply != "PONG\n") {
      ++wrong_replies;
      note("PING gave " + reply);
    }
    ++sent;
    reply.clear();
    if (!client.Request("STATUS", reply, 1000)) {
      ++failed;
      note("STATUS failed");
    } else if (reply != "UNKNOWN COMMAND\n") {
      ++wrong_replies;
      note("STATUS gave " + reply);
    }
    ++sent;
    if (!client.Subscribe()) {
      ++failed;
      note("ATTACH failed");
    } else if (daemon.monitor_count() != 1) {
      ++wrong_replies;
      note("ATTACH left " + std::to_string(daemon.monitor_count()) + " monitors");
    }
    ++sent;
    if (!client.Unsubscribe()) {
      ++failed;
      note("DETACH failed");
    } else if (daemon.monitor_count() != 0) {
      ++wrong_replies;
      note("DETACH left " + std::to_string(daemon.monitor_count()) + " monitors");
    }
    ++sent;
    if (daemon.requests() != kRound) {
      ++wrong_records;
      note("the daemon received " + ::testing::PrintToString(daemon.requests()));
    }
    daemon.forget_requests();
  };

  for (int i = 0; i < kWarmUp / 4; ++i) {
    round();
  }
  const ResourceCounts warm = resource_counts();
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kRequests / 4; ++i) {
    round();
  }
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const ResourceCounts end = resource_counts();

  EXPECT_EQ(sent, kWarmUp + kRequests);
  EXPECT_EQ(failed, 0) << first_failure;
  EXPECT_EQ(wrong_replies, 0) << first_failure;
  EXPECT_EQ(wrong_records, 0) << first_failure;
  expect_flat_resources("10000 control requests", warm, end, seconds);
  EXPECT_TRUE(client.IsInitialized());
}

}  // namespace
}  // namespace qira::test::wpa
