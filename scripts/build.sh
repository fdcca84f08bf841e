#!/usr/bin/env bash
# Configures and builds the tree with one compiler into build/<compiler>.
#   scripts/build.sh gcc|clang|asan|clang-asan [extra cmake arguments...]
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
compiler="${1:?usage: scripts/build.sh gcc|clang|asan|clang-asan [cmake arguments...]}"
shift
case "$compiler" in
  # Both plain builds also compile the benchmarks, whose smoke tests run
  # with the suite so that they do not rot; scripts/bench.sh measures.
  gcc) cc=gcc cxx=g++ build_type=RelWithDebInfo
    set -- -DQIRA_BUILD_BENCH=ON "$@" ;;
  clang) cc=clang cxx=clang++ build_type=Debug
    set -- -DQIRA_BUILD_BENCH=ON "$@" ;;
  # gcc with AddressSanitizer (leak detection included) and UBSan.
  asan) cc=gcc cxx=g++ build_type=Debug
    set -- -DQIRA_SANITIZE=address,undefined "$@" ;;
  # The same sanitizers with clang: its runtimes catch other things.
  clang-asan) cc=clang cxx=clang++ build_type=Debug
    set -- -DQIRA_SANITIZE=address,undefined "$@" ;;
  *) echo "build.sh: unknown compiler $compiler" >&2; exit 2 ;;
esac

# A compiler cache, where one is installed, as in scripts/cross.sh.
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
build_dir="$root/build/$compiler"
cmake -S "$root" -B "$build_dir" -G Ninja "${launcher[@]}" \
  -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" \
  -DCMAKE_BUILD_TYPE="$build_type" -DCMAKE_COMPILE_WARNING_AS_ERROR=ON "$@"
cmake --build "$build_dir"
