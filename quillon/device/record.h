// The record of a device root, "DIR/.quillon/device.toml":
//
//   format = 1
//   framework = "/usr/share/dotnet/shared/Microsoft.NETCore.App/10.0.12"   # may be missing
#pragma once

#include <filesystem>
#include <optional>

#include "quillon/base/failure.h"

namespace quillon::device {

struct Record {
  // Folder of the machine to show as the device's framework; nullopt: the device root's own.
  std::optional<std::filesystem::path> framework;
};

// Fails if `directory` has no record, or one that this version cannot read.
[[nodiscard]] Expected<Record> readRecord(const std::filesystem::path& directory);

// Replaces the record atomically.
[[nodiscard]] Expected<void> writeRecord(const std::filesystem::path& directory,
                                         const Record& record);

}  // namespace quillon::device
