// Records the profile of a launch.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace quillon::prefetch {

inline constexpr std::chrono::seconds kLaunchDuration{3};

// Writes the profile of the launch when it has lasted for kLaunchDuration, or when the object ends,
// whatever is first. Construct it when the process has the rights of the application.
class Recorder {
 public:
  // appId     empty: nothing is recorded
  // assembly  path of the application's assembly
  Recorder(std::string appId, std::string assembly);
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

 private:
  void waitAndRecord();

  const std::string appId_;
  const std::string assembly_;
  std::mutex mutex_;
  std::condition_variable ends_;
  bool isEnding_ = false;
  std::thread thread_;
};

}  // namespace quillon::prefetch
