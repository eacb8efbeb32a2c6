// Settings of the runtime that change how fast an application starts.
//
// Each is a variable of the environment that the runtime reads as it is created (its public
// documentation lists them as runtime configuration settings). docs/launch-speed.md says what each
// is worth.
#pragma once

#include <initializer_list>
#include <optional>

namespace quillon::host {

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

// A variable that the runtime alone is meant to read: of the environment as long as this lives,
// unless somebody set one of the variables that decide the same.
//
// Changes the environment when it is made and when it ends: no other thread may read it then.
class RuntimeVariable {
 public:
  RuntimeVariable(const char* name, const char* value, std::initializer_list<const char*> deciding);
  ~RuntimeVariable();
  RuntimeVariable(const RuntimeVariable&) = delete;
  RuntimeVariable& operator=(const RuntimeVariable&) = delete;

 private:
  const char* const name_;
  const bool isMine_;
};

// As long as it lives, a runtime whose library is loaded leaves its LTTng provider out, which it
// loads in advance otherwise (DOTNET_LTTng). Without DOTNET_EnableEventLog the provider says
// nothing (the runtime's docs/project/linux-performance-tracing.md); where that is set, or
// DOTNET_LTTng itself, this changes nothing. The application sees the environment as it was.
class WithoutIdleTracing : RuntimeVariable {
 public:
  WithoutIdleTracing();
};

// As long as it lives, a runtime that is created keeps the thread that compiles, however long it
// has nothing to do; it ends after four seconds otherwise (DOTNET_TC_BackgroundWorkerTimeoutMs),
// and the first new method starts it anew.
class WithLastingCompiler : RuntimeVariable {
 public:
  WithLastingCompiler();
};

}  // namespace quillon::host
