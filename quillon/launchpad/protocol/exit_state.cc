#include "quillon/launchpad/protocol/exit_state.h"

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include "quillon/base/record.h"

namespace quillon::launchpad {
namespace {

constexpr int kSignalBase = 128;  // a shell reports signal N as status 128 + N

}  // namespace

std::string encode(const ExitState& state) {
  return RecordWriter()
      .number(state.bySignal ? 1 : 0)
      .number(static_cast<uint64_t>(state.number))
      .take();
}

ExitState decodeExitState(std::string_view bytes) {
  RecordReader reader(bytes);
  ExitState state;
  state.bySignal = reader.number() != 0;
  state.number = static_cast<int>(reader.number());
  return state;
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
