// The launch pad's own managed code, in the assembly Quillon.Launchpad beside the plug-in.
#pragma once

#include <filesystem>

#include "quillon/base/failure.h"
#include "quillon/host/runtime/runtime.h"
#include "quillon/launchpad/worker/environment.h"

namespace quillon::launchpad {

// The assembly's file for a plug-in.
std::filesystem::path managedAssembly(const std::filesystem::path& plugin);

class ManagedSide {
 public:
  // Finds the methods in a runtime that has the assembly among its trusted ones.
  [[nodiscard]] Expected<void> bind(const host::Runtime& runtime);

  // Loads and compiles what nearly every application needs first, and what assign() does: with the
  // properties, which every application is assigned its own of. The runtime has its copy of the
  // environment from here on.
  void warmUp(const host::RuntimeProperties& properties) const;

  // Gives AppContext and the runtime's copy of the environment what they would have had from the
  // start, had the application been known. False where the runtime refuses.
  [[nodiscard]] bool assign(const host::RuntimeProperties& properties,
                            const EnvironmentChanges& variables) const;

 private:
  void (*warmUp_)() = nullptr;
  int (*assign_)(const char* properties, const char* variables) = nullptr;
};

}  // namespace quillon::launchpad
