#include "quillon/prefetch/before_start.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "quillon/base/descriptor.h"
#include "quillon/prefetch/page_cache.h"
#include "quillon/prefetch/profile_files.h"
#include "quillon/prefetch/read_ahead.h"

namespace quillon::prefetch {
namespace {

// Within the code that every start of the program uses.
constexpr std::uint64_t kProbedOffset = std::uint64_t{64} << 10;

// Keeps no descriptor, so that nobody who waits for the end of a stream waits for this process.
void readInThisProcess(const std::string& root, const std::string& appId) {
  close_range(0, ~0U, 0);
  if (const auto profile = readProfile(appId, root)) {
    readAhead(*profile, false);
  }
}

}  // namespace

bool isCold(const std::string& program) {
  const Descriptor file(open(program.c_str(), O_RDONLY | O_CLOEXEC));
  return file && !isCached(file.get(), kProbedOffset);
}

// The child ends at once, which gives its child to the init process. The application must not find
// a child that it has not made.
void readAheadInBackground(const std::string& root, const std::string& appId) {
  const pid_t child = fork();
  if (child == 0) {
    if (fork() == 0) {
      readInThisProcess(root, appId);
    }
    _exit(0);
  }
  if (child > 0) {
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
}

}  // namespace quillon::prefetch
