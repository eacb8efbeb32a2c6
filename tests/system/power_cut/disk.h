// A model of some folders on a disk: what is there, and the changes that system calls make to it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quillon::power_cut {

struct Inode {
  enum class Kind { kFile, kFolder, kLink } kind = Kind::kFile;
  std::uint64_t number = 0;  // of the recorded file
  mode_t mode = 0;
  std::string content;                         // of a file, or the target of a link
  std::map<std::string, std::size_t> entries;  // of a folder: name and id
};

// A change that a disk makes or does not make as a whole. Ids are those of a Disk.
struct Operation {
  enum class Kind { kLink, kUnlink, kRename, kExchange, kWrite, kResize, kMode } kind;
  std::size_t inode = 0;   // the file that is linked, unlinked, renamed or changed
  std::size_t folder = 0;  // kLink to kExchange
  std::string name;
  std::size_t toFolder = 0;  // kRename, kExchange
  std::string toName;
  std::size_t offset = 0;  // kWrite; of kResize and kMode the new size or mode
  std::string bytes;       // kWrite

  [[nodiscard]] bool changesFolder() const { return kind <= Kind::kExchange; }
  [[nodiscard]] bool changes(std::size_t id) const {
    return changesFolder() ? folder == id || (kind >= Kind::kRename && toFolder == id)
                           : inode == id;
  }
};

class Disk {
 public:
  // Reads what is in the folders `tops` now.
  static Disk read(const std::vector<std::filesystem::path>& tops);

  // Makes the folders like the model. Afterwards recordedInode() knows their files.
  void write() const;

  // Adds a file that no folder contains yet. Returns its id.
  std::size_t add(Inode inode);

  // Does nothing if an earlier operation, on which this one depends, was not made.
  void make(const Operation& operation);

  // The id of the file at an absolute path. nullopt if the path is not in the model.
  [[nodiscard]] std::optional<std::size_t> find(const std::filesystem::path& path) const;
  [[nodiscard]] const Inode& at(std::size_t id) const { return inodes_.at(id); }

  // Equal for disks with the same files: names, kinds, modes and contents.
  [[nodiscard]] std::size_t fingerprint() const;

 private:
  struct Top {
    std::filesystem::path path;
    std::size_t id;
  };
  std::size_t readFile(const std::filesystem::path& path);
  void writeFile(std::size_t id, const std::filesystem::path& path) const;
  void writeEntries(std::size_t id, const std::filesystem::path& path) const;
  [[nodiscard]] std::size_t fingerprintOf(std::size_t id) const;
  void makeEntry(const Operation& operation);
  [[nodiscard]] std::size_t entry(std::size_t folder, const std::string& name) const;

  std::vector<Top> tops_;
  std::vector<Inode> inodes_;
};

// The inode number that a file written by Disk::write() had when its disk was recorded. Returns
// `number` for all other files.
std::uint64_t recordedInode(std::uint64_t number);

}  // namespace quillon::power_cut
