# QIRA_SIZE_RELEASE=ON builds the module as it ships on cameras, for size:
# -Os, every function and datum in a section of its own, and --gc-sections so
# that the linker drops what no exported function reaches. Hidden visibility
# and the version script already decide the exported interface; these flags
# change only how the code is optimised and placed, not what it does. A
# linker map beside the module (qira_network_utils_wireless.map in the build
# tree) lets scripts/size-report.sh attribute the bytes to source files.
option(QIRA_SIZE_RELEASE "Build the module for size (-Os, sections, --gc-sections, link map)" OFF)

function(qira_apply_size_release target)
  target_compile_options(${target} PRIVATE -Os -ffunction-sections -fdata-sections)
  target_link_options(${target} PRIVATE
    "LINKER:--gc-sections"
    "LINKER:-Map=${PROJECT_BINARY_DIR}/${target}.map")
endfunction()
