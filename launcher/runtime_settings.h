// Settings of the runtime that change how fast an application starts.
//
// Each is a variable of the environment that the runtime reads as it is created (its public
// documentation lists them as runtime configuration settings). docs/launch-speed.md says what each
// is worth.
#pragma once

#include <optional>

namespace quillon::launcher {

// Empty: as the environment and the application's own configuration say, and the runtime's default
// where they are silent, which is on for all of them.
struct RuntimeSettings {
  std::optional<bool> tieredCompilation;
  std::optional<bool> quickJitForLoops;
  std::optional<bool> tieredPgo;
  std::optional<bool> readyToRun;
  std::optional<bool>
      writeXorExecute;              // a defence: memory is never writable and executable at once
  std::optional<bool> diagnostics;  // debugger, profiler and the diagnostic socket
};

// Puts what is chosen into the process's environment. Call before the runtime is created.
void applySettings(const RuntimeSettings& settings);

// As long as it lives, a runtime whose library is loaded leaves its LTTng provider out, which it
// loads in advance otherwise (DOTNET_LTTng). Without DOTNET_EnableEventLog the provider says
// nothing (the runtime's docs/project/linux-performance-tracing.md); where that is set, or
// DOTNET_LTTng itself, this changes nothing. The application sees the environment as it was.
//
// Changes the environment when it is made and when it ends: no other thread may read it then.
class WithoutIdleTracing {
 public:
  WithoutIdleTracing();
  ~WithoutIdleTracing();
  WithoutIdleTracing(const WithoutIdleTracing&) = delete;
  WithoutIdleTracing& operator=(const WithoutIdleTracing&) = delete;

 private:
  const bool isMine_;
};

}  // namespace quillon::launcher
