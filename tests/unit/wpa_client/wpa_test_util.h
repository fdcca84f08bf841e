// Shared pieces of the wpa_supplicant client's tests: exact log assertions,
// the client's bytes as the host sees them, the files and descriptors the
// client may leave behind, and a recorder of delivered events.
#ifndef QIRA_TESTS_UNIT_WPA_CLIENT_WPA_TEST_UTIL_H
#define QIRA_TESTS_UNIT_WPA_CLIENT_WPA_TEST_UTIL_H

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/un.h>

#include <cstddef>
#include <cstring>
#include <list>
#include <ostream>
#include <string>
#include <vector>

#include "qira/host/seams.h"
#include "qira/network/wpa_client.h"
#include "qira/variant/variant.h"

namespace qira::variant {
// Failure messages show payloads as JSON.
inline void PrintTo(const Variant& value, std::ostream* out) {
  *out << value.ToJSON();
}
}  // namespace qira::variant

namespace qira::test::wpa {

inline constexpr const char* kModule = "qira_network_utils_wireless";
inline constexpr const char* kClientFile = "src/wpa_client/wpa_client.cpp";
inline constexpr const char* kEventsFile = "src/wpa_client/wpa_events.cpp";

struct ExpectedRecord {
  std::string file;
  std::string function;
  int level;
  int error_number;
  std::string message;
};

// The captured lines are exactly these, in this order.
inline void expect_records(const qira::host::LogCapture& log,
                           const std::vector<ExpectedRecord>& expected) {
  const std::vector<qira::host::LogRecord> records = log.records();
  ASSERT_EQ(records.size(), expected.size())
      << "lines: " << ::testing::PrintToString(log.messages());
  for (std::size_t i = 0; i < records.size(); ++i) {
    SCOPED_TRACE("line " + std::to_string(i));
    EXPECT_EQ(records[i].module, kModule);
    EXPECT_EQ(records[i].file, expected[i].file);
    EXPECT_EQ(records[i].function, expected[i].function);
    EXPECT_GT(records[i].line, 0);
    EXPECT_EQ(records[i].level, expected[i].level);
    EXPECT_EQ(records[i].error_number, expected[i].error_number);
    EXPECT_EQ(records[i].reserved, 0);
    EXPECT_EQ(records[i].message, expected[i].message);
  }
}

// The client's data members as the host lays them out: two flags, the
// descriptor at offset 4, the bound address at offset 8.
struct ClientBytes {
  bool initialised;
  bool subscribed;
  int socket_fd;
  sockaddr_un local_address;
};

inline ClientBytes client_bytes(const qira::network::WpaClient& client) {
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&client);
  ClientBytes view{};
  view.initialised = bytes[0] != 0;
  view.subscribed = bytes[1] != 0;
  std::memcpy(&view.socket_fd, bytes + 4, sizeof(int));
  std::memcpy(&view.local_address, bytes + 8, sizeof(sockaddr_un));
  return view;
}

inline int client_fd(const qira::network::WpaClient& client) {
  return client_bytes(client).socket_fd;
}

// Names in /tmp that a client socket path would have ("wpacl-...").
inline std::vector<std::string> client_socket_files() {
  std::vector<std::string> names;
  DIR* folder = ::opendir("/tmp");
  if (folder == nullptr) {
    ADD_FAILURE() << "cannot list /tmp";
    return names;
  }
  while (const dirent* entry = ::readdir(folder)) {
    if (std::strncmp(entry->d_name, "wpacl-", 6) == 0) {
      names.emplace_back(entry->d_name);
    }
  }
  ::closedir(folder);
  return names;
}

// Open descriptors of this process (the listing's own one excluded).
inline std::size_t open_descriptor_count() {
  std::size_t count = 0;
  DIR* folder = ::opendir("/proc/self/fd");
  if (folder == nullptr) {
    ADD_FAILURE() << "cannot list /proc/self/fd";
    return 0;
  }
  while (const dirent* entry = ::readdir(folder)) {
    if (entry->d_name[0] != '.') {
      ++count;
    }
  }
  ::closedir(folder);
  return count - 1;
}

// Every delivery to a subscriber, in order.
struct Delivery {
  std::string subscriber;
  qira::network::event_type type;
  qira::variant::Variant payload;
  const void* payload_address;
};

class EventRecorder {
 public:
  // A subscriber's user data: the recorder and the name it records under.
  struct Subscriber {
    EventRecorder* recorder;
    std::string name;
  };

  static void callback(qira::network::event_type type, const qira::variant::Variant& payload,
                       void* user) {
    Subscriber* subscriber = static_cast<Subscriber*>(user);
    subscriber->recorder->deliveries.push_back({subscriber->name, type, payload, &payload});
  }

  Subscriber* subscriber(const std::string& name) {
    subscribers_.push_back(Subscriber{this, name});
    return &subscribers_.back();
  }

  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const Delivery& delivery : deliveries) {
      result.push_back(delivery.subscriber);
    }
    return result;
  }

  std::vector<Delivery> deliveries;

 private:
  std::list<Subscriber> subscribers_;
};

inline qira::variant::Variant string_map(
    const std::vector<std::pair<std::string, std::string>>& members) {
  qira::variant::Variant map;
  map.IsArray(false);
  for (const auto& [key, value] : members) {
    map[key] = value;
  }
  return map;
}

}  // namespace qira::test::wpa

#endif  // QIRA_TESTS_UNIT_WPA_CLIENT_WPA_TEST_UTIL_H
