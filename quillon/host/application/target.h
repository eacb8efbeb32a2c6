// What is launched: an application of the device root's registry, and what the plug-in will want of
// it.
//
// Everything here holds inside the device root only.
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
  std::string type;      // application type handed to the plug-in
  std::string exec;      // executable path as handed to the plug-in
  std::string assembly;  // absolute form of exec, as handed to the runtime

  // The application's own folders: the assembly's, and "bin" and "lib" of the package.
  static constexpr size_t kFolders = 3;
  std::vector<std::string> folders() const;
};

// Finds the application and applies what the command line says otherwise. Fails with kNotInstalled,
// kServiceFailed, or kUnusablePath for a path that holds ":".
[[nodiscard]] Expected<LaunchTarget> findTarget(const LaunchOptions& options);

// Why the launch of a target cannot come to its application, in the order in which a launch would
// meet it: a missing or unusable assembly, a missing privilege, a path outside the allowed folders.
std::vector<Failure> predictRefusals(const LaunchTarget& target);

// Whether applications of a type are launched inside the security zone, where there is one.
bool entersZone(const std::string& type);

// Whether the launch enters the security zone in debug mode, which its package asks for: only a
// process that knows its package before it enters can.
bool entersZoneInDebugMode(const LaunchTarget& target);

// kNoAssembly where the assembly is missing, kNotExecutable where it is none or has no entry point.
[[nodiscard]] Expected<void> requireAssembly(const LaunchTarget& target);

// Packages whose DPC directory the application requires, in order; empty pieces left out.
std::vector<std::string> requiredDpcPackages(const workstation::Application& application);

// The remedies of the refusals that the plug-in itself ends the process with, for the launcher to
// print beside the plug-in's own words; empty for words that are not known here.
std::string remedyForRefusal(const std::string& message, const LaunchTarget& target);

}  // namespace quillon::host
