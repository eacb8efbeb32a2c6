#include "tests/system/zone/zone_fixture.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

#include "workstation/zone_state.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

constexpr char kStates[] = "opt/usr/share/quillon/zones";
constexpr char kZones[] = "zone";

template <typename Function>
void look(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(::dlsym(library, name));
}

}  // namespace

ZoneLibrary::ZoneLibrary() : handle(::dlopen(ZONE_LIBRARY_PATH, RTLD_LAZY)) {
  if (handle == nullptr) {
    std::cout << ::dlerror() << std::endl;
    ::_exit(99);
  }
  look(handle, "zone_get_context", getContext);
  look(handle, "zone_enable_debug_mode", enableDebugMode);
  look(handle, "zone_attach_process", attachProcess);
  look(handle, "zone_release_context", releaseContext);
}

std::string namespaceOf(const std::string& process, const std::string& kind) {
  std::error_code error;
  return fs::read_symlink("/proc/" + process + "/ns/" + kind, error).string();
}

void dropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct none[2]{};
  if (::syscall(SYS_capset, &header, none) != 0) {
    ::_exit(98);
  }
}

ZoneTest::~ZoneTest() {
  for (const std::string& entry : leftovers()) {
    zone("stop " + fs::path(entry).filename().string());
  }
}

Outcome ZoneTest::zone(const std::string& arguments) {
  return inChild([&] {
    const std::string command =
        std::string(QUILLON_TOOL) + " zone " + arguments + " --device '" + root_.string() + "'";
    ::execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
    return 127;
  });
}

void ZoneTest::start(const std::string& name) {
  const Outcome started = zone("start " + name);
  ASSERT_EQ(started.status, 0) << started.output;
}

pid_t ZoneTest::holder(const std::string& name) {
  const int states = ::open((root_ / kStates).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  pid_t pid = -1;
  const int pidfd = workstation::openZoneHolder(states, name.c_str(), pid);
  ::close(states);
  ::close(pidfd);
  return pidfd < 0 ? -1 : pid;
}

Outcome ZoneTest::inDevice(const std::function<int()>& body) {
  return inChild([&] {
    if (auto entered = device::enter(root_, {}); !entered) {
      std::cout << entered.error().what;
      return 97;
    }
    platform().reset();
    return body();
  });
}

bool ZoneTest::ends(pid_t process) {
  using namespace std::chrono_literals;
  for (int time = 0; time < 500; ++time, std::this_thread::sleep_for(10ms)) {
    std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(stat, text);
    const auto state = text.rfind(") ");
    if (state == std::string::npos || text[state + 2] == 'Z') {
      return true;
    }
  }
  return false;
}

std::vector<std::string> ZoneTest::leftovers() {
  std::vector<std::string> found;
  for (const char* folder : {kStates, kZones}) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(root_ / folder, error)) {
      found.push_back(entry.path().string());
    }
  }
  return found;
}

}  // namespace quillon::test
