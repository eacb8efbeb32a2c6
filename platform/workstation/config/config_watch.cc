#include "config/config_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "config/config_file.h"
#include "data_paths.h"
#include "log/log_failure.h"
#include "quillon/base/folders.h"

namespace quillon::workstation {
namespace {

namespace fs = std::filesystem;

// The store renames files into place; an editor may rewrite a file.
constexpr uint32_t kEvents = IN_MOVED_TO | IN_CLOSE_WRITE | IN_MOVE_SELF | IN_ONLYDIR;
constexpr size_t kBufferSize = 4096;  // larger than any event; the next read returns the rest

fs::path pathOf(const std::string& folder) {
  return folder.empty() ? fs::path(kConfigDirectory) : fs::path(kConfigDirectory) / folder;
}

Failure cannotWatch(const fs::path& path, int error) {
  return {"cannot watch the folder '" + path.string() + "': " + std::strerror(error),
          error == ENOSPC || error == EMFILE ? "raise fs.inotify limits with sysctl"
                                             : "check that the device root is writable"};
}

}  // namespace

ConfigWatch::ConfigWatch(Descriptor inotify) : inotify_(std::move(inotify)), buffer_(kBufferSize) {}

Expected<ConfigWatch> ConfigWatch::open() {
  Descriptor inotify(inotify_init1(IN_CLOEXEC));
  if (!inotify) {
    return tl::unexpected(cannotWatch(kConfigDirectory, errno));
  }
  return ConfigWatch(std::move(inotify));
}

Expected<void> ConfigWatch::add(const std::string& folder) {
  const fs::path path = pathOf(folder);
  int watch = inotify_add_watch(inotify_.get(), path.c_str(), kEvents);
  if (watch < 0 && errno == ENOENT) {
    watch = makeFolders(path) ? inotify_add_watch(inotify_.get(), path.c_str(), kEvents) : -1;
  }
  if (watch < 0) {
    return tl::unexpected(cannotWatch(path, errno));
  }
  folders_[watch] = folder;
  return {};
}

void ConfigWatch::remove(const std::string& folder) {
  const auto found = std::find_if(folders_.begin(), folders_.end(),
                                  [&](const auto& entry) { return entry.second == folder; });
  if (found == folders_.end()) {
    return;
  }
  inotify_rm_watch(inotify_.get(), found->first);
  folders_.erase(found);
}

std::string_view ConfigWatch::wait() {
  ssize_t length = 0;
  do {
    length = read(inotify_.get(), buffer_.data(), buffer_.size());
  } while (length < 0 && errno == EINTR);
  return {buffer_.data(), length < 0 ? 0 : static_cast<size_t>(length)};
}

void ConfigWatch::renew(int watch) {
  const std::string folder = folders_.at(watch);
  inotify_rm_watch(inotify_.get(), watch);
  folders_.erase(watch);
  if (const auto added = add(folder); !added) {
    logFailure(added.error());
  }
}

ConfigChanges ConfigWatch::changes(std::string_view events) {
  ConfigChanges result;
  for (size_t at = 0; at + sizeof(inotify_event) <= events.size();) {
    inotify_event event{};
    std::memcpy(&event, events.data() + at, sizeof event);
    const char* name = events.data() + at + sizeof event;  // ends with a NUL
    at += sizeof event + event.len;
    const auto folder = folders_.find(event.wd);
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
      result.all = true;
    } else if (folder == folders_.end()) {
      continue;  // no longer watched
    } else if ((event.mask & (IN_IGNORED | IN_MOVE_SELF)) != 0) {
      renew(event.wd);
      result.all = true;  // changes before the new watch were missed
    } else if (event.len > 0) {
      result.keys.insert(folder->second.empty() ? name : folder->second + '/' + name);
    }
  }
  return result;
}

}  // namespace quillon::workstation
