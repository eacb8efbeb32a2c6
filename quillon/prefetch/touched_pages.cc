#include "quillon/prefetch/touched_pages.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <sstream>
#include <string>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"

namespace quillon::prefetch {
namespace {

constexpr std::uint64_t kPageSize = 4096;
constexpr std::uint64_t kMaxGap = 16 * kPageSize;
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

void addTouched(const Mapping& mapping, int pagemap, std::vector<Range>& ranges) {
  std::vector<std::uint64_t> pages((mapping.end - mapping.start) / kPageSize);
  const ssize_t count = pread(pagemap, pages.data(), pages.size() * sizeof pages[0],
                              static_cast<off_t>(mapping.start / kPageSize * sizeof pages[0]));
  pages.resize(count < 0 ? 0 : static_cast<std::size_t>(count) / sizeof pages[0]);
  for (std::size_t i = 0; i < pages.size(); ++i) {
    if ((pages[i] & kTouched) != 0) {
      ranges.push_back({mapping.offset + i * kPageSize, kPageSize});
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
  const Descriptor maps(open("/proc/self/maps", O_RDONLY | O_CLOEXEC));
  const Descriptor pagemap(open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC));
  std::istringstream lines(readAll(maps.get()));
  for (std::string line; std::getline(lines, line);) {
    const Mapping mapping = mappingOf(line);
    if (!mapping.path.starts_with('/')) {
      continue;
    }
    auto file = std::find_if(profile.files.begin(), profile.files.end(),
                             [&](const ProfiledFile& one) { return one.path == mapping.path; });
    if (file == profile.files.end()) {
      file = profile.files.insert(file, {mapping.path, {}, {}});
    }
    addTouched(mapping, pagemap.get(), file->ranges);
  }
  // Also leaves out devices, and files that have no path any more.
  std::erase_if(profile.files, [](ProfiledFile& file) {
    struct stat status {};
    file.ranges = merged(std::move(file.ranges));
    const bool isFile = lstat(file.path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    file.version = versionOf(status);
    return !isFile || file.ranges.empty();
  });
  std::reverse(profile.files.begin(), profile.files.end());
  return profile;
}

}  // namespace quillon::prefetch
