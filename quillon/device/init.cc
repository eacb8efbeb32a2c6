#include <cerrno>
#include <fstream>
#include <string>
#include <system_error>

#include "device_paths.h"
#include "quillon/base/files.h"
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
                                        "/opt/usr/share/quillon",
                                        "/opt/etc",
                                        "/opt/data",
                                        "/opt/share",
                                        "/etc",
                                        kTemporaryFiles};

constexpr char kFlagFileContent[] = "[dotnet]\n";

Expected<void> makeDirectory(const fs::path& directory) {
  std::error_code error;
  fs::create_directories(directory, error);
  if (!error && !fs::is_directory(directory, error)) {
    error = std::make_error_code(std::errc::not_a_directory);
  }
  if (error) {
    return fail("cannot create the folder '" + directory.string() + "': " + error.message(),
                "choose a folder that you may write to");
  }
  return {};
}

Expected<void> makeDirectories(const fs::path& root) {
  for (const char* directory : kDirectories) {
    RETURN_IF_FAILED(makeDirectory(pathInDevice(root, directory)));
  }
  const fs::path temporaryFiles = pathInDevice(root, kTemporaryFiles);
  std::error_code error;
  fs::permissions(temporaryFiles, fs::perms::all | fs::perms::sticky_bit, error);
  if (error) {
    return fail("cannot open '" + temporaryFiles.string() + "' to everyone: " + error.message(),
                "let the folder's owner run this");
  }
  return {};
}

Expected<void> writeIfMissing(const fs::path& file, const std::string& content) {
  std::error_code error;
  if (fs::exists(fs::symlink_status(file, error))) {
    return {};
  }
  std::ofstream stream(file, std::ios::binary);
  stream << content;
  stream.close();
  if (!stream) {
    return fail("cannot write '" + file.string() + "'", "make the folder writable");
  }
  return {};
}

// Returns an empty string if the file cannot be read.
std::string contentOf(const fs::path& file) {
  return readWholeFile(file, kMaxTextSize).value_or("");
}

// Makes the read-only and the writable flag file with the same content, since the plug-in drops its
// caches when they differ. A missing file becomes a copy of the other one.
Expected<void> makeFlagFiles(const fs::path& root) {
  const fs::path readOnly = pathInDevice(root, device_paths::kReadOnlyFlags);
  const fs::path writable = pathInDevice(root, device_paths::kWritableFlags);
  RETURN_IF_FAILED(writeIfMissing(
      readOnly, fs::exists(writable) ? contentOf(writable) : std::string(kFlagFileContent)));
  return writeIfMissing(writable, contentOf(readOnly));
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
  RETURN_IF_FAILED(makeDirectory(directory / kRecordDirectory));
  RETURN_IF_FAILED(makeDirectories(directory));
  RETURN_IF_FAILED(makeFlagFiles(directory));
  // The record comes last, so that a folder with a record is complete.
  return writeRecord(directory, record);
}

}  // namespace quillon::device
