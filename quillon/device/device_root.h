// Device roots: a folder that holds a device's files at their device paths, and the private mount
// namespace in which those paths lead into it.
//
// Inside the namespace "/usr/share/dotnet.velora", "/usr/apps", "/opt/usr", "/opt/etc",
// "/opt/data",
// "/opt/share", "/zone" and "/tmp" are the device root's own folders, read-write; the device root's
// other files lie over the machine's, read-only; everything else is the machine's, read-only.
// Nothing outside the device root can be written, and the mounts end with the last process inside.
//
//   if (auto entered = device::enter(directory, {.visible = {"/tmp/build"}}); !entered) {
//     return report(entered.error());
//   }
#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "quillon/base/exit_status.h"
#include "quillon/base/failure.h"

namespace quillon::device {

struct InitOptions {
  // Framework folder to place at "/usr/share/dotnet.velora/netcoreapp"; empty: the device root's
  // own folder is used as it is.
  std::optional<std::filesystem::path> framework = {};
};

// Makes a device root of `directory`, which is created where it is missing. Files already in it
// stay.
[[nodiscard]] Expected<void> init(const std::filesystem::path& directory,
                                  const InitOptions& options);

struct EnterOptions {
  // Machine paths that must stay visible although a device folder hides them (say, under "/tmp"):
  // read-only. Their mount points are made in the device root. One that does not exist, or that
  // holds a device folder itself, is passed over. The device root is always visible, and so are
  // the running program's folder and the one above it.
  std::vector<std::filesystem::path> visible = {};
  // Machine paths that stay writable. They must exist and hold no device folder.
  std::vector<std::filesystem::path> writable = {};
};

// Moves the calling process, which must have one thread, into the device root's namespace. The
// working directory stays where it still exists, else it is "/"; TMPDIR, which would name a folder
// of the machine, is unset. Success without any effect when the process is in that device root
// already. After kNoNamespace the process may be in a namespace that is half made: let it end.
[[nodiscard]] Expected<void> enter(const std::filesystem::path& directory,
                                   const EnterOptions& options);

// The device root that the calling process is inside of.
[[nodiscard]] std::optional<std::filesystem::path> current();

}  // namespace quillon::device
