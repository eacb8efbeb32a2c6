#include "plugin/src/plugin-util/coba_directories.h"

#include "device_paths.h"
#include "plugin/src/plugin-util/cached_list.h"
#include "util/log/log.h"
#include "util/malloc_text.h"
#include "util/zq_utils/package_lookup.h"

namespace {

constexpr char kExternalComponentKey[] =
    QUILLON_METADATA_NAMESPACE "/velora/metadata/support-fs-external-component";

constexpr CachedList kCobaList = {
    device_paths::kCobaCache,
    "[quillon-tv-plugin] Cache file was crashed.",
    "[quillon-tv-plugin] Get CoBA shared directories by cache file",
};

// Returns null if the service does not know the package.
MallocText packageOf(app_info_h application) {
  char* package = nullptr;
  if (application == nullptr || app_info_get_package(application, &package) != 0) {
    package = nullptr;
  }
  return MallocText(package);
}

}  // namespace

std::string coBASharedDirsInApp;

bool GetCoBAAppInfoCB(app_info_h handle, void*) {
  const MallocText package = packageOf(handle);
  if (package == nullptr) {
    return true;
  }
  std::string root;
  getRootPath(package.get(), root);  // on failure the root stays empty and is still listed
  QLOG_DEBUG("Path : %s", root.c_str());
  root.insert(0, 1, ':').append(device_paths::kCobaOfPackage);
  coBASharedDirsInApp.append(root);  // in one step, so that no part stays if memory runs out
  return true;
}

std::string GetCoBASharedDirsInApp() {
  QLOG_SCOPE();
  app_info_metadata_filter_h filter = nullptr;
  app_info_metadata_filter_create(&filter);
  app_info_metadata_filter_add(filter, kExternalComponentKey, nullptr);
  app_info_metadata_filter_foreach(filter, GetCoBAAppInfoCB, nullptr);
  if (filter != nullptr) {
    app_info_metadata_filter_destroy(filter);
  }
  QLOG_DEBUG("%s", coBASharedDirsInApp.c_str());
  return coBASharedDirsInApp;
}

std::string GetCoBADirsAndSaveAsCache() {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] Get CoBA shared directories by searching.");
  std::string directories = GetCoBASharedDirsInApp();
  saveCachedList(device_paths::kCobaCacheName, directories);
  return directories;
}

std::string GetCoBADirFromCache() {
  QLOG_SCOPE();
  return readCachedListOr(kCobaList, GetCoBADirsAndSaveAsCache);
}
