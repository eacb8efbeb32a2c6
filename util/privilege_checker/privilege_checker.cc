#include "util/privilege_checker/privilege_checker.h"

#include <cstring>

#include "platform/package_info.h"
#include "util/log/log.h"

bool privilege_info_cb(const char* privilege, void* search) {
  QLOG_SCOPE();
  auto* state = static_cast<PrivilegeSearch*>(search);
  if (privilege == nullptr || state == nullptr) {
    return true;
  }
  QLOG_DEBUG("%s", privilege);
  if (std::strcmp(privilege, state->privilege) == 0) {
    QLOG_INFO("### Have %s privilege ###", privilege);
    state->found = true;
  }
  return true;
}

// The package record is not released: a launch makes only a few queries, and the process is
// short-lived.
bool HasPrivilege(const std::string& privilege, const std::string& packageId) {
  QLOG_SCOPE();
  package_info_h package = nullptr;
  const int result = package_info_create(packageId.c_str(), &package);
  if (result != 0 || package == nullptr) {
    QLOG_ERROR("package_info_create return error code : %d", result);
    return false;
  }
  PrivilegeSearch search{false, privilege.c_str()};
  package_info_foreach_privilege_info(package, privilege_info_cb, &search);
  return search.found;
}
