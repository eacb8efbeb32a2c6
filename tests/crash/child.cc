#include "tests/crash/child.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <ostream>

#include "util/log/stream_capture.h"

namespace quillon::test {
namespace {

constexpr unsigned kHangSeconds = 60;

std::string readAll(int descriptor) {
  std::string text;
  std::array<char, 4096> buffer{};
  for (ssize_t count; (count = read(descriptor, buffer.data(), buffer.size())) > 0;) {
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return text;
}

[[noreturn]] void run(const std::function<void()>& body) {
  prctl(PR_SET_DUMPABLE, 0);  // a test leaves no core files
  alarm(kHangSeconds);
  body();
  _exit(kSurvived);
}

Ending wait(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? killed(WTERMSIG(status)) : ended(WEXITSTATUS(status));
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

Ending endingOf(const std::function<void()>& body) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    return {};
  }
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    pStdErr[1] = ends[1];
    run(body);
  }
  close(ends[1]);
  const std::string text = readAll(ends[0]);
  close(ends[0]);
  Ending ending = wait(child);
  ending.text = text;
  return ending;
}

Ending endingWithoutPipe(const std::function<void()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    run(body);
  }
  return wait(child);
}

void fault() {
  const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const void* page = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  static_cast<void>(*static_cast<const volatile char*>(page));
}

}  // namespace quillon::test

// The sanitizers leave the signals to the plug-in.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "handle_segv=0:handle_abort=0:handle_sigtrap=0:allow_user_segv_handler=1:"
         "use_sigaltstack=0:detect_leaks=0";
}
