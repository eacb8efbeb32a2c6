// The shared resource directories of packages that provide an external component (CoBA), for the
// DLL search path.
//
// A list of these directories begins with ":" and has no separator at its end, so that it can be
// appended to another list. It is empty if no package provides a component.
#pragma once

#include <string>

#include "platform/app_info.h"

// All directories that the queries of this process have found. The list is never cleared: a second
// query appends all directories again.
extern std::string coBASharedDirsInApp;

// Called for each application that declares an external component: appends the directory of its
// package to coBASharedDirsInApp. Always returns true to continue the iteration.
bool GetCoBAAppInfoCB(app_info_h handle, void* userData);

// Queries the application-information service. Returns a copy of coBASharedDirsInApp.
std::string GetCoBASharedDirsInApp();

// Does the same as GetCoBASharedDirsInApp and saves the list for later launches.
std::string GetCoBADirsAndSaveAsCache();

// Returns the saved list. If it is missing or incomplete, queries the service and saves the result.
std::string GetCoBADirFromCache();
