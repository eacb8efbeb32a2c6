// Calls registered functions after changes of configuration keys, on one thread of its own.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "config/config_watch.h"
#include "platform/vconf.h"
#include "quillon/base/failure.h"
#include "workstation/config_store.h"

// What the interface calls a node: a key and the value that it changed to.
struct keynode_s {
  std::string key;
  quillon::workstation::ConfigValue value;
};

namespace quillon::workstation {

// Thread safety: any thread may call it. Callbacks run without a lock held and may call it, too.
class ChangeNotifier {
 public:
  // The process's notifier, started at the first call; null with the cause when that fails. Lives
  // until the process ends. A forked child starts without registrations.
  static Expected<ChangeNotifier*> start();
  // The same, or null where none was started.
  static ChangeNotifier* started();

  Expected<void> add(const std::string& key, vconf_callback_fn callback, void* userData);

  // Takes every such registration back and returns whether there was one. When it returns, the
  // callback is not running any more, unless it is the callback that calls.
  bool remove(const std::string& key, vconf_callback_fn callback);

 private:
  struct Registration {
    std::string key;
    vconf_callback_fn callback;
    void* userData;
    bool active = true;
  };

  explicit ChangeNotifier(ConfigWatch watch) : watch_(std::move(watch)) {}
  bool launchThread();
  void run();
  void deliver(const ConfigChanges& changes);
  void call(const std::shared_ptr<Registration>& registration, keynode_s& node);
  std::set<std::string> keysConcernedBy(const ConfigChanges& changes);
  std::vector<std::shared_ptr<Registration>> registrationsOf(const std::string& key);
  void stopWatchingUnused(const std::string& folder);

  std::mutex mutex_;  // guards what follows
  ConfigWatch watch_;
  std::vector<std::shared_ptr<Registration>> registrations_;
  std::shared_ptr<Registration> running_;
  std::condition_variable idle_;
  std::thread::id thread_;
};

}  // namespace quillon::workstation
