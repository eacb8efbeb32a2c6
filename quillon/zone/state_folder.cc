#include "quillon/zone/state_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>

#include "quillon/base/files.h"
#include "quillon/base/folders.h"
#include "quillon/device/device_root.h"

namespace quillon::zone {
namespace {

namespace fs = std::filesystem;
using workstation::isZoneName;

Expected<void> makeFolder(const fs::path& folder) {
  if (makeFolders(folder)) {
    return {};
  }
  const int cause = errno;
  return fail("cannot create the folder '" + folder.string() + "': " + std::strerror(cause),
              "let the device root's owner run this");
}

Descriptor openDirectory(const fs::path& folder) {
  return Descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// Returns an invalid descriptor with errno set if the lock cannot be taken. The lock is a file
// beside the folder that only its owner may open: anyone who can open a file can lock it.
Descriptor takeLock(const Descriptor& directory) {
  constexpr std::chrono::seconds kPatience(30);  // a start or stop of a zone takes less than one
  constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  constexpr mode_t kMode = 0600;
  Descriptor lock(openat(directory.get(), "../zones.lock", kFlags, kMode));
  if (lock && !lockFile(lock.get(), kPatience)) {
    lock.reset();
  }
  return lock;
}

void addNames(const fs::path& folder, std::set<std::string>& names) {
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (const std::string name = entry->path().filename().string(); isZoneName(name.c_str())) {
      names.insert(name);
    }
  }
}

// No zone name begins with a dot. One name is enough, since writers hold the lock.
std::string temporaryName(const std::string& name) { return "." + name; }

// Creates a state file that this process holds.
Descriptor makeState(int directory, const std::string& name) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
  unlinkat(directory, name.c_str(), 0);  // left by a process that was killed
  Descriptor file(openat(directory, name.c_str(), kFlags, 0644));
  if (file && !workstation::holdZone(file.get())) {
    file.reset();
  }
  return file;
}

}  // namespace

StateFolder::StateFolder(const fs::path& device, Descriptor directory)
    : states_(device::pathInDevice(device, workstation::kZoneStateDirectory)),
      zones_(device::pathInDevice(device, workstation::kZoneDirectory)),
      directory_(std::move(directory)) {}

Expected<StateFolder> StateFolder::lock(const fs::path& device) {
  StateFolder folder(device, Descriptor());
  RETURN_IF_FAILED(makeFolder(folder.states_));
  folder.directory_ = openDirectory(folder.states_);
  folder.lock_ = takeLock(folder.directory_);
  if (!folder.lock_) {
    return fail("cannot lock '" + folder.states_.string() + "': " + std::strerror(errno),
                "see which process keeps it locked: lslocks");
  }
  return folder;
}

StateFolder StateFolder::view(const fs::path& device) {
  const fs::path states = device::pathInDevice(device, workstation::kZoneStateDirectory);
  return {device, openDirectory(states)};
}

std::set<std::string> StateFolder::names() const {
  std::set<std::string> names;
  addNames(states_, names);
  addNames(zones_, names);
  return names;
}

bool StateFolder::knows(const std::string& name) const {
  std::error_code error;
  return fs::exists(fs::symlink_status(states_ / name, error)) ||
         fs::exists(fs::symlink_status(zones_ / name, error));
}

Descriptor StateFolder::openHolder(const std::string& name, pid_t& pid) const {
  return Descriptor(workstation::openZoneHolder(directory_.get(), name.c_str(), pid));
}

Expected<void> StateFolder::show(const std::string& name) const {
  return makeFolder(zones_ / name);
}

Expected<Descriptor> StateFolder::hold(const std::string& name) const {
  const std::string temporary = temporaryName(name);
  Descriptor file = makeState(descriptor(), temporary);
  if (!file || renameat(descriptor(), temporary.c_str(), descriptor(), name.c_str()) != 0) {
    return fail("cannot write '" + (states_ / name).string() + "': " + std::strerror(errno));
  }
  return file;
}

Expected<void> StateFolder::forget(const std::string& name) const {
  std::error_code error;
  for (const fs::path& path : {states_ / temporaryName(name), states_ / name, zones_ / name}) {
    if (fs::remove(path, error); error) {
      return fail("cannot remove '" + path.string() + "': " + error.message(),
                  "remove it yourself");
    }
  }
  return {};
}

}  // namespace quillon::zone
