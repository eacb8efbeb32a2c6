#include "bench/launch/launch_pad.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <string>
#include <thread>

#include "launcher/launchpad/client.h"

namespace quillon::bench {
namespace {

using std::chrono::milliseconds;

// Long enough that a launch right after another one finds the pool empty, and no launch meets a
// refill.
constexpr char kRefillDelay[] = "0.3";
constexpr milliseconds kPause{5};
constexpr milliseconds kLongestWait{20'000};

struct Pools {
  size_t kinds = 0;
  std::vector<pid_t> ready;
  bool isPreparing = false;
};

// Of what `quillon launchpad status` prints: "pool 1: ...", then "  process 7: ready".
Pools poolsOf(const std::string& status) {
  Pools pools;
  std::istringstream lines(status);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("pool ", 0) == 0) ++pools.kinds;
    std::istringstream words(line);
    std::string name;
    pid_t process = 0;
    std::string colon;
    std::string stage;
    if (!(words >> name >> process >> colon >> stage) || name != "process") continue;
    if (stage == "ready") pools.ready.push_back(process);
    if (stage == "in") pools.isPreparing = true;
  }
  return pools;
}

Pools poolsNow(const std::filesystem::path& device) {
  const auto status = launchpad::command(device, launchpad::PacketKind::kStatus);
  return status ? poolsOf(*status) : Pools{};
}

}  // namespace

LaunchPad::LaunchPad(const std::filesystem::path& quillon, const std::filesystem::path& device)
    : device_(device), process_(fork()) {
  if (process_ != 0) return;
  execl(quillon.c_str(), quillon.c_str(), "launchpad", "--device", device.c_str(), "--size", "1",
        "--refill-delay", kRefillDelay, nullptr);
  _exit(127);
}

LaunchPad::~LaunchPad() {
  kill(process_, SIGTERM);
  waitpid(process_, nullptr, 0);
}

void LaunchPad::awaitFull() const {
  const auto end = std::chrono::steady_clock::now() + kLongestWait;
  while (std::chrono::steady_clock::now() < end) {
    const Pools pools = poolsNow(device_);
    if (pools.kinds > 0 && pools.ready.size() == pools.kinds && !pools.isPreparing) return;
    std::this_thread::sleep_for(kPause);
  }
}

std::vector<Memory> LaunchPad::memoryOfReady() const {
  std::vector<Memory> all;
  for (const pid_t process : poolsNow(device_).ready) all.push_back(memoryOf(process));
  return all;
}

}  // namespace quillon::bench
