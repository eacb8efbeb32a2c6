#include "quillon/launchpad/protocol/exit_state.h"

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include "quillon/base/record.h"

namespace quillon::launchpad {
namespace {

constexpr int kSignalBase = 128;  // what a shell makes of a signal

}  // namespace

std::string toBytes(const ExitState& ending) {
  return RecordWriter()
      .number(ending.bySignal ? 1 : 0)
      .number(static_cast<uint64_t>(ending.number))
      .bytes();
}

ExitState endingOf(const std::string& bytes) {
  RecordReader reader(bytes);
  ExitState ending;
  ending.bySignal = reader.number() != 0;
  ending.number = static_cast<int>(reader.number());
  return ending;
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

int exitAs(const ExitState& ending) {
  if (!ending.bySignal) return ending.number;
  killSelfBy(ending.number);
  return kSignalBase + ending.number;
}

}  // namespace quillon::launchpad
