#include "quillon/cli/build_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <system_error>
#include <vector>

#include "device_paths.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/directory_entries.h"
#include "quillon/base/files.h"
#include "quillon/base/folders.h"
#include "quillon/cli/device_option.h"
#include "quillon/device/device_root.h"
#include "quillon/device/layout.h"
#include "quillon/device/view.h"
#include "quillon/host/assemblies/assembly_image.h"
#include "quillon/host/runtime/runtime_config.h"
#include "workstation/packages.h"

namespace quillon::cli {
namespace {

namespace fs = std::filesystem;

constexpr char kExtension[] = ".dll";

// FNV-1a of 64 bits.
class Hash {
 public:
  void add(std::string_view bytes) {
    constexpr std::uint64_t kPrime = 0x100000001b3;
    for (const char byte : bytes) {
      value_ = (value_ ^ static_cast<unsigned char>(byte)) * kPrime;
    }
  }
  template <typename Number>
  void addNumber(Number number) {
    add({reinterpret_cast<const char*>(&number), sizeof number});
  }
  [[nodiscard]] std::string text() const {
    std::array<char, 17> digits{};
    std::snprintf(digits.data(), digits.size(), "%016" PRIx64, value_);
    return digits.data();
  }

 private:
  std::uint64_t value_ = 0xcbf29ce484222325;
};

// Changes with the name, size, permissions or change time of any file in the folder.
std::string versionOf(const fs::path& folder) {
  std::vector<fs::path> files;
  std::error_code error;
  for (fs::recursive_directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    files.push_back(entry->path());
  }
  std::sort(files.begin(), files.end());
  Hash hash;
  for (const fs::path& file : files) {
    struct stat status {};
    lstat(file.c_str(), &status);
    hash.add(file.native());
    hash.addNumber(status.st_ino);
    hash.addNumber(status.st_size);
    hash.addNumber(status.st_mode);
    hash.addNumber(status.st_ctim.tv_sec);
    hash.addNumber(status.st_ctim.tv_nsec);
  }
  return hash.text();
}

std::string idOf(const fs::path& folder, const std::string& assembly) {
  constexpr std::size_t kDigits = 8;
  Hash hash;
  hash.add(folder.native());
  return fs::path(assembly).stem().string() + "-" + hash.text().substr(0, kDigits);
}

// The folder is copied to the device root as a whole.
bool isOwnFolder(const fs::path& folder) {
  const fs::path home = fs::path(variable("HOME")).lexically_normal();
  const bool holdsHome =
      home.is_absolute() &&
      std::mismatch(folder.begin(), folder.end(), home.begin(), home.end()).first == folder.end();
  return !holdsHome && !device::holdsDeviceDirectory(folder.relative_path().string());
}

// Followed by the build's id.
constexpr std::string_view kRecordPrefix = "run-";

std::string recordOf(const std::string& id) { return std::string(kRecordPrefix) + id; }

// The version is the first line, and the folder the rest.
std::string contentOfRecord(const BuildFolder& build) {
  return build.version + "\n" + build.folder.string();
}

Descriptor openRecords(const fs::path& device) {
  const Descriptor root(open(device.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  return openFolderWithoutLinks(root.get(), device::kRecordDirectory);
}

Descriptor openRecord(const Descriptor& folder, const std::string& id, int flags) {
  constexpr mode_t kMode = 0644;
  return Descriptor(openat(folder.get(), recordOf(id).c_str(),
                           flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kMode));
}

// Returns false for the record of an older version, which has no folder.
bool isOfDeletedBuild(const std::string& record) {
  const auto folder = record.find('\n');
  std::error_code error;
  return folder != std::string::npos &&
         fs::status(record.substr(folder + 1), error).type() == fs::file_type::not_found;
}

}  // namespace

Expected<BuildFolder> examineBuild(const fs::path& given) {
  std::error_code error;
  fs::path assembly = given;
  // The file that a build makes executable starts the assembly beside it.
  if (assembly.extension() != kExtension && fs::exists(assembly.string() + kExtension, error)) {
    assembly += kExtension;
  }
  if (!fs::is_regular_file(assembly, error)) {
    return fail(kNoAssembly, {"there is no assembly '" + given.string() + "'",
                              "name the .dll that dotnet build or dotnet publish wrote"});
  }
  if (assembly.filename().native().find(':') != std::string::npos) {
    return fail(kUnusablePath, {"the name '" + assembly.filename().string() +
                                    "' holds ':', which joins the runtime's lists",
                                "set another AssemblyName"});
  }
  const fs::path file = fs::canonical(assembly, error);
  if (error || !isOwnFolder(file.parent_path())) {
    return fail(kUsage, {"the folder of '" + given.string() + "' is not the application's own",
                         "move the application to a folder of its own"});
  }
  BuildFolder build{file.parent_path(), file.filename().string(), {}, {}};
  build.id = idOf(build.folder, build.assembly);
  build.version = versionOf(build.folder);
  return build;
}

Expected<void> requireLaunchable(const BuildFolder& build) {
  const fs::path assembly = build.folder / build.assembly;
  RETURN_IF_FAILED(withStatus(kNotExecutable, host::requireExecutableAssembly(assembly)));
  RETURN_IF_FAILED(withStatus(kNotExecutable, host::readRuntimeConfig(assembly)));
  return {};
}

std::vector<fs::path> linksOutOf(const BuildFolder& build) {
  std::vector<fs::path> links;
  std::error_code error;
  for (fs::recursive_directory_iterator entry(build.folder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code noLink;
    const fs::path target = fs::read_symlink(entry->path(), noLink);
    const fs::path inFolder =
        (entry->path().parent_path() / target).lexically_normal().lexically_relative(build.folder);
    if (!noLink && target.is_relative() && *inFolder.begin() == "..") {
      links.push_back(entry->path());
    }
  }
  std::sort(links.begin(), links.end());
  return links;
}

bool isInstalled(const fs::path& device, const BuildFolder& build) {
  const fs::path copy = device::pathInDevice(device, device_paths::kApplications) / build.id;
  const Descriptor record = openRecord(openRecords(device), build.id, O_RDONLY);
  return record && access((copy / build.assembly).c_str(), F_OK) == 0 &&
         access(device::pathInDevice(device, workstation::kRegistryPath).c_str(), F_OK) == 0 &&
         readAll(record.get()) == contentOfRecord(build);
}

void noteInstalled(const fs::path& device, const BuildFolder& build) {
  const Descriptor record = openRecord(openRecords(device), build.id, O_WRONLY | O_CREAT | O_TRUNC);
  if (record) {
    writeAll(record.get(), contentOfRecord(build));
  }
}

std::vector<std::string> deletedBuilds(const fs::path& device) {
  const Descriptor folder = openRecords(device);
  std::vector<std::string> ids;
  for (const std::string& name : directoryEntries(folder.get())) {
    if (!name.starts_with(kRecordPrefix)) {
      continue;
    }
    std::string id = name.substr(kRecordPrefix.size());
    const Descriptor record = openRecord(folder, id, O_RDONLY);
    if (record && isOfDeletedBuild(readAll(record.get()))) {
      ids.push_back(std::move(id));
    }
  }
  return ids;
}

void forgetInstalled(const fs::path& device, const std::string& id) {
  unlinkat(openRecords(device).get(), recordOf(id).c_str(), 0);
}

void forgetAllInstalled(const fs::path& device) {
  const Descriptor folder = openRecords(device);
  for (const std::string& name : directoryEntries(folder.get())) {
    if (name.starts_with(kRecordPrefix)) {
      unlinkat(folder.get(), name.c_str(), 0);
    }
  }
}

}  // namespace quillon::cli
