// Asks the package database whether a package declares a privilege.
#pragma once

#include <string>

// What the walk over a package's privileges looks for and finds.
struct PrivilegeSearch {
  bool found;
  const char* privilege;
};

// True when the package declares exactly `privilege`. False, with an error line, when the package
// cannot be looked up.
bool HasPrivilege(const std::string& privilege, const std::string& packageId);

// The walk's callback: logs each privilege and notes a match in `search`. Always true, so that the
// whole list is seen.
bool privilege_info_cb(const char* privilege, void* search);
