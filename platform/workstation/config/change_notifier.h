// Calls registered callbacks after changes of configuration keys, on its own thread.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "config/config_watch.h"
#include "platform/vconf.h"
#include "quillon/base/failure.h"
#include "workstation/config_store.h"

// The interface's node: a key and its new value.
struct keynode_s {
  std::string key;
  quillon::workstation::ConfigValue value;
};

namespace quillon::workstation {

// Thread safety: any thread may call it. Callbacks run without a lock and may call it too.
class ChangeNotifier {
 public:
  // Returns the process's notifier and starts it at the first call. It lives until the process
  // ends. A forked child has no registrations.
  static Expected<ChangeNotifier*> start();
  // Returns the notifier, or null if it was not started.
  static ChangeNotifier* started();

  Expected<void> add(const std::string& key, vconf_callback_fn callback, void* userData);

  // Removes all registrations of the callback for the key. Returns whether there was one. Waits
  // until the callback is not running, unless the callback itself calls.
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
  ConfigChanges changesOf(std::string_view events, bool missed);
  void deliver(const ConfigChanges& changes);
  void call(const std::shared_ptr<Registration>& registration, keynode_s& node);
  std::set<std::string> keysConcernedBy(const ConfigChanges& changes);
  std::vector<std::shared_ptr<Registration>> registrationsOf(const std::string& key);
  void stopWatchingUnused(const std::string& folder);

  std::mutex mutex_;  // guards all members below
  ConfigWatch watch_;
  std::vector<std::shared_ptr<Registration>> registrations_;
  std::shared_ptr<Registration> running_;
  std::condition_variable idle_;
  std::thread::id thread_;
};

}  // namespace quillon::workstation
