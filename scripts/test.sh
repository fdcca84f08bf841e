#!/usr/bin/env bash
# The whole suite: dependencies, format check, then a gcc, a clang and two
# sanitized (ASan and UBSan, gcc and clang) builds, each with -Werror and its
# ctest run,
# the armhf cross build with its ctest run under qemu-arm-static,
# the fuzz smoke run (scripts/fuzz.sh) and the virtual camera's scenarios on
# amd64 and armhf (tests/vm/ci.sh, both cameras at once). The gcc build and
# its unit suite run from a fresh clone in a folder under /tmp whose name
# holds a space, as a newcomer's checkout may be: the one gcc build of the
# suite is also its check that nothing depends on where the checkout lies.
# Every stage runs (a build that fails skips only its own tests); the script
# fails if any stage failed. It ends with the timing of each stage and one
# line counting the whole suite.
#   scripts/test.sh              the whole suite
#   scripts/test.sh --unit-only  the gcc build and its unit suite only (what
#                                the gcc stage runs in the clone)
set -uo pipefail

unit_only=0
case "${1:-}" in
  "") ;;
  --unit-only) unit_only=1 ;;
  *) echo "usage: scripts/test.sh [--unit-only]" >&2; exit 2 ;;
esac

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root" || exit 1
log_dir="$root/build/logs"
mkdir -p "$log_dir"
# Only this run's logs count in the closing line.
rm -f "$log_dir"/ctest-*.log "$log_dir/vm.log"

stage_names=()
stage_results=()
stage_seconds=()
failed=0

# run_stage NAME COMMAND...: runs COMMAND, records its time and result.
run_stage() {
  local name="$1"
  shift
  echo "==== $name: $*"
  local start end status
  start=$(date +%s.%N)
  "$@"
  status=$?
  end=$(date +%s.%N)
  local seconds
  seconds=$(awk -v s="$start" -v e="$end" 'BEGIN { printf "%.1f", e - s }')
  stage_names+=("$name")
  stage_seconds+=("$seconds")
  if [ "$status" -eq 0 ]; then
    stage_results+=("ok")
  else
    stage_results+=("FAILED ($status)")
    failed=1
  fi
  echo "==== $name: ${stage_results[-1]} in ${seconds} s"
  return "$status"
}

skip_stage() {
  stage_names+=("$1")
  stage_seconds+=("-")
  stage_results+=("skipped: $2")
  echo "==== $1: skipped ($2)"
}

# run_tests COMPILER: ctest of build/COMPILER, its output kept for the summary.
# shellcheck disable=SC2317  # called through run_stage
run_tests() {
  local log="$log_dir/ctest-$1.log"
  ctest --test-dir "build/$1" -j2 --output-on-failure 2>&1 | tee "$log"
  return "${PIPESTATUS[0]}"
}

# run_vm_suite: the virtual camera's scenarios on both architectures, amd64
# and armhf (each image with its own release build of the project); the two
# emulated cameras run at the same time, one host CPU each.
# shellcheck disable=SC2317  # called through run_stage
run_vm_suite() {
  tests/vm/ci.sh --arch amd64 --arch armhf 2>&1 | tee "$log_dir/vm.log"
  return "${PIPESTATUS[0]}"
}

# run_clone_suite: the gcc build and its unit suite from a fresh clone of
# this checkout in a new folder under /tmp with a space in its name: the
# sandbox binds the source and build trees at their own paths, which then
# lie inside its fresh /tmp, and every script must quote its paths. The
# committed tree is cloned (a checkout without git history is copied,
# build/ left out); its ctest log is kept as the gcc stage's, and the clone
# goes when the stage ends.
# shellcheck disable=SC2317  # called through run_stage
run_clone_suite() {
  local parent status
  parent=$(mktemp -d "/tmp/qira newcomer.XXXXXX") || return 1
  if git -C "$root" rev-parse --git-dir > /dev/null 2>&1; then
    git clone -q --no-hardlinks "$root" "$parent/src"
  else
    mkdir "$parent/src" && tar -C "$root" --exclude=./build -cf - . | tar -C "$parent/src" -xf -
  fi
  status=$?
  if [ "$status" -eq 0 ]; then
    echo "clone in $parent/src"
    "$parent/src/scripts/test.sh" --unit-only
    status=$?
    cp "$parent/src/build/logs/ctest-gcc.log" "$log_dir/ctest-gcc.log" 2> /dev/null
  fi
  rm -rf "$parent"
  return "$status"
}

if [ "$unit_only" -eq 1 ]; then
  run_stage gcc-build scripts/build.sh gcc &&
    run_stage gcc-test run_tests gcc
  exit "$failed"
fi

run_stage deps scripts/deps.sh || true
run_stage format scripts/format.sh || true
run_stage gcc-in-clone run_clone_suite || true
for compiler in clang asan clang-asan; do
  if run_stage "$compiler-build" scripts/build.sh "$compiler"; then
    run_stage "$compiler-test" run_tests "$compiler" || true
  else
    skip_stage "$compiler-test" "$compiler build failed"
  fi
done
# The unit suite built for 32-bit ARM (armhf) and run under qemu-arm-static.
run_stage cross-deps scripts/cross-deps.sh armhf || true
if run_stage armhf-build scripts/cross.sh armhf; then
  run_stage armhf-test run_tests armhf || true
else
  skip_stage armhf-test "armhf build failed"
fi
# The fuzz smoke run: every libFuzzer target for 20 s (clang, ASan, UBSan).
run_stage fuzz scripts/fuzz.sh 20 || true
run_stage vm run_vm_suite || true

echo
echo "==== timings"
for i in "${!stage_names[@]}"; do
  printf '  %-16s %8s s  %s\n' "${stage_names[$i]}" "${stage_seconds[$i]}" "${stage_results[$i]}"
done
if [ "$failed" -ne 0 ]; then
  echo "==== FAILED"
else
  echo "==== all stages passed"
fi
# One closing line for the whole suite: every ctest run (armhf's included)
# and the virtual camera's scenarios (ci.sh's last line counts both
# architectures'). A stage that failed without counting adds a failure.
passed=0
failed_tests=0
skipped=0
for log in "$log_dir"/ctest-{gcc,clang,asan,clang-asan,armhf}.log; do
  [ -f "$log" ] || continue
  read -r run_failed run_total < <(sed -n \
    's/^[0-9]*% tests passed, \([0-9]*\) tests failed out of \([0-9]*\)$/\1 \2/p' "$log" | tail -1)
  if [ -n "${run_total:-}" ]; then
    # ctest counts a skipped test among the passed ones; this line does not.
    run_skipped=$(grep -c '^[[:space:]]*[0-9]* - .* (Skipped)$' "$log")
    passed=$((passed + run_total - run_failed - run_skipped))
    failed_tests=$((failed_tests + run_failed))
    skipped=$((skipped + run_skipped))
  fi
done
if [ -f "$log_dir/vm.log" ]; then
  read -r vm_passed vm_failed < <(sed -n 's/^\([0-9]*\) passed, \([0-9]*\) failed$/\1 \2/p' \
    "$log_dir/vm.log" | tail -1)
  passed=$((passed + ${vm_passed:-0}))
  failed_tests=$((failed_tests + ${vm_failed:-0}))
fi
if [ "$failed" -ne 0 ] && [ "$failed_tests" -eq 0 ]; then
  failed_tests=1
fi
echo
echo "suite: $passed passed, $failed_tests failed, $skipped skipped"
exit "$failed"
