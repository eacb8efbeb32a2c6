// Device roots: a folder that holds a device's files at their device paths, and the private mount
// namespace in which those paths lead into it.
//
// Inside the namespace "/usr/share/dotnet.velora", "/usr/apps", "/opt/usr", "/opt/etc", "/opt/data",
// "/opt/share", "/zone" and "/tmp" are the device root's own folders, read-write; the device root's
// other files lie over the machine's, read-only; everything else is the machine's, read-only. Nothing
// outside the device root can be written, and the mounts end with the last process inside.
#pragma once

#include <filesystem>
#include <optional>
#include <vector>
#include <workstation/failure.h>

namespace quillon::device {

struct InitOptions {
  // Framework folder to place at "/usr/share/dotnet.velora/netcoreapp"; empty: none.
  std::optional<std::filesystem::path> framework;
};

// Makes a device root of `directory`, which is created where it is missing. Files already in it
// stay.
[[nodiscard]] Expected<void> init(const std::filesystem::path& directory,
                                  const InitOptions& options);

struct EnterOptions {
  // Machine paths that must stay visible although a device folder hides them (say, under "/tmp").
  std::vector<std::filesystem::path> visible;
  // Machine paths that stay writable.
  std::vector<std::filesystem::path> writable;
};

enum class EnterError { kNoDeviceRoot, kNoNamespace };

struct EnterFailure : Failure {
  EnterError error;
};

// Moves the calling process, which must have one thread, into the device root's namespace. The
// working directory stays where it still exists, else it is "/".
[[nodiscard]] tl::expected<void, EnterFailure> enter(const std::filesystem::path& directory,
                                                     const EnterOptions& options);

}  // namespace quillon::device
