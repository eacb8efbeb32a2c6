#include "quillon/prefetch/read_ahead.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>

#include "quillon/base/descriptor.h"
#include "quillon/prefetch/page_cache.h"
#include "quillon/prefetch/profile_files.h"
#include "quillon/prefetch/regular_file.h"

namespace quillon::prefetch {
namespace {

constexpr std::uint64_t kPart = std::uint64_t{1} << 20;

Descriptor openUnchanged(const ProfiledFile& file) {
  struct stat status {};
  Descriptor opened = openRegularWithoutLinks(file.path, status);
  return opened && versionOf(status) == file.version ? std::move(opened) : Descriptor();
}

// Reads one range in parts, and waits for each: a launch's own reads, which are short, would wait
// behind all that the device has been asked for.
void read(int descriptor, const Range& range, const std::function<bool()>& stops) {
  const std::uint64_t end = range.offset + range.length;
  for (std::uint64_t offset = range.offset; offset < end && !stops(); offset += kPart) {
    const std::uint64_t length = std::min(kPart, end - offset);
    char last = 0;
    posix_fadvise(descriptor, static_cast<off_t>(offset), static_cast<off_t>(length),
                  POSIX_FADV_WILLNEED);
    [[maybe_unused]] const ssize_t count =
        pread(descriptor, &last, 1, static_cast<off_t>(offset + length - 1));
  }
}

}  // namespace

ProfileState stateOf(const LaunchProfile& profile) {
  if (profile.files.empty()) {
    return ProfileState::kOutdated;
  }
  const auto longest = std::max_element(
      profile.files.begin(), profile.files.end(),
      [](const ProfiledFile& a, const ProfiledFile& b) { return lengthOf(a) < lengthOf(b); });
  bool isCold = false;
  for (const ProfiledFile* const file : {&profile.files.front(), &*longest}) {
    const Descriptor opened = openUnchanged(*file);
    if (!opened) {
      return ProfileState::kOutdated;
    }
    isCold |= !file->ranges.empty() && !isCached(opened.get(), file->ranges.back().offset);
  }
  return isCold ? ProfileState::kCold : ProfileState::kWarm;
}

void readAhead(const LaunchProfile& profile, const std::function<bool()>& stops) {
  for (const ProfiledFile& file : profile.files) {
    const Descriptor opened = stops() ? Descriptor() : openUnchanged(file);
    for (const Range& range : file.ranges) {
      if (opened) {
        read(opened.get(), range, stops);
      }
    }
  }
}

LaunchReadAhead::LaunchReadAhead(const std::string& appId) {
  if (!canWriteProfile(appId)) {
    return;
  }
  const auto profile = readProfile(appId);
  const ProfileState state = profile ? stateOf(*profile) : ProfileState::kOutdated;
  needsProfile_ = state == ProfileState::kOutdated;
  if (state != ProfileState::kCold) {
    return;
  }
  profile_ = *profile;
  try {
    thread_ = std::thread([this] { readAhead(profile_, [this] { return stops_.load(); }); });
  } catch (const std::system_error&) {
    // The launch reads for itself.
  }
}

LaunchReadAhead::~LaunchReadAhead() { stop(); }

void LaunchReadAhead::stop() {
  stops_ = true;
  if (thread_.joinable()) {
    thread_.join();
  }
}

void readAheadForAll(const std::function<bool()>& stops) {
  std::vector<std::string> applications = profiledApplications();
  applications.resize(std::min(applications.size(), kMaxApplications));
  for (const std::string& appId : applications) {
    const auto profile = readProfile(appId);
    if (profile && stateOf(*profile) == ProfileState::kCold) {
      readAhead(*profile, stops);
    }
  }
}

}  // namespace quillon::prefetch
