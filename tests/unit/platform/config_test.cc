// The configuration store and its change notifications.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "platform/vconf.h"
#include "quillon/base/files.h"
#include "tests/support/program.h"
#include "tests/unit/platform/device_main.h"
#include "workstation/config_store.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using workstation::ConfigValue;
using workstation::getConfig;
using workstation::setConfig;

constexpr const char* kKey = "db/menu/agree";
constexpr const char* kFile = "/opt/usr/share/quillon/config/db/menu/agree";

// Collects the integers of notifications. Each registration has its own object.
class Notices {
 public:
  static void callback(keynode_t* node, void* self) {
    auto& notices = *static_cast<Notices*>(self);
    const std::lock_guard lock(notices.mutex_);
    notices.values_.push_back(vconf_keynode_get_int(node));
    notices.changed_.notify_all();
  }
  bool waitFor(int value) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, 10s,
                             [&] { return !values_.empty() && values_.back() == value; });
  }
  std::vector<int> values() {
    const std::lock_guard lock(mutex_);
    return values_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<int> values_;
};

class ConfigTest : public InsideDeviceTest {
 protected:
  void set(int value, const std::string& key = kKey) { ASSERT_TRUE(setConfig(key, value)); }
  // Waits until the store's thread allocates nothing more: otherwise a forked child might find the
  // sanitizers' allocator locked.
  void awaitIdleThread(Notices& notices) {
    set(1);
    EXPECT_TRUE(notices.waitFor(1));
  }
  // When the change of another key arrives, all changes before it have been delivered.
  void expectNoFurtherNotice(Notices& notices, size_t count) {
    Notices fence;
    ASSERT_EQ(vconf_notify_key_changed("fence", Notices::callback, &fence), 0);
    set(1, "fence");
    EXPECT_TRUE(fence.waitFor(1));
    EXPECT_EQ(vconf_ignore_key_changed("fence", Notices::callback), 0);
    EXPECT_EQ(notices.values().size(), count);
  }
};

std::string text(const char* key) {
  char* value = vconf_get_str(key);
  const std::string result = value == nullptr ? "null" : value;
  std::free(value);
  return result;
}

TEST_F(ConfigTest, WritesTheDocumentedBytes) {
  ASSERT_TRUE(setConfig(kKey, -7));
  EXPECT_EQ(contentsOf(kFile), "int -7\n");
  ASSERT_TRUE(setConfig(kKey, std::string("a\nb \n")));
  EXPECT_EQ(contentsOf(kFile), "string a\nb \n");
  EXPECT_EQ(std::distance(fs::directory_iterator("/opt/usr/share/quillon/config/db/menu"), {}), 1);
}

TEST_F(ConfigTest, ReadsWhatWasSet) {
  EXPECT_FALSE(getConfig(kKey).value());
  for (const ConfigValue& value :
       {ConfigValue(0), ConfigValue(-2147483647 - 1), ConfigValue(std::string()),
        ConfigValue(std::string("int 5\n")), ConfigValue(std::string(100'000, 'x'))}) {
    ASSERT_TRUE(setConfig(kKey, value));
    EXPECT_EQ(getConfig(kKey).value(), value);
  }
}

TEST_F(ConfigTest, RefusesAValueThatWouldNotBeRead) {
  set(1);
  const std::string fitting(kMaxTextSize - std::string("string ").size(), 'x');
  EXPECT_FALSE(setConfig(kKey, fitting + 'x'));
  EXPECT_TRUE(getConfig(kKey).value() == ConfigValue(1));  // EXPECT_EQ would print a megabyte
  EXPECT_TRUE(setConfig(kKey, fitting));
  EXPECT_TRUE(getConfig(kKey).value() == ConfigValue(fitting));
}

TEST_F(ConfigTest, ReadsTextOfTextKeysOnly) {
  EXPECT_EQ(text(kKey), "null");
  ASSERT_TRUE(setConfig(kKey, std::string("10.1")));
  EXPECT_EQ(text(kKey), "10.1");
  set(5);
  EXPECT_EQ(text(kKey), "null");
  EXPECT_EQ(text("db"), "null");
  EXPECT_EQ(vconf_get_str(nullptr), nullptr);
}

TEST_F(ConfigTest, RejectsInvalidKeys) {
  for (const std::string key : {"", "/", "/a", "a/", "a//b", "../a", "a/../b", ".hidden", "a\nb"}) {
    EXPECT_FALSE(getConfig(key)) << key;
    EXPECT_FALSE(setConfig(key, 1)) << key;
    EXPECT_LT(vconf_notify_key_changed(key.c_str(), Notices::callback, nullptr), 0) << key;
  }
  EXPECT_FALSE(setConfig(std::string(201, 'k'), 1));
  EXPECT_TRUE(setConfig(std::string(200, 'k'), 1));
}

TEST_F(ConfigTest, ReportsAMalformedFile) {
  for (const char* bad :
       {"", "int", "int 5", "int \n", "int 5x\n", "int 99999999999\n", "5\n", "string"}) {
    writeFile(kFile, bad);
    const auto value = getConfig(kKey);
    ASSERT_FALSE(value) << bad;
    EXPECT_EQ(value.error().what,
              std::string("the configuration file '") + kFile + "' has no valid value");
    EXPECT_EQ(text(kKey), "null");
  }
}

TEST_F(ConfigTest, AKeyIsAValueOrAFolder) {
  set(1, "a");
  const auto below = setConfig("a/b", 2);
  ASSERT_FALSE(below);
  EXPECT_THAT(below.error().what, HasSubstr("'a/b' cannot be a key, because 'a' is one"));
  set(1, "c/d");
  EXPECT_FALSE(setConfig("c", 2));
  EXPECT_EQ(std::distance(fs::directory_iterator("/opt/usr/share/quillon/config"), {}), 2);
}

TEST_F(ConfigTest, ReadersSeeOldOrNewWhileAWriterReplaces) {
  std::atomic<bool> stop = false;
  ASSERT_TRUE(setConfig(kKey, std::string(5000, 'a')));
  std::thread writer([&] {
    for (int i = 0; !stop; ++i) {
      if (!setConfig(kKey, std::string(5000, i % 2 == 0 ? 'b' : 'a'))) {
        break;
      }
    }
  });
  for (int i = 0; i < 2000; ++i) {
    const auto value = std::get<std::string>(getConfig(kKey).value().value());
    ASSERT_EQ(value, std::string(5000, value[0]));
  }
  stop = true;
  writer.join();
}

TEST_F(ConfigTest, ReportsTheFirstValueOfAKeyWhoseFolderIsMissing) {
  Notices notices;
  ASSERT_EQ(vconf_notify_key_changed(kKey, Notices::callback, &notices), 0);
  set(3);
  EXPECT_TRUE(notices.waitFor(3));
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Notices::callback), 0);
}

TEST_F(ConfigTest, ReportsEachChangeOfItsKeyOnce) {
  Notices notices;
  ASSERT_EQ(vconf_notify_key_changed(kKey, Notices::callback, &notices), 0);
  set(1, "db/menu/agreement");
  set(2, "db/other/agree");
  set(3);
  EXPECT_TRUE(notices.waitFor(3));
  expectNoFurtherNotice(notices, 1);
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Notices::callback), 0);
}

TEST_F(ConfigTest, CallsEachRegistrationOfAKey) {
  Notices one;
  Notices other;
  const auto second = [](keynode_t* node, void* self) { Notices::callback(node, self); };
  ASSERT_EQ(vconf_notify_key_changed(kKey, Notices::callback, &one), 0);
  ASSERT_EQ(vconf_notify_key_changed(kKey, second, &other), 0);
  set(1);
  EXPECT_TRUE(one.waitFor(1));
  EXPECT_TRUE(other.waitFor(1));
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Notices::callback), 0);
  set(2);
  EXPECT_TRUE(other.waitFor(2));
  EXPECT_THAT(one.values(), ElementsAre(1));
  EXPECT_EQ(vconf_ignore_key_changed(kKey, second), 0);
}

TEST_F(ConfigTest, ATextReadsAsZero) {
  Notices notices;
  set(5);
  ASSERT_EQ(vconf_notify_key_changed(kKey, Notices::callback, &notices), 0);
  ASSERT_TRUE(setConfig(kKey, std::string("text")));
  EXPECT_TRUE(notices.waitFor(0));
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Notices::callback), 0);
  EXPECT_EQ(vconf_keynode_get_int(nullptr), 0);
}

TEST_F(ConfigTest, IgnoreWorksInsideTheCallback) {
  struct State {
    Notices notices;
    std::atomic<int> ignored = -1;
    static void callback(keynode_t* node, void* self) {
      auto& state = *static_cast<State*>(self);
      state.ignored = vconf_ignore_key_changed(kKey, State::callback);
      Notices::callback(node, &state.notices);
    }
  } state;
  ASSERT_EQ(vconf_notify_key_changed(kKey, State::callback, &state), 0);
  set(1);
  EXPECT_TRUE(state.notices.waitFor(1));
  EXPECT_EQ(state.ignored, 0);
  set(2);
  expectNoFurtherNotice(state.notices, 1);
  EXPECT_LT(vconf_ignore_key_changed(kKey, State::callback), 0);
}

TEST_F(ConfigTest, AfterIgnoreTheCallbackIsNotRunning) {
  struct Slow {
    std::atomic<bool> running = false;
    std::atomic<bool> left = false;
    static void callback(keynode_t*, void* self) {
      auto& slow = *static_cast<Slow*>(self);
      slow.running = true;
      std::this_thread::sleep_for(200ms);
      slow.left = true;
    }
  } slow;
  ASSERT_EQ(vconf_notify_key_changed(kKey, Slow::callback, &slow), 0);
  set(1);
  while (!slow.running) {
    std::this_thread::yield();
  }
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Slow::callback), 0);
  EXPECT_TRUE(slow.left);
}

TEST_F(ConfigTest, TheLastOfTwoThousandChangesArrives) {
  Notices notices;
  ASSERT_EQ(vconf_notify_key_changed(kKey, Notices::callback, &notices), 0);
  for (int i = 1; i <= 2000; ++i) {
    set(i);
  }
  EXPECT_TRUE(notices.waitFor(2000));
  const std::vector<int> values = notices.values();
  EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Notices::callback), 0);
}

TEST_F(ConfigTest, ReportsChangesByOtherProcessesAndByHand) {
  Notices notices;
  ASSERT_EQ(vconf_notify_key_changed(kKey, Notices::callback, &notices), 0);
  awaitIdleThread(notices);
  EXPECT_EQ(inChild([] { return setConfig(kKey, 11) ? 0 : 1; }), 0);
  EXPECT_TRUE(notices.waitFor(11));
  std::ofstream(kFile) << "int 12\n";
  EXPECT_TRUE(notices.waitFor(12));
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Notices::callback), 0);
}

TEST_F(ConfigTest, ContinuesWhenTheFolderIsRemovedOrMoved) {
  Notices notices;
  ASSERT_EQ(vconf_notify_key_changed(kKey, Notices::callback, &notices), 0);
  const fs::path folder = fs::path(kFile).parent_path();
  int value = 0;
  for (const bool move : {false, true}) {
    set(++value);
    EXPECT_TRUE(notices.waitFor(value));
    move ? fs::rename(folder, "/opt/usr/share/quillon/elsewhere")
         : static_cast<void>(fs::remove_all(folder));
    set(++value);
    EXPECT_TRUE(notices.waitFor(value)) << (move ? "moved" : "removed");
  }
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Notices::callback), 0);
}

int threadCount() {
  return static_cast<int>(std::distance(fs::directory_iterator("/proc/self/task"), {}));
}

TEST_F(ConfigTest, StartsItsThreadWithTheFirstRegistrationOnly) {
  EXPECT_EQ(inChild([] {
              text(kKey);
              if (threadCount() != 1) {
                return 1;
              }
              Notices notices;
              vconf_notify_key_changed(kKey, Notices::callback, &notices);
              vconf_notify_key_changed("another", Notices::callback, &notices);
              return threadCount() == 2 ? 0 : 2;
            }),
            0);
}

TEST_F(ConfigTest, AThreadStartedAheadServesTheFirstRegistration) {
  EXPECT_EQ(inChild([] {
              workstation::startConfigThread();
              workstation::startConfigThread();
              if (threadCount() != 2) {
                return 1;
              }
              Notices notices;
              if (vconf_notify_key_changed(kKey, Notices::callback, &notices) != 0) {
                return 2;
              }
              if (threadCount() != 2) {
                return 3;
              }
              if (!setConfig(kKey, 7) || !notices.waitFor(7)) {
                return 4;
              }
              return vconf_ignore_key_changed(kKey, Notices::callback) == 0 ? 0 : 5;
            }),
            0);
}

// All signals except SIGKILL, SIGSTOP and the two that libc reserves.
constexpr uint64_t kAllSignals = 0xfffffffe7ffbfeff;

uint64_t blockedSignals(const fs::path& task) {
  const std::string status = contentsOf((task / "status").string());
  const std::string name = "SigBlk:";
  return std::stoull(status.substr(status.find(name) + name.size()), nullptr, 16);
}

TEST_F(ConfigTest, ItsThreadTakesNoSignals) {
  Notices notices;
  ASSERT_EQ(vconf_notify_key_changed(kKey, Notices::callback, &notices), 0);
  const std::string own = std::to_string(gettid());
  for (const auto& task : fs::directory_iterator("/proc/self/task")) {
    if (task.path().filename() == own) {
      continue;
    }
    EXPECT_EQ(blockedSignals(task.path()) & kAllSignals, kAllSignals);
  }
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Notices::callback), 0);
}

TEST_F(ConfigTest, AForkedChildHasNoRegistrations) {
  Notices notices;
  ASSERT_EQ(vconf_notify_key_changed(kKey, Notices::callback, &notices), 0);
  awaitIdleThread(notices);
  EXPECT_EQ(inChild([] {
              if (vconf_ignore_key_changed(kKey, Notices::callback) == 0) {
                return 1;
              }
              Notices own;
              if (vconf_notify_key_changed(kKey, Notices::callback, &own) != 0) {
                return 2;
              }
              if (!setConfig(kKey, 21) || !own.waitFor(21)) {
                return 3;
              }
              return vconf_ignore_key_changed(kKey, Notices::callback) == 0 ? 0 : 4;
            }),
            0);
  EXPECT_TRUE(notices.waitFor(21));
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Notices::callback), 0);
}

TEST_F(ConfigTest, NullIsAFailure) {
  EXPECT_LT(vconf_notify_key_changed(nullptr, Notices::callback, nullptr), 0);
  EXPECT_LT(vconf_notify_key_changed(kKey, nullptr, nullptr), 0);
  EXPECT_LT(vconf_ignore_key_changed(nullptr, Notices::callback), 0);
  EXPECT_LT(vconf_ignore_key_changed(kKey, nullptr), 0);
  EXPECT_LT(vconf_ignore_key_changed("never/registered", Notices::callback), 0);
}

TEST_F(ConfigTest, WatchingBeginsWithTheValueAndEndsWhenTheCallbackReturnsFalse) {
  set(1);
  std::vector<ConfigValue> seen;
  const auto watched = workstation::watchConfig(kKey, [&](const ConfigValue& value) {
    seen.push_back(value);
    const int next = std::get<int>(value) + 1;
    return next <= 3 && setConfig(kKey, next).has_value();
  });
  EXPECT_TRUE(watched);
  EXPECT_THAT(seen, ElementsAre(ConfigValue(1), ConfigValue(2), ConfigValue(3)));
}

}  // namespace
}  // namespace quillon::test
