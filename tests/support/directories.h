// Folder creation shared by the sandbox set-up and the test file helpers.
#ifndef QIRA_TESTS_SUPPORT_DIRECTORIES_H
#define QIRA_TESTS_SUPPORT_DIRECTORIES_H

#include <sys/types.h>

#include <string>

namespace qira::test::detail {

// Creates `path` and every missing parent with `mode` (folders that already
// exist are left as they are). Returns 0, or the errno of the first step that
// failed.
int create_directories(const std::string& path, mode_t mode);

}  // namespace qira::test::detail

#endif  // QIRA_TESTS_SUPPORT_DIRECTORIES_H
