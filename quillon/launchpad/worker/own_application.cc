#include "quillon/launchpad/worker/own_application.h"

#include <fcntl.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/directory_entries.h"
#include "quillon/host/assemblies/module_initializer.h"

namespace quillon::launchpad {
namespace {

// The paths under which the runtime finds the assemblies of a folder.
//
// seenAs  the name by which the runtime knows the folder
void addAssemblies(std::vector<std::string>& files, const std::string& folder,
                   const std::string& seenAs) {
  const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (const std::string& name : directoryEntries(opened.get())) {
    if (name.ends_with(".dll") || name.ends_with(".exe")) {
      files.push_back(seenAs + "/" + name);
    }
  }
}

bool hasInitializer(const std::vector<std::string>& files) {
  return std::any_of(files.begin(), files.end(), [](const std::string& file) {
    return host::hasModuleInitializer(std::filesystem::path(file));
  });
}

// Whether Main can be compiled without running code of the application or changing what it finds
// out. Startup hooks run before, and may provide assemblies. A module initializer of an assembly
// that Main uses would run.
//
// own  assemblies of the application
bool canCompileMain(const PreparedRuntime& runtime, const std::string& assembly,
                    const std::vector<std::string>& own) {
  return runtime.canRehearse() && !hasInitializer({assembly}) && !hasInitializer(own) &&
         !hasInitializer(runtime.trustedAssemblies());
}

}  // namespace

Expected<void> OwnApplication::prepare(const host::LaunchTarget& target,
                                       const resolution::Additions& additions,
                                       PreparedRuntime& runtime) {
  constexpr char kMissing[] = "its Main needs an assembly that is not in its own folders";
  // Before the placeholders lead to its folder; see Launchpad.LoadApplication().
  files_.record({target.assembly});
  if (!runtime.managed().loadApplication(target.assembly)) {
    return fail("its assembly cannot be loaded");
  }
  runtime.setFolders(target);
  std::vector<std::string> own = additions.assemblies;
  const auto folders = target.folders();
  const auto paths = runtime.folderPaths();
  for (size_t i = 0; i < folders.size(); ++i) {
    addAssemblies(own, folders[i], paths.at(i));
  }
  files_.record(own);
  if (canCompileMain(runtime, target.assembly, own) && !runtime.managed().compileMain()) {
    return fail(kMissing);
  }
  const auto loaded = runtime.managed().loadedFiles();
  if (!loaded || !files_.keep(*loaded, runtime.trustedAssemblies())) {
    return fail(kMissing);
  }
  return {};
}

}  // namespace quillon::launchpad
