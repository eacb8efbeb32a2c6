#include "quillon/cli/application_log.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "quillon/base/directory_entries.h"
#include "quillon/base/files.h"
#include "quillon/base/folders.h"
#include "quillon/device/record.h"

namespace quillon::cli {
namespace {

namespace fs = std::filesystem;

// Relative to the device root.
constexpr char kFolder[] = "opt/usr/share/quillon/logs";
constexpr std::string_view kSuffix = ".log";
constexpr int kFlags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// The descriptor is invalid, with errno, if the folder cannot be opened.
Expected<Descriptor> openFolder(const fs::path& device, MissingFolder missing) {
  RETURN_IF_FAILED(withStatus(kNoDeviceRoot, device::readRecord(device)));
  const Descriptor root(open(device.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  return root ? openFolderWithoutLinks(root.get(), kFolder, missing) : Descriptor();
}

std::string nameOf(const std::string& appId) { return appId + std::string(kSuffix); }

// An id with a slash would name a file elsewhere.
bool isFileName(const std::string& appId) {
  return !appId.empty() && appId.find('/') == std::string::npos;
}

off_t sizeOf(int folder, const std::string& name) {
  struct stat status {};
  return fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 ? status.st_size : 0;
}

// Opens a regular file. Returns an invalid descriptor with errno on failure.
Descriptor openRegular(int folder, const std::string& name, int flags) {
  constexpr mode_t kMode = 0600;
  Descriptor file(openat(folder, name.c_str(), flags | kFlags, kMode));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) {
    return Descriptor();
  }
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
    return Descriptor();
  }
  return file;
}

tl::unexpected<Failure> cannotOpen(const fs::path& device, const std::string& appId) {
  return fail(
      "cannot open '" + (device / kFolder / nameOf(appId)).string() + "': " + fileErrorText(errno),
      "check the file and its folder");
}

}  // namespace

Expected<Descriptor> openLogForAppending(const fs::path& device, const std::string& appId) {
  ASSIGN_OR_RETURN(const Descriptor folder, openFolder(device, MissingFolder::kMake));
  const std::string name = nameOf(appId);
  if (!folder || !isFileName(appId)) {
    return cannotOpen(device, appId);
  }
  if (sizeOf(folder.get(), name) > kMaxLogSize) {
    renameat(folder.get(), name.c_str(), folder.get(), (name + ".1").c_str());
  }
  Descriptor file = openRegular(folder.get(), name, O_WRONLY | O_APPEND | O_CREAT);
  return file ? Expected<Descriptor>(std::move(file)) : cannotOpen(device, appId);
}

Expected<Descriptor> openLog(const fs::path& device, const std::string& appId) {
  ASSIGN_OR_RETURN(const Descriptor folder, openFolder(device, MissingFolder::kFail));
  Descriptor file = folder && isFileName(appId) ? openRegular(folder.get(), nameOf(appId), O_RDONLY)
                                                : Descriptor();
  if (file) {
    return file;
  }
  if (errno == ENOENT) {
    return fail(kNotInstalled, {"application '" + appId + "' has no log",
                                "only detached launches write one: quillon launch --detach"});
  }
  return cannotOpen(device, appId);
}

Expected<std::vector<std::string>> applicationsWithLog(const fs::path& device) {
  ASSIGN_OR_RETURN(const Descriptor folder, openFolder(device, MissingFolder::kFail));
  std::vector<std::string> ids;
  for (std::string& name : directoryEntries(folder.get())) {
    if (name.size() > kSuffix.size() && name.ends_with(kSuffix)) {
      name.resize(name.size() - kSuffix.size());
      ids.push_back(std::move(name));
    }
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

}  // namespace quillon::cli
