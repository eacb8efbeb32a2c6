// Power cuts while the configuration changes.
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/system/power_cut/power_cut.h"
#include "workstation/config_store.h"

namespace quillon::power_cut {
namespace {

using workstation::ConfigValue;
using Store = std::map<std::string, ConfigValue>;

struct Change {
  std::string key;
  std::optional<ConfigValue> value;  // nullopt: unset the key
};

void change(Store& store, const Change& change) {
  if (change.value) {
    store[change.key] = *change.value;
  } else {
    store.erase(change.key);
  }
}

Expected<void> makeChange(const Change& change) {
  if (change.value) {
    return workstation::setConfig(change.key, *change.value);
  }
  return workstation::unsetConfig(change.key).map([](bool) {});
}

Store readStore() {
  Store store;
  const auto entries = workstation::listConfig("");
  EXPECT_TRUE(entries) << entries.error().what;
  for (const auto& entry : entries.value_or(std::vector<workstation::ConfigEntry>())) {
    store[entry.key] = entry.value;
  }
  return store;
}

class Configuration : public PowerCut {
 protected:
  // After the cut the store contains all changes that had been acknowledged, and perhaps the next.
  void cutDuringChanges(const std::vector<Change>& changes) {
    std::vector<Store> stores(1);
    for (const Change& made : changes) {
      stores.push_back(stores.back());
      change(stores.back(), made);
    }
    stores.push_back(stores.back());
    cutDuring(
        [&] {
          for (const Change& made : changes) {
            if (!makeChange(made)) {
              std::abort();
            }
            mark();
          }
        },
        [&](std::size_t marks) {
          const Store found = readStore();
          EXPECT_TRUE(found == stores[marks] || found == stores[marks + 1])
              << "after " << marks << " changes";
          expectChangeable(found);
        });
  }

 private:
  // What the cut has left does not keep keys from being set.
  static void expectChangeable(Store store) {
    store["new/key"] = 0;
    for (auto& [key, value] : store) {
      value = 7;
      const auto set = workstation::setConfig(key, value);
      EXPECT_TRUE(set) << set.error().what;
    }
    EXPECT_EQ(readStore(), store);
  }
};

TEST_F(Configuration, GetsItsFirstKeys) {
  cutDuringChanges({{"db/menu/language", "en"}, {"db/menu/size", 3}, {"db/dotnet/path/api", "/a"}});
}

TEST_F(Configuration, ReplacesValues) {
  cutDuringChanges({{"key", 1},
                    {"key", std::string(20'000, 'x')},
                    {"key", "short"},
                    {"key", 2},
                    {"group/key", std::string(9'000, 'y')},
                    {"group/key", std::string(10'000, 'z')}});
}

TEST_F(Configuration, LosesKeys) {
  cutDuringChanges({{"a/b/c", 1},
                    {"a/d", "text"},
                    {"a/b/c", std::nullopt},
                    {"a/d", std::nullopt},
                    {"a/d", 2},
                    {"e/f", 3},
                    {"e/f", std::nullopt},
                    {"e/f", 4}});
}

TEST_F(Configuration, TurnsAGroupIntoAKey) {
  cutDuringChanges({{"a/b", 1}, {"a/b", std::nullopt}, {"a", 2}});
}

}  // namespace
}  // namespace quillon::power_cut
