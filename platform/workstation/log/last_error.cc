#include "log/last_error.h"

#include <pthread.h>

#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "log/log_record.h"
#include "workstation/log_tail.h"

namespace quillon::workstation {
namespace {

constexpr std::size_t kKept = 16;

struct LastErrors {
  std::mutex mutex;
  std::deque<std::string> messages;
};

void lockForFork();
void unlockAfterFork();

// Lives until the process ends: threads may log while static objects are destroyed.
LastErrors& lastErrors() {
  static LastErrors& instance = []() -> LastErrors& {
    // A child of a process with several threads must not inherit a held lock.
    pthread_atfork(lockForFork, unlockAfterFork, unlockAfterFork);
    return *new LastErrors;
  }();
  return instance;
}

void lockForFork() { lastErrors().mutex.lock(); }
void unlockAfterFork() { lastErrors().mutex.unlock(); }

// The part behind "<file>: <function>(<line>) > ", where the text has such an origin.
std::string_view withoutOrigin(std::string_view text) {
  constexpr std::string_view kBreak = ") > ";
  const size_t at = text.find(kBreak);
  return at == text.npos ? text : text.substr(at + kBreak.size());
}

}  // namespace

void rememberError(std::string_view text) {
  std::string message = withoutColours(withoutLineBreak(withoutOrigin(text)));
  LastErrors& last = lastErrors();
  const std::lock_guard lock(last.mutex);
  last.messages.push_back(std::move(message));
  if (last.messages.size() > kKept) last.messages.pop_front();
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
