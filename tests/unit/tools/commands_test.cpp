// The command table, the usage text and the exit statuses of usage errors.
#include "commands.h"
#include "unit/tools/program_run.h"

#include <gtest/gtest.h>

#include <sstream>

namespace qira::wifi {
namespace {

TEST(Commands, TableHasInfo) {
  const Command* info = find_command("info");
  ASSERT_NE(info, nullptr);
  EXPECT_STREQ(info->name, "info");
  EXPECT_STREQ(info->arguments, "IFNAME");
  EXPECT_EQ(info->min_args, 1u);
  EXPECT_EQ(info->max_args, 1u);
  EXPECT_EQ(info->run, &run_info);
}

TEST(Commands, TableHasWriteSta) {
  const Command* write_sta = find_command("write-sta");
  ASSERT_NE(write_sta, nullptr);
  EXPECT_STREQ(write_sta->arguments, "IFNAME SSID KEY [AUTH PSK]");
  EXPECT_EQ(write_sta->min_args, 3u);
  EXPECT_EQ(write_sta->max_args, 5u);
  EXPECT_EQ(write_sta->run, &run_write_sta);
}

TEST(Commands, UnknownNameIsNotFound) {
  EXPECT_EQ(find_command("inf"), nullptr);
  EXPECT_EQ(find_command(""), nullptr);
}

TEST(Commands, UsageText) {
  EXPECT_EQ(usage_text(),
            "usage: qira-wifi [--json] [--verbose] [--module PATH] COMMAND [ARGS...]\n"
            "\n"
            "options:\n"
            "  --json         print one JSON object instead of text\n"
            "  --verbose      also print every module log line on stderr\n"
            "  --module PATH  load the module from PATH (default: $QIRA_WIRELESS_MODULE, else "
            "libqira_network_utils_wireless.so.1)\n"
            "  --timeout MS   wpa: wait this long for the reply (default 10000); wpa-events, "
            "events: stop after this long; scan: wait this long for the scan's end (default "
            "10000)\n"
            "  --count N      events: stop after N events\n"
            "  --ap           apply, connect, disconnect, recover, scan: the setup access "
            "point\n"
            "  --vendor       connect, disconnect: the vendor tools\n"
            "  --again        scan: ask for the results a second time and show that answer too\n"
            "  --address A    hook: the access point's address (default 192.168.1.1)\n"
            "  --netmask M    hook: its netmask (default 255.255.255.0)\n"
            "  --help         print this help\n"
            "\n"
            "commands:\n"
            "  info IFNAME                           load the module and print every wireless "
            "query of IFNAME\n"
            "  events [--count N] [--timeout MS]     print nl80211 events (type, name, payload) "
            "until interrupted, N events or MS\n"
            "  scan IFNAME [--timeout MS]            scan IFNAME and print the ranked access "
            "points (--ap: recover as the access point)\n"
            "  write-sta IFNAME SSID KEY [AUTH PSK]  write /etc/wlan0.conf for one network "
            "(root; for the camera or its VM)\n"
            "  wpa IFNAME COMMAND...                 send one command to the wpa_supplicant of "
            "IFNAME and print its reply\n"
            "  wpa-events IFNAME [--timeout MS]      print the events of the wpa_supplicant of "
            "IFNAME until interrupted or --timeout\n"
            "  apply IFNAME CONFIG.json [--ap]       stop the link's daemons and prepare station "
            "mode (or the access point) from CONFIG\n"
            "  connect IFNAME [--ap|--vendor]        bring the link up: wpa_supplicant, the setup "
            "access point or the vendor tools\n"
            "  disconnect IFNAME [--ap|--vendor]     bring the link down in the same three modes\n"
            "  recover IFNAME [--ap]                 after an aborted scan: reassociate, or "
            "restart hostapd with --ap\n"
            "  hook IFNAME KEY=VALUE...              write the access point's files with these "
            "hostapd settings overridden (KEY= removes)\n"
            "  monitor IFNAME                        print one timeline of nl80211 and "
            "wpa_supplicant events until interrupted, --count N events or --timeout MS\n"
            "  doctor [IFNAME]                       check that this board has what the module "
            "relies on (IFNAME: wlan0 by default)\n");
}

TEST(Commands, HelpPrintsUsageOnStdoutAndSucceeds) {
  const ProgramRun result = run_args({"--help"});
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(result.out, usage_text());
  EXPECT_EQ(result.err, "");
}

TEST(Commands, HelpWinsOverACommand) {
  const ProgramRun result = run_args({"info", "--help"});
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(result.out, usage_text());
}

TEST(Commands, NoCommandIsAUsageError) {
  const ProgramRun result = run_args({});
  EXPECT_EQ(result.status, kExitUsage);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "qira-wifi: no command given\n" + usage_text());
}

TEST(Commands, UnknownCommandIsAUsageError) {
  const ProgramRun result = run_args({"survey", "wlan0"});
  EXPECT_EQ(result.status, kExitUsage);
  EXPECT_EQ(result.err, "qira-wifi: unknown command survey\n" + usage_text());
}

TEST(Commands, UnknownOptionIsAUsageError) {
  const ProgramRun result = run_args({"--quiet", "info", "wlan0"});
  EXPECT_EQ(result.status, kExitUsage);
  EXPECT_EQ(result.err, "qira-wifi: unknown option --quiet\n" + usage_text());
}

TEST(Commands, MissingArgumentIsAUsageError) {
  const ProgramRun result = run_args({"info"});
  EXPECT_EQ(result.status, kExitUsage);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "qira-wifi: usage: qira-wifi info IFNAME\n" + usage_text());
}

TEST(Commands, ExtraArgumentIsAUsageError) {
  const ProgramRun result = run_args({"info", "wlan0", "wlan1"});
  EXPECT_EQ(result.status, kExitUsage);
  EXPECT_EQ(result.err, "qira-wifi: usage: qira-wifi info IFNAME\n" + usage_text());
}

TEST(Commands, ModuleThatCannotBeLoadedExitsWithOne) {
  const ProgramRun result = run_args({"--module", "/nonexistent/libnothing.so", "info", "wlan0"});
  EXPECT_EQ(result.status, kExitModuleError);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err.rfind("qira-wifi: cannot load /nonexistent/libnothing.so: ", 0), 0u)
      << result.err;
}

}  // namespace
}  // namespace qira::wifi
