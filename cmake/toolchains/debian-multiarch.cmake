# What the Debian cross toolchain files share; they set QIRA_CROSS_TRIPLET,
# CMAKE_SYSTEM_PROCESSOR and QIRA_CROSS_EMULATOR first.
#
# Debian's multiarch layout is the target system: the target's headers and
# libraries sit beside the build machine's, in /usr/include/<triplet> and
# /usr/lib/<triplet>, and the cross compiler searches them itself. So there
# is no separate sysroot; CMAKE_LIBRARY_ARCHITECTURE makes find_package and
# find_library look in the target's folders only.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${QIRA_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${QIRA_CROSS_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${QIRA_CROSS_TRIPLET})

# Build tools run on the build machine; libraries, headers and packages are
# the target's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

# pkg-config must read the target's .pc files, never the build machine's.
# Set here so that every (re)configure sees it, not only a shell that
# exported it.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/${QIRA_CROSS_TRIPLET}/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# Target programs (the unit tests, GoogleTest's test discovery) run under
# qemu-user. The target's loader and runtime (libc6, libstdc++6, libnl of the
# target architecture) are Debian multiarch packages, installed where the
# target's loader looks for them, so the emulator needs no -L prefix: a
# prefix would also overlay /usr/<triplet>/bin and /lib on the test
# process's view of the machine's /bin and /lib, which the test sandbox
# rebuilds as they are.
find_program(QIRA_CROSS_EMULATOR_PROGRAM ${QIRA_CROSS_EMULATOR} REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${QIRA_CROSS_EMULATOR_PROGRAM})
