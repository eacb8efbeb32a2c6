#include "tests/system/power_cut/disk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <system_error>
#include <unordered_map>

#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"

namespace quillon::power_cut {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kNone = ~std::size_t{0};
constexpr mode_t kPermissions = 07777;

std::unordered_map<std::uint64_t, std::uint64_t>& recordedNumbers() {
  static auto* const numbers = new std::unordered_map<std::uint64_t, std::uint64_t>;
  return *numbers;
}

struct stat statusOf(const fs::path& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    throw std::system_error(errno, std::generic_category(), path);
  }
  return status;
}

void require(bool succeeded, const fs::path& path) {
  if (!succeeded) {
    throw std::system_error(errno, std::generic_category(), path);
  }
}

std::size_t mix(std::size_t hash, std::size_t value) {
  constexpr std::size_t kFactor = 0x9E3779B97F4A7C15;
  return (hash ^ value) * kFactor + (hash >> 29);
}

}  // namespace

std::uint64_t recordedInode(std::uint64_t number) {
  const auto found = recordedNumbers().find(number);
  return found == recordedNumbers().end() ? number : found->second;
}

Disk Disk::read(const std::vector<fs::path>& tops) {
  Disk disk;
  for (const fs::path& top : tops) {
    const std::size_t id = disk.readFile(top);
    disk.tops_.push_back({top, id});
  }
  return disk;
}

std::size_t Disk::add(Inode inode) {
  inodes_.push_back(std::move(inode));
  return inodes_.size() - 1;
}

std::size_t Disk::readFile(const fs::path& path) {
  const struct stat status = statusOf(path);
  Inode inode{Inode::Kind::kFile, status.st_ino, status.st_mode & kPermissions, {}, {}};
  if (S_ISLNK(status.st_mode)) {
    inode.kind = Inode::Kind::kLink;
    inode.content = fs::read_symlink(path);
  } else if (S_ISDIR(status.st_mode)) {
    inode.kind = Inode::Kind::kFolder;
    for (const auto& entry : fs::directory_iterator(path)) {
      inode.entries[entry.path().filename()] = readFile(entry.path());
    }
  } else {
    inode.content = readWholeFile(path, kMaxAssemblySize).value();
  }
  return add(std::move(inode));
}

void Disk::write() const {
  recordedNumbers().clear();
  for (const Top& top : tops_) {
    for (const auto& entry : fs::directory_iterator(top.path)) {
      fs::remove_all(entry);
    }
    writeEntries(top.id, top.path);
  }
}

void Disk::writeEntries(std::size_t id, const fs::path& path) const {
  for (const auto& [name, inner] : at(id).entries) {
    writeFile(inner, path / name);
  }
}

void Disk::writeFile(std::size_t id, const fs::path& path) const {
  const Inode& inode = at(id);
  if (inode.kind == Inode::Kind::kLink) {
    fs::create_symlink(inode.content, path);
  } else if (inode.kind == Inode::Kind::kFolder) {
    require(mkdir(path.c_str(), S_IRWXU) == 0, path);
    writeEntries(id, path);
    require(chmod(path.c_str(), inode.mode) == 0, path);
  } else {
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRWXU));
    // Zeros at the end become a hole, since some files have many.
    const std::size_t end = inode.content.find_last_not_of('\0') + 1;
    require(file && writeAll(file.get(), std::string_view(inode.content).substr(0, end)) &&
                ftruncate(file.get(), static_cast<off_t>(inode.content.size())) == 0 &&
                fchmod(file.get(), inode.mode) == 0,
            path);
  }
  recordedNumbers()[statusOf(path).st_ino] = inode.number;
}

std::size_t Disk::entry(std::size_t folder, const std::string& name) const {
  const auto found = at(folder).entries.find(name);
  return found == at(folder).entries.end() ? kNone : found->second;
}

void Disk::makeEntry(const Operation& operation) {
  const std::size_t there = entry(operation.folder, operation.name);
  if (operation.kind == Operation::Kind::kLink) {
    if (there == kNone) {
      inodes_[operation.folder].entries[operation.name] = operation.inode;
    }
    return;
  }
  if (there != operation.inode) {
    return;
  }
  const std::size_t target = entry(operation.toFolder, operation.toName);
  const bool isMove = operation.kind == Operation::Kind::kRename;
  const bool isBlocked = isMove && target != kNone && at(target).kind == Inode::Kind::kFolder;
  if (isBlocked || (operation.kind == Operation::Kind::kExchange && target == kNone)) {
    return;
  }
  if (operation.kind == Operation::Kind::kExchange) {
    inodes_[operation.folder].entries[operation.name] = target;
  } else {
    inodes_[operation.folder].entries.erase(operation.name);
  }
  if (operation.kind != Operation::Kind::kUnlink) {
    inodes_[operation.toFolder].entries[operation.toName] = operation.inode;
  }
}

void Disk::make(const Operation& operation) {
  if (operation.changesFolder()) {
    makeEntry(operation);
    return;
  }
  Inode& inode = inodes_.at(operation.inode);
  if (operation.kind == Operation::Kind::kMode) {
    inode.mode = static_cast<mode_t>(operation.offset);
  } else if (operation.kind == Operation::Kind::kResize) {
    inode.content.resize(operation.offset);
  } else if (operation.offset < inode.content.size()) {
    // Bytes after the end of the file on the disk are lost.
    const std::size_t size =
        std::min(operation.bytes.size(), inode.content.size() - operation.offset);
    inode.content.replace(operation.offset, size, operation.bytes, 0, size);
  }
}

std::optional<std::size_t> Disk::find(const fs::path& path) const {
  for (const Top& top : tops_) {
    const fs::path rest = path.lexically_relative(top.path);
    if (rest.empty() || *rest.begin() == "..") {
      continue;
    }
    std::size_t id = top.id;
    for (const fs::path& name : rest) {
      if (name != "." && !name.empty()) {
        id = entry(id, name);
      }
      if (id == kNone) {
        return std::nullopt;
      }
    }
    return id;
  }
  return std::nullopt;
}

std::size_t Disk::fingerprintOf(std::size_t id) const {
  const Inode& inode = at(id);
  std::size_t hash = mix(inode.mode, static_cast<std::size_t>(inode.kind));
  hash = mix(hash, std::hash<std::string>()(inode.content));
  for (const auto& [name, inner] : inode.entries) {
    hash = mix(mix(hash, std::hash<std::string>()(name)), fingerprintOf(inner));
  }
  return hash;
}

std::size_t Disk::fingerprint() const {
  std::size_t hash = 0;
  for (const Top& top : tops_) {
    hash = mix(hash, fingerprintOf(top.id));
  }
  return hash;
}

}  // namespace quillon::power_cut
