// Shared pieces of the event module's tests: a library context as the host
// builds it, the simulated nl80211 kernel under the module, a recording
// subscriber and exact log assertions.
#ifndef QIRA_TESTS_UNIT_NETLIB_EVENTS_EVENTS_TEST_UTIL_H
#define QIRA_TESTS_UNIT_NETLIB_EVENTS_EVENTS_TEST_UTIL_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qira/host/seams.h"
#include "qira/netlib/context.h"
#include "qira/network/event_text.h"
#include "qira/network/event_type.h"
#include "qira/network/netlib_events.h"
#include "qira/variant/variant.h"
#include "support/nl80211_sim.h"

namespace qira::test::events {

inline constexpr const char* kModule = "qira_network_utils_wireless";
inline constexpr const char* kEventsFile = "src/netlib_events/netlib_events.cpp";
inline constexpr int kLevelError = 3;

// One log line of the event module, level 3, errno 0, with exactly these fields.
inline void expect_record(const qira::host::LogRecord& record, const std::string& function,
                          const std::string& message) {
  EXPECT_EQ(record.module, kModule);
  EXPECT_EQ(record.file, kEventsFile);
  EXPECT_EQ(record.function, function);
  EXPECT_GT(record.line, 0);
  EXPECT_EQ(record.level, kLevelError);
  EXPECT_EQ(record.error_number, 0);
  EXPECT_EQ(record.reserved, 0);
  EXPECT_EQ(record.message, message);
}

// Exactly these (function, message) lines were logged, in this order.
inline void expect_records(const qira::host::LogCapture& log,
                           const std::vector<std::pair<std::string, std::string>>& expected) {
  const std::vector<qira::host::LogRecord> records = log.records();
  ASSERT_EQ(records.size(), expected.size())
      << "lines: " << ::testing::PrintToString(log.messages());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    expect_record(records[i], expected[i].first, expected[i].second);
  }
}

// What one subscriber saw in one call.
struct SeenEvent {
  qira::network::event_type type;
  qira::variant::Variant payload;  // a copy
  void* user;
};

// A subscriber that copies every event it is given.
struct Recorder {
  std::vector<SeenEvent> events;
  static void callback(qira::network::event_type type, const qira::variant::Variant& payload,
                       void* user) {
    static_cast<Recorder*>(user)->events.push_back({type, payload, user});
  }
};

// A library context with an initialised shared interface state, as the host
// builds it, and the simulated kernel under it.
class EventsTest : public ::testing::Test {
 protected:
  EventsTest() {
    iface_.initialised = 1;
    iface_.ioctl_fd = -1;
    context_.iface = &iface_;
  }
  ~EventsTest() override {
    if (context_.wireless_events != nullptr && initialised_) {
      context_.internal_call = 1;
      qira::network::netlib_libevents_wireless_close(ctx());
    }
  }

  void* ctx() { return &context_; }

  // Runs init as the host does (internal-call flag set, then cleared).
  bool init() {
    context_.internal_call = 1;
    const bool ok = qira::network::netlib_libevents_wireless_init(ctx());
    context_.internal_call = 0;
    initialised_ = ok;
    return ok;
  }
  bool close() {
    context_.internal_call = 1;
    const bool ok = qira::network::netlib_libevents_wireless_close(ctx());
    context_.internal_call = 0;
    if (ok) {
      initialised_ = false;
    }
    return ok;
  }
  // Init, one subscriber, and a first service that joins the groups.
  void start(Recorder& recorder) {
    ASSERT_TRUE(init());
    unsigned int id = 99;
    ASSERT_TRUE(qira::network::netlib_libevents_wireless_subscribe(ctx(), Recorder::callback, id,
                                                                   &recorder));
    ASSERT_TRUE(qira::network::netlib_libevents_wireless_service(ctx()));
    ASSERT_TRUE(recorder.events.empty());
  }

  SimulatedNl80211 kernel_;
  qira::netlib::iface_state iface_{};
  qira::netlib::library_context context_{};
  bool initialised_ = false;
};

}  // namespace qira::test::events

#endif  // QIRA_TESTS_UNIT_NETLIB_EVENTS_EVENTS_TEST_UTIL_H
