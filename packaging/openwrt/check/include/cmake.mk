# Stand-in for OpenWrt's cmake.mk, for check.sh: the variables a package
# Makefile extends.
CMAKE_SOURCE_DIR?=$(PKG_BUILD_DIR)
CMAKE_BINARY_DIR?=$(PKG_BUILD_DIR)$(if $(CMAKE_BINARY_SUBDIR),/$(CMAKE_BINARY_SUBDIR))
CMAKE_OPTIONS:=
