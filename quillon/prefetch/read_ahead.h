// Reads what a launch will read before it does.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "quillon/prefetch/launch_profile.h"

namespace quillon::prefetch {

inline constexpr std::size_t kMaxApplications = 32;

// The application's assembly and the file with the longest ranges, which is part of the runtime,
// decide. kOutdated: one of them has changed. kCold: pages of them are missing in the page cache,
// so that reading ahead pays.
enum class ProfileState { kOutdated, kCold, kWarm };

ProfileState stateOf(const LaunchProfile& profile);

// Reads all ranges into the page cache, one after the other, until `stops` returns true. Leaves out
// files that have changed, that are not regular files, and those that this process may not read.
void readAhead(const LaunchProfile& profile, const std::function<bool()>& stops);

// Reads ahead for the launch of one application, in a thread of its own, if pages are missing. The
// destructor stops the thread.
class LaunchReadAhead {
 public:
  explicit LaunchReadAhead(const std::string& appId);
  ~LaunchReadAhead();
  LaunchReadAhead(const LaunchReadAhead&) = delete;
  LaunchReadAhead& operator=(const LaunchReadAhead&) = delete;

  // Stops the thread and waits for its end.
  void stop();

  // Whether the launch should record a profile: none is there, or it is outdated.
  bool needsProfile() const { return needsProfile_; }

 private:
  LaunchProfile profile_;
  bool needsProfile_ = false;
  std::atomic<bool> stops_ = false;
  std::thread thread_;
};

// Reads ahead for the applications that have a current profile, at most kMaxApplications, until
// `stops` returns true.
void readAheadForAll(const std::function<bool()>& stops);

}  // namespace quillon::prefetch
