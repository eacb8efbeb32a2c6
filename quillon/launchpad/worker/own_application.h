// The application of a worker that knows it: its assembly is loaded, and Main compiled, before
// there is a launch.
#pragma once

#include "quillon/base/failure.h"
#include "quillon/host/application/target.h"
#include "quillon/launchpad/worker/loaded_files.h"
#include "quillon/launchpad/worker/pool_key.h"
#include "quillon/launchpad/worker/prepared_runtime.h"

namespace quillon::launchpad {

class OwnApplication {
 public:
  // Loads the assembly and compiles Main. In a direct launch the runtime does the same before it
  // runs any code of the application. Fails if no process can be prepared for the application,
  // or if its files change meanwhile; isCurrent() tells which.
  //
  // target  with the application, its package's folder and the assembly
  [[nodiscard]] Expected<void> prepare(const host::LaunchTarget& target,
                                       const resolution::Additions& additions,
                                       PreparedRuntime& runtime);

  // Whether no file that the runtime has loaded has changed since. After a prepare() that failed,
  // whether no file that it may have needed has. True without prepare().
  [[nodiscard]] bool isCurrent() const { return files_.areCurrent(); }

 private:
  LoadedFiles files_;
};

}  // namespace quillon::launchpad
