#include "tests/system/crash/scripted_signals.h"

#include <array>
#include <cerrno>

#include "tests/support/next_call.h"

namespace quillon::test {
namespace {

constexpr std::array<int, 5> kSignals = {SIGTERM, SIGABRT, SIGSEGV, SIGTRAP, 28};

int realSigaction(int signal, const struct sigaction* action, struct sigaction* old) {
  // Looked up in advance, because a handler must not call dlsym(3).
  static const auto real = next<decltype(&sigaction)>("sigaction");
  return real(signal, action, old);
}

}  // namespace

ScriptedSignals& signals() {
  static ScriptedSignals instance;
  return instance;
}

struct sigaction actionOf(int signal) {
  struct sigaction action = {};
  realSigaction(signal, nullptr, &action);
  return action;
}

KeptActions::KeptActions() {
  for (const int signal : kSignals) {
    actions_.push_back(actionOf(signal));
  }
}

KeptActions::~KeptActions() {
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    realSigaction(kSignals[i], &actions_[i], nullptr);
  }
}

}  // namespace quillon::test

using quillon::test::signals;

extern "C" int sigaction(int signal, const struct sigaction* action,
                         struct sigaction* old) noexcept {
  const bool isUnknown = action == nullptr && signals().isUnknown;
  if (isUnknown || signals().failing.count(signal) != 0) {
    errno = EINVAL;
    return -1;
  }
  if (action != nullptr && signals().records) {
    signals().installed.push_back(signal);
  }
  if (action != nullptr && signals().beforeInstall) {
    signals().beforeInstall();
  }
  if (action == nullptr || !signals().onInstall) {
    return quillon::test::realSigaction(signal, action, old);
  }
  // Uses a local variable, because `old` must not be set yet when the action is already installed.
  struct sigaction replaced = {};
  const int result = quillon::test::realSigaction(signal, action, &replaced);
  signals().onInstall();
  if (old != nullptr) {
    *old = replaced;
  }
  return result;
}

extern "C" std::time_t time(std::time_t* result) noexcept {
  timespec clock{};
  clock_gettime(CLOCK_REALTIME, &clock);
  const std::time_t now = signals().now.value_or(clock.tv_sec);
  if (result != nullptr) {
    *result = now;
  }
  return now;
}
