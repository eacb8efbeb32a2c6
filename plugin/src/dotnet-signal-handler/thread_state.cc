#include "plugin/src/dotnet-signal-handler/thread_state.h"

#include <fcntl.h>
#include <unistd.h>

#include "plugin/src/dotnet-signal-handler/decimal_text.h"

namespace {

constexpr std::size_t kPathSize = 64;
constexpr std::size_t kStatSize = 64;  // holds the id, the name and the state

// Returns the state in "ID (NAME) STATE ...", or 0. The name can contain parentheses.
char stateIn(const char* stat, ssize_t size) {
  char state = 0;
  for (ssize_t i = 0; i + 2 < size; ++i) {
    if (stat[i] == ')') {
      state = stat[i + 2];
    }
  }
  return state;
}

}  // namespace

bool isReadyToRun(pid_t thread) {
  BoundedString<kPathSize> path;
  path.append("/proc/self/task/");
  path.append(thread);
  path.append("/stat");
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    return false;
  }
  char stat[kStatSize];
  const char state = stateIn(stat, read(file, stat, sizeof(stat)));
  close(file);
  return state == 'R' || state == 'D';
}
