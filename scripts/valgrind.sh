#!/usr/bin/env bash
# valgrind's memcheck over the unit suite: a plain gcc Debug build in
# build/valgrind whose every test process runs under memcheck, and with it
# the programs of this build a test starts (GoogleTest's re-executed death
# tests, qira-wifi); the machine's own programs (wpa_supplicant, ip, sleep)
# run natively. A test fails on any memory error and on any definite or
# indirect leak that tests/support/valgrind.supp does not name.
#   scripts/valgrind.sh [ctest arguments...]   e.g. -R wpa_client, -L endurance
# With no arguments the whole suite runs (about 1100 test processes) but the
# endurance runs (-LE endurance): 100,000 notifications under memcheck take
# longer than a test's 120 s time-out, and those runs compare the heap
# themselves (in every build but this one) and run under ASan's leak check.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${QIRA_VALGRIND_BUILD_DIR:-$root/build/valgrind}"
# Exit status of a process in which memcheck found an error: distinct from
# the statuses the tests expect of their own death tests.
error_status=97
launcher=(
  valgrind --tool=memcheck --quiet
  --leak-check=full "--show-leak-kinds=definite,indirect"
  "--errors-for-leak-kinds=definite,indirect"
  --error-exitcode="$error_status"
  --suppressions="$root/tests/support/valgrind.supp"
  # The machine's programs, and the tests' copies of them under /tmp (the
  # kill-by-name tests find those children by their own name, which a
  # traced child would lose to memcheck's), run natively.
  --trace-children=yes "--trace-children-skip=/usr/*,/bin/*,/sbin/*,/tmp/*"
  # memcheck replaces the allocator of the C library only, so that a test
  # program's own realloc (ap_selection's growth failure) stays in place.
  --soname-synonyms=somalloc=nouserintercepts
  # No gdb server: its pipes would live in /tmp, which each test replaces.
  --vgdb=no --num-callers=40
)
launcher_list="$(
  IFS=';'
  echo "${launcher[*]}"
)"

cmake -S "$root" -B "$build_dir" -G Ninja \
  -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
  -DCMAKE_BUILD_TYPE=Debug -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
  "-DQIRA_TEST_LAUNCHER=$launcher_list" >/dev/null
cmake --build "$build_dir"
# Left out of the default run, each for a reason of memcheck's, not of the
# code under test:
# - the endurance runs (see above);
# - host_tests.SysExecSimpleTest.MissingProgramIsAFailure: glibc's
#   posix_spawn reports a failed exec through memory it shares with the child
#   (CLONE_VM), and valgrind runs that child as a plain fork, so the failure
#   arrives as the child's exit status 127 instead.
if [ "$#" -eq 0 ]; then
  set -- -LE endurance -E '^host_tests[.]SysExecSimpleTest[.]MissingProgramIsAFailure$'
fi
ctest --test-dir "$build_dir" -j2 --output-on-failure "$@"
