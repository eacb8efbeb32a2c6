#include "workstation/config_store.h"

#include "config/config_file.h"
#include "config/config_watch.h"

namespace quillon::workstation {

Expected<std::optional<ConfigValue>> getConfig(const std::string& key) { return readKey(key); }

Expected<void> setConfig(const std::string& key, const ConfigValue& value) {
  return writeKey(key, value);
}

Expected<void> watchConfig(const std::string& key,
                           const std::function<bool(const ConfigValue&)>& changed) {
  RETURN_IF_FAILED(checkKey(key));
  auto watch = ConfigWatch::open();
  if (!watch) return tl::unexpected(watch.error());
  RETURN_IF_FAILED(watch->add(folderOfKey(key)));
  // The value is read after the watch has begun, so no change falls between the two.
  ConfigChanges changes{true, {}};
  for (;;) {
    if (changes.concern(key)) {
      const auto value = readKey(key);
      if (!value) return tl::unexpected(value.error());
      if (*value && !changed(**value)) return {};
    }
    const std::string_view events = watch->wait();
    if (events.empty()) return fail("cannot wait for changes of '" + key + "'");
    changes = watch->changes(events);
  }
}

}  // namespace quillon::workstation
