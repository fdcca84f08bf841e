# Warnings are errors on gcc and clang alike; applied per target, never globally.
function(qira_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
  # __FILE__ reaches the log lines: keep it relative to the source tree so the
  # build machine's paths never end up in the binary. A compiler launcher
  # such as ccache (with base_dir) passes the sources by their path relative
  # to the build tree, so that prefix is mapped too.
  target_compile_options(${target} PRIVATE "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
  file(RELATIVE_PATH from_build "${PROJECT_BINARY_DIR}" "${PROJECT_SOURCE_DIR}")
  # "../../" for a build tree inside the source tree: one slash is added below.
  string(REGEX REPLACE "/+$" "" from_build "${from_build}")
  if(from_build)
    target_compile_options(${target} PRIVATE "-fmacro-prefix-map=${from_build}/=")
  endif()
endfunction()
