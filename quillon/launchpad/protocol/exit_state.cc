#include "quillon/launchpad/protocol/exit_state.h"

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include "quillon/base/record.h"

namespace quillon::launchpad {
namespace {

constexpr uint64_t kMaxStatus = 255;
constexpr int kSignalBase = 128;  // a shell reports signal N as status 128 + N

}  // namespace

std::string encode(const ExitState& state) {
  return RecordWriter()
      .number(state.bySignal ? 1 : 0)
      .number(static_cast<uint64_t>(state.number))
      .take();
}

std::optional<ExitState> decodeExitState(std::string_view bytes) {
  RecordReader reader(bytes);
  const uint64_t bySignal = reader.number();
  const uint64_t number = reader.number();
  const bool isPossible = bySignal == 0 ? number <= kMaxStatus : number >= 1 && number < NSIG;
  if (!reader.atEnd() || bySignal > 1 || !isPossible) {
    return std::nullopt;
  }
  return ExitState{bySignal != 0, static_cast<int>(number)};
}

void killSelfBy(int signal) {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  ::signal(signal, SIG_DFL);
  kill(getpid(), signal);
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, signal);
  sigprocmask(SIG_UNBLOCK, &only, nullptr);
}

int exitAs(const ExitState& state) {
  if (!state.bySignal) {
    return state.number;
  }
  killSelfBy(state.number);
  return kSignalBase + state.number;
}

}  // namespace quillon::launchpad
