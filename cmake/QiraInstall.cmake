# Install rules, one component per thing a firmware ships:
#   module  the wireless module (libqira_network_utils_wireless.so.<version>,
#           its SONAME link and its .so link), its headers, the host contract
#           headers those include, a pkg-config file and the CMake package
#           qira_network_utils_wireless (target qira::network_utils_wireless);
#   host    the reference host library libqira_host, its own headers, its
#           pkg-config file and the CMake package qira_host (qira::host);
#   tools   the qira-wifi program, its manual page and its bash completion.
# e.g. cmake --install build --component module --prefix /opt/camera
include(CMakePackageConfigHelpers)

set(QIRA_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake)
set(QIRA_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The .pc files locate the prefix from their own folder, so that a tree
# installed with --prefix or DESTDIR (a staging folder, a firmware root) is
# found where it lies, not where the build was configured to put it.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(QIRA_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH _qira_pc_to_prefix "/prefix/${QIRA_INSTALL_PKGCONFIGDIR}" "/prefix")
  string(REGEX REPLACE "/$" "" _qira_pc_to_prefix "${_qira_pc_to_prefix}")
  set(QIRA_PC_PREFIX "\${pcfiledir}/${_qira_pc_to_prefix}")
endif()
foreach(_dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${_dir}}")
    set(QIRA_PC_${_dir} "${CMAKE_INSTALL_${_dir}}")
  else()
    set(QIRA_PC_${_dir} "\${prefix}/${CMAKE_INSTALL_${_dir}}")
  endif()
endforeach()

# qira_install_package(NAME COMPONENT): the package files of one installed
# library, in COMPONENT: its exported targets (namespace qira::), NAME-config
# and NAME-config-version (any version of the same major number answers) from
# cmake/install/NAME-config.cmake.in, and NAME.pc from
# cmake/install/NAME.pc.in.
function(qira_install_package name component)
  set(staged ${PROJECT_BINARY_DIR}/install)
  set(cmake_dir ${QIRA_INSTALL_CMAKEDIR}/${name})
  install(EXPORT ${name}-targets
    NAMESPACE qira::
    DESTINATION ${cmake_dir}
    COMPONENT ${component})
  configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/install/${name}-config.cmake.in
    ${staged}/${name}-config.cmake
    INSTALL_DESTINATION ${cmake_dir})
  write_basic_package_version_file(${staged}/${name}-config-version.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${staged}/${name}-config.cmake ${staged}/${name}-config-version.cmake
    DESTINATION ${cmake_dir} COMPONENT ${component})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/install/${name}.pc.in ${staged}/${name}.pc @ONLY)
  install(FILES ${staged}/${name}.pc
    DESTINATION ${QIRA_INSTALL_PKGCONFIGDIR} COMPONENT ${component})
endfunction()

# ---- module ------------------------------------------------------------------

# The module's public headers name the host's types (Variant), so the
# contract headers the module compiles against travel with it: a host project
# builds against the module with this component alone. The reference host's
# own headers (qira/host/) stay in the host component.
set_target_properties(qira_network_utils_wireless PROPERTIES EXPORT_NAME network_utils_wireless)
set_target_properties(qira_host_headers PROPERTIES EXPORT_NAME host_contract)
install(TARGETS qira_network_utils_wireless qira_host_headers
  EXPORT qira_network_utils_wireless-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT module NAMELINK_COMPONENT module)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/qira
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT module
  FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_SOURCE_DIR}/host/include/qira/host_globals.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qira COMPONENT module)
install(DIRECTORY
    ${PROJECT_SOURCE_DIR}/host/include/qira/netlib
    ${PROJECT_SOURCE_DIR}/host/include/qira/network
    ${PROJECT_SOURCE_DIR}/host/include/qira/utils
    ${PROJECT_SOURCE_DIR}/host/include/qira/variant
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qira COMPONENT module
  FILES_MATCHING PATTERN "*.h")
# The module's ABI is its SONAME: any 1.x module replaces any other.
qira_install_package(qira_network_utils_wireless module)

# ---- host --------------------------------------------------------------------

set_target_properties(qira_host PROPERTIES EXPORT_NAME host)
install(TARGETS qira_host
  EXPORT qira_host-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT host NAMELINK_COMPONENT host
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/host/include/qira/host
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qira COMPONENT host
  FILES_MATCHING PATTERN "*.h")
# The reference host is released with the module; its package configuration
# asks for the module of exactly its own version.
qira_install_package(qira_host host)
