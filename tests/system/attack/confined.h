// Processes that are confined before they do something.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/system/launch/sample_device.h"

namespace quillon::test {

// Confines the calling process. Returns false if that fails.
using Confine = std::function<bool()>;

// Confine functions. Each needs no right.
bool noNewPrivileges();
// Lets seccomp(2) fail one system call with EPERM.
bool filterSystemCall(int number);
// A Landlock domain that forbids to bind TCP sockets. One that forbids to write files would also
// forbid the mounts of a direct launch.
bool enterLandlock();
// Moves the process into a UTS namespace of its own and, for a user other than root, into a user
// namespace.
bool enterOwnNamespaces();
// Drops all capabilities, also those that exec() would give to root.
bool dropAllCapabilities();

bool hasLandlock();

// Runs a program to its end, or for a minute, in a process that `confine` has confined. The status
// is 126 if that failed.
CommandResult runConfined(const Confine& confine, const std::vector<std::string>& command);

}  // namespace quillon::test
