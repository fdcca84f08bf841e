// The command table, the usage text and the exit statuses of usage errors.
#include "commands.h"
#include "support/wpa_supplicant_sim.h"
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
            "options (anywhere on the line; \"--\" ends them, so that an argument may begin with "
            "\"-\"):\n"
            "  --json         print JSON: one object, or JSON Lines for events, wpa-events and "
            "monitor\n"
            "  --verbose      also print every module log line on stderr\n"
            "  --module PATH  load the module from PATH (default: $QIRA_WIRELESS_MODULE, else "
            "libqira_network_utils_wireless.so.1)\n"
            "  --help         print this help\n"
            "  --timeout MS   wpa: wait this long for the reply (default 10000); scan: for the "
            "scan's end (default 10000); events, wpa-events, monitor: stop after this long\n"
            "  --count N      events, monitor: stop after N events\n"
            "  --ap           apply, connect, disconnect, recover, scan: the setup access point\n"
            "  --vendor       connect, disconnect: the vendor tools\n"
            "  --again        scan: ask for the results a second time and show that answer too\n"
            "  --address A    hook: the access point's address (default 192.168.1.1)\n"
            "  --netmask M    hook: its netmask (default 255.255.255.0)\n"
            "\n"
            "commands (each takes --json, --verbose, --module and --help, and the options it "
            "names):\n"
            "  info IFNAME\n"
            "      load the module and print every wireless query of IFNAME\n"
            "  events [--timeout MS] [--count N]\n"
            "      print nl80211 events (type, name, payload) until interrupted, --count N "
            "events or --timeout MS\n"
            "  scan [--timeout MS] [--ap] [--again] IFNAME\n"
            "      scan IFNAME and print the ranked access points, signal in dBm (--ap: recover "
            "as the access point)\n"
            "  write-sta IFNAME SSID KEY [AUTH PSK]\n"
            "      write /etc/wlan0.conf for one network (root; for the camera or its VM)\n"
            "  wpa [--timeout MS] IFNAME COMMAND...\n"
            "      send one command to the wpa_supplicant of IFNAME and print its reply\n"
            "  wpa-events [--timeout MS] IFNAME\n"
            "      print the events of the wpa_supplicant of IFNAME, across its restarts, until "
            "interrupted or --timeout MS\n"
            "  apply [--ap] IFNAME CONFIG.json\n"
            "      stop the link's daemons and prepare station mode (or the access point) from "
            "CONFIG\n"
            "  connect [--ap] [--vendor] IFNAME\n"
            "      bring the link up: wpa_supplicant, the setup access point or the vendor "
            "tools\n"
            "  disconnect [--ap] [--vendor] IFNAME\n"
            "      bring the link down in the same three modes\n"
            "  recover [--ap] IFNAME\n"
            "      after an aborted scan: reassociate, or restart hostapd with --ap\n"
            "  hook [--address A] [--netmask M] IFNAME KEY=VALUE...\n"
            "      write the access point's files with these hostapd settings overridden (KEY= "
            "removes)\n"
            "  monitor [--timeout MS] [--count N] IFNAME\n"
            "      print one timeline of nl80211 and wpa_supplicant events until interrupted, "
            "--count N events or --timeout MS\n"
            "  doctor [IFNAME]\n"
            "      check that this board has what the module relies on (IFNAME: wlan0 by "
            "default)\n"
            "\n"
            "--json prints one JSON object from info, scan, write-sta, wpa, apply, connect, "
            "disconnect, recover, hook and doctor;\n"
            "JSON Lines (one object per line, written as each event comes) from events, "
            "wpa-events and monitor.\n"
            "\n"
            "exit status:\n"
            "  0    the command ran (a query that failed is still an answer); doctor: no check "
            "failed\n"
            "  1    the module could not be loaded or lacks a function; doctor: a check failed\n"
            "  2    a wrong command line: an unknown command or option, an option the command "
            "does not take, a wrong number of arguments\n"
            "  3    the module reported that an action failed (a file, a daemon, wpa_supplicant "
            "unreachable or silent, a scan that did not end)\n"
            "  4    a value was refused before anything was written or run (an interface name, a "
            "network name, a passphrase, ...)\n"
            "  130  SIGINT or SIGTERM ended the command (how the listening commands are usually "
            "stopped)\n");
}

// Each command's options come from the table, and its usage line is the
// program's name and its synopsis.
TEST(Commands, SynopsisAndUsageLine) {
  EXPECT_EQ(command_synopsis(*find_command("scan")), "scan [--timeout MS] [--ap] [--again] IFNAME");
  EXPECT_EQ(command_usage(*find_command("info")), "usage: qira-wifi info IFNAME");
  EXPECT_EQ(command_usage(*find_command("events")),
            "usage: qira-wifi events [--timeout MS] [--count N]");
}

TEST(Commands, EveryCommandsJsonShape) {
  std::vector<std::string> lines;
  for (const Command& command : command_table()) {
    if (command.json == JsonShape::kLines) {
      lines.push_back(command.name);
    }
  }
  EXPECT_EQ(lines, (std::vector<std::string>{"events", "wpa-events", "monitor"}));
}

TEST(Commands, AnOptionTheCommandDoesNotTakeIsRefusedWithItsUsageLine) {
  const ProgramRun result = run_args({"info", "wlan0", "--ap"});
  EXPECT_EQ(result.status, kExitUsage);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "qira-wifi: info does not take --ap\nusage: qira-wifi info IFNAME\n");
  EXPECT_EQ(run_args({"--count", "3", "--again", "doctor"}).err,
            "qira-wifi: doctor does not take --count, --again\nusage: qira-wifi doctor [IFNAME]\n");
}

TEST(Commands, DoubleDashLetsAnArgumentBeginWithADash) {
  qira::test::WpaSupplicantSim daemon("qs0");
  daemon.reply("SET_NETWORK 0 priority -1", "OK\n");
  const ProgramRun result = run_args({"wpa", "qs0", "--", "SET_NETWORK", "0", "priority", "-1"});
  EXPECT_EQ(result.status, kExitOk) << result.err;
  EXPECT_EQ(result.out, "OK\n");
  EXPECT_EQ(daemon.requests(), std::vector<std::string>{"SET_NETWORK 0 priority -1"});
  const ProgramRun without = run_args({"wpa", "qs0", "SET_NETWORK", "0", "priority", "-1"});
  EXPECT_EQ(without.status, kExitUsage);
  EXPECT_EQ(without.err.rfind("qira-wifi: unknown option -1\n", 0), 0u) << without.err;
  EXPECT_EQ(daemon.requests().size(), 1u);
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
  EXPECT_EQ(result.err, "usage: qira-wifi info IFNAME\n");
}

TEST(Commands, ExtraArgumentIsAUsageError) {
  const ProgramRun result = run_args({"info", "wlan0", "wlan1"});
  EXPECT_EQ(result.status, kExitUsage);
  EXPECT_EQ(result.err, "usage: qira-wifi info IFNAME\n");
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
