#include "quillon/cli/application_log.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

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
constexpr std::string_view kOldSuffix = ".log.1";
constexpr int kFlags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// Returns an invalid descriptor with errno on failure.
Descriptor openFolderIn(const fs::path& device, MissingFolder missing) {
  const Descriptor root(open(device.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  return root ? openFolderWithoutLinks(root.get(), kFolder, missing) : Descriptor();
}

// The same; fails if `device` is not a device root.
Expected<Descriptor> openFolder(const fs::path& device, MissingFolder missing) {
  RETURN_IF_FAILED(withStatus(kNoDeviceRoot, device::readRecord(device)));
  return openFolderIn(device, missing);
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
  if (!isFileName(appId)) {
    return fail(kNotInstalled,
                {"'" + appId + "' is not an application id", "list the logs: quillon logs"});
  }
  return fail(
      "cannot open '" + (device / kFolder / nameOf(appId)).string() + "': " + fileErrorText(errno),
      "check the file and its folder");
}

}  // namespace

fs::path logFolder(const fs::path& device) { return device / kFolder; }

Expected<Descriptor> openLogForAppending(const fs::path& device, const std::string& appId) {
  ASSIGN_OR_RETURN(const Descriptor folder, openFolder(device, MissingFolder::kMake));
  const std::string name = nameOf(appId);
  if (!folder || !isFileName(appId)) {
    return cannotOpen(device, appId);
  }
  if (sizeOf(folder.get(), name) > kMaxLogSize) {
    renameat(folder.get(), name.c_str(), folder.get(), (appId + std::string(kOldSuffix)).c_str());
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
  if (errno == ENOENT && isFileName(appId)) {
    return fail(kNotInstalled, {"application '" + appId + "' has no log",
                                "only detached launches write one: quillon launch --detach"});
  }
  return cannotOpen(device, appId);
}

void removeLogs(const fs::path& device, const std::string& appId) {
  const Descriptor folder = openFolderIn(device, MissingFolder::kFail);
  if (folder && isFileName(appId)) {
    for (const std::string_view suffix : {kSuffix, kOldSuffix}) {
      unlinkat(folder.get(), (appId + std::string(suffix)).c_str(), 0);
    }
  }
}

void removeEmptyLog(const fs::path& device, const std::string& appId) {
  const Descriptor folder = openFolderIn(device, MissingFolder::kFail);
  if (folder && sizeOf(folder.get(), nameOf(appId)) == 0) {
    unlinkat(folder.get(), nameOf(appId).c_str(), 0);
  }
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
