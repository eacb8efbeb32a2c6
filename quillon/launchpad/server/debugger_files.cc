#include "quillon/launchpad/server/debugger_files.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <functional>
#include <string_view>
#include <system_error>

#include "device_names.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/process.h"

namespace quillon::launchpad {
namespace {

namespace fs = std::filesystem;

// The runtime's choice, because TMPDIR is unset in a device root.
constexpr char kFolder[] = "/tmp";
// Followed by a process id, "-" and a number that distinguishes processes of the same id.
constexpr std::array<std::string_view, 2> kPrefixes = {device_names::kDebuggerPipePrefix,
                                                       "dotnet-diagnostic-"};

// The process id in a file's name. Returns 0 if the file is not the debugger's.
pid_t processOf(std::string_view name) {
  for (const std::string_view prefix : kPrefixes) {
    if (!name.starts_with(prefix)) {
      continue;
    }
    pid_t process = 0;
    const char* const end = name.data() + name.size();
    const auto read = std::from_chars(name.data() + prefix.size(), end, process);
    return read.ec == std::errc() && read.ptr != end && *read.ptr == '-' ? process : 0;
  }
  return 0;
}

void removeFilesIf(const std::function<bool(pid_t)>& condition) {
  std::error_code error;
  for (fs::directory_iterator entry(kFolder, error), end; !error && entry != end;
       entry.increment(error)) {
    const pid_t process = processOf(entry->path().filename().native());
    std::error_code ignored;
    if (process > 0 && condition(process)) {
      fs::remove(entry->path(), ignored);
    }
  }
}

// Also true for a zombie.
bool isGone(pid_t process) {
  const Descriptor pidfd = openPidfd(process);
  return pidfd ? !isRunning(pidfd) : errno == ESRCH;
}

}  // namespace

void removeDebuggerFilesOf(pid_t process) {
  removeFilesIf([process](pid_t named) { return named == process; });
}

void removeDebuggerFilesOfDead() { removeFilesIf(isGone); }

}  // namespace quillon::launchpad
