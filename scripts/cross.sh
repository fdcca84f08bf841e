#!/usr/bin/env bash
# Cross-builds the tree for 32-bit ARM (armhf) or 64-bit ARM (arm64) into
# build/<architecture> with Debian's cross compiler, and with --test runs the
# unit suite there under qemu-user (called by CTest, no binfmt needed).
#   scripts/cross.sh armhf|arm64 [--test] [extra cmake arguments...]
# scripts/cross-deps.sh installs what it needs.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
architecture="${1:?usage: scripts/cross.sh armhf|arm64 [--test] [cmake arguments...]}"
shift
case "$architecture" in
  armhf | arm64) ;;
  *) echo "cross.sh: unknown architecture $architecture (armhf or arm64)" >&2; exit 2 ;;
esac
run_tests=0
if [ "${1:-}" = "--test" ]; then
  run_tests=1
  shift
fi

launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
build_dir="$root/build/$architecture"
cmake -S "$root" -B "$build_dir" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/$architecture.cmake" \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
  "${launcher[@]}" "$@"
cmake --build "$build_dir" -j2
if [ "$run_tests" -eq 1 ]; then
  ctest --test-dir "$build_dir" -j2 --output-on-failure
fi
