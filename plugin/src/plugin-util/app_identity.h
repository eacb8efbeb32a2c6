// Which application runs in this process, and what the process does about it: notice to the
// launch-boost daemon, rule for executable paths, process name.
#pragma once

#include <platform/package_info.h>

#include <string>

// The application's id, from _SetAppInfo on. Never destroyed: signal handlers read it.
extern std::string& g_appID;

// The executable path as the launcher gave it, once it was found to be allowed.
extern std::string g_execPath;

// Where executables may lie; tested in this order.
extern const std::string allowedExecPathPrefix[3];

// Takes the application's identity over. Ends the process with status 0, after one error line, when
// the executable is refused. Called once per launch by a strategy's SetAppInfo.
void _SetAppInfo(const std::string& appId, const std::string& execPath);

// Returns only when `execPath`, with links resolved, exists and is allowed; otherwise ends the
// process with status 0, so that the launcher takes no refusal for a crash.
void checkExecRunable(const std::string& execPath);

// True when `path` begins with one of the allowed prefixes. `path` must be resolved already.
bool isAllowedExecPath(const std::string& path);

// Names the calling thread "DN_" + the last 12 characters of `appId`.
void changeProcessName(const std::string& appId);

// Package id of the calling process; empty when it is unknown.
std::string GetLaunchedAppPackageID();

// True when one of the package's applications is a service component. False, with an error line,
// when the package cannot be looked up.
bool isServiceApp(const std::string& packageId);

// The walk's callback: stores true in `*userData`, a bool, for a service component. `userData` may
// be null. Always true, so that every application is seen.
bool _package_info_app_cb(package_info_app_component_type_e type, const char* appId,
                          void* userData);
