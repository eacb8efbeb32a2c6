#include "quillon/prefetch/background_read_ahead.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <functional>

#include "quillon/base/descriptor.h"
#include "quillon/base/process.h"
#include "quillon/prefetch/page_cache.h"
#include "quillon/prefetch/profile_files.h"
#include "quillon/prefetch/read_ahead.h"

namespace quillon::prefetch {
namespace {

// Within the code that every start of the program uses.
constexpr std::uint64_t kProbedOffset = std::uint64_t{64} << 10;

// The process keeps no descriptor, so that nobody who waits for the end of a stream waits for it.
// Its parent ends at once, which gives it to the init process or a child subreaper.
void runInBackground(const std::function<void()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    if (fork() == 0) {
      close_range(0, ~0U, 0);
      work();
    }
    _exit(0);
  }
  if (child > 0) {
    waitForEnd(child);
  }
}

bool adoptsOrphans() {
  int isSubreaper = 0;
  prctl(PR_GET_CHILD_SUBREAPER, &isSubreaper);
  return isSubreaper != 0 || getpid() == 1;
}

}  // namespace

bool isCold(const std::string& program) {
  const Descriptor file(open(program.c_str(), O_RDONLY | O_CLOEXEC));
  return file && !isCached(file.get(), kProbedOffset);
}

void readAheadInBackground(const std::string& root, const std::string& appId) {
  if (adoptsOrphans()) {
    return;
  }
  runInBackground([&] {
    if (const auto profile = readProfile(appId, root)) {
      readAhead(*profile, [] { return false; });
    }
  });
}

void readAheadForAllInBackground() {
  runInBackground([caller = getpid()] {
    const Descriptor process = openPidfd(caller);
    readAheadForAll([&] { return !isRunning(process); });
  });
}

}  // namespace quillon::prefetch
