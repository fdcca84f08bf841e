// A camera host program built against the installed packages only: it loads
// the wireless module with the reference host's loader, the way the camera's
// host does, and calls one of the module's functions.
//
// Usage: consumer EXPECTED_MODULE_FILE
// Exits 0 when the module the loader opened by its SONAME is
// EXPECTED_MODULE_FILE and the call answers as the module does; otherwise
// prints what differed and exits 1.
#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

#include <cstdio>
#include <string>
#include <vector>

#include "qira/host/loader.h"
#include "qira/host/seams.h"
#include "qira/network/wireless.h"

namespace {

// netlib_libiface_wireless_init, by its mangled name as the loader finds it.
constexpr const char* kIfaceInitSymbol = "_ZN4qira7network29netlib_libiface_wireless_initEPv";

int failures = 0;

void expect(bool condition, const std::string& what) {
  if (!condition) {
    std::fprintf(stderr, "consumer: FAILED: %s\n", what.c_str());
    ++failures;
  }
}

std::string real_path(const char* path) {
  char resolved[PATH_MAX];
  return ::realpath(path, resolved) != nullptr ? std::string(resolved) : std::string(path);
}

template <typename T>
std::string text(const T& value) {
  return std::to_string(value);
}

std::string text(const std::string& value) {
  return "\"" + value + "\"";
}

template <typename T>
void expect_equal(const T& actual, const T& expected, const std::string& what) {
  expect(actual == expected, what + ": " + text(actual) + ", expected " + text(expected));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: consumer EXPECTED_MODULE_FILE\n");
    return 2;
  }
  const std::string expected_module = real_path(argv[1]);

  qira::host::WirelessModule module;
  std::string error;
  if (!module.open("", &error)) {
    std::fprintf(stderr, "consumer: FAILED: the loader cannot open the module: %s\n",
                 error.c_str());
    return 1;
  }
  // The file the loader opened by the module's SONAME.
  Dl_info info{};
  void* init = module.symbol(kIfaceInitSymbol);
  expect(init != nullptr, std::string("the module exports ") + kIfaceInitSymbol);
  if (init != nullptr && ::dladdr(init, &info) != 0 && info.dli_fname != nullptr) {
    expect_equal(real_path(info.dli_fname), expected_module, "module file");
  } else {
    expect(false, "dladdr finds the module's file");
  }

  // One call through the module's header: a null context is refused with
  // one error line through the host's logger, and the output stays as it was.
  qira::host::LogCapture log;
  std::string essid = "unchanged";
  const bool answered = qira::network::netlib_iface_iw_get_essid(nullptr, "wlan0", essid);
  expect(!answered, "netlib_iface_iw_get_essid(nullptr) answers false");
  expect_equal(essid, std::string("unchanged"), "essid");
  const std::vector<qira::host::LogRecord> records = log.records();
  expect_equal(records.size(), std::size_t{1}, "log records");
  if (records.size() == 1) {
    const qira::host::LogRecord& record = records[0];
    expect_equal(record.module, std::string("qira_network_utils_wireless"), "record module");
    // The unit suite pins the exact file name; how much of the build path
    // the compiler keeps before it depends on how the tree was compiled.
    const std::string file = "src/netlib_iface/netlib_iface.cpp";
    expect(record.file.size() >= file.size() &&
               record.file.compare(record.file.size() - file.size(), file.size(), file) == 0,
           "record file: " + text(record.file) + ", expected one ending in " + text(file));
    expect_equal(record.function, std::string("check"), "record function");
    expect_equal(record.level, 3, "record level");
    expect_equal(record.error_number, 0, "record errno");
    expect_equal(record.message, std::string("library context is null"), "record message");
  }

  module.close();
  expect(!module.is_open(), "the module closes");
  if (failures != 0) {
    return 1;
  }
  std::printf("consumer: loaded %s and called netlib_iface_iw_get_essid\n",
              expected_module.c_str());
  return 0;
}
