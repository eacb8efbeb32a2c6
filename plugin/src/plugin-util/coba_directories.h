// The shared resource directories of packages that offer an external component (CoBA), for the DLL
// search path.
//
// A list of them begins with ":" and has no separator at its end, so that it can be appended as it
// is; it is empty where no package offers a component.
#pragma once

#include <platform/app_info.h>

#include <string>

// Every directory that a query of this process found. Only ever grows: a second query appends the
// whole list again.
extern std::string coBASharedDirsInApp;

// Called per application that declares an external component: appends its package's directory to
// coBASharedDirsInApp. Always true, so that every application is seen.
bool GetCoBAAppInfoCB(app_info_h handle, void* userData);

// Asks the application-information service; returns a copy of coBASharedDirsInApp.
std::string GetCoBASharedDirsInApp();

// As GetCoBASharedDirsInApp, and saves the list for later launches.
std::string GetCoBADirsAndSaveAsCache();

// The saved list; queried and saved anew when it is missing or torn.
std::string GetCoBADirFromCache();
