#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <ios>

#include "device_names.h"
#include "device_paths.h"
#include "platform/app_info.h"
#include "plugin/include-internal/dpc-path-manager.h"
#include "util/zq_utils/directory_walk.h"

namespace {

constexpr int kPlaceholderCount = 10;

int openDirectory(const char* path) { return open(path, O_RDONLY | O_DIRECTORY); }

// Splits the list at each separator. Keeps empty ids, including the one after a separator at the
// end.
std::vector<std::string> packagesOf(const std::string& list) {
  constexpr char kSeparator = device_names::kRequiredPackagesSeparator;
  std::vector<std::string> packages;
  std::size_t begin = 0;
  for (std::size_t end; (end = list.find(kSeparator, begin)) != std::string::npos;
       begin = end + 1) {
    packages.push_back(list.substr(begin, end - begin));
  }
  packages.push_back(list.substr(begin));
  return packages;
}

}  // namespace

DpcPathManagerDecorate::DpcPathManagerDecorate(PluginStrategy* wrapped)
    : Decorator(wrapped), placeholderCount_(kPlaceholderCount) {
  QLOG_SCOPE();
}

std::string DpcPathManagerDecorate::GetExtraDllPath() {
  QLOG_SCOPE();
  for (std::size_t i = 0; i < static_cast<std::size_t>(placeholderCount_); ++i) {
    placeholders_.push_back(openDirectory(device_paths::kPlaceholderTarget));
    if (placeholders_[i] < 0) {
      QLOG_ERROR("Failed to open /proc/self");
      throw std::ios_base::failure("Fail to open /proc/self");
    }
    extraDllPath_.append(":")
        .append(device_paths::kPlaceholderPrefix)
        .append(std::to_string(placeholders_[i]));
  }
  scanDirsInDirectory(device_paths::kDpc, [this](const std::string& path, const char*) {
    extraDllPath_.append(":").append(path);
  });
  QLOG_DEBUG("ExtraDllPath : %s", extraDllPath_.c_str());
  return extraDllPath_;
}

void DpcPathManagerDecorate::SetAppInfo(const string& appId, const string& rootPath) {
  Decorator::SetAppInfo(appId, rootPath);
  ChangeTempFDForDpcToRealDpcPath(appId);
}

void DpcPathManagerDecorate::ChangeTempFDForDpcToRealDpcPath(const string& appId) {
  QLOG_SCOPE();
  const std::string required = GetDpcList(appId);
  if (required.empty()) {
    return;
  }
  std::size_t next = 0;
  for (const std::string& packageId : packagesOf(required)) {
    if (next == placeholders_.size()) {
      return;
    }
    if (placeholders_[next] < 0) {
      throw std::ios_base::failure("Placeholder of a DPC directory is not open");
    }
    const std::string path = device_paths::kApplications + packageId + device_paths::kDpcOfPackage;
    const int directory = openDirectory(path.c_str());
    if (directory >= 0) {
      QLOG_DEBUG("DPC path : %s", path.c_str());
      dup3(directory, placeholders_[next++], O_CLOEXEC);
      close(directory);
    }
  }
}

std::string DpcPathManagerDecorate::GetDpcList(const string& appId) {
  QLOG_SCOPE();
  std::string packages;
  app_info_h application = nullptr;
  app_info_create(appId.c_str(), &application);
  app_info_foreach_metadata(application, dpc_metadata_cb, &packages);
  app_info_destroy(application);
  return packages;
}

bool DpcPathManagerDecorate::dpc_metadata_cb(const char* key, const char* value, void* userData) {
  if (key == nullptr || strstr(key, QUILLON_REQUIRED_PACKAGES_KEY) == nullptr) {
    return true;
  }
  value = value != nullptr ? value : "";
  QLOG_DEBUG("Metadata key : %s, Value : %s", key, value);
  if (userData != nullptr) {
    static_cast<std::string*>(userData)->assign(value);
  }
  return false;
}
