// Device roots: folders that hold a device's files at their device paths. A process enters one by a
// private mount namespace in which the device paths refer to the files of the device root.
//
// Inside the namespace, "/usr/share/dotnet.velora", "/usr/apps", "/opt/usr", "/opt/etc",
// "/opt/data",
// "/opt/share", "/zone" and "/tmp" are the device root's own folders, read-write. All other files
// of the device root are shown over the machine's, read-only. Everything else is the machine's,
// read-only. Nothing outside the device root can be written. The kernel removes the mounts when the
// last process inside has ended.
//
//   RETURN_IF_FAILED(device::enter(directory, {.visible = {"/tmp/build"}}));
#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "quillon/base/exit_status.h"
#include "quillon/base/failure.h"

namespace quillon::device {

struct InitOptions {
  // Framework folder to show at "/usr/share/dotnet.velora/netcoreapp"; nullopt: the device root's
  // own folder.
  std::optional<std::filesystem::path> framework = {};
  // Files of the machine to copy to device paths at which the device root has no file: the assembly
  // Preload and the certificates of authorities. An empty path copies nothing.
  std::filesystem::path preload = {};
  std::filesystem::path certificates = {};
};

// Makes `directory` a device root. Creates the folder if it is missing, and keeps its files.
[[nodiscard]] Expected<void> init(const std::filesystem::path& directory,
                                  const InitOptions& options);

struct EnterOptions {
  // Machine paths that stay visible, read-only, even below a device folder such as "/tmp". Their
  // mount points are created in the device root. Paths that do not exist or that contain a device
  // folder are ignored. The device root, the running program's folder and that folder's parent are
  // always visible.
  std::vector<std::filesystem::path> visible = {};
  // Machine paths that stay writable. They must exist and contain no device folder.
  std::vector<std::filesystem::path> writable = {};
};

// What a process did not keep or get when it entered a device root.
struct Entered {
  // The working directory, if its path does not exist inside or is that of another folder; empty if
  // it was removed before. The process is in "/" then.
  std::optional<std::filesystem::path> hiddenDirectory = {};
  // Why the user has no home directory inside; see home.h.
  std::optional<Failure> noHome = {};
};

// Moves the calling process, which must have one thread, into the device root's namespace. The
// working directory stays the same if it is visible inside. TMPDIR is unset, since it names a
// folder of the machine. HOME and the XDG variables name folders of the device root. If the process
// is already in that device root, only sets HOME and the XDG variables. After a failure with
// kNoNamespace, the process must end: its namespace may be incomplete.
[[nodiscard]] Expected<Entered> enter(const std::filesystem::path& directory,
                                      const EnterOptions& options);

// Returns the device root that the calling process has entered, if any.
[[nodiscard]] std::optional<std::filesystem::path> current();

// Returns where the file at the absolute device path `path` is stored in the device root `device`.
[[nodiscard]] inline std::filesystem::path pathInDevice(const std::filesystem::path& device,
                                                        const std::filesystem::path& path) {
  return device / path.relative_path();
}

}  // namespace quillon::device
