// The plug-in's functions, as launches call them: see launch_calls.h for their order. Each method
// turns the failures of its call into a Failure or, if the plug-in ends the process, explains the
// exit. Each call is a span of the launch's trace that has the name of the plug-in's function.
#pragma once

#include <string>

#include "quillon/host/application/target.h"
#include "quillon/host/plugin/plugin_library.h"
#include "quillon/host/plugin/plugin_lists.h"
#include "quillon/host/runtime/runtime.h"

namespace quillon::host {

class PluginCalls {
 public:
  PluginCalls() = default;
  // `target` must outlive this object.
  PluginCalls(const PluginLibrary& library, const LaunchTarget* target)
      : library_(library), target_(target) {}

  // Fails with kUsage if the plug-in does not know the application type.
  [[nodiscard]] Expected<void> initialize() const;

  // Copies of the four lists. Call once.
  [[nodiscard]] Expected<PluginLists> lists() const;

  // Whether the validator accepts a library. May block for ever: see ValidatorWatchdog.
  bool validate(const std::string& path) const;

  void setRuntime(const Runtime& runtime) const;
  void preload() const;

  // If the plug-in refuses the application, prints a line on the terminal and ends the process with
  // status 0.
  //
  // hasBoostListener  another process has a BoostListener for this launch
  [[nodiscard]] Expected<void> setApplication(bool hasBoostListener = false) const;

  // Redirects standard output and error into the log. The process flushes them when it exits.
  void captureOutput() const;

  void beforeExecute() const;
  void finalize() const;

 private:
  PluginLibrary library_;
  const LaunchTarget* target_ = nullptr;
};

}  // namespace quillon::host
