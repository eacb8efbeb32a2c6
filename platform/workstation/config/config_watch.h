// Waits for changes of configuration keys, by watching the folders of their files (inotify(7)).
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"
#include "quillon/base/files.h"

namespace quillon::workstation {

// What happened since the last look. After an overflow of the kernel's queue any key may have
// changed.
struct ConfigChanges {
  bool all = false;
  std::set<std::string> keys;

  [[nodiscard]] bool concern(const std::string& key) const { return all || keys.contains(key); }
};

// Thread safety: one thread may wait() while others call the rest; that rest wants a lock.
class ConfigWatch {
 public:
  static Expected<ConfigWatch> open();

  // Watches a folder of keys ("db/menu"), which is made where it is missing: so a key's first value
  // is a change too. Watching it again changes nothing.
  Expected<void> add(const std::string& folder);
  void remove(const std::string& folder);

  // Waits for the next events; empty on failure. They live until the next call.
  [[nodiscard]] std::string_view wait();
  // What the events mean. A watched folder that was removed or moved away is made again.
  ConfigChanges changes(std::string_view events);

 private:
  explicit ConfigWatch(Descriptor inotify);
  void renew(int watch);
  Descriptor inotify_;
  std::vector<char> buffer_;            // the waiting thread's
  std::map<int, std::string> folders_;  // by watch descriptor
};

}  // namespace quillon::workstation
