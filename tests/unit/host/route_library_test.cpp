// libnl's route library is opened at run time, on the first flush of an
// interface's addresses: the host library does not name it as a needed
// library, so no program of the host maps and relocates it at its start.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "qira/inspect/elf_dynamic.h"
#include "route_netlink.h"

namespace {

using qira::host::internal::route_library_opens;

TEST(RouteLibrary, OpensByItsNameWithEveryFunctionTheFlushCalls) {
  EXPECT_TRUE(route_library_opens("libnl-route-3.so.200"));
}

TEST(RouteLibrary, ALibraryThatIsNotThereDoesNotOpen) {
  EXPECT_FALSE(route_library_opens("libnl-route-3.so.1-not-there"));
}

TEST(RouteLibrary, ALibraryWithoutTheRouteFunctionsDoesNotOpen) {
  // libnl's generic netlink library opens, but has no rtnl_addr_ function.
  EXPECT_FALSE(route_library_opens("libnl-genl-3.so.200"));
}

TEST(HostLinkage, NamesLibnlForTheModuleButNotTheRouteLibrary) {
  qira::inspect::DynamicInfo info;
  std::string error;
  ASSERT_TRUE(qira::inspect::read_elf_dynamic(QIRA_HOST_FILE, info, error)) << error;
  const auto names = [&info](const char* library) {
    return std::find(info.needed.begin(), info.needed.end(), library) != info.needed.end();
  };
  EXPECT_TRUE(names("libnl-3.so.200")) << ::testing::PrintToString(info.needed);
  EXPECT_TRUE(names("libnl-genl-3.so.200")) << ::testing::PrintToString(info.needed);
  EXPECT_FALSE(names("libnl-route-3.so.200")) << ::testing::PrintToString(info.needed);
}

}  // namespace
