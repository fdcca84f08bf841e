// The unit suite's last test: every message the wireless module can log must
// have been produced by at least one test of this run. Reads the module's
// sources for its NETLIB_LOG calls and the ledger the test programs wrote
// (support/message_ledger.h), and lists the messages no test produced.
//
// Usage: message_coverage SOURCE_DIR UNREACHABLE_LIST LEDGER_DIR PROGRAM...
// Exit 0 when every call site's message was produced or is listed as
// unreachable (with its reason) in UNREACHABLE_LIST (one file, or several
// joined by ':'), 1 otherwise, and 77
// (reported as skipped) when not every test program ran, since a partial run
// (ctest -R ...) cannot judge coverage.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "messages/message_catalogue.h"

namespace fs = std::filesystem;
namespace messages = qira::test::messages;

namespace {

constexpr int kPartialRun = 77;

std::string read_file(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<messages::CallSite> module_call_sites(const fs::path& source_dir) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(source_dir / "src")) {
    const std::string extension = entry.path().extension().string();
    if (entry.is_regular_file() && (extension == ".cpp" || extension == ".h")) {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  std::vector<messages::CallSite> sites;
  for (const fs::path& file : files) {
    const std::string relative = fs::relative(file, source_dir).generic_string();
    for (messages::CallSite& site : messages::find_call_sites(relative, read_file(file))) {
      sites.push_back(std::move(site));
    }
  }
  return sites;
}

struct Unreachable {
  std::string file;
  std::string format;
  std::string reason;
  bool matched = false;
};

std::vector<Unreachable> read_unreachable(const fs::path& path) {
  std::vector<Unreachable> entries;
  std::istringstream lines(read_file(path));
  std::string line;
  while (std::getline(lines, line)) {
    if (line.empty() || line[0] == '#') {
      continue;
    }
    const std::size_t first = line.find('\t');
    const std::size_t second = line.find('\t', first + 1);
    if (first == std::string::npos || second == std::string::npos) {
      entries.push_back({line, "", "", false});  // reported as naming no message
      continue;
    }
    entries.push_back({line.substr(0, first), line.substr(first + 1, second - first - 1),
                       line.substr(second + 1), false});
  }
  return entries;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::cerr << "usage: message_coverage SOURCE_DIR UNREACHABLE_LIST LEDGER_DIR PROGRAM...\n";
    return 2;
  }
  const fs::path source_dir = argv[1];
  std::vector<Unreachable> unreachable;
  std::istringstream lists(argv[2]);
  std::string list;
  while (std::getline(lists, list, ':')) {
    for (Unreachable& entry : read_unreachable(list)) {
      unreachable.push_back(std::move(entry));
    }
  }
  const fs::path ledger_dir = argv[3];
  messages::Ledger ledger;
  std::size_t ledger_files = 0;
  if (fs::is_directory(ledger_dir)) {
    for (const fs::directory_entry& entry : fs::directory_iterator(ledger_dir)) {
      messages::read_ledger_text(read_file(entry.path()), ledger);
      ++ledger_files;
    }
  }
  std::vector<std::string> missing_programs;
  for (int i = 4; i < argc; ++i) {
    if (ledger.programs.count(argv[i]) == 0) {
      missing_programs.push_back(argv[i]);
    }
  }
  if (!missing_programs.empty()) {
    std::cout << "partial run (" << ledger_files << " ledger files): no test of";
    for (const std::string& program : missing_programs) {
      std::cout << " " << program;
    }
    std::cout << " ran, so the module's message coverage is not judged\n";
    return kPartialRun;
  }

  const std::vector<messages::CallSite> sites = module_call_sites(source_dir);
  std::vector<std::string> failures;
  std::size_t produced = 0;
  std::size_t listed = 0;
  for (const messages::CallSite& site : sites) {
    const bool was_produced =
        messages::produced(site, messages::format_pattern(site.format), ledger);
    auto entry = std::find_if(unreachable.begin(), unreachable.end(), [&site](const auto& u) {
      return u.file == site.file && u.format == site.format;
    });
    if (entry != unreachable.end()) {
      entry->matched = true;
      ++listed;
      if (was_produced) {
        failures.push_back("listed as unreachable, yet a test produces " + site.file + ":" +
                           std::to_string(site.line) + " \"" + site.format + "\"");
      }
    } else if (was_produced) {
      ++produced;
    } else {
      failures.push_back("no test produces " + site.file + ":" + std::to_string(site.line) + " \"" +
                         site.format + "\"");
    }
  }
  for (const Unreachable& entry : unreachable) {
    if (!entry.matched) {
      failures.push_back("the unreachable list names no message of the sources: " + entry.file +
                         " \"" + entry.format + "\"");
    }
  }
  std::size_t lines = 0;
  for (const auto& [file, logged] : ledger.messages_by_file) {
    lines += logged.size();
  }
  std::cout << "module messages: " << sites.size() << " call sites; " << produced
            << " produced by the tests (" << lines << " logged lines from "
            << ledger.programs.size() << " test programs), " << listed
            << " listed as unreachable\n";
  for (const Unreachable& entry : unreachable) {
    if (entry.matched) {
      std::cout << "unreachable: " << entry.file << " \"" << entry.format << "\": " << entry.reason
                << "\n";
    }
  }
  for (const std::string& failure : failures) {
    std::cout << failure << "\n";
  }
  return failures.empty() ? 0 : 1;
}
