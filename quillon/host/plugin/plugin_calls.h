// The plug-in's functions in the order in which a launch calls them, with what can go wrong in each
// made into a failure or, where the plug-in ends the process, explained. Each call is a span of the
// launch's trace, by its name.
#pragma once

#include "quillon/host/application/target.h"
#include "quillon/host/plugin/plugin_library.h"
#include "quillon/host/plugin/plugin_lists.h"
#include "quillon/host/runtime/runtime.h"

namespace quillon::host {

class PluginCalls {
 public:
  PluginCalls() = default;
  // `target` must outlive the calls.
  PluginCalls(const PluginLibrary& library, const LaunchTarget* target)
      : library_(library), target_(target) {}

  // Fails with kUsage where the plug-in does not know the application type.
  [[nodiscard]] Expected<void> initialize() const;

  // Copies of the four lists. Call once.
  [[nodiscard]] Expected<PluginLists> lists() const;

  // Whether the validator accepts a library. May wait for ever.
  bool validate(const std::string& path) const;

  void setRuntime(const Runtime& runtime) const;
  void preload() const;

  // Ends the process with status 0, after a line on the terminal, where the plug-in refuses.
  [[nodiscard]] Expected<void> setApplication() const;

  // Leads standard output and error into the log, to the last line.
  void captureOutput() const;

  void beforeExecute() const;
  void finalize() const;

 private:
  PluginLibrary library_;
  const LaunchTarget* target_ = nullptr;
};

// The payload of the plug-in's cached list of trusted assemblies; empty where no whole one is
// there.
std::string cachedTpa();

}  // namespace quillon::host
