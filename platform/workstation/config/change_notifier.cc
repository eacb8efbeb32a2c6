#include "config/change_notifier.h"

#include <pthread.h>
#include <signal.h>

#include <new>
#include <system_error>

#include "config/config_file.h"
#include "log/log_failure.h"

namespace quillon::workstation {
namespace {

struct Process {
  std::mutex mutex;
  ChangeNotifier* notifier = nullptr;  // never deleted: its thread uses it until the process ends
  ChangeNotifier* parents = nullptr;   // the parent's, so that leak checkers find it
};

void lockForFork();
void unlockInParent();
void forgetInChild();

Process& process() {
  static Process& instance = []() -> Process& {
    pthread_atfork(lockForFork, unlockInParent, forgetInChild);
    return *new Process;
  }();
  return instance;
}

// While a thread initializes it, another one may fork: the child would wait for the first one.
[[gnu::constructor]] void initializeAtLoad() { process(); }

void lockForFork() { process().mutex.lock(); }
void unlockInParent() { process().mutex.unlock(); }

// The child does not have the notifier's thread, and another thread may have held the notifier's
// lock at the fork. So the child must not use its copy.
void forgetInChild() {
  if (process().notifier != nullptr) {
    process().parents = process().notifier;
  }
  process().notifier = nullptr;
  process().mutex.unlock();
}

// Blocks all signals during its life, so that a thread started meanwhile handles none of the
// process's signals.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

}  // namespace

void startConfigThread() { static_cast<void>(ChangeNotifier::start()); }

Expected<ChangeNotifier*> ChangeNotifier::start() {
  const std::lock_guard lock(process().mutex);
  if (process().notifier != nullptr) {
    return process().notifier;
  }
  ASSIGN_OR_RETURN(ConfigWatch watch, ConfigWatch::open());
  std::unique_ptr<ChangeNotifier> notifier(new ChangeNotifier(std::move(watch)));
  if (!notifier->launchThread()) {
    return fail("cannot start the thread for configuration changes", "raise the limit of threads");
  }
  process().notifier = notifier.release();
  return process().notifier;
}

ChangeNotifier* ChangeNotifier::started() {
  const std::lock_guard lock(process().mutex);
  return process().notifier;
}

bool ChangeNotifier::launchThread() {
  const SignalsBlocked blocked;
  const std::lock_guard lock(mutex_);
  try {
    std::thread thread(&ChangeNotifier::run, this);
    thread_ = thread.get_id();
    thread.detach();
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

Expected<void> ChangeNotifier::add(const std::string& key, vconf_callback_fn callback,
                                   void* userData) {
  RETURN_IF_FAILED(checkKey(key));
  const std::lock_guard lock(mutex_);
  RETURN_IF_FAILED(watch_.add(folderOfKey(key)));
  registrations_.push_back(std::make_shared<Registration>(Registration{key, callback, userData}));
  return {};
}

bool ChangeNotifier::remove(const std::string& key, vconf_callback_fn callback) {
  std::unique_lock lock(mutex_);
  const auto matches = [&](const std::shared_ptr<Registration>& registration) {
    return registration->key == key && registration->callback == callback;
  };
  const auto deactivate = [&](const std::shared_ptr<Registration>& registration) {
    if (!matches(registration)) {
      return false;
    }
    registration->active = false;
    return true;
  };
  const bool removed = std::erase_if(registrations_, deactivate) > 0;
  if (removed) {
    stopWatchingUnused(folderOfKey(key));
  }
  if (std::this_thread::get_id() != thread_) {
    idle_.wait(lock, [&] { return running_ == nullptr || !matches(running_); });
  }
  return removed;
}

void ChangeNotifier::stopWatchingUnused(const std::string& folder) {
  for (const auto& registration : registrations_) {
    if (folderOfKey(registration->key) == folder) {
      return;
    }
  }
  watch_.remove(folder);
}

void ChangeNotifier::run() {
  // A thread sets its own name with one system call; the name of another thread needs /proc.
  pthread_setname_np(pthread_self(), "Config Thread");
  bool missed = false;
  for (;;) {
    const std::string_view events = watch_.wait();
    if (events.empty()) {
      return;  // the application closed our descriptor
    }
    try {
      deliver(changesOf(events, missed));
      missed = false;
    } catch (const std::bad_alloc&) {
      missed = true;  // the next event concerns all keys
    }
  }
}

ConfigChanges ChangeNotifier::changesOf(std::string_view events, bool missed) {
  const std::lock_guard lock(mutex_);
  ConfigChanges changes = watch_.changes(events);
  changes.all = changes.all || missed;
  return changes;
}

std::set<std::string> ChangeNotifier::keysConcernedBy(const ConfigChanges& changes) {
  const std::lock_guard lock(mutex_);
  std::set<std::string> keys;
  for (const auto& registration : registrations_) {
    if (changes.concern(registration->key)) {
      keys.insert(registration->key);
    }
  }
  return keys;
}

std::vector<std::shared_ptr<ChangeNotifier::Registration>> ChangeNotifier::registrationsOf(
    const std::string& key) {
  const std::lock_guard lock(mutex_);
  std::vector<std::shared_ptr<Registration>> all;
  for (const auto& registration : registrations_) {
    if (registration->key == key) {
      all.push_back(registration);
    }
  }
  return all;
}

void ChangeNotifier::deliver(const ConfigChanges& changes) {
  for (const std::string& key : keysConcernedBy(changes)) {
    const auto value = readKey(key);
    if (!value) {
      logFailure(value.error());
    }
    if (!value || !*value) {
      continue;
    }
    keynode_s node{key, **value};
    for (const auto& registration : registrationsOf(key)) {
      call(registration, node);
    }
  }
}

void ChangeNotifier::call(const std::shared_ptr<Registration>& registration, keynode_s& node) {
  {
    const std::lock_guard lock(mutex_);
    if (!registration->active) {
      return;
    }
    running_ = registration;
  }
  registration->callback(&node, registration->userData);
  {
    const std::lock_guard lock(mutex_);
    running_ = nullptr;
  }
  idle_.notify_all();
}

}  // namespace quillon::workstation
