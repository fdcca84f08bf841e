# 64-bit ARM (arm64), with Debian's cross compiler and the arm64 libraries of
# Debian's multiarch packages (libnl, GoogleTest) as the target system. Test
# programs run under qemu-user, called explicitly so that no binfmt
# registration is needed:
#   cmake -S . -B build/arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm64.cmake
set(QIRA_CROSS_TRIPLET aarch64-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(QIRA_CROSS_EMULATOR qemu-aarch64-static)
include(${CMAKE_CURRENT_LIST_DIR}/debian-multiarch.cmake)
