#include "quillon/base/directory_entries.h"

#include <dirent.h>

#include <array>
#include <cerrno>
#include <string_view>

namespace quillon {
namespace {

constexpr size_t kTypicalSize = 2048;  // the entries of a few dozen files

void addNames(const char* entries, ssize_t length, std::vector<std::string>& names) {
  for (ssize_t at = 0; at < length;) {
    const auto* const entry = reinterpret_cast<const dirent64*>(entries + at);
    at += entry->d_reclen;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") {
      names.emplace_back(name);
    }
  }
}

}  // namespace

// getdents64(2) directly, since opendir(3) would allocate 32 KiB.
std::vector<std::string> directoryEntries(int folder) {
  std::vector<std::string> names;
  alignas(dirent64) std::array<char, kTypicalSize> entries;
  for (;;) {
    const ssize_t length = getdents64(folder, entries.data(), entries.size());
    if (length <= 0) {
      if (length == 0) {
        errno = 0;
      }
      return names;
    }
    addNames(entries.data(), length, names);
  }
}

}  // namespace quillon
