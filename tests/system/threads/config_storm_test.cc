// The time-zone hook and other watchers, while many processes change the configuration at the same
// time.
//
// QUILLON_STORM_CHANGES: the number of changes while watchers are late. By default as many as make
// the queue of inotify(7) overflow.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "platform/vconf.h"
#include "quillon_tv_plugin.h"
#include "tests/support/figure.h"
#include "tests/support/shared_memory.h"
#include "tests/system/threads/own_folder.h"
#include "workstation/config_store.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

constexpr char kDisclaimer[] = "db/menu/glade_port/homedatacontrol/defaultdisclaimeragree";
constexpr int kProcesses = 8;
constexpr int kChanges = 10'000;
constexpr int kAgreed = 1;
constexpr int kFinal = 424242;  // no writer writes this value
constexpr int kWatchers = 4;

// Stands for the runtime: counts how often its cache was cleared.
std::atomic<int> cleared{0};
std::atomic<int> refusals{0};

void clearCachedData() { ++cleared; }

// Fails a given number of times, then returns the function.
int createDelegate(void*, unsigned int, const char*, const char*, const char* method,
                   void** delegate) {
  if (std::string(method) != "ClearCachedData" || refusals-- > 0) {
    return -1;
  }
  *delegate = reinterpret_cast<void*>(clearCachedData);
  return 0;
}

// The last value that another watcher of the key received.
std::atomic<int> lastSeen{-1};

void watch(keynode_t* node, void*) { lastSeen = vconf_keynode_get_int(node); }

struct Plugin {
  decltype(&plugin_initialize) initialize;
  decltype(&plugin_get_tpa) getTpa;
  decltype(&plugin_get_dll_path) getDllPath;
  decltype(&plugin_set_coreclr_info) setCoreclrInfo;
  decltype(&plugin_finalize) finalize;
};

template <typename Function>
void resolve(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
}

Plugin loadPlugin() {
  void* library = dlopen(QUILLON_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
  Plugin plugin{};
  resolve(library, "plugin_initialize", plugin.initialize);
  resolve(library, "plugin_get_tpa", plugin.getTpa);
  resolve(library, "plugin_get_dll_path", plugin.getDllPath);
  resolve(library, "plugin_set_coreclr_info", plugin.setCoreclrInfo);
  resolve(library, "plugin_finalize", plugin.finalize);
  return plugin;
}

bool eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

void set(int value, const std::string& key = kDisclaimer) {
  const auto changed = workstation::setConfig(key, value);
  if (!changed) {
    _exit(1);
  }
}

// Processes that call make(0), make(1), ... for the changes and exit. They are forked while this
// process has one thread, and begin when start() is called.
class Writers {
 public:
  explicit Writers(const std::function<void(int)>& make, int changes = kChanges)
      : changes_(changes) {
    if (pipe(gate_) != 0) {
      throw std::runtime_error("no pipe");
    }
    for (int process = 0; process < kProcesses; ++process) {
      processes_.push_back(fork());
      if (processes_.back() == 0) {
        write(process, make);
      }
    }
    close(gate_[0]);
  }
  void start() { close(gate_[1]); }
  // Whether any of them is still running.
  [[nodiscard]] bool run() const {
    return std::any_of(processes_.begin(), processes_.end(), [](pid_t process) {
      siginfo_t info{};
      waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT);
      return info.si_pid == 0;
    });
  }
  // Whether all of them made all their changes.
  bool join() {
    bool whole = true;
    for (const pid_t process : processes_) {
      int status = 0;
      waitpid(process, &status, 0);
      whole = whole && status == 0;
    }
    return whole;
  }

 private:
  [[noreturn]] void write(int process, const std::function<void(int)>& make) {
    char byte = 0;
    close(gate_[1]);
    if (read(gate_[0], &byte, 1) != 0) {
      _exit(1);
    }
    for (int change = process; change < changes_; change += kProcesses) {
      make(change);
    }
    _exit(0);
  }
  const int changes_;
  int gate_[2] = {-1, -1};
  std::vector<pid_t> processes_;
};

class ConfigStorm : public OwnFolderTest {
 protected:
  void inDevice(const std::function<void()>& test) {
    inOwn({"/opt"}, [&] {
      fs::create_directories("/opt/usr/home/owner/share/dotnet");
      test();
    });
  }
};

// A launch that requests its lists as long as the writers run, with a second watcher of the key.
Plugin launchAmong(Writers& writers) {
  const Plugin plugin = loadPlugin();
  plugin.initialize("inhouse");
  plugin.setCoreclrInfo(nullptr, 1, createDelegate);
  vconf_notify_key_changed(kDisclaimer, watch, nullptr);
  writers.start();
  do {
    plugin.getTpa();
    plugin.getDllPath();
  } while (writers.run());
  EXPECT_TRUE(writers.join());
  return plugin;
}

// Repeated consent does not clear the cache again.
void expectOneClearance() {
  set(kAgreed);
  EXPECT_TRUE(eventually([] { return cleared > 0; }));
  set(kAgreed);
  set(kFinal);
  EXPECT_TRUE(eventually([] { return lastSeen == kFinal; }));
  EXPECT_EQ(cleared, 1);
}

TEST_F(ConfigStorm, ConsentDuringChangesClearsTheCacheOnce) {
  inDevice([] {
    refusals = 5;
    Writers writers([](int change) { set(change % 3); });
    const Plugin plugin = launchAmong(writers);
    expectOneClearance();
    plugin.finalize();
  });
}

TEST_F(ConfigStorm, TheLastValueArrives) {
  inDevice([] {
    Writers writers([](int change) { set(kAgreed + 1 + change); });
    const Plugin plugin = launchAmong(writers);
    const int last = std::get<int>(workstation::getConfig(kDisclaimer)->value());
    EXPECT_TRUE(eventually([&] { return lastSeen == last; })) << lastSeen << " and not " << last;
    EXPECT_EQ(cleared, 0);
    expectOneClearance();
    plugin.finalize();
  });
}

// What processes that watch the key share with this one.
struct Shared {
  std::array<std::atomic<int>, kWatchers> seen;            // the last values
  std::array<std::atomic<bool>, kWatchers> hasOverflowed;  // the queue of inotify(7)
  std::atomic<int> watching;
  std::atomic<int> changes;  // of other keys
  std::atomic<bool> stormIsOver;
};

Shared& shared() {
  static Shared& memory = makeSharedMemory<Shared>();
  return memory;
}

// Does not return from its first call before the storm is over.
void seeLate(int watcher, int value) {
  const bool isFirst = shared().seen.at(static_cast<size_t>(watcher)).exchange(value) == 0;
  while (isFirst && !shared().stormIsOver) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void watchLate(keynode_t* node, void* watcher) {
  seeLate(*static_cast<int*>(watcher), vconf_keynode_get_int(node));
}

// The number of the watcher that this process is; -1 for other processes.
int ownNumber = -1;

// Notes whether the watcher has read that its queue has overflowed.
void noteOverflow(const char* events, ssize_t size) {
  for (ssize_t at = 0; at < size;) {
    inotify_event event{};
    std::memcpy(&event, events + at, sizeof event);
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
      shared().hasOverflowed.at(static_cast<size_t>(ownNumber)) = true;
    }
    at += static_cast<ssize_t>(sizeof event + event.len);
  }
}

bool isInotify(int descriptor) {
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  std::error_code error;
  return fs::read_symlink(link, error) == "anon_inode:inotify";
}

// Watches the key by the platform's interface, which reports changes only.
void watchByInterface(int watcher) {
  vconf_notify_key_changed(kDisclaimer, watchLate, &watcher);
  ++shared().watching;
  pause();
}

// Watches the key as `quillon config watch` does, which begins with its value.
void watchByCommand(int watcher) {
  const auto see = [&](const workstation::ConfigValue& value) {
    seeLate(watcher, std::get<int>(value));
    return true;
  };
  static_cast<void>(workstation::watchConfig(kDisclaimer, see));
}

// Processes that watch the key until the object is destroyed.
class Watchers {
 public:
  Watchers() = default;
  ~Watchers() {
    for (const pid_t process : processes_) {
      kill(process, SIGKILL);
      waitpid(process, nullptr, 0);
    }
  }
  Watchers(const Watchers&) = delete;
  Watchers& operator=(const Watchers&) = delete;

  void add(void (*watchForEver)(int)) {
    const auto number = static_cast<int>(processes_.size());
    processes_.push_back(fork());
    if (processes_.back() == 0) {
      ownNumber = number;
      watchForEver(number);
      _exit(1);
    }
  }

 private:
  std::vector<pid_t> processes_;
};

// The capacity of a queue of inotify(7).
int queueSize() {
  int events = 16'384;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> events;
  return events;
}

int numberOfChanges() {
  return static_cast<int>(
      lengthOf("QUILLON_STORM_CHANGES", static_cast<std::size_t>(queueSize()) * 5 / 4));
}

// Changes other keys of the same folder until the queues of all watchers have overflowed, and then
// the key. Earlier changes of the key would stay in the queues: a watcher that ignores the overflow
// would read the last value because of them. Each change makes two events, since it also writes a
// temporary file, and the kernel merges only equal events that follow each other.
void changeUnnoticed(int change) {
  const int value = kFinal + 1 + change;
  if (shared().changes < queueSize()) {
    set(value, kDisclaimer + std::to_string(change % kProcesses));
    ++shared().changes;
  } else {
    set(value);
  }
}

bool haveOverflowed() {
  return std::all_of(shared().hasOverflowed.begin(), shared().hasOverflowed.end(),
                     [](const std::atomic<bool>& overflowed) { return overflowed.load(); });
}

bool haveSeen(int watchers, int value) {
  return std::all_of(shared().seen.begin(), shared().seen.begin() + watchers,
                     [&](const std::atomic<int>& seen) { return seen == value; });
}

// Starts watchers that do not return from their first value, so that their queues have no event of
// the key when the storm begins.
void startLate(Watchers& watchers) {
  shared().stormIsOver = false;  // makes the memory, which the watchers then share
  watchers.add(watchByInterface);
  watchers.add(watchByInterface);
  ASSERT_TRUE(eventually([] { return shared().watching == 2; }));
  set(kFinal);
  ASSERT_TRUE(eventually([] { return haveSeen(2, kFinal); }));
  watchers.add(watchByCommand);
  watchers.add(watchByCommand);
  ASSERT_TRUE(eventually([] { return haveSeen(kWatchers, kFinal); }));
}

TEST_F(ConfigStorm, TheLastValueReachesEveryWatcherWhoseQueueHasOverflowed) {
  inDevice([] {
    const int changes = numberOfChanges();
    Watchers watchers;
    startLate(watchers);
    Writers writers(changeUnnoticed, changes);
    writers.start();
    EXPECT_TRUE(writers.join());
    shared().stormIsOver = true;
    const int last = std::get<int>(workstation::getConfig(kDisclaimer)->value());
    EXPECT_GT(last, kFinal);
    const bool overflowed = eventually(haveOverflowed);
    EXPECT_TRUE(overflowed);
    const bool good = eventually([&] { return haveSeen(kWatchers, last); });
    EXPECT_TRUE(good) << last;
    printFigure("configuration, changes by 8 writers while the queues of 4 watchers overflow",
                std::to_string(changes), "the last value seen by all", good && overflowed);
  });
}

}  // namespace
}  // namespace quillon::test

// Overrides the C library's function for the store too: the many changes need not reach the disk.
extern "C" int fsync(int) { return 0; }

// Overrides it for the store too, to look at the events that a watcher reads.
extern "C" ssize_t read(int descriptor, void* buffer, size_t size) {
  static const auto next = reinterpret_cast<decltype(&read)>(dlsym(RTLD_NEXT, "read"));
  const ssize_t length = next(descriptor, buffer, size);
  if (quillon::test::ownNumber >= 0 && quillon::test::isInotify(descriptor)) {
    quillon::test::noteOverflow(static_cast<const char*>(buffer), length);
  }
  return length;
}
