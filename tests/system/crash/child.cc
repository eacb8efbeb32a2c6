#include "tests/system/crash/child.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ostream>

namespace quillon::test {
namespace {

constexpr unsigned kHangSeconds = 60;

// Tests create no core files. A limit of 1 byte also prevents a core dump to a pipe (core(5)).
void refuseCoreFiles() {
  const rlimit none{1, 1};
  setrlimit(RLIMIT_CORE, &none);
}

}  // namespace

bool operator==(const Ending& left, const Ending& right) {
  return left.exitStatus == right.exitStatus && left.signal == right.signal &&
         left.text == right.text;
}

std::ostream& operator<<(std::ostream& stream, const Ending& ending) {
  return stream << "status " << ending.exitStatus << ", signal " << ending.signal << ", \""
                << ending.text << '"';
}

pid_t start(const std::function<void()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    refuseCoreFiles();
    alarm(kHangSeconds);
    body();
    _exit(kSurvived);
  }
  return child;
}

Ending endOf(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child) {
    return {};
  }
  return WIFSIGNALED(status) ? killed(WTERMSIG(status)) : ended(WEXITSTATUS(status));
}

Ending endingOf(const std::function<void()>& body) { return endOf(start(body)); }

void fault() {
  const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const void* page = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  static_cast<void>(*static_cast<const volatile char*>(page));
}

}  // namespace quillon::test

// Sanitizers must not handle the signals, because the plug-in handles them.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "handle_segv=0:handle_abort=0:handle_sigtrap=0:use_sigaltstack=0:detect_leaks=0";
}
