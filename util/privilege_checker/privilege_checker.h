// Queries the package database for the privileges that a package declares.
#pragma once

#include <string>

// The state of the search through the privileges of a package.
struct PrivilegeSearch {
  bool found;
  const char* privilege;
};

// Returns true if the package declares exactly `privilege`. Returns false, after an error line, if
// the package cannot be looked up.
bool HasPrivilege(const std::string& privilege, const std::string& packageId);

// Callback for each privilege: logs it, and records a match in `search`. Always returns true to
// continue the iteration.
bool privilege_info_cb(const char* privilege, void* search);
