// The folder of an application that dotnet build or publish wrote, for `quillon run`.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "quillon/base/failure.h"

namespace quillon::cli {

struct BuildFolder {
  std::filesystem::path folder;  // canonical
  std::string assembly;          // file name
  std::string id;                // of its package; differs for each folder
  std::string version;           // changes when a file of the folder changes
};

// Returns the build that `assembly` belongs to; the program of a build stands for its assembly.
// Fails if there is no such file, or if the folder is not the application's own.
[[nodiscard]] Expected<BuildFolder> examineBuild(const std::filesystem::path& assembly);

// Fails, with the status of a launch, if the build cannot be launched, so that it need not be
// installed. Reads more than examineBuild().
[[nodiscard]] Expected<void> requireLaunchable(const BuildFolder& build);

// The symbolic links of the build's folder that lead out of it by a relative path, sorted. They
// lead nowhere in an installed copy.
[[nodiscard]] std::vector<std::filesystem::path> linksOutOf(const BuildFolder& build);

// Whether the device root has this version of the build. Works outside of it.
[[nodiscard]] bool isInstalled(const std::filesystem::path& device, const BuildFolder& build);

// Records that this version of the build has been installed. Without the record it is installed
// again by the next `quillon run`.
void noteInstalled(const std::filesystem::path& device, const BuildFolder& build);

// The ids of the installed builds whose folders no longer exist. Works outside of the device root.
[[nodiscard]] std::vector<std::string> deletedBuilds(const std::filesystem::path& device);

// Removes the record of an installed build, or of all.
void forgetInstalled(const std::filesystem::path& device, const std::string& id);
void forgetAllInstalled(const std::filesystem::path& device);

}  // namespace quillon::cli
