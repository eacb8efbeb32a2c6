// The application to launch, as the device root's registry and the command line describe it, and
// the plug-in's requirements for it.
//
// Call these functions inside the device root only.
#pragma once

#include <string>
#include <vector>

#include "quillon/base/exit_status.h"
#include "quillon/base/failure.h"
#include "quillon/host/application/options.h"
#include "workstation/packages.h"

namespace quillon::host {

struct LaunchTarget {
  workstation::Package package;
  workstation::Application application;
  std::string type;      // application type, as passed to the plug-in
  std::string exec;      // executable path, as passed to the plug-in
  std::string assembly;  // absolute form of exec, as passed to the runtime

  // The application's own folders: that of the assembly, and "bin" and "lib" of the package.
  static constexpr size_t kFolderCount = 3;
  std::vector<std::string> folders() const;
};

// Finds the application in the registry and applies the command line's options. Fails with
// kNotInstalled, with kServiceFailed, or with kUnusablePath if a path contains ":".
[[nodiscard]] Expected<LaunchTarget> findTarget(const LaunchOptions& options);

// The reasons why a launch would not reach the application, in the order in which a launch meets
// them: a missing or unusable assembly, a missing privilege, a path outside the allowed folders.
std::vector<Failure> predictRefusals(const LaunchTarget& target);

// Whether applications of this type are launched inside the security zone, if the zone runs.
bool entersZone(const std::string& type);

// Whether the launch enters the security zone in debug mode, as requested by a privilege of the
// package. A process can do so only if it knows the package before it enters the zone.
bool entersZoneInDebugMode(const LaunchTarget& target);

// Fails with kNoAssembly if the assembly is missing, and with kNotExecutable if the file is not an
// assembly or has no entry point.
[[nodiscard]] Expected<void> requireAssembly(const LaunchTarget& target);

// The packages whose DPC directories the application requires, in order, without empty names.
std::vector<std::string> requiredDpcPackages(const workstation::Application& application);

// The remedy for a refusal with which the plug-in ends the process, to print beside the plug-in's
// message. Empty if the message is not a known refusal.
std::string remedyForRefusal(const std::string& message, const LaunchTarget& target);

}  // namespace quillon::host
