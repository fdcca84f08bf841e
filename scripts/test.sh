#!/usr/bin/env bash
# The whole suite: dependencies, format check, then a gcc and a clang build,
# each with -Werror and its ctest run. Every stage runs (a build that fails
# skips only its own tests); the script fails if any stage failed. It ends
# with the timing of each stage and ctest's own closing summary.
set -uo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root" || exit 1
log_dir="$root/build/logs"
mkdir -p "$log_dir"

stage_names=()
stage_results=()
stage_seconds=()
failed=0
last_ctest_log=""

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
  last_ctest_log="$log"
  ctest --test-dir "build/$1" -j2 --output-on-failure 2>&1 | tee "$log"
  return "${PIPESTATUS[0]}"
}

run_stage deps scripts/deps.sh || true
run_stage format scripts/format.sh || true
for compiler in gcc clang; do
  if run_stage "$compiler-build" scripts/build.sh "$compiler"; then
    run_stage "$compiler-test" run_tests "$compiler" || true
  else
    skip_stage "$compiler-test" "$compiler build failed"
  fi
done

echo
echo "==== timings"
for i in "${!stage_names[@]}"; do
  printf '  %-12s %8s s  %s\n' "${stage_names[$i]}" "${stage_seconds[$i]}" "${stage_results[$i]}"
done
if [ "$failed" -ne 0 ]; then
  echo "==== FAILED"
else
  echo "==== all stages passed"
fi
# ctest's closing summary of the last test run, so the suite's output ends
# with it.
if [ -n "$last_ctest_log" ] && [ -f "$last_ctest_log" ]; then
  echo
  sed -n '/tests passed, .* tests failed out of/,$p' "$last_ctest_log"
fi
exit "$failed"
