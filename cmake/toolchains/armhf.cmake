# 32-bit ARM, hard-float (armhf), with Debian's cross compiler and the armhf
# libraries of Debian's multiarch packages (libnl, GoogleTest) as the target
# system. Test programs run under qemu-user, called explicitly so that no
# binfmt registration is needed:
#   cmake -S . -B build/armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/armhf.cmake
set(QIRA_CROSS_TRIPLET arm-linux-gnueabihf)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(QIRA_CROSS_EMULATOR qemu-arm-static)
include(${CMAKE_CURRENT_LIST_DIR}/debian-multiarch.cmake)

# GCC notes every std::vector iterator passed by value that "parameter
# passing ... changed in GCC 7.1": it matters only when linking objects of a
# compiler older than 7.1, never the case here.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
