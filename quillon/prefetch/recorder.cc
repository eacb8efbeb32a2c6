#include "quillon/prefetch/recorder.h"

#include <signal.h>

#include <algorithm>
#include <exception>
#include <system_error>
#include <utility>

#include "quillon/prefetch/profile_files.h"
#include "quillon/prefetch/touched_pages.h"

namespace quillon::prefetch {
namespace {

// See LaunchProfile.
void moveAssemblyFirst(LaunchProfile& profile, const std::string& assembly) {
  std::stable_partition(profile.files.begin(), profile.files.end(),
                        [&](const ProfiledFile& file) { return file.path == assembly; });
}

}  // namespace

// The thread handles no signal of the application.
Recorder::Recorder(std::string appId, std::string assembly)
    : appId_(std::move(appId)), assembly_(std::move(assembly)) {
  if (appId_.empty()) {
    return;
  }
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    thread_ = std::thread([this] { waitAndRecord(); });
  } catch (const std::system_error&) {
    // The next launch records.
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Recorder::~Recorder() {
  if (!thread_.joinable()) {
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  ends_.notify_all();
  thread_.join();
}

void Recorder::waitAndRecord() {
  {
    std::unique_lock lock(mutex_);
    ends_.wait_for(lock, kLaunchDuration, [this] { return isEnding_; });
  }
  try {
    LaunchProfile profile = touchedPages();
    moveAssemblyFirst(profile, assembly_);
    writeProfile(appId_, profile);
  } catch (const std::exception&) {
    // For example if no memory is left. The next launch records.
  }
}

}  // namespace quillon::prefetch
