// Waits for changes of configuration keys, by watching the folders of their files (inotify(7)).
#pragma once

#include <workstation/failure.h>

#include <map>
#include <set>
#include <string>

#include "files/descriptor.h"

namespace quillon::workstation {

// What happened since the last look. After an overflow of the kernel's queue any key may have
// changed.
struct ConfigChanges {
  bool all = false;
  std::set<std::string> keys;

  [[nodiscard]] bool concern(const std::string& key) const { return all || keys.contains(key); }
};

// Thread safety: wait() may run while another thread calls the rest; that rest wants a lock.
class ConfigWatch {
 public:
  static Expected<ConfigWatch> open();

  // Watches a folder of keys ("db/menu"), which is made where it is missing: so a key's first value
  // is a change too. Watching it again changes nothing.
  Expected<void> add(const std::string& folder);
  void remove(const std::string& folder);

  // Waits for the next events; empty on failure.
  [[nodiscard]] std::string wait() const;
  // What the events mean. A watched folder that was removed or moved away is made again.
  ConfigChanges changes(const std::string& events);

 private:
  explicit ConfigWatch(Descriptor inotify) : inotify_(std::move(inotify)) {}
  void renew(int watch);
  Descriptor inotify_;
  std::map<int, std::string> folders_;  // by watch descriptor
};

}  // namespace quillon::workstation
