// A failed growth of the slot array: the result is skipped, the old array
// stays in place and the capacity keeps its new value. The allocator's
// realloc is taken over in this test binary, passing every call through
// except the ones a test arms to fail.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netlink/handlers.h>

#include <atomic>
#include <cstddef>
#include <cstdio>

#include "qira/network/ap_selection.h"
#include "support/bss_message.h"

namespace {

std::atomic<int> failing_reallocs{0};

}  // namespace

// In a build with AddressSanitizer the sanitizer's allocator owns every
// block, so its realloc is the one to pass through to. clang links that
// runtime into the executable, where this definition hides it and
// RTLD_NEXT would find glibc's (which aborts on the sanitizer's blocks);
// the runtime also defines it under this name, in both compilers.
extern "C" void* __interceptor_realloc(void* pointer, std::size_t size) __attribute__((weak));

extern "C" void* realloc(void* pointer, std::size_t size) {
  using Function = void* (*)(void*, std::size_t);
  static const Function next = __interceptor_realloc != nullptr
                                   ? __interceptor_realloc
                                   : reinterpret_cast<Function>(dlsym(RTLD_NEXT, "realloc"));
  if (size > 0 && failing_reallocs.load() > 0) {
    failing_reallocs.fetch_sub(1);
    return nullptr;
  }
  return next(pointer, size);
}

namespace qira::test {
namespace {

BssAttributes numbered_bss(unsigned index) {
  BssAttributes bss;
  bss.bssid = {{0x02, 0, 0, 0, 0, static_cast<std::uint8_t>(index)}};
  char name[16];
  std::snprintf(name, sizeof name, "grow-%u", index);
  bss.frequency = 2412;
  bss.capability = 0x0001;
  bss.signal_mbm = -6000;
  bss.ies = ssid_element(name);
  return bss;
}

TEST(ScanListGrowth, FailedReallocationSkipsAndKeepsTheNewCapacity) {
  scan_list* list = nullptr;
  for (unsigned index = 0; index < 8; ++index) {
    MessagePtr msg = make_scan_result_message(numbered_bss(index));
    ASSERT_EQ(get_scanlist_cb(msg.get(), &list), NL_SKIP);
  }
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(list->count, 8);
  ASSERT_EQ(list->capacity, 8);
  ap_node** const slots = list->items;

  MessagePtr ninth = make_scan_result_message(numbered_bss(8));
  failing_reallocs = 1;
  const int result = get_scanlist_cb(ninth.get(), &list);
  const int unused_failures = failing_reallocs.exchange(0);
  EXPECT_EQ(unused_failures, 0);  // the growth did ask for memory
  EXPECT_EQ(result, NL_SKIP);
  EXPECT_EQ(list->count, 8);
  EXPECT_EQ(list->capacity, 16);  // stored before the reallocation, not restored
  EXPECT_EQ(list->items, slots);  // the old array stays in place
  for (unsigned slot = 0; slot < 8; ++slot) {
    char name[16];
    std::snprintf(name, sizeof name, "grow-%u", slot);
    EXPECT_STREQ(list->items[slot]->ssid, name);
  }
  free_scanlist(&list);
  EXPECT_EQ(list, nullptr);
}

}  // namespace
}  // namespace qira::test
