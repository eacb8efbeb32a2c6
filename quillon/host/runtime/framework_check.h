// Whether the device's framework folder can run an application.
#pragma once

#include <string>

#include "quillon/base/failure.h"

namespace quillon::host {

// Fails with kNoRuntime if the folder has no runtime, or one that is older than the application
// wants. The failure names the wanted version, what was found, the folder and one remedy.
//
// wantedVersion, foundVersion  of Microsoft.NETCore.App; empty if unknown
// device                       the device root, as on the command line
[[nodiscard]] Expected<void> requireFramework(const std::string& wantedVersion,
                                              const std::string& foundVersion,
                                              const std::string& device);

// Whether version `found` can run an application built for version `wanted`: newer versions of .NET
// run older applications. True if either version is unknown.
bool serves(const std::string& found, const std::string& wanted);

}  // namespace quillon::host
