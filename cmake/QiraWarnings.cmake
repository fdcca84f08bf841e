# Warnings are errors on gcc and clang alike; applied per target, never globally.
function(qira_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
  # __FILE__ reaches the log lines: keep it relative to the source tree so the
  # build machine's paths never end up in the binary.
  target_compile_options(${target} PRIVATE "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
endfunction()
