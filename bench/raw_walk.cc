#include "bench/raw_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string_view>
#include <unordered_set>

namespace quillon::bench {
namespace {

constexpr std::size_t kBufferSize = 64 * 1024;

struct KernelEntry {
  unsigned long long inode;
  long long offset;
  unsigned short length;
  unsigned char type;
  char name[1];
};

template <typename Visit>
void forEachFile(int directory, char* buffer, const Visit& visit) {
  long filled = 0;
  while ((filled = syscall(SYS_getdents64, directory, buffer, kBufferSize)) > 0) {
    for (long at = 0; at < filled;) {
      const auto* entry = reinterpret_cast<const KernelEntry*>(buffer + at);
      if (entry->type == DT_REG || entry->type == DT_LNK) {
        visit(entry->name);
      }
      at += entry->length;
    }
  }
}

template <typename Visit>
void forEachFile(const std::vector<std::string>& directories, const Visit& visit) {
  alignas(KernelEntry) static char buffer[kBufferSize];
  for (const std::string& path : directories) {
    const int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
      forEachFile(directory, buffer, visit);
      close(directory);
    }
  }
}

bool isAssembly(std::string_view name) { return name.ends_with(".dll") || name.ends_with(".exe"); }

}  // namespace

std::size_t walkKeepingNothing(const std::vector<std::string>& directories) {
  std::size_t files = 0;
  forEachFile(directories, [&](const char*) { ++files; });
  return files;
}

std::size_t walkKeepingNames(const std::vector<std::string>& directories) {
  std::unordered_set<std::string> names;
  forEachFile(directories, [&](std::string_view name) {
    if (isAssembly(name)) {
      names.emplace(name.substr(0, name.size() - 4));
    }
  });
  return names.size();
}

}  // namespace quillon::bench
