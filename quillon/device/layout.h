// Paths in a device root. They are relative to it.
#pragma once

#include <array>
#include <string_view>

#include "device_paths.h"
#include "workstation/inside_device.h"

namespace quillon::device {

// The file that makes a folder a device root.
inline constexpr std::string_view kRecordDirectory = ".quillon";
inline constexpr std::string_view kRecord = ".quillon/device.toml";

// A file at the top of the view of a process inside, which contains the path of the device root.
inline constexpr std::string_view kInsideMarker = workstation::kInsideMarker;

// The absolute device path `path` as a path relative to the device root.
constexpr std::string_view inRoot(std::string_view path) { return path.substr(1); }

// The mount point of the framework that the record names.
inline constexpr std::string_view kFrameworkMountPoint = inRoot(device_paths::kNetcoreapp);

// The folder of the users' home directories, in which every user may create one.
inline constexpr std::string_view kHomes = "/opt/usr/home";

// The folders that are not shared with the machine and that processes inside may write to. "zone"
// is optional: it lists the running security zones, and a device without zones does not have it.
inline constexpr std::array<std::string_view, 8> kDeviceDirectories = {
    inRoot(device_paths::kManagedFolders),
    "usr/apps",
    "opt/usr",
    "opt/etc",
    "opt/data",
    "opt/share",
    "tmp",
    "zone"};
inline constexpr std::string_view kOptionalDeviceDirectory = "zone";

}  // namespace quillon::device
