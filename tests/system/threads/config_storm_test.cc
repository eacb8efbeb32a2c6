// The time-zone hook, while many processes change the configuration at the same time.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "platform/vconf.h"
#include "quillon_tv_plugin.h"
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

void set(int value) {
  const auto changed = workstation::setConfig(kDisclaimer, value);
  if (!changed) {
    _exit(1);
  }
}

// Processes that set the key to value(0), value(1), ... and exit. They are forked while this
// process has one thread, and begin when start() is called.
class Writers {
 public:
  explicit Writers(const std::function<int(int)>& value) {
    if (pipe(gate_) != 0) {
      throw std::runtime_error("no pipe");
    }
    for (int process = 0; process < kProcesses; ++process) {
      processes_.push_back(fork());
      if (processes_.back() == 0) {
        write(process, value);
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
  [[noreturn]] void write(int process, const std::function<int(int)>& value) {
    char byte = 0;
    close(gate_[1]);
    if (read(gate_[0], &byte, 1) != 0) {
      _exit(1);
    }
    for (int change = process; change < kChanges; change += kProcesses) {
      set(value(change));
    }
    _exit(0);
  }
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
    Writers writers([](int change) { return change % 3; });
    const Plugin plugin = launchAmong(writers);
    expectOneClearance();
    plugin.finalize();
  });
}

TEST_F(ConfigStorm, TheLastValueArrives) {
  inDevice([] {
    Writers writers([](int change) { return kAgreed + 1 + change; });
    const Plugin plugin = launchAmong(writers);
    const int last = std::get<int>(workstation::getConfig(kDisclaimer)->value());
    EXPECT_TRUE(eventually([&] { return lastSeen == last; })) << lastSeen << " and not " << last;
    EXPECT_EQ(cleared, 0);
    expectOneClearance();
    plugin.finalize();
  });
}

}  // namespace
}  // namespace quillon::test

// Overrides the C library's function for the store too: the many changes need not reach the disk.
extern "C" int fsync(int) { return 0; }
