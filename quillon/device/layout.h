// Where things stand in a device root.
#pragma once

#include <array>
#include <string_view>

namespace quillon::device {

// The record that makes a folder a device root.
inline constexpr std::string_view kRecordDirectory = ".quillon";
inline constexpr std::string_view kRecord = ".quillon/device.toml";

// At the top of the view that a process inside has: a file that names the device root.
inline constexpr std::string_view kInsideMarker = ".quillon-device";

// Where the framework of the record appears.
inline constexpr std::string_view kFrameworkMountPoint = "usr/share/dotnet.velora/netcoreapp";

// The folders that belong to the device root alone, writable inside. The last one is optional: its
// content decides about security zones, and a device without zones has none.
inline constexpr std::array<std::string_view, 8> kDeviceDirectories = {"usr/share/dotnet.velora",
                                                                       "usr/apps",
                                                                       "opt/usr",
                                                                       "opt/etc",
                                                                       "opt/data",
                                                                       "opt/share",
                                                                       "tmp",
                                                                       "zone"};
inline constexpr std::string_view kOptionalDeviceDirectory = "zone";

}  // namespace quillon::device
