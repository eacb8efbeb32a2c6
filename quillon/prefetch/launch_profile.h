// A launch profile: the files, and the ranges of them, that a launch of an application has mapped.
//
// docs/caches.md describes the format. A profile is a hint: an outdated or forged one costs time.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::prefetch {

inline constexpr std::size_t kMaxFiles = 1024;
inline constexpr std::uint64_t kMaxBytes = std::uint64_t{256} << 20;  // that a profile may name
inline constexpr std::size_t kMaxText = std::size_t{1} << 20;         // length of a profile's text

// Differs after every change of a file.
struct FileVersion {
  std::uint64_t size = 0;
  std::uint64_t modified = 0;  // nanoseconds since 1970

  bool operator==(const FileVersion&) const = default;
};

FileVersion versionOf(const struct stat& status);

struct Range {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;

  bool operator==(const Range&) const = default;
};

struct ProfiledFile {
  std::string path;
  FileVersion version;
  std::vector<Range> ranges;  // sorted, without overlaps
};

// The sum of the ranges' lengths.
std::uint64_t lengthOf(const ProfiledFile& file);

// The first file is the application's assembly. The others are in the order in which the launch
// mapped them.
struct LaunchProfile {
  std::vector<ProfiledFile> files;
};

// Leaves out what exceeds kMaxFiles, kMaxBytes or kMaxText, from the end of the profile.
std::string format(const LaunchProfile& profile);

// Returns nullopt if the text is malformed, has a range that no file can have, names more than
// kMaxFiles or kMaxBytes, or is longer than kMaxText.
std::optional<LaunchProfile> parseProfile(std::string_view text);

}  // namespace quillon::prefetch
