// The identity of the application that this process runs: the notice to the launch-boost daemon,
// the check of the executable path, and the process name.
#pragma once

#include <string>

#include "platform/package_info.h"

// The application id. Set by _SetAppInfo. Never destroyed, because threads can outlive main. Signal
// handlers must use publishedAppId while it is being assigned.
extern std::string g_appID;

// The executable path as the launcher passed it. Set after the path was found to be allowed.
extern std::string g_execPath;

// The path prefixes that executables must have, tested in this order.
extern const std::string allowedExecPathPrefix[3];

// Sets the identity of the application. Ends the process with status 0, after one error line, if
// the executable is refused. A strategy's SetAppInfo calls it once per launch.
void _SetAppInfo(const std::string& appId, const std::string& execPath);

// Returns only if `execPath`, with symbolic links resolved, exists and has an allowed prefix.
// Otherwise ends the process with status 0, so that the launcher does not treat a refusal as a
// crash.
void checkExecRunable(const std::string& execPath);

// Returns true if `path` begins with one of the allowed prefixes. Symbolic links in `path` must
// already be resolved.
bool isAllowedExecPath(const std::string& path);

// Sets the name of the calling thread to "DN_" and the last 12 characters of `appId`.
void changeProcessName(const std::string& appId);

// Returns the package id of the calling process, or an empty string if it is unknown.
std::string GetLaunchedAppPackageID();

// Returns true if one of the package's applications is a service component. Returns false, after an
// error line, if the package cannot be looked up.
bool isServiceApp(const std::string& packageId);

// Callback of package_info_foreach_app_from_package: stores true in `*userData`, a bool, for a
// service component. `userData` may be null. Always returns true to continue the iteration.
bool _package_info_app_cb(package_info_app_component_type_e type, const char* appId,
                          void* userData);
