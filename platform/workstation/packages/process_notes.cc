#include "packages/process_notes.h"

#include <dirent.h>
#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "device_data.h"
#include "packages/process_identity.h"

namespace quillon::workstation {
namespace {

std::string noteOf(const std::string& process) {
  return std::string(kProcessDirectory) + "/" + process;
}

Failure cannotNote(const std::string& path) {
  return {"cannot note a process in '" + path + "': " + std::strerror(errno),
          "check that the device root is writable and has space"};
}

// The folder is there except on a device root's first launch.
bool makeLink(const std::string& text, const std::string& path) {
  if (symlink(text.c_str(), path.c_str()) == 0) return true;
  if (errno != ENOENT) return false;
  std::error_code error;
  std::filesystem::create_directories(kProcessDirectory, error);
  return symlink(text.c_str(), path.c_str()) == 0;
}

// A link cannot be written over, but another one can be moved to its place.
bool replaceLink(const std::string& text, const std::string& path) {
  const std::string aside = path + "." + std::to_string(getpid());
  unlink(aside.c_str());
  if (symlink(text.c_str(), aside.c_str()) == 0 && rename(aside.c_str(), path.c_str()) == 0) {
    return true;
  }
  const int cause = errno;
  unlink(aside.c_str());
  errno = cause;
  return false;
}

// The process of a note's name or of one that is being put in its place; 0 for other names.
pid_t processOf(const char* name) { return static_cast<pid_t>(std::strtol(name, nullptr, 10)); }

}  // namespace

Expected<void> noteProcess(pid_t pid, const std::string& packageId) {
  const auto start = processStartTime(pid);
  if (!start) return fail("there is no process " + std::to_string(pid));
  const std::string path = noteOf(std::to_string(pid));
  const std::string text = std::to_string(*start) + ":" + packageId;
  const bool noted = makeLink(text, path) || (errno == EEXIST && replaceLink(text, path));
  if (!noted) return tl::unexpected(cannotNote(path));
  return {};
}

void forgetEndedProcesses() {
  const auto close = [](DIR* directory) { closedir(directory); };
  const std::unique_ptr<DIR, decltype(close)> notes(opendir(kProcessDirectory), close);
  while (const dirent* const entry = notes ? readdir(notes.get()) : nullptr) {
    const pid_t process = processOf(entry->d_name);
    if (process > 0 && kill(process, 0) != 0 && errno == ESRCH) {
      unlinkat(dirfd(notes.get()), entry->d_name, 0);
    }
  }
}

std::optional<std::string> packageOfProcess(pid_t pid) {
  std::array<char, PATH_MAX> buffer{};
  const std::string path = noteOf(std::to_string(pid));
  const ssize_t length = readlink(path.c_str(), buffer.data(), buffer.size());
  if (length <= 0) return std::nullopt;
  const std::string text(buffer.data(), static_cast<size_t>(length));
  const auto start = processStartTime(pid);
  const std::string expected = start ? std::to_string(*start) + ":" : std::string();
  if (expected.empty() || text.rfind(expected, 0) != 0) return std::nullopt;
  return text.substr(expected.size());
}

}  // namespace quillon::workstation
