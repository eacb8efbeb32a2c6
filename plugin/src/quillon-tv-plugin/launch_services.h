// Small services of a launch. None of them stops it: a failure is one log line, or silent where
// that is said.
#pragma once

#include <string>

// Names the certificate file for the runtime's TLS code in SSL_CERT_FILE: the updated one where
// there is one, else the one that came with the platform.
void setCetificationFile();

// True when an entry of the opt-in directory has `appId` anywhere in its name. So the id of one
// application also lets in those whose id is a part of it; an empty id is let in by any entry.
bool IsAllowedToActivateGCTracer(const std::string& appId);

// Calls the managed method Velora.Preload.ActivateGCTracer with `appId`. Failures are silent.
void ActivateGCTracer(const char* appId);

// True when the object tracker is installed on the device.
bool isObjectTrackerInstalled();

// Calls the managed method Velora.Preload.StartServerForOT. Failures are silent.
void CallFunctionForOT();

// Lets a debugger of any label open the debugger pipes that the runtime made for this process.
void handleDebugPipe();
