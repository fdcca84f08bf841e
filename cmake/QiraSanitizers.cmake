# QIRA_SANITIZE=address|undefined|address,undefined instruments every target of the tree.
if(QIRA_SANITIZE)
  set(_qira_sanitize_flags -fsanitize=${QIRA_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_compile_options(${_qira_sanitize_flags})
  add_link_options(${_qira_sanitize_flags})
endif()
