// Whether the device's framework folder can run an application.
#pragma once

#include <string>

#include "quillon/base/failure.h"

namespace quillon::host {

// Fails with kNoRuntime, naming what was wanted, what was found, where, and one remedy: where the
// folder holds no runtime, or one that is older than the application wants.
//
// wantedVersion, foundVersion  of Microsoft.NETCore.App; empty where unknown
// device                       the device root, as the person named it
[[nodiscard]] Expected<void> requireFramework(const std::string& wantedVersion,
                                              const std::string& foundVersion,
                                              const std::string& device);

// Whether version `found` serves an application built for version `wanted`: .NET is compatible
// upwards. Unknown versions serve.
bool serves(const std::string& found, const std::string& wanted);

}  // namespace quillon::host
