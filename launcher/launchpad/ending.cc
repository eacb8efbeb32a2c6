#include "launcher/launchpad/ending.h"

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include "launcher/launchpad/text_record.h"

namespace quillon::launchpad {
namespace {

constexpr int kSignalBase = 128;  // what a shell makes of a signal

}  // namespace

std::string toBytes(const Ending& ending) {
  return RecordWriter()
      .number(ending.bySignal ? 1 : 0)
      .number(static_cast<uint64_t>(ending.number))
      .bytes();
}

Ending endingOf(const std::string& bytes) {
  RecordReader reader(bytes);
  Ending ending;
  ending.bySignal = reader.number() != 0;
  ending.number = static_cast<int>(reader.number());
  return ending;
}

void dieBy(int signal) {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  ::signal(signal, SIG_DFL);
  kill(getpid(), signal);
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, signal);
  sigprocmask(SIG_UNBLOCK, &only, nullptr);
}

int endAs(const Ending& ending) {
  if (!ending.bySignal) return ending.number;
  dieBy(ending.number);
  return kSignalBase + ending.number;
}

}  // namespace quillon::launchpad
