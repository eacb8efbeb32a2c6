// Settings of the runtime that change how fast an application starts.
//
// Each is an environment variable that the runtime reads when it is created (its public
// documentation lists them as runtime configuration settings). docs/launch-speed.md describes the
// effect of each.
#pragma once

#include <initializer_list>
#include <optional>

namespace quillon::host {

// An empty setting leaves the choice to the environment and the application's own configuration. If
// neither makes one, the runtime's default applies, which is on for all settings.
struct RuntimeSettings {
  std::optional<bool> tieredCompilation;
  std::optional<bool> quickJitForLoops;
  std::optional<bool> tieredPgo;
  std::optional<bool> readyToRun;
  // A security feature: memory is never writable and executable at the same time.
  std::optional<bool> writeXorExecute;
  std::optional<bool> diagnostics;  // debugger, profiler and the diagnostic socket
};

// Sets the environment variables of the settings that are not empty. Call before the runtime is
// created.
void applySettings(const RuntimeSettings& settings);

// Sets an environment variable for the lifetime of the object, so that the runtime reads it and the
// application does not. Does nothing if a variable in `overrides` is set, which decides the same.
//
// The constructor and the destructor change the environment: no other thread may read it meanwhile.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value, std::initializer_list<const char*> overrides);
  ~ScopedVariable();
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  const char* const name_;
  const bool isOwner_;
};

// Prevents the runtime from loading its LTTng provider when its library is loaded (DOTNET_LTTng).
// The provider emits no events without DOTNET_EnableEventLog (the runtime's
// docs/project/linux-performance-tracing.md). Does nothing if DOTNET_EnableEventLog or DOTNET_LTTng
// is set.
class ScopedLttngOff : ScopedVariable {
 public:
  ScopedLttngOff();
};

// Makes a runtime that is created during the lifetime of the object keep its background compilation
// thread (DOTNET_TC_BackgroundWorkerTimeoutMs). By default the thread ends after four seconds
// without work, and the next new method starts it again.
class ScopedJitThreadKeepAlive : ScopedVariable {
 public:
  ScopedJitThreadKeepAlive();
};

}  // namespace quillon::host
