#include "tests/system/power_cut/recording.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>

#include "tests/system/torture/traced_process.h"

namespace quillon::power_cut {
namespace {

namespace fs = std::filesystem;
using torture::SystemCall;
using torture::Verdict;

// A disk writes whole pages, as far as the process that filled them is concerned.
constexpr std::size_t kPage = 4096;
constexpr char kMark[] = "mark";

bool isMark(const SystemCall& call) {
  return call.number == SYS_write && static_cast<int>(call.arguments[0]) == -1;
}

bool waitsForWholeDisk(const SystemCall& call) {
  return call.number == SYS_sync || call.number == SYS_syncfs;
}

// The path that an open descriptor of the process has now.
fs::path pathOfDescriptor(const SystemCall& call, std::size_t argument) {
  const auto number = static_cast<int>(call.arguments.at(argument));
  const std::string process = "/proc/" + std::to_string(call.process);
  std::error_code ignored;
  return fs::read_symlink(
      number == AT_FDCWD ? process + "/cwd" : process + "/fd/" + std::to_string(number), ignored);
}

// The path that a path argument names, relative to the descriptor in the argument before it.
fs::path pathAt(const SystemCall& call, std::size_t argument) {
  const fs::path path = call.textAt(argument);
  return path.is_absolute() ? path : pathOfDescriptor(call, argument - 1) / path;
}

std::size_t positionOf(const SystemCall& call) {
  std::ifstream file("/proc/" + std::to_string(call.process) + "/fdinfo/" +
                     std::to_string(call.arguments[0]));
  std::string label;
  std::size_t position = 0;
  file >> label >> position;
  return position;
}

class Recorder {
 public:
  explicit Recorder(const std::vector<fs::path>& tops) : before_(Disk::read(tops)), now_(before_) {}

  void returned(const SystemCall& call, std::int64_t result) {
    if (isMark(call)) {
      events_.push_back({Event::Kind::kMark});
    } else if (result >= 0) {
      changedEntries(call);
      changedFile(call, static_cast<std::size_t>(result));
    }
  }

  Recording finish() && { return {std::move(before_), std::move(now_), std::move(events_), {}}; }

 private:
  void changedEntries(const SystemCall& call) {
    switch (call.number) {
      case SYS_openat:
        return opened(pathAt(call, 1), static_cast<int>(call.arguments[2]));
      case SYS_mkdirat:
        return made(pathAt(call, 1));
      case SYS_symlinkat:
        return made(pathAt(call, 2));
      case SYS_unlinkat:
        return removed(pathAt(call, 1));
      case SYS_renameat:
        return renamed(pathAt(call, 1), pathAt(call, 3), 0);
      case SYS_renameat2:
        return renamed(pathAt(call, 1), pathAt(call, 3), call.arguments[4]);
#ifdef SYS_open
      case SYS_open:
        return opened(call.textAt(0), static_cast<int>(call.arguments[1]));
      case SYS_mkdir:
        return made(call.textAt(0));
      case SYS_symlink:
        return made(call.textAt(1));
      case SYS_unlink:
      case SYS_rmdir:
        return removed(call.textAt(0));
      case SYS_rename:
        return renamed(call.textAt(0), call.textAt(1), 0);
#endif
      default:
        return;
    }
  }

  void changedFile(const SystemCall& call, std::size_t result) {
    if (waitsForWholeDisk(call)) {
      events_.push_back({Event::Kind::kSyncAll});
      return;
    }
    constexpr std::uint64_t kCalls[] = {SYS_write,  SYS_pwrite64, SYS_ftruncate, SYS_fallocate,
                                        SYS_fchmod, SYS_fsync,    SYS_fdatasync};
    if (std::ranges::find(kCalls, call.number) == std::end(kCalls)) {
      return;
    }
    const auto inode = now_.find(pathOfDescriptor(call, 0));
    if (inode) {
      changedInode(call, *inode, result);
    }
  }

  void changedInode(const SystemCall& call, std::size_t inode, std::size_t result) {
    switch (call.number) {
      case SYS_write:
        return wrote(inode, positionOf(call) - result, call.bytesAt(1, result));
      case SYS_pwrite64:
        return wrote(inode, call.arguments[3], call.bytesAt(1, result));
      case SYS_ftruncate:
        return resized(inode, call.arguments[1]);
      case SYS_fallocate:
        return resized(inode, std::max(now_.at(inode).content.size(),
                                       std::size_t{call.arguments[2] + call.arguments[3]}));
      case SYS_fchmod:
        return add({Operation::Kind::kMode, inode, 0, {}, 0, {}, call.arguments[1], {}});
      default:
        events_.push_back({Event::Kind::kSync, {}, inode});
    }
  }

  void add(const Operation& operation) {
    now_.make(operation);
    events_.push_back({Event::Kind::kOperation, operation});
  }

  void opened(const fs::path& path, int flags) {
    const auto file = now_.find(path);
    if (!file && (flags & O_CREAT) != 0) {
      made(path);
    } else if (file && (flags & O_TRUNC) != 0 && !now_.at(*file).content.empty()) {
      resized(*file, 0);
    }
  }

  void made(const fs::path& path) {
    const auto folder = now_.find(path.parent_path());
    struct stat status {};
    if (!folder || lstat(path.c_str(), &status) != 0) {
      return;
    }
    Inode inode{Inode::Kind::kFile, status.st_ino, status.st_mode & 07777, {}, {}};
    if (S_ISDIR(status.st_mode)) {
      inode.kind = Inode::Kind::kFolder;
    } else if (S_ISLNK(status.st_mode)) {
      inode.kind = Inode::Kind::kLink;
      inode.content = fs::read_symlink(path);
    }
    before_.add(inode);
    add({Operation::Kind::kLink, now_.add(inode), *folder, path.filename(), 0, {}, 0, {}});
  }

  void removed(const fs::path& path) {
    if (const auto file = now_.find(path)) {
      const std::size_t folder = now_.find(path.parent_path()).value();
      add({Operation::Kind::kUnlink, *file, folder, path.filename(), 0, {}, 0, {}});
    }
  }

  void renamed(const fs::path& from, const fs::path& to, std::uint64_t flags) {
    if (const auto file = now_.find(from)) {
      const auto kind =
          (flags & RENAME_EXCHANGE) != 0 ? Operation::Kind::kExchange : Operation::Kind::kRename;
      add({kind,
           *file,
           now_.find(from.parent_path()).value(),
           from.filename(),
           now_.find(to.parent_path()).value(),
           to.filename(),
           0,
           {}});
    }
  }

  void resized(std::size_t inode, std::size_t size) {
    if (now_.at(inode).content.size() != size) {
      add({Operation::Kind::kResize, inode, 0, {}, 0, {}, size, {}});
    }
  }

  void wrote(std::size_t inode, std::size_t offset, const std::string& bytes) {
    resized(inode, std::max(now_.at(inode).content.size(), offset + bytes.size()));
    for (std::size_t start = 0; start < bytes.size();) {
      const std::size_t size = std::min(bytes.size() - start, kPage - (offset + start) % kPage);
      add({Operation::Kind::kWrite,
           inode,
           0,
           {},
           0,
           {},
           offset + start,
           bytes.substr(start, size)});
      start += size;
    }
  }

  Disk before_;
  Disk now_;
  std::vector<Event> events_;
};

}  // namespace

Recording record(const std::vector<fs::path>& tops, const std::function<void()>& work) {
  Recorder recorder(tops);
  const auto result = torture::follow(
      work, {.atEntry =
                 [](const SystemCall& call) {
                   // The rest of the machine has other work for its disks.
                   return waitsForWholeDisk(call) ? Verdict::fail(0) : Verdict::run();
                 },
             .atExit = [&](const SystemCall& call,
                           std::int64_t returned) { recorder.returned(call, returned); }});
  Recording recording = std::move(recorder).finish();
  recording.failure = result.allowed ? result.ending : result.reason;
  if (recording.failure.empty() &&
      recording.after.fingerprint() != Disk::read(tops).fingerprint()) {
    recording.failure = "the recording lacks some of the changes";
  }
  return recording;
}

void mark() { syscall(SYS_write, -1, kMark, sizeof kMark); }

}  // namespace quillon::power_cut
