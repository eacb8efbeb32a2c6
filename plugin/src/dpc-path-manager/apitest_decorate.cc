#include "plugin/include-internal/dpc-path-manager.h"
#include "plugin/src/plugin-util/app_identity.h"
#include "util/zq_utils/directory_walk.h"
#include "util/zq_utils/package_lookup.h"

namespace {

constexpr char kTvApiNamespace[] = "Velora.TV.";
constexpr char kAssemblySuffix[] = ".dll";

// Searches the whole path, so a file in a directory named after the namespace matches as well.
bool isTvApiAssembly(const std::string& path) {
  return path.find(kTvApiNamespace) != std::string::npos &&
         path.find(kAssemblySuffix) != std::string::npos;
}

void prependTvApi(const std::string& path, const char* name, std::string& tpa) {
  QLOG_DEBUG_OF("GetTPA", "Path : %s, Filename : %s", path.c_str(), name);
  if (isTvApiAssembly(path)) {
    tpa.insert(0, path + ":");
  }
}

}  // namespace

ApitestDecorate::ApitestDecorate(PluginStrategy* wrapped) : Decorator(wrapped) { QLOG_SCOPE(); }

std::string ApitestDecorate::GetTPA() {
  QLOG_SCOPE();
  std::string tpa = Decorator::GetTPA();
  std::string root;
  getRootPath(GetLaunchedAppPackageID(), root);
  const FileReader prepend = [&tpa](const std::string& path, const char* name) {
    prependTvApi(path, name, tpa);
  };
  scanFilesInDirectory(root + "/bin", prepend, 0);
  scanFilesInDirectory(root + "/lib", prepend, 0);
  return tpa;
}
