#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>

#include "device_paths.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"
#include "quillon/base/folders.h"
#include "quillon/base/shell_word.h"
#include "quillon/device/certificates.h"
#include "quillon/device/device_root.h"
#include "quillon/device/layout.h"
#include "quillon/device/record.h"

namespace quillon::device {
namespace {

namespace fs = std::filesystem;

constexpr char kTemporaryFiles[] = "/tmp";

constexpr const char* kDirectories[] = {device_paths::kNetcoreapp,
                                        "/usr/share/dotnet.velora/framework/ref",
                                        device_paths::kPlatformLibraries,
                                        device_paths::kTvAppApi,
                                        device_paths::kDpc,
                                        "/usr/apps",
                                        device_paths::kApplications,
                                        device_paths::kCacheDirectory,
                                        "/opt/usr/home/owner/share/gctracer",
                                        "/opt/usr/home/owner/share/ObjectTracker",
                                        "/opt/usr/share/quillon",
                                        "/opt/etc",
                                        "/opt/data",
                                        "/usr/share/cert",
                                        "/opt/share",
                                        "/etc",
                                        kTemporaryFiles};

constexpr char kFlagFileContent[] = "[dotnet]\n";

// The folder that becomes a device root. Another user may have planted symbolic links in it, so the
// functions below follow none.
struct Root {
  fs::path path;
  Descriptor folder;
};

tl::unexpected<Failure> cannotCreate(const fs::path& directory, const std::string& cause) {
  return fail("cannot create the folder '" + directory.string() + "': " + cause,
              "choose a folder that you may write to");
}

Expected<Root> makeRoot(const fs::path& directory) {
  Descriptor folder(
      makeFolders(directory) ? open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC) : -1);
  if (!folder) {
    return cannotCreate(directory, std::strerror(errno));
  }
  return Root{directory, std::move(folder)};
}

// Leaves a symbolic link to a folder as it is; see requireNoLinks().
Expected<void> makeDirectory(const Root& root, const fs::path& directory) {
  if (openFolderWithoutLinks(root.folder.get(), directory, MissingFolder::kMake)) {
    return {};
  }
  const int cause = errno;
  std::error_code error;
  if (fs::is_directory(root.path / directory, error)) {
    return {};
  }
  return cannotCreate(root.path / directory, std::strerror(cause));
}

// Lets every user create files in a folder, and nobody replace those of others.
Expected<void> openToEveryone(const Root& root, std::string_view path) {
  constexpr mode_t kEveryone = 01777;
  const Descriptor folder = openFolderWithoutLinks(root.folder.get(), inRoot(path));
  if (folder && fchmod(folder.get(), kEveryone) == 0) {
    return {};
  }
  const int cause = errno;
  return fail("cannot open '" + pathInDevice(root.path, path).string() +
                  "' to everyone: " + std::strerror(cause),
              "let the folder's owner run this");
}

Expected<void> makeDirectories(const Root& root) {
  for (const char* directory : kDirectories) {
    RETURN_IF_FAILED(makeDirectory(root, inRoot(directory)));
  }
  RETURN_IF_FAILED(openToEveryone(root, kTemporaryFiles));
  return openToEveryone(root, kHomes);
}

// The folders that are mounted must be the device root's own: a link may lead anywhere.
Expected<void> requireNoLinks(const Root& root) {
  for (const std::string_view folder : kDeviceDirectories) {
    fs::path path = root.path;
    for (const fs::path& part : fs::path(folder)) {
      path /= part;
      std::error_code error;
      if (fs::is_symlink(path, error)) {
        return fail("'" + path.string() + "' is a symbolic link, and must be a folder",
                    "remove it, then repeat this: rm " + shellWord(path.string()));
      }
    }
  }
  return {};
}

Descriptor openFlagFile(const Root& root, const fs::path& file, int flags) {
  constexpr mode_t kMode = 0644;
  const Descriptor folder = openFolderWithoutLinks(root.folder.get(), file.parent_path());
  return Descriptor(openat(folder.get(), file.filename().c_str(),
                           flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kMode));
}

std::optional<std::string> readFlagFile(const Root& root, const fs::path& file) {
  const Descriptor opened = openFlagFile(root, file, O_RDONLY);
  struct stat status {};
  if (!opened || fstat(opened.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
      static_cast<size_t>(status.st_size) > kMaxTextSize) {
    return std::nullopt;
  }
  return readAll(opened.get());
}

Expected<void> writeIfMissing(const Root& root, const fs::path& file, const std::string& content) {
  const Descriptor made = openFlagFile(root, file, O_WRONLY | O_CREAT | O_EXCL);
  if (made ? writeAll(made.get(), content) : errno == EEXIST) {
    return {};
  }
  return fail("cannot write '" + (root.path / file).string() + "'", "make the folder writable");
}

// Makes the read-only and the writable flag file with the same content, since the plug-in drops its
// caches when they differ. A missing file becomes a copy of the other one.
Expected<void> makeFlagFiles(const Root& root) {
  const fs::path readOnly = inRoot(device_paths::kReadOnlyFlags);
  const fs::path writable = inRoot(device_paths::kWritableFlags);
  RETURN_IF_FAILED(
      writeIfMissing(root, readOnly, readFlagFile(root, writable).value_or(kFlagFileContent)));
  return writeIfMissing(root, writable, readFlagFile(root, readOnly).value_or(""));
}

// Copies a file of the machine to a device path, unless the device root has a file or a link there.
// Does nothing either if a symbolic link leads to its folder.
Expected<void> copyIfMissing(const Root& root, const fs::path& source, const fs::path& devicePath,
                             size_t limit) {
  const fs::path file = devicePath.relative_path();
  std::error_code error;
  if (source.empty() || fs::exists(fs::symlink_status(root.path / file, error))) {
    return {};
  }
  const auto content = readWholeFile(source, limit);
  if (!content) {
    return fail("cannot read '" + source.string() + "': " + fileErrorText(errno, limit),
                "make the file readable");
  }
  const Descriptor folder = openFolderWithoutLinks(root.folder.get(), file.parent_path());
  const bool isBehindALink = !folder && errno == ENOTDIR;
  if (isBehindALink || replaceFile(folder.get(), file.filename(), *content)) {
    return {};
  }
  return fail("cannot write '" + (root.path / file).string() + "': " + std::strerror(errno),
              "make the folder writable");
}

Expected<Record> recordOf(const InitOptions& options) {
  if (!options.framework) {
    return Record{};
  }
  std::error_code error;
  const fs::path framework = fs::canonical(*options.framework, error);
  if (error || !fs::is_directory(framework, error)) {
    return fail("there is no framework folder '" + options.framework->string() + "'",
                "name the folder that holds libcoreclr.so, or 'none'");
  }
  return Record{framework};
}

}  // namespace

Expected<void> init(const fs::path& directory, const InitOptions& options) {
  ASSIGN_OR_RETURN(const Record record, recordOf(options));
  std::error_code error;
  if (fs::equivalent(directory, "/", error)) {
    return fail("'/' cannot be a device root, since it holds this machine's files",
                "choose an empty folder");
  }
  ASSIGN_OR_RETURN(const Root root, makeRoot(directory));
  RETURN_IF_FAILED(makeDirectory(root, kRecordDirectory));
  RETURN_IF_FAILED(requireNoLinks(root));
  RETURN_IF_FAILED(makeDirectories(root));
  RETURN_IF_FAILED(makeFlagFiles(root));
  RETURN_IF_FAILED(copyIfMissing(root, options.preload, device_paths::kPreload, kMaxAssemblySize));
  RETURN_IF_FAILED(copyIfMissing(root, options.certificates, device_paths::kPlatformCertificates,
                                 kMaxCertificates));
  // The record comes last, so that a folder with a record is complete.
  return writeRecord(directory, record);
}

}  // namespace quillon::device
