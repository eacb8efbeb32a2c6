// Waits for changes of configuration keys, by watching the folders of their files (inotify(7)).
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"

namespace quillon::workstation {

// The keys that changed. `all`: any key may have changed, for example after the kernel's queue
// overflowed.
struct ConfigChanges {
  bool all = false;
  std::set<std::string> keys;

  [[nodiscard]] bool concern(const std::string& key) const { return all || keys.contains(key); }
};

// Thread safety: one thread may call wait() while others call the other functions, which need a
// lock among themselves.
class ConfigWatch {
 public:
  static Expected<ConfigWatch> open();

  // Watches a folder of keys ("db/menu"). Creates a missing folder, so that the first value of a
  // key is a change too. Has no effect if the folder is watched already.
  Expected<void> add(const std::string& folder);
  void remove(const std::string& folder);

  // Waits for events and returns them; empty on failure. They are valid until the next call.
  [[nodiscard]] std::string_view wait();
  // Decodes events. Creates a watched folder again if it was removed or moved.
  ConfigChanges changes(std::string_view events);

 private:
  explicit ConfigWatch(Descriptor inotify);
  void renew(int watch);
  Descriptor inotify_;
  std::vector<char> buffer_;            // used by the waiting thread only
  std::map<int, std::string> folders_;  // by watch descriptor
};

}  // namespace quillon::workstation
