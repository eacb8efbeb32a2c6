#include "quillon/zone/state_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>

namespace quillon::zone {
namespace {

namespace fs = std::filesystem;
using workstation::isZoneName;
using workstation::ZoneHolder;

fs::path inDevice(const fs::path& device, const char* path) {
  return device / fs::path(path).relative_path();
}

Expected<void> makeFolder(const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) {
    return fail("cannot make the folder '" + folder.string() + "': " + error.message(),
                "let the device root's owner run this");
  }
  return {};
}

Descriptor openDirectory(const fs::path& folder) {
  return Descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// None, with errno set, where it cannot be locked.
Descriptor lockDirectory(const fs::path& folder) {
  Descriptor directory = openDirectory(folder);
  while (directory && ::flock(directory.get(), LOCK_EX) != 0) {
    if (errno != EINTR) {
      directory.reset();
    }
  }
  return directory;
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

// No name of a zone begins with a dot. One is enough: writers hold the lock.
std::string freshName(const std::string& name) { return "." + name; }

bool writeFile(int directory, const std::string& name, const std::string& text) {
  const int file = ::openat(directory, name.c_str(),
                            O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (file < 0) {
    return false;
  }
  const bool written = ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  return ::close(file) == 0 && written;
}

}  // namespace

StateFolder::StateFolder(const fs::path& device, Descriptor directory)
    : states_(inDevice(device, workstation::kZoneStateDirectory)),
      zones_(inDevice(device, workstation::kZoneDirectory)),
      directory_(std::move(directory)) {}

Expected<StateFolder> StateFolder::lock(const fs::path& device) {
  StateFolder folder(device, Descriptor());
  RETURN_IF_FAILED(makeFolder(folder.states_));
  folder.directory_ = lockDirectory(folder.states_);
  if (!folder.directory_) {
    return fail("cannot lock '" + folder.states_.string() + "': " + std::strerror(errno));
  }
  return folder;
}

StateFolder StateFolder::view(const fs::path& device) {
  const fs::path states = inDevice(device, workstation::kZoneStateDirectory);
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
  ZoneHolder holder;
  if (!directory_ || !workstation::readZoneState(directory_.get(), name.c_str(), holder)) {
    return Descriptor();
  }
  pid = holder.pid;
  return Descriptor(workstation::openZoneHolder(holder));
}

Expected<void> StateFolder::show(const std::string& name) const {
  return makeFolder(zones_ / name);
}

Expected<void> StateFolder::write(const std::string& name) const {
  const pid_t self = ::getpid();
  const std::string text =
      std::to_string(self) + " " + std::to_string(workstation::startTimeOf(self)) + "\n";
  const std::string fresh = freshName(name);
  if (!writeFile(descriptor(), fresh, text) ||
      ::renameat(descriptor(), fresh.c_str(), descriptor(), name.c_str()) != 0) {
    return fail("cannot write '" + (states_ / name).string() + "': " + std::strerror(errno));
  }
  return {};
}

Expected<void> StateFolder::forget(const std::string& name) const {
  std::error_code error;
  for (const fs::path& path : {states_ / freshName(name), states_ / name, zones_ / name}) {
    if (fs::remove(path, error); error) {
      return fail("cannot remove '" + path.string() + "': " + error.message(), "remove it by hand");
    }
  }
  return {};
}

}  // namespace quillon::zone
