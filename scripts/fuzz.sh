#!/usr/bin/env bash
# Builds the libFuzzer targets (fuzz/) with clang, AddressSanitizer and UBSan
# into build/fuzz, then runs each target for a bounded time from its seed
# corpus (fuzz/corpus/<target>/), and prints per target the executions,
# libFuzzer's coverage figures (cov: edges, ft: features), the corpus size
# and whether it crashed. New corpus units and crash inputs stay in the
# build tree (build/fuzz/corpus, build/fuzz/artifacts).
#   scripts/fuzz.sh [SECONDS per target, default 20] [TARGET...]
# Fails when a target crashed, leaked, timed out or could not run.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
seconds="${1:-20}"
shift || true
build_dir="${QIRA_FUZZ_BUILD_DIR:-$root/build/fuzz}"
all_targets=(fuzz_wpa_event fuzz_frame fuzz_notification fuzz_scan_results fuzz_variant_kvp
  fuzz_variant_json)
if [ "$#" -gt 0 ]; then
  targets=("$@")
else
  targets=("${all_targets[@]}")
fi

cmake -S "$root" -B "$build_dir" -G Ninja \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
  -DQIRA_SANITIZE=address,undefined -DQIRA_BUILD_FUZZ=ON -DQIRA_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build_dir" --target "${targets[@]}"

log_dir="$build_dir/logs"
mkdir -p "$log_dir"
summary=()
failed=0
for target in "${targets[@]}"; do
  corpus="$build_dir/corpus/$target"
  artifacts="$build_dir/artifacts/$target"
  log="$log_dir/$target.log"
  mkdir -p "$corpus" "$artifacts"
  options=(-max_total_time="$seconds" -timeout=10 -print_final_stats=1
    -artifact_prefix="$artifacts/")
  if [ -f "$root/fuzz/dict/$target.dict" ]; then
    options+=(-dict="$root/fuzz/dict/$target.dict")
  fi
  echo "==== $target: ${seconds} s"
  status=0
  # The first folder receives the new units; the seeds are only read.
  "$build_dir/fuzz/$target" "${options[@]}" "$corpus" "$root/fuzz/corpus/$target" \
    >"$log" 2>&1 || status=$?
  executions=$(sed -n 's/^stat::number_of_executed_units: *\([0-9]*\)$/\1/p' "$log" | tail -1)
  # The last status line: "#N <event> cov: C ft: F corp: U/S ...".
  last=$(grep -E '^#[0-9]+.*cov: [0-9]+ ft: [0-9]+' "$log" | tail -1 || true)
  cov=$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' <<<"$last")
  ft=$(sed -n 's/.* ft: \([0-9]*\) .*/\1/p' <<<"$last")
  corp=$(sed -n 's/.* corp: \([0-9]*\)\/.*/\1/p' <<<"$last")
  crashes=$(find "$artifacts" -type f | wc -l)
  result=ok
  if [ "$status" -ne 0 ] || [ "$crashes" -ne 0 ]; then
    result="FAILED (exit $status)"
    failed=1
    grep -E '^(==[0-9]+==ERROR|SUMMARY|.*runtime error)' "$log" | head -5 || true
    echo "     full log: $log"
  fi
  summary+=("$(printf '  %-20s %10s execs  cov %6s  ft %6s  corpus %5s  crashes %s  %s' \
    "$target" "${executions:-?}" "${cov:-?}" "${ft:-?}" "${corp:-?}" "$crashes" "$result")")
  echo "${summary[-1]}"
done

echo
echo "==== fuzz summary (${seconds} s per target)"
printf '%s\n' "${summary[@]}"
exit "$failed"
