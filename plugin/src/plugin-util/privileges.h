// The privileges that decide over a launch. Which package they are asked of is decided by the
// calling process.
#pragma once

// True when the calling process's package declares the platform privilege.
bool HasPlatformPrivilege();

// True when the calling process's package declares the application-debugging privilege.
bool HasAppdebugPrivilege();

// Returns only when the platform privilege is held; otherwise ends the process with status 0 after
// one error line.
void checkAppHasPlatformPrivilege();
