#include "plugin/src/plugin-util/platform_lists.h"

#include "device_paths.h"
#include "plugin/src/plugin-util/assembly_discovery.h"
#include "plugin/src/plugin-util/coba_directories.h"
#include "util/log/log.h"
#include "util/zq_utils/paths.h"

std::string platformApiDirectory() { return getAbsolutePath(device_paths::kFramework); }

std::vector<std::string> runtimeDirectories() {
  return {getAbsolutePath(device_paths::kNetcoreapp),
          getAbsolutePath(device_paths::kReflectionEliminator)};
}

void appendApiDirectories(const std::string& apiDirectory, std::vector<std::string>& directories) {
  directories.push_back(apiDirectory);
  directories.push_back(apiDirectory + device_paths::kReferenceSuffix);
}

std::string findAssemblies(std::vector<std::string> directories, const std::string& dllPath) {
  addPlatformAssembliesPaths(dllPath, directories);
  std::string tpa;
  addAssembliesFromDirectories(directories, tpa);
  return tpa;
}

void appendCobaDirectories(std::string& dllPath) {
  TTraceLog("[quillon-tv-plugin] GetCoBASharedDirsInApp Start");
  dllPath.append(GetCoBADirFromCache());
  TTraceLog("[quillon-tv-plugin] GetCoBASharedDirsInApp Finish");
}
