#include "workstation/config_store.h"

#include "config/config_file.h"
#include "config/config_watch.h"

namespace quillon::workstation {

Expected<std::optional<ConfigValue>> getConfig(const std::string& key) { return readKey(key); }

Expected<void> setConfig(const std::string& key, const ConfigValue& value) {
  return writeKey(key, value);
}

Expected<bool> unsetConfig(const std::string& key) { return removeKey(key); }

Expected<std::vector<ConfigEntry>> listConfig(const std::string& group) {
  RETURN_IF_FAILED(group.empty() ? Expected<void>() : checkKey(group));
  std::vector<ConfigEntry> entries;
  ASSIGN_OR_RETURN(const auto keys, keysBelow(group));
  for (const std::string& key : keys) {
    ASSIGN_OR_RETURN(const auto value, readKey(key));
    if (value) {  // it may have been removed meanwhile
      entries.push_back({key, *value});
    }
  }
  return entries;
}

Expected<void> watchConfig(const std::string& key,
                           const std::function<bool(const ConfigValue&)>& changed) {
  RETURN_IF_FAILED(checkKey(key));
  ASSIGN_OR_RETURN(ConfigWatch watch, ConfigWatch::open());
  RETURN_IF_FAILED(watch.add(folderOfKey(key)));
  // Reads the value after the watch has begun, so that no change is missed.
  ConfigChanges changes{true, {}};
  for (;;) {
    if (changes.concern(key)) {
      ASSIGN_OR_RETURN(const auto value, readKey(key));
      if (value && !changed(*value)) {
        return {};
      }
    }
    const std::string_view events = watch.wait();
    if (events.empty()) {
      return fail("cannot wait for changes of '" + key + "'");
    }
    changes = watch.changes(events);
  }
}

}  // namespace quillon::workstation
