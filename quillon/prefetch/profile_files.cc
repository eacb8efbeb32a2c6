#include "quillon/prefetch/profile_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "device_paths.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/directory_entries.h"
#include "quillon/base/files.h"
#include "quillon/base/folders.h"

namespace quillon::prefetch {
namespace {

constexpr char kFolderName[] = "launch-profiles";

bool isFileName(const std::string& appId) {
  return !appId.empty() && appId.front() != '.' && appId.find('/') == appId.npos;
}

}  // namespace

std::string profileFolder() { return std::string(device_paths::kCacheDirectory) + kFolderName; }

std::optional<LaunchProfile> readProfile(const std::string& appId, const std::string& root) {
  if (!isFileName(appId)) {
    return std::nullopt;
  }
  const RegularFile file =
      openRegularFile(root + profileFolder() + '/' + appId, kMaxText, LastLink::kRefuse);
  if (!file.descriptor || file.owner != geteuid() || file.isWritableForOthers) {
    return std::nullopt;
  }
  return parseProfile(readContent(file).value_or(""));
}

bool canWriteProfile(const std::string& appId) {
  return isFileName(appId) && access(device_paths::kCacheDirectory, W_OK) == 0;
}

bool writeProfile(const std::string& appId, const LaunchProfile& profile) {
  if (!isFileName(appId)) {
    return false;
  }
  const Descriptor folder = openFolderWithoutLinks(AT_FDCWD, profileFolder(), MissingFolder::kMake);
  return folder && replaceFile(folder.get(), appId, format(profile));
}

std::vector<std::string> profiledApplications() {
  const Descriptor folder = openFolderWithoutLinks(AT_FDCWD, profileFolder());
  std::vector<std::string> names = directoryEntries(folder.get());
  std::sort(names.begin(), names.end());
  return names;
}

Expected<void> removeProfiles(const std::filesystem::path& device) {
  const Descriptor root(open(device.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const Descriptor folder = openFolderWithoutLinks(root.get(), profileFolder().substr(1));
  int cause = folder ? 0 : errno;
  for (const std::string& name : directoryEntries(folder.get())) {
    cause = unlinkat(folder.get(), name.c_str(), 0) == 0 ? cause : errno;
  }
  if (cause == 0 || cause == ENOENT) {
    return {};
  }
  return fail(
      "cannot remove the launch profiles in '" + profileFolder() + "': " + std::strerror(cause),
      "remove them as their owner");
}

}  // namespace quillon::prefetch
