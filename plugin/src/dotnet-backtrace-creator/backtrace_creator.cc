#include "plugin/src/dotnet-backtrace-creator/backtrace_creator.h"

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "quillon_tv_plugin.h"
#include "util/log/log.h"

namespace {

// The platform's crash tooling handles this signal with a backtrace of the thread that receives it.
constexpr int kBacktraceSignal = 28;

struct DirectoryCloser {
  void operator()(DIR* directory) const { closedir(directory); }
};

bool isDot(const char* name) { return strcmp(name, ".") == 0 || strcmp(name, "..") == 0; }

}  // namespace

int dir_traverse(const char* path, void (*callback)(const char* name)) {
  const std::unique_ptr<DIR, DirectoryCloser> directory(opendir(path));
  if (directory == nullptr) {
    return 0;
  }
  while (const dirent* entry = readdir(directory.get())) {
    if (!isDot(entry->d_name)) {
      callback(entry->d_name);
    }
  }
  return 0;
}

void print_name(const char* name) {
  QLOG_ERROR("%s", name);
  print_backtrace(static_cast<int>(strtol(name, nullptr, 10)));
}

int print_backtrace(int tid) { return static_cast<int>(syscall(SYS_tkill, tid, kBacktraceSignal)); }

int print_all_backtrace() try {
  QLOG_SCOPE();
  QLOG_ERROR("print_all_backtrace()");
  dir_traverse("/proc/self/task/", print_name);
  return 0;
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  return 0;
}
