// The NetlibRecorder seam (wired netlib calls recorded and answered instead
// of acting) and the ProcessRecorder's per-call responder.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "qira/host/seams.h"
#include "qira/network/netlib_host.h"
#include "qira/utils/process.h"

namespace {

using qira::host::LogCapture;
using qira::host::NetlibCall;
using qira::host::NetlibRecorder;
using qira::host::ProcessCall;
using qira::host::ProcessRecorder;
using namespace qira::network;

// An interface name no namespace has: the real functions fail on it.
constexpr const char* kMissing = "qira-none0";

TEST(NetlibRecorder, RecordsEveryFunctionWithItsArgumentsAndAnswersTrue) {
  LogCapture log;
  NetlibRecorder recorder;
  int context_marker = 0;
  void* ctx = &context_marker;
  EXPECT_TRUE(netlib_iface_set_up(ctx, kMissing, false));
  EXPECT_TRUE(netlib_netm_flush_iface(ctx, kMissing));
  EXPECT_TRUE(netlib_netm_configure_dhcp(ctx, kMissing));
  EXPECT_TRUE(netlib_netm_configure_interface(ctx, kMissing));
  EXPECT_TRUE(netlib_netm_configure_ip_addr(ctx, kMissing, "10.0.0.5", "255.0.0.0", ""));
  EXPECT_TRUE(netlib_netm_configure_static(ctx, kMissing, "10.0.0.5", "255.0.0.0", "10.0.0.1",
                                           {"10.0.0.2", "10.0.0.3"}, "lan", "cam", true));
  EXPECT_TRUE(netlib_netm_configure_static_fallback(ctx, kMissing, "x", "y", "z"));

  const std::vector<NetlibCall> calls = recorder.calls();
  ASSERT_EQ(calls.size(), 7u);
  const std::vector<std::pair<std::string, std::vector<std::string>>> expected = {
      {"netlib_iface_set_up", {kMissing, "false"}},
      {"netlib_netm_flush_iface", {kMissing}},
      {"netlib_netm_configure_dhcp", {kMissing}},
      {"netlib_netm_configure_interface", {kMissing}},
      {"netlib_netm_configure_ip_addr", {kMissing, "10.0.0.5", "255.0.0.0", ""}},
      {"netlib_netm_configure_static",
       {kMissing, "10.0.0.5", "255.0.0.0", "10.0.0.1", "lan", "cam", "true"}},
      {"netlib_netm_configure_static_fallback", {kMissing, "x", "y", "z"}},
  };
  for (std::size_t index = 0; index < calls.size(); ++index) {
    SCOPED_TRACE(expected[index].first);
    EXPECT_EQ(calls[index].function, expected[index].first);
    EXPECT_EQ(calls[index].ctx, ctx);
    EXPECT_EQ(calls[index].args, expected[index].second);
  }
  EXPECT_EQ(calls[5].name_servers, (std::vector<std::string>{"10.0.0.2", "10.0.0.3"}));
  EXPECT_TRUE(calls[0].name_servers.empty());
  // Nothing acted: the real functions would have logged their failure.
  EXPECT_TRUE(log.records().empty());
}

TEST(NetlibRecorder, ChosenResultsPerFunctionLatestWins) {
  NetlibRecorder recorder;
  recorder.set_result("netlib_iface_set_up", false);
  EXPECT_FALSE(netlib_iface_set_up(nullptr, "wlan0", true));
  EXPECT_TRUE(netlib_netm_configure_interface(nullptr, "wlan0"));
  recorder.set_result("netlib_iface_set_up", true);
  EXPECT_TRUE(netlib_iface_set_up(nullptr, "wlan0", true));
  EXPECT_EQ(recorder.calls().size(), 3u);
  recorder.clear();
  EXPECT_TRUE(recorder.calls().empty());
}

TEST(NetlibRecorder, NewestRecorderActsAndTheRealFunctionsReturnAfterTheLast) {
  LogCapture log;
  {
    NetlibRecorder outer;
    {
      NetlibRecorder inner;
      inner.set_result("netlib_netm_flush_iface", false);
      EXPECT_FALSE(netlib_netm_flush_iface(nullptr, kMissing));
      EXPECT_EQ(inner.calls().size(), 1u);
    }
    EXPECT_TRUE(netlib_netm_flush_iface(nullptr, kMissing));
    EXPECT_EQ(outer.calls().size(), 1u);
  }
  EXPECT_TRUE(log.records().empty());
  // The real function acts again: the interface does not exist.
  EXPECT_FALSE(netlib_netm_flush_iface(nullptr, kMissing));
  const std::vector<qira::host::LogRecord> records = log.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].module, "qira_host");
  EXPECT_EQ(records[0].message, std::string("Unknown interface ") + kMissing);
}

TEST(ProcessRecorderResponder, ChoosesResultsByArgumentsAndFallsBack) {
  ProcessRecorder recorder;
  recorder.set_result("/bin/iw", 5);
  recorder.set_responder([](const ProcessCall& call) -> std::optional<int> {
    if (call.kind == ProcessCall::kExec &&
        call.args == std::vector<std::string>{"dev", "x", "del"}) {
      return 9;
    }
    return std::nullopt;
  });
  EXPECT_EQ(qira::utils::sysExecSimple("/bin/iw", {"dev", "x", "del"}), 9);
  EXPECT_EQ(qira::utils::sysExecSimple("/bin/iw", {"dev", "y", "del"}), 5);
  EXPECT_EQ(qira::utils::sysExecSimple("/bin/true", {}), 0);
  EXPECT_EQ(recorder.calls().size(), 3u);
}

TEST(ProcessRecorderResponder, AnswersDaemonsAndSignalsToo) {
  ProcessRecorder recorder;
  recorder.set_responder([](const ProcessCall& call) -> std::optional<int> {
    if (call.kind == ProcessCall::kDaemon) {
      return 0;
    }
    if (call.kind == ProcessCall::kSignal && call.signal == 12) {
      return 3;
    }
    return std::nullopt;
  });
  int pid = -1;
  EXPECT_EQ(qira::utils::runDaemon(nullptr, nullptr, &pid, "/bin/hostapd", 1, "-B"), 0);
  EXPECT_EQ(pid, 0);
  EXPECT_EQ(qira::utils::kill_process_by_name("udhcpc", 12), 3);
  EXPECT_EQ(qira::utils::kill_process_by_name("udhcpc", 15), 0);
  recorder.set_responder(nullptr);
  EXPECT_EQ(qira::utils::runDaemon(nullptr, nullptr, nullptr, "/bin/hostapd", 0), 1);
}

}  // namespace
