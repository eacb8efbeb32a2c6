// The privileges that a launch requires. They are looked up for the package of the calling process.
#pragma once

// Returns true if the package of the calling process declares the platform privilege.
bool HasPlatformPrivilege();

// Returns true if the package of the calling process declares the application-debugging privilege.
bool HasAppdebugPrivilege();

// Returns only if the package has the platform privilege. Otherwise ends the process with status 0
// after one error line.
void checkAppHasPlatformPrivilege();
