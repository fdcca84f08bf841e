#!/usr/bin/env bash
# Checks (default) or applies (--fix) the repository's .clang-format on every
# C/C++ file that git tracks or would track (untracked files not ignored).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
mapfile -t files < <(git ls-files --cached --others --exclude-standard -- \
  '*.c' '*.cc' '*.cpp' '*.h' '*.hpp' | sort -u)
if [ "${#files[@]}" -eq 0 ]; then
  echo "format: no C/C++ files found" >&2
  exit 1
fi
existing=()
for file in "${files[@]}"; do
  [ -f "$file" ] && existing+=("$file")
done
if [ "${1:-}" = "--fix" ]; then
  clang-format -i "${existing[@]}"
  echo "format: formatted ${#existing[@]} files"
else
  clang-format --dry-run -Werror "${existing[@]}"
  echo "format: ${#existing[@]} files match .clang-format"
fi
