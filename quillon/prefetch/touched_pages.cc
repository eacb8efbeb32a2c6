#include "quillon/prefetch/touched_pages.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"

namespace quillon::prefetch {
namespace {

constexpr std::uint64_t kPageSize = 4096;
constexpr std::uint64_t kMaxGap = 16 * kPageSize;
constexpr std::uint64_t kMaxExamined = std::uint64_t{4} << 30;  // length of all mappings
constexpr std::size_t kEntrySize = sizeof(std::uint64_t);       // of a page in the pagemap
// proc_pid_pagemap(5): the page is in memory, or swapped out after it was.
constexpr std::uint64_t kTouched = std::uint64_t{3} << 62;

struct Mapping {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  std::uint64_t offset = 0;
  std::string path;
};

// A line of /proc/self/maps. Returns a mapping without a path if it is not one of a file.
Mapping mappingOf(const std::string& line) {
  Mapping mapping;
  char dash = 0;
  std::string permissions;
  std::string device;
  std::uint64_t inode = 0;
  std::istringstream fields(line);
  fields >> std::hex >> mapping.start >> dash >> mapping.end >> permissions >> mapping.offset >>
      device >> std::dec >> inode >> std::ws;
  if (inode != 0) {
    std::getline(fields, mapping.path);
  }
  return mapping;
}

// In the order of their addresses.
std::vector<Mapping> fileMappings() {
  const Descriptor maps(open("/proc/self/maps", O_RDONLY | O_CLOEXEC));
  std::istringstream lines(readAll(maps.get()));
  std::vector<Mapping> mappings;
  for (std::string line; std::getline(lines, line);) {
    if (Mapping mapping = mappingOf(line); mapping.path.starts_with('/')) {
      mappings.push_back(std::move(mapping));
    }
  }
  return mappings;
}

void addPage(std::uint64_t offset, std::vector<Range>& ranges) {
  if (!ranges.empty() && ranges.back().offset + ranges.back().length == offset) {
    ranges.back().length += kPageSize;
  } else {
    ranges.push_back({offset, kPageSize});
  }
}

void addTouched(const Mapping& mapping, int pagemap, std::vector<Range>& ranges) {
  std::array<std::uint64_t, 8192> pages;  // a part of the entries
  const std::uint64_t end = mapping.end / kPageSize;
  for (std::uint64_t page = mapping.start / kPageSize; page < end;) {
    const ssize_t length =
        pread(pagemap, pages.data(), std::min<std::uint64_t>(pages.size(), end - page) * kEntrySize,
              static_cast<off_t>(page * kEntrySize));
    if (length < static_cast<ssize_t>(kEntrySize)) {
      return;
    }
    for (std::size_t i = 0; i < static_cast<std::size_t>(length) / kEntrySize; ++i, ++page) {
      if ((pages[i] & kTouched) != 0) {
        addPage(mapping.offset + page * kPageSize - mapping.start, ranges);
      }
    }
  }
}

std::vector<Range> merged(std::vector<Range> ranges) {
  std::sort(ranges.begin(), ranges.end(),
            [](const Range& a, const Range& b) { return a.offset < b.offset; });
  std::vector<Range> all;
  for (const Range& range : ranges) {
    if (!all.empty() && range.offset <= all.back().offset + all.back().length + kMaxGap) {
      all.back().length =
          std::max(all.back().length, range.offset + range.length - all.back().offset);
    } else {
      all.push_back(range);
    }
  }
  return all;
}

}  // namespace

LaunchProfile touchedPages() {
  LaunchProfile profile;
  const Descriptor pagemap(open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC));
  const std::vector<Mapping> mappings = fileMappings();
  std::uint64_t left = kMaxExamined;
  for (auto mapping = mappings.rbegin(); mapping != mappings.rend(); ++mapping) {
    const std::uint64_t length = mapping->end - mapping->start;
    if (length > left) {
      continue;
    }
    left -= length;
    auto file = std::find_if(profile.files.begin(), profile.files.end(),
                             [&](const ProfiledFile& one) { return one.path == mapping->path; });
    if (file == profile.files.end()) {
      file = profile.files.insert(file, {mapping->path, {}, {}});
    }
    addTouched(*mapping, pagemap.get(), file->ranges);
  }
  // Also leaves out devices, and files that have no path any more.
  std::erase_if(profile.files, [](ProfiledFile& file) {
    struct stat status {};
    file.ranges = merged(std::move(file.ranges));
    const bool isFile = lstat(file.path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    file.version = versionOf(status);
    return !isFile || file.ranges.empty();
  });
  return profile;
}

}  // namespace quillon::prefetch
