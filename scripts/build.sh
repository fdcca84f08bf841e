#!/usr/bin/env bash
# Configures and builds the tree with one compiler into build/<compiler>.
#   scripts/build.sh gcc|clang|asan [extra cmake arguments...]
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
compiler="${1:?usage: scripts/build.sh gcc|clang|asan [cmake arguments...]}"
shift
case "$compiler" in
  gcc) cc=gcc cxx=g++ build_type=RelWithDebInfo ;;
  clang) cc=clang cxx=clang++ build_type=Debug ;;
  # gcc with AddressSanitizer (leak detection included) and UBSan.
  asan) cc=gcc cxx=g++ build_type=Debug
    set -- -DQIRA_SANITIZE=address,undefined "$@" ;;
  *) echo "build.sh: unknown compiler $compiler" >&2; exit 2 ;;
esac

build_dir="$root/build/$compiler"
cmake -S "$root" -B "$build_dir" -G Ninja \
  -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" \
  -DCMAKE_BUILD_TYPE="$build_type" -DCMAKE_COMPILE_WARNING_AS_ERROR=ON "$@"
cmake --build "$build_dir"
