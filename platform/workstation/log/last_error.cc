#include "log/last_error.h"

#include <pthread.h>

#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "log/log_record.h"
#include "workstation/last_errors.h"

namespace quillon::workstation {
namespace {

constexpr std::size_t kMaxMessages = 16;

struct LastErrors {
  std::mutex mutex;
  std::deque<std::string> messages;
};

void lockForFork();
void unlockAfterFork();

// Lives until the process ends: threads may log while static objects are destroyed.
LastErrors& lastErrors() {
  static LastErrors& instance = []() -> LastErrors& {
    // A forked child must not inherit a lock that another thread holds.
    pthread_atfork(lockForFork, unlockAfterFork, unlockAfterFork);
    return *new LastErrors;
  }();
  return instance;
}

// While a thread initializes it, another one may fork: the child would wait for the first one.
[[gnu::constructor]] void initializeAtLoad() { lastErrors(); }

void lockForFork() { lastErrors().mutex.lock(); }
void unlockAfterFork() { lastErrors().mutex.unlock(); }

// The text without its origin, "<file>: <function>(<line>) > ", if it has one.
std::string_view withoutOrigin(std::string_view text) {
  constexpr std::string_view kBreak = ") > ";
  const size_t at = text.find(kBreak);
  return at == text.npos ? text : text.substr(at + kBreak.size());
}

}  // namespace

void keepError(std::string_view text) {
  std::string message = withoutColours(withoutLineBreak(withoutOrigin(text)));
  LastErrors& last = lastErrors();
  const std::lock_guard lock(last.mutex);
  last.messages.push_back(std::move(message));
  if (last.messages.size() > kMaxMessages) {
    last.messages.pop_front();
  }
}

std::vector<std::string> lastErrorMessages() {
  LastErrors& last = lastErrors();
  const std::lock_guard lock(last.mutex);
  return {last.messages.begin(), last.messages.end()};
}

std::string lastErrorMessage() {
  const std::vector<std::string> messages = lastErrorMessages();
  return messages.empty() ? std::string() : messages.back();
}

}  // namespace quillon::workstation
