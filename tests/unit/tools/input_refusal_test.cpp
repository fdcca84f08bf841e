// Every refusal of qira-wifi, run as the whole program: each value of the
// input table with a value that would inject a line or reach somewhere it
// should not, each kind of name the kernel refuses as an interface name for
// every command that takes one, and the time-out limit. Each case asserts
// the exit status and message, and that nothing was written (the sandbox's
// /etc, /tmp, /run and /var/log are as before) and nothing run (no process
// started, run or signalled, no wired netlib call, no log line of the
// module).
#include <dirent.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "commands.h"
#include "input_table.h"
#include "qira/host/seams.h"
#include "support/sandbox.h"
#include "unit/tools/program_run.h"

namespace qira::wifi {
namespace {

using Args = std::vector<std::string>;

// Whether `path` is one of the trees the tests run from: not the program's
// to write, changed meanwhile by other tests, and inside /tmp when the
// checkout is there.
bool is_test_tree(const std::string& path) {
  static const std::vector<std::string> trees = qira::test::sandbox_trees();
  for (const std::string& tree : trees) {
    if (path == tree) {
      return true;
    }
  }
  return false;
}

// Every file under `folder` but the test trees, with its content, by path.
void collect_files(const std::string& folder, std::map<std::string, std::string>& files) {
  DIR* directory = ::opendir(folder.c_str());
  if (directory == nullptr) {
    return;
  }
  while (const dirent* entry = ::readdir(directory)) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") {
      continue;
    }
    const std::string path = folder + "/" + name;
    if (is_test_tree(path)) {
      continue;
    }
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
      continue;
    }
    if (S_ISDIR(status.st_mode)) {
      files[path + "/"] = "";
      collect_files(path, files);
    } else if (S_ISREG(status.st_mode)) {
      files[path] = qira::test::read_file(path);
    } else {
      files[path] = "(special)";
    }
  }
  ::closedir(directory);
}

std::map<std::string, std::string> written_state() {
  std::map<std::string, std::string> files;
  for (const char* folder : {"/etc", "/tmp", "/run", "/var/log"}) {
    collect_files(folder, files);
  }
  return files;
}

// Runs `args` and checks that it was refused with `message`, having
// written and run nothing.
void expect_refused(const Args& args, const std::string& message) {
  SCOPED_TRACE(::testing::PrintToString(args));
  const std::map<std::string, std::string> before = written_state();
  qira::host::ProcessRecorder processes;
  qira::host::NetlibRecorder netlib;
  qira::host::LogCapture log;
  const ProgramRun run = run_args(args);
  EXPECT_EQ(run.status, kExitRefused);
  EXPECT_EQ(run.err, "qira-wifi: " + message + "\n");
  EXPECT_EQ(run.out, "");
  EXPECT_TRUE(processes.calls().empty()) << processes.calls().size() << " process calls";
  EXPECT_TRUE(netlib.calls().empty()) << netlib.calls().size() << " netlib calls";
  EXPECT_TRUE(log.records().empty()) << log.records().front().message;
  EXPECT_EQ(written_state(), before);
}

class InputRefusal : public ::testing::Test {
 protected:
  void SetUp() override {
    qira::test::write_file("/etc/hosts", "127.0.0.1 localhost\n");
    qira::test::write_file("/etc/dnsmasq.conf", "x\n");
    qira::test::write_file("/etc/hostapd.conf", "x\n");
  }
};

// ---- the input table, row by row ---------------------------------------------------------

struct RowCase {
  const char* row;
  Args args;
  const char* reason;
};

// A configuration with `key_path` set to `json_value`, written for apply.
std::string config_with(const std::string& key_path, const std::string& json_value) {
  std::string text;
  std::string closing;
  std::string::size_type start = 0;
  while (true) {
    const std::string::size_type slash = key_path.find('/', start);
    const std::string key = key_path.substr(start, slash - start);
    if (slash == std::string::npos) {
      text += "{\"" + key + "\":" + json_value;
      closing += "}";
      break;
    }
    text += "{\"" + key + "\":";
    closing += "}";
    start = slash + 1;
  }
  return text + closing;
}

const char kLineBreaks[] = "line breaks are not allowed";
const char kQuotes[] = "double quotes are not allowed";
const char kNotAddress[] = "not an IPv4 address";
const char kNotNetmask[] = "not an IPv4 netmask";
const char kConfigPath[] = "/tmp/network.json";

// The injection each kind of configuration value is tried with.
struct ConfigCase {
  const char* row;
  const char* json_value;
  const char* reason;
};

const ConfigCase kConfigCases[] = {
    {"wifi/ssid", R"("Home\" psk=x")", kQuotes},
    {"wifi/key", R"("none\nx")", kLineBreaks},
    {"wifi/wpa/auth", R"("psk\r")", kLineBreaks},
    {"wifi/wpa/psk", R"("pass\n}\nnetwork={")", kLineBreaks},
    {"wifi/wpa/ident", R"("anon\"")", kQuotes},
    {"wifi/wpa/username", R"("user\"")", kQuotes},
    {"wifi/wpa/password", R"("pa\"ss")", kQuotes},
    {"experiments/bgscan", R"("simple:30\"")", kQuotes},
    {"dhcp/fallbackIP", R"("192.168.1.1\ndhcp-script=/tmp/evil")", kNotAddress},
    {"dhcp/fallbackNetmask", R"("255.255.255.0\nx")", kNotNetmask},
    {"statik/ip", R"("10.0.0.5 ")", kNotAddress},
    {"statik/netmask", R"("255.0.255.0")", kNotNetmask},
    {"routes/gateway", R"("10.0.0.1\u0000")", kNotAddress},
    {"dns/ns1/ip", R"("10.0.0.1\nnameserver 6.6.6.6")", kNotAddress},
    {"dns/ns2/ip", R"("name.server")", kNotAddress},
};

std::vector<RowCase> row_cases() {
  return {
      {kIfnameValue, {"connect", "wl\nan0"}, "white space is not allowed in an interface name"},
      {kSsidValue, {"write-sta", "wlan0", "Home\n\tpsk=evil", "none"}, kLineBreaks},
      {kKeyValue, {"write-sta", "wlan0", "Home", "none\n"}, kLineBreaks},
      {kAuthValue, {"write-sta", "wlan0", "Home", "wpa2", "psk\r", "\"pass phrase\""}, kLineBreaks},
      {kPskValue,
       {"write-sta", "wlan0", "Home", "wpa2", "psk", "pass\"\n\tkey_mgmt=NONE"},
       kLineBreaks},
      {kAddressValue,
       {"hook", "ap0", "channel=6", "--address", "192.168.1.1\ndhcp-script=/tmp/evil"},
       kNotAddress},
      {kNetmaskValue, {"hook", "ap0", "channel=6", "--netmask", "255.255.255.256"}, kNotNetmask},
      {kHookKeyValue,
       {"hook", "ap0", "channel\nwpa=6"},
       "only letters, digits and '_' are allowed"},
      {"hook interface",
       {"hook", "ap0", "interface=../../tmp/x"},
       "'/' and ':' are not allowed in an interface name"},
      {kHookValue, {"hook", "ap0", "ssid=Cam\nctrl_interface=/tmp"}, kLineBreaks},
      {kWpaCommandValue,
       {"wpa", "wlan0", "SET_NETWORK", "0", "ssid", "\"x\"\nSAVE_CONFIG"},
       "control characters are not allowed"},
  };
}

TEST_F(InputRefusal, EveryValueOfTheTableIsRefusedWithoutWritingOrRunning) {
  for (const RowCase& c : row_cases()) {
    expect_refused(c.args, std::string("invalid ") + c.row + ": " + c.reason);
  }
}

// apply checks every value of the configuration in both modes: the access
// point's address would otherwise reach dnsmasq's file and /etc/hosts.
TEST_F(InputRefusal, EveryConfigurationValueIsRefusedInEveryMode) {
  for (const ConfigCase& c : kConfigCases) {
    qira::test::write_file(kConfigPath, config_with(c.row, c.json_value));
    const std::string message = std::string(kConfigPath) + ": invalid " + c.row + ": " + c.reason;
    expect_refused({"apply", "wlan0", kConfigPath}, message);
    expect_refused({"apply", "ap0", kConfigPath, "--ap"}, message);
  }
}

// Each row of the table is tried above: a row added without a case fails.
TEST(InputTable, EveryRowHasARefusalCase) {
  std::set<std::string> tried;
  for (const RowCase& c : row_cases()) {
    tried.insert(c.row);
  }
  for (const ConfigCase& c : kConfigCases) {
    tried.insert(c.row);
  }
  std::set<std::string> rows;
  for (const InputValue& row : input_table()) {
    EXPECT_TRUE(rows.insert(row.name).second) << "row twice: " << row.name;
    EXPECT_NE(std::string(row.where), "") << row.name;
  }
  EXPECT_EQ(tried, rows);
}

TEST(InputTable, AnUnknownNameIsRefusedNotPassed) {
  EXPECT_EQ(check_input("no such value", "x"),
            "invalid no such value: not a value qira-wifi knows");
}

TEST(InputTable, GoodValuesPass) {
  EXPECT_EQ(check_input(kIfnameValue, "wlan0"), std::nullopt);
  EXPECT_EQ(check_input(kIfnameValue, "abcdefghijklmno"), std::nullopt);  // 15 bytes
  EXPECT_EQ(check_input(kIfnameValue, "wlan0.100"), std::nullopt);
  EXPECT_EQ(check_input(kSsidValue, "Caf\xC3\xA9 'x' \\ =#"), std::nullopt);
  EXPECT_EQ(check_input(kSsidValue, ""), std::nullopt);
  EXPECT_EQ(check_input(kPskValue, std::string(64, 'a')), std::nullopt);
  EXPECT_EQ(check_input(kPskValue, "\"correct horse\""), std::nullopt);
  EXPECT_EQ(check_input("dhcp/fallbackIP", "192.168.1.20"), std::nullopt);
  EXPECT_EQ(check_input("dhcp/fallbackNetmask", "255.255.255.0"), std::nullopt);
  EXPECT_EQ(check_input("routes/gateway", ""), std::nullopt);
  EXPECT_EQ(check_input(kHookKeyValue, "wpa_key_mgmt"), std::nullopt);
  EXPECT_EQ(check_input(kHookValue, "WPA-PSK"), std::nullopt);
  EXPECT_EQ(check_input(kWpaCommandValue, "SET_NETWORK 0 ssid \"Home\""), std::nullopt);
}

// ---- interface names, for every command ----------------------------------------------------

struct NameCase {
  std::string name;
  const char* reason;
};

const char kSlash[] = "'/' and ':' are not allowed in an interface name";
const char kSpace[] = "white space is not allowed in an interface name";

std::vector<NameCase> bad_names() {
  return {
      {"", "an interface name cannot be empty"},
      {"abcdefghijklmnop", "an interface name has at most 15 bytes"},
      {".", "\".\" and \"..\" are not interface names"},
      {"..", "\".\" and \"..\" are not interface names"},
      {"../../tmp/sock", kSlash},
      {"wlan0/x", kSlash},
      {"wlan0:1", kSlash},
      {"wl an0", kSpace},
      {"wl\tan0", kSpace},
      {"wl\nan0", kSpace},
      {"wlan0\r", kSpace},
      {"wl\van0", kSpace},
      {"\xA0wlan0", kSpace},
      {std::string("wl\0an0", 6), "NUL bytes are not allowed"},
  };
}

// The arguments of each command that takes an interface name, with `name`.
std::vector<Args> commands_with(const std::string& name) {
  return {
      {"info", name},
      {"scan", name},
      {"write-sta", name, "Home", "none"},
      {"wpa", name, "PING"},
      {"wpa-events", name, "--timeout", "10"},
      {"apply", name, kConfigPath},
      {"apply", name, kConfigPath, "--ap"},
      {"connect", name},
      {"connect", name, "--ap"},
      {"disconnect", name, "--vendor"},
      {"recover", name, "--ap"},
      {"hook", name, "channel=6"},
      {"monitor", name, "--timeout", "10"},
      {"doctor", name},
  };
}

TEST_F(InputRefusal, InterfaceNamesTheKernelRefusesAreRefusedByEveryCommand) {
  qira::test::write_file(kConfigPath, "{}");
  for (const NameCase& c : bad_names()) {
    for (const Args& args : commands_with(c.name)) {
      expect_refused(args, std::string("invalid IFNAME: ") + c.reason);
    }
  }
}

// Every command of the table whose arguments begin with IFNAME (or an
// optional [IFNAME]) is tried.
TEST(InputTable, EveryCommandTakingAnInterfaceIsTried) {
  std::set<std::string> tried;
  for (const Args& args : commands_with("x")) {
    tried.insert(args.front());
  }
  std::set<std::string> taking;
  for (const Command& command : command_table()) {
    const std::string arguments = command.arguments;
    if (arguments.rfind(kIfnameValue, 0) == 0 ||
        arguments.rfind(std::string("[") + kIfnameValue + "]", 0) == 0) {
      taking.insert(command.name);
    }
  }
  EXPECT_EQ(tried, taking);
}

// ---- time-outs ------------------------------------------------------------------------------

TEST_F(InputRefusal, TimeOutsAboveADayAreRefusedByEveryCommand) {
  const std::string message = "option --timeout takes at most 86400000 milliseconds (a day)";
  for (const Args& args : std::vector<Args>{{"wpa", "wlan0", "PING"},
                                            {"wpa-events", "wlan0"},
                                            {"events"},
                                            {"scan", "wlan0"},
                                            {"monitor", "wlan0"}}) {
    Args with_timeout = args;
    with_timeout.insert(with_timeout.begin(), {"--timeout", "86400001"});
    SCOPED_TRACE(args.front());
    const std::map<std::string, std::string> before = written_state();
    qira::host::ProcessRecorder processes;
    qira::host::LogCapture log;
    const ProgramRun run = run_args(with_timeout);
    EXPECT_EQ(run.status, kExitUsage);
    EXPECT_EQ(run.err.substr(0, run.err.find('\n')), "qira-wifi: " + message);
    EXPECT_EQ(run.out, "");
    EXPECT_TRUE(processes.calls().empty());
    EXPECT_TRUE(log.records().empty());
    EXPECT_EQ(written_state(), before);
  }
}

}  // namespace
}  // namespace qira::wifi
