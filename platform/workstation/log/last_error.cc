#include "log/last_error.h"

#include <pthread.h>
#include <workstation/log_tail.h>

#include <mutex>
#include <string>

#include "log/log_record.h"

namespace quillon::workstation {
namespace {

struct LastError {
  std::mutex mutex;
  std::string message;
};

void lockForFork();
void unlockAfterFork();

// Lives until the process ends: threads may log while static objects are destroyed.
LastError& lastError() {
  static LastError& instance = []() -> LastError& {
    // A child of a process with several threads must not inherit a held lock.
    pthread_atfork(lockForFork, unlockAfterFork, unlockAfterFork);
    return *new LastError;
  }();
  return instance;
}

void lockForFork() { lastError().mutex.lock(); }
void unlockAfterFork() { lastError().mutex.unlock(); }

// The part behind "<file>: <function>(<line>) > ", where the text has such an origin.
std::string_view withoutOrigin(std::string_view text) {
  constexpr std::string_view kBreak = ") > ";
  const size_t at = text.find(kBreak);
  return at == text.npos ? text : text.substr(at + kBreak.size());
}

}  // namespace

void rememberError(std::string_view text) {
  std::string message = withoutColours(withoutLineBreak(withoutOrigin(text)));
  LastError& last = lastError();
  const std::lock_guard lock(last.mutex);
  last.message = std::move(message);
}

std::string lastErrorMessage() {
  LastError& last = lastError();
  const std::lock_guard lock(last.mutex);
  return last.message;
}

}  // namespace quillon::workstation
