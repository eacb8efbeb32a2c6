#include "quillon/prefetch/launch_profile.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <numeric>

namespace quillon::prefetch {
namespace {

constexpr std::string_view kFirstLine = "quillon launch profile 1";
constexpr std::uint64_t kMaxOffset = std::numeric_limits<off_t>::max();  // of a byte in a file
constexpr std::uint64_t kNanoseconds = 1'000'000'000;

// Returns the text up to `end` and removes it and `end` from `text`. Without `end`, all of it.
std::string_view cut(std::string_view& text, char end) {
  const std::string_view part = text.substr(0, text.find(end));
  text.remove_prefix(std::min(part.size() + 1, text.size()));
  return part;
}

std::optional<std::uint64_t> numberOf(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number)
                                                                  : std::nullopt;
}

// "file SIZE MODIFIED PATH" without its first word
bool addFile(LaunchProfile& profile, std::string_view line) {
  const auto size = numberOf(cut(line, ' '));
  const auto modified = numberOf(cut(line, ' '));
  if (!size || !modified || !line.starts_with('/') || profile.files.size() == kMaxFiles) {
    return false;
  }
  profile.files.push_back({std::string(line), {*size, *modified}, {}});
  return true;
}

// "OFFSET LENGTH"
bool addRange(LaunchProfile& profile, std::string_view line, std::uint64_t& bytes) {
  const auto offset = numberOf(cut(line, ' '));
  const auto length = numberOf(line);
  if (!offset || !length || profile.files.empty() || *length > kMaxBytes - bytes ||
      *offset > kMaxOffset - *length) {
    return false;
  }
  bytes += *length;
  profile.files.back().ranges.push_back({*offset, *length});
  return true;
}

// Reduces `bytesLeft`, the length that the ranges may have in sum, by that of the file's ranges.
std::string format(const ProfiledFile& file, std::uint64_t& bytesLeft) {
  std::string text = "file " + std::to_string(file.version.size) + ' ' +
                     std::to_string(file.version.modified) + ' ' + file.path + '\n';
  for (const Range& range : file.ranges) {
    if (bytesLeft == 0 && range.length > 0) {
      break;
    }
    const std::uint64_t length = std::min(range.length, bytesLeft);
    text += std::to_string(range.offset) + ' ' + std::to_string(length) + '\n';
    bytesLeft -= length;
  }
  return text;
}

}  // namespace

FileVersion versionOf(const struct stat& status) {
  return {static_cast<std::uint64_t>(status.st_size),
          static_cast<std::uint64_t>(status.st_mtim.tv_sec) * kNanoseconds +
              static_cast<std::uint64_t>(status.st_mtim.tv_nsec)};
}

std::uint64_t lengthOf(const ProfiledFile& file) {
  return std::accumulate(file.ranges.begin(), file.ranges.end(), std::uint64_t{0},
                         [](std::uint64_t sum, const Range& range) { return sum + range.length; });
}

std::string format(const LaunchProfile& profile) {
  std::string text = std::string(kFirstLine) + '\n';
  std::uint64_t bytesLeft = kMaxBytes;
  for (std::size_t i = 0; i < std::min(profile.files.size(), kMaxFiles); ++i) {
    const std::string file = format(profile.files[i], bytesLeft);
    if (file.size() > kMaxText - text.size()) {
      break;
    }
    text += file;
  }
  return text;
}

std::optional<LaunchProfile> parseProfile(std::string_view text) {
  if (text.size() > kMaxText || cut(text, '\n') != kFirstLine) {
    return std::nullopt;
  }
  LaunchProfile profile;
  std::uint64_t bytes = 0;
  while (!text.empty()) {
    std::string_view line = cut(text, '\n');
    constexpr std::string_view kFile = "file ";
    const bool isRight = line.starts_with(kFile) ? addFile(profile, line.substr(kFile.size()))
                                                 : addRange(profile, line, bytes);
    if (!isRight) {
      return std::nullopt;
    }
  }
  return profile;
}

}  // namespace quillon::prefetch
