// The runtime of a worker, which starts before the application is known.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "quillon/base/failure.h"
#include "quillon/host/application/target.h"
#include "quillon/host/plugin/plugin_lists.h"
#include "quillon/host/runtime/runtime.h"
#include "quillon/launchpad/worker/environment.h"
#include "quillon/launchpad/worker/managed_side.h"
#include "quillon/launchpad/worker/placeholders.h"
#include "quillon/launchpad/worker/pool_key.h"

namespace quillon::launchpad {

class PreparedRuntime {
 public:
  // Loads and starts the runtime with the lists of the plug-in, and with placeholders for the
  // folders of the application.
  //
  // executable, plugin  files
  // key                 of the worker; must outlive the object
  [[nodiscard]] static Expected<PreparedRuntime> start(const std::filesystem::path& executable,
                                                       const std::filesystem::path& plugin,
                                                       const PoolKey& key, host::PluginLists lists);

  // Runs what nearly every application needs first. Descriptors 1 and 2 must be final, because
  // managed code uses the console.
  //
  // target  with the application type only
  [[nodiscard]] Expected<void> warmUp(const host::LaunchTarget& target);

  // Redirects the placeholders to the folders of the application.
  void setFolders(const host::LaunchTarget& target) { folders_.redirect(target.folders()); }
  // The paths by which the runtime knows these folders, in their order.
  [[nodiscard]] std::vector<std::string> folderPaths() const { return folders_.paths(); }

  // Sets the properties of the application, once: a later call does nothing.
  [[nodiscard]] Expected<void> setApplication(const host::LaunchTarget& target);
  // The same, and sets the environment variables that this process has now.
  [[nodiscard]] Expected<void> setApplicationAndEnvironment(const host::LaunchTarget& target);

  // Whether a Main can run, or be compiled, in advance without an effect on the application.
  [[nodiscard]] bool canRehearse() const { return canRehearse_; }
  [[nodiscard]] const std::vector<std::string>& trustedAssemblies() const { return trusted_; }

  [[nodiscard]] const ManagedSide& managed() const { return managed_; }
  host::Runtime& runtime() { return runtime_; }

 private:
  PreparedRuntime(const std::filesystem::path& plugin, const PoolKey& key, host::PluginLists lists,
                  host::Runtime runtime, Placeholders folders);
  [[nodiscard]] Expected<void> startRuntime(const std::filesystem::path& executable);
  void rehearse();
  [[nodiscard]] Expected<void> assign(const host::LaunchTarget& target,
                                      const std::vector<CopiedEnvironment::Change>& variables);

  const std::string ownAssembly_;
  const PoolKey& key_;
  const host::PluginLists lists_;
  host::Runtime runtime_;
  Placeholders folders_;
  bool canRehearse_ = false;
  std::vector<std::string> trusted_;
  ManagedSide managed_;
  bool hasProperties_ = false;     // the application's
  CopiedEnvironment environment_;  // copied when the runtime starts or during the warm-up
};

}  // namespace quillon::launchpad
