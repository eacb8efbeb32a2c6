// The launch pad's managed code: the assembly Quillon.Launchpad, installed beside the plug-in.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "quillon/base/failure.h"
#include "quillon/host/runtime/runtime.h"
#include "quillon/launchpad/worker/environment.h"

namespace quillon::launchpad {

// The file of the assembly that belongs to a plug-in.
std::filesystem::path managedAssembly(const std::filesystem::path& plugin);

class ManagedSide {
 public:
  // Looks up the methods in a runtime whose trusted assemblies include the assembly.
  [[nodiscard]] Expected<void> bind(const host::Runtime& runtime);

  // Loads and compiles the methods that nearly every application needs first, and those of
  // assign(), which it calls with `properties`. Afterwards the runtime has a copy of the
  // environment.
  void warmUp(const host::RuntimeProperties& properties) const;

  // Call when the runtime has called no new method for kQuietTime. It counts the calls of methods
  // from then on, and compiles a method again, on another thread, when it has been called 30 times.
  // This does so for the methods of assign(), so that it does not happen during a launch.
  static constexpr std::chrono::milliseconds kQuietTime{150};
  void warmUpAgain() const;

  // Waits until the assembly's Main runs on another thread, which never returns from it. Call
  // beginRehearsal() before that thread begins, on the thread that will run the application.
  void beginRehearsal() const { beginRehearsal_(); }
  void awaitRehearsal() const { awaitRehearsal_(); }

  // Loads the assembly of an application, without running code of it. No placeholder folder may
  // contain the assembly yet. Returns false if that is impossible.
  [[nodiscard]] bool loadApplication(const std::string& assembly) const;
  // Compiles Main of the loaded application. That runs the module initializers of the assemblies
  // that it uses. Returns false if it needs an assembly that is not found.
  [[nodiscard]] bool compileMain() const { return compileMain_() == 0; }
  // The files of all loaded assemblies. Returns nullopt on failure.
  [[nodiscard]] std::optional<std::vector<std::string>> loadedFiles() const;

  // Sets the properties of AppContext and the variables of the runtime's copy of the environment to
  // the values that they have in a direct launch. Returns false if the runtime refuses.
  [[nodiscard]] bool assign(const host::RuntimeProperties& properties,
                            const std::vector<CopiedEnvironment::Change>& variables) const;

 private:
  void assignOften(const host::RuntimeProperties& properties, size_t times) const;

  void (*warmUp_)() = nullptr;
  void (*beginRehearsal_)() = nullptr;
  void (*awaitRehearsal_)() = nullptr;
  int (*loadApplication_)(const char* path) = nullptr;
  int (*compileMain_)() = nullptr;
  int (*loadedFiles_)(char* buffer, int size) = nullptr;
  int (*assign_)(const char* properties, const char* variables) = nullptr;
};

}  // namespace quillon::launchpad
