// The sandbox root every test process enters before it touches a path.
//
// The process moves into its own mount namespace whose root is a fresh tmpfs:
// the system's program and library folders (/usr, /bin, /sbin, /lib*) are
// bind-mounted read-only, /proc and /dev are the real ones, the source and
// build trees are reachable at their usual paths, and /etc, /tmp, /var/run,
// /run, /var/log and /sys/module are empty folders of the one tmpfs, so that
// the module writes its real paths and a rename between /tmp and /etc works.
// Nothing of the machine's own /etc, /tmp, /var/run or /sys is visible.
#ifndef QIRA_TESTS_SUPPORT_SANDBOX_H
#define QIRA_TESTS_SUPPORT_SANDBOX_H

#include <string>
#include <vector>

namespace qira::test {

// Enters the sandbox. On any failure prints why on stderr and exits with
// status 1: a suite that cannot isolate itself must fail, not skip.
void enter_sandbox();
// Whether this process is inside the sandbox.
bool in_sandbox();
// The trees bound inside at their own paths: the source tree, the build
// tree and the running binary's folder, each as given and as resolved. A
// fresh folder holds nothing but the way down to those that lie inside it.
std::vector<std::string> sandbox_trees();

// Writes `content` to `path` inside the sandbox, creating parent folders.
void write_file(const std::string& path, const std::string& content);
// The whole file at `path`; fails the current test when it cannot be read.
std::string read_file(const std::string& path);
// Creates `path` and its parents.
void make_dirs(const std::string& path);

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_SANDBOX_H
