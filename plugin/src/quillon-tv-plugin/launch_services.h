// Optional services of a launch. A failure never stops the launch. It is logged as one error line,
// unless stated otherwise.
#pragma once

#include <string>

// Sets SSL_CERT_FILE, the certificate file for the TLS code of the runtime. Uses the updated file
// if it exists, otherwise the file of the platform.
void setCetificationFile();

// Returns true if the name of an entry in the opt-in directory contains `appId`. An entry therefore
// also matches every application whose id is a part of its name, and every entry matches an empty
// id.
bool IsAllowedToActivateGCTracer(const std::string& appId);

// Calls the managed method Velora.Preload.ActivateGCTracer with `appId`. Failures are not logged.
void ActivateGCTracer(const char* appId);

// Returns true if the object tracker is installed on the device.
bool isObjectTrackerInstalled();

// Calls the managed method Velora.Preload.StartServerForOT. Failures are not logged.
void CallFunctionForOT();

// Allows debuggers with any access label to open the debugger pipes that the runtime created for
// this process.
void handleDebugPipe();
