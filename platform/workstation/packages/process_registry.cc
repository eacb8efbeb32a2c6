#include "packages/process_registry.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "data_paths.h"
#include "log/log_failure.h"
#include "path_failure.h"
#include "quillon/base/folders.h"
#include "quillon/base/process.h"
#include "workstation/packages.h"
#include "workstation/process_registration.h"
#include "workstation/zone_state.h"

namespace quillon::workstation {
namespace {

// The start time of this process is read once. A forked child has another id.
unsigned long long knownStartTimeOf(pid_t pid) {
  static std::atomic<unsigned long long> ownStart = 0;
  static std::atomic<pid_t> owner = 0;  // whose start time ownStart is
  if (pid != getpid()) {
    return startTimeOf(pid);
  }
  if (owner != pid) {
    ownStart = startTimeOf(pid);
    owner = ownStart != 0 ? pid : 0;
  }
  return ownStart;
}

std::string linkOf(pid_t pid) { return std::string(kProcessDirectory) + "/" + std::to_string(pid); }

// The folder is missing only on a device root's first launch.
bool makeLink(const std::string& text, const std::string& path) {
  if (symlink(text.c_str(), path.c_str()) == 0) {
    return true;
  }
  if (errno != ENOENT) {
    return false;
  }
  return makeFolders(kProcessDirectory) && symlink(text.c_str(), path.c_str()) == 0;
}

// symlink(2) does not overwrite a link, but rename(2) does.
bool replaceLink(const std::string& text, const std::string& path) {
  const std::string temporary = path + "." + std::to_string(getpid());
  unlink(temporary.c_str());
  if (symlink(text.c_str(), temporary.c_str()) == 0 &&
      rename(temporary.c_str(), path.c_str()) == 0) {
    return true;
  }
  const int cause = errno;
  unlink(temporary.c_str());
  errno = cause;
  return false;
}

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Links = std::unique_ptr<DIR, CloseDirectory>;

Links openLinks() { return Links(opendir(kProcessDirectory)); }

// The process id in the name of a link or of its temporary replacement; 0 for other names.
pid_t processOf(const char* name) { return static_cast<pid_t>(std::strtol(name, nullptr, 10)); }

// A zombie has ended too. Containers without an init process keep zombies. If no pidfd can be
// opened, a zombie counts as running.
bool hasEnded(pid_t process) {
  const Descriptor pidfd = openPidfd(process);
  return pidfd ? !isRunning(pidfd) : kill(process, 0) != 0 && errno == ESRCH;
}

std::optional<ProcessRecord> recordAt(int folder, const std::string& link, pid_t pid) {
  std::array<char, PATH_MAX> buffer{};
  const ssize_t length = readlinkat(folder, link.c_str(), buffer.data(), buffer.size());
  if (length <= 0) {
    return std::nullopt;
  }
  const std::string_view text(buffer.data(), static_cast<size_t>(length));
  const auto start = knownStartTimeOf(pid);
  const std::string expected = std::to_string(start) + ":";
  if (start == 0 || !text.starts_with(expected)) {
    return std::nullopt;
  }
  const std::string_view ids = text.substr(expected.size());
  const size_t end = std::min(ids.find('/'), ids.size());
  return ProcessRecord{std::string(ids.substr(0, end)),
                       std::string(ids.substr(std::min(end + 1, ids.size())))};
}

}  // namespace

Expected<void> registerProcess(pid_t pid, const std::string& packageId,
                               const std::string& applicationId) {
  const auto start = knownStartTimeOf(pid);
  if (start == 0) {
    return fail("there is no process " + std::to_string(pid));
  }
  const std::string path = linkOf(pid);
  const std::string text =
      std::to_string(start) + ":" + packageId + (applicationId.empty() ? "" : "/" + applicationId);
  if (makeLink(text, path) || (errno == EEXIST && replaceLink(text, path))) {
    return {};
  }
  return failAt("cannot register a process in", path);
}

std::vector<pid_t> processesOfPackage(const std::string& packageId) {
  const Links links = openLinks();
  std::vector<pid_t> processes;
  while (const dirent* const entry = links ? readdir(links.get()) : nullptr) {
    const pid_t process = processOf(entry->d_name);
    if (process > 0 && packageOfProcess(process) == packageId && !hasEnded(process)) {
      processes.push_back(process);
    }
  }
  std::sort(processes.begin(), processes.end());
  return processes;
}

void forgetEndedProcesses() {
  const Links links = openLinks();
  while (const dirent* const entry = links ? readdir(links.get()) : nullptr) {
    const pid_t process = processOf(entry->d_name);
    if (process > 0 && hasEnded(process)) {
      unlinkat(dirfd(links.get()), entry->d_name, 0);
    }
  }
}

std::optional<std::string> packageOfProcess(pid_t pid) {
  auto record = recordAt(AT_FDCWD, linkOf(pid), pid);
  return record ? std::optional(std::move(record->packageId)) : std::nullopt;
}

std::optional<ProcessRecord> recordOfProcess(int records, pid_t pid) {
  return recordAt(records, std::to_string(pid), pid);
}

}  // namespace quillon::workstation

int quillon_register_process(pid_t pid, const char* package_id) {
  using namespace quillon::workstation;
  const quillon::Expected<void> registered =
      package_id != nullptr ? registerProcess(pid, package_id) : quillon::fail("no package id");
  if (!registered) {
    logFailure(registered.error());
  }
  return registered ? 0 : -1;
}
