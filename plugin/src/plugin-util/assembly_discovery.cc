#include "plugin/src/plugin-util/assembly_discovery.h"

#include <array>
#include <cstddef>
#include <memory_resource>
#include <string_view>
#include <unordered_map>

#include "util/log/log.h"
#include "util/zq_utils/directory_walk.h"
#include "util/zq_utils/paths.h"

namespace {

// The predicates below run for every file of every directory, so they do not copy strings.

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Returns true if `pattern`, in lower case, begins `fromEnd` characters before the end of `text`.
// Ignores the case of `text`.
bool containsFromEnd(std::string_view text, std::size_t fromEnd, std::string_view pattern) {
  if (text.size() < fromEnd) {
    return false;
  }
  const char* at = text.data() + text.size() - fromEnd;
  for (const char wanted : pattern) {
    if (lower(*at++) != wanted) {
      return false;
    }
  }
  return true;
}

bool isImage(std::string_view name) { return containsFromEnd(name, 7, ".ni"); }

bool hasAssemblyExtension(std::string_view name) {
  return containsFromEnd(name, 4, ".dll") || containsFromEnd(name, 4, ".exe");
}

std::string_view assemblyName(std::string_view path) {
  std::string_view name = path.substr(path.rfind('/') + 1);
  name = name.substr(0, name.rfind('.'));
  if (name.size() >= 4 && name.ends_with(".ni")) {
    name.remove_suffix(3);
  }
  return name;
}

// A path of the table always contains a slash.
std::string_view directoryOf(std::string_view path) { return path.substr(0, path.rfind('/')); }

// Enough for the names and paths of one framework. More memory comes from the heap.
constexpr std::size_t kInitialArenaSize = std::size_t{64} * 1024;
constexpr std::size_t kExpectedAssemblies = 512;

// Maps each assembly name to one path and keeps the order in which the names were added. A name is
// a view into the first path that had it. The paths are stored in an arena that the table owns.
class AssemblyTable {
 public:
  AssemblyTable() {
    paths_.reserve(kExpectedAssemblies);
    order_.reserve(kExpectedAssemblies);
  }

  void offer(std::string_view path, std::string_view name) {
    const bool image = isImage(name);
    if (!image && !hasAssemblyExtension(name)) {
      return;
    }
    const std::string_view kept = keep(path);
    const auto [entry, isNew] = paths_.try_emplace(assemblyName(kept), kept);
    if (isNew) {
      order_.push_back(&*entry);
    } else if (image && imageReplaces(kept, entry->second)) {
      entry->second = kept;
    }
  }

  // Appends the paths to `list`, separated by ":". `list` does not end with ":" afterwards.
  void appendTo(std::string& list) const {
    if (!order_.empty() && !list.empty() && !list.ends_with(':')) {
      list += ':';
    }
    list.reserve(list.size() + joinedLength());
    for (const auto* entry : order_) {
      list += entry->second;
      list += ':';
    }
    if (list.ends_with(':')) {
      list.pop_back();
    }
  }

 private:
  // A native image replaces only an IL file in the same directory. Every file of the table is one
  // or the other.
  static bool imageReplaces(std::string_view image, std::string_view present) {
    return !isImage(present) && directoryOf(present) == directoryOf(image);
  }

  std::string_view keep(std::string_view text) {
    char* copy = static_cast<char*>(arena_.allocate(text.size(), 1));
    return {copy, text.copy(copy, text.size())};
  }

  std::size_t joinedLength() const {
    std::size_t length = 0;
    for (const auto* entry : order_) {
      length += entry->second.size() + 1;
    }
    return length;
  }

  std::array<std::byte, kInitialArenaSize> first_;
  std::pmr::monotonic_buffer_resource arena_{first_.data(), first_.size()};
  std::pmr::unordered_map<std::string_view, std::string_view> paths_{&arena_};
  std::vector<const decltype(paths_)::value_type*> order_;
};

}  // namespace

bool isNativeImage(const std::string& name) { return isImage(name); }

bool isManagedAssembly(const std::string& name) {
  return hasAssemblyExtension(name) && !isImage(name);
}

std::string getAssemblyNameFromPath(const std::string& path) {
  return std::string(assemblyName(path));
}

std::string stripNiDLL(const std::string& path) {
  std::string_view name = path;
  if (name.size() > 4 && hasAssemblyExtension(name)) {
    name.remove_suffix(4);
  }
  if (path.size() > 4 && containsFromEnd(name, 3, ".ni")) {
    name.remove_suffix(3);
  }
  return std::string(name);
}

void addPlatformAssembliesPaths(const std::string& directoryList,
                                std::vector<std::string>& directories) {
  QLOG_SCOPE();
  std::vector<std::string> pieces;
  splitPath(directoryList, pieces);
  for (std::string& piece : pieces) {
    piece = getAbsolutePath(piece);
  }
  directories.insert(directories.end(), pieces.begin(), pieces.end());
}

void addAssembliesFromDirectories(const std::vector<std::string>& directories, std::string& tpa) {
  QLOG_SCOPE();
  AssemblyTable assemblies;
  for (const std::string& directory : directories) {
    scanFilesInDirectory(
        directory,
        [&assemblies](const std::string& path, const char* name) { assemblies.offer(path, name); },
        0);
  }
  assemblies.appendTo(tpa);
}
