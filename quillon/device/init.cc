#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "quillon/device/device_root.h"
#include "quillon/device/layout.h"
#include "quillon/device/record.h"

namespace quillon::device {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDirectories[] = {"usr/share/dotnet.velora/netcoreapp",
                                        "usr/share/dotnet.velora/framework/ref",
                                        "usr/share/dotnet.velora/lib",
                                        "usr/share/dotnet.velora/tvappapi",
                                        "usr/share/dotnet.velora/d.pc",
                                        "usr/apps",
                                        "opt/usr/apps",
                                        "opt/usr/home/owner/share/dotnet",
                                        "opt/usr/share/quillon",
                                        "opt/etc",
                                        "opt/data",
                                        "opt/share",
                                        "etc",
                                        "tmp"};

// The writable copy of the flag file beside the read-only one: while both say the same, the plug-in
// keeps its caches.
constexpr char kFlagFile[] = "etc/dotnet_flag.ini";
constexpr char kWritableFlagFile[] = "opt/etc/dotnet_flag.ini";
constexpr char kFlagFileContent[] = "[dotnet]\n";

Expected<void> makeDirectory(const fs::path& directory) {
  std::error_code error;
  fs::create_directories(directory, error);
  if (!error && !fs::is_directory(directory, error)) {
    error = std::make_error_code(std::errc::not_a_directory);
  }
  if (error) {
    return fail("cannot make the folder '" + directory.string() + "': " + error.message(),
                "choose a folder that you may write to");
  }
  return {};
}

Expected<void> makeDirectories(const fs::path& root) {
  for (const char* directory : kDirectories) {
    RETURN_IF_FAILED(makeDirectory(root / directory));
  }
  std::error_code error;
  fs::permissions(root / "tmp", fs::perms::all | fs::perms::sticky_bit, error);
  if (error) {
    return fail("cannot open '" + (root / "tmp").string() + "' to everyone: " + error.message(),
                "let the folder's owner run this");
  }
  return {};
}

std::string contentOf(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
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

// A copy that is there decides the content of the one that is missing.
Expected<void> makeFlagFiles(const fs::path& root) {
  const fs::path writable = root / kWritableFlagFile;
  const std::string content =
      fs::exists(writable) ? contentOf(writable) : std::string(kFlagFileContent);
  RETURN_IF_FAILED(writeIfMissing(root / kFlagFile, content));
  return writeIfMissing(writable, contentOf(root / kFlagFile));
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
  const auto record = recordOf(options);
  if (!record) {
    return tl::unexpected(record.error());
  }
  std::error_code error;
  if (fs::equivalent(directory, "/", error)) {
    return fail("'/' is this machine and cannot be a device root", "choose an empty folder");
  }
  RETURN_IF_FAILED(makeDirectory(directory / kRecordDirectory));
  RETURN_IF_FAILED(makeDirectories(directory));
  RETURN_IF_FAILED(makeFlagFiles(directory));
  // Last, so that a folder with a record is complete.
  return writeRecord(directory, *record);
}

}  // namespace quillon::device
