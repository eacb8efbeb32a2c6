#include "launcher/launchpad/process_shape.h"

#include <grp.h>
#include <linux/capability.h>
#include <sched.h>
#include <signal.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string_view>
#include <vector>

#include "launcher/launchpad/limits.h"
#include "launcher/launchpad/signal_relay.h"

namespace quillon::launchpad {
namespace {

constexpr std::array<std::string_view, 8> kPrefixes = {
    "DOTNET_", "COMPlus_", "CORECLR_", "LD_", "LC_", "MALLOC_", "LTTNG_", "QUILLON_TRACE"};
constexpr std::array<std::string_view, 13> kNames = {
    "LANG",         "LANGUAGE",     "TZ",           "TZDIR",          "LOCPATH",
    "NLSPATH",      "GCONV_PATH",   "ICU_DATA",     "GLIBC_TUNABLES", "CLR_ICU_VERSION_OVERRIDE",
    "ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"};

std::string hexOf(const void* bytes, size_t length) {
  std::string text;
  for (size_t i = 0; i < length; ++i) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", static_cast<const unsigned char*>(bytes)[i]);
    text += digits;
  }
  return text;
}

std::string identityOf(const std::filesystem::path& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return "none";
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

// An upgraded quillon is another program at the same path.
std::string versionOf(const std::filesystem::path& program) {
  struct stat status {};
  if (stat(program.c_str(), &status) != 0) return "none";
  return identityOf(program) + ":" + std::to_string(status.st_mtim.tv_sec) + "." +
         std::to_string(status.st_mtim.tv_nsec);
}

std::string namespaces() {
  std::string all;
  for (const char* kind : {"mnt", "user", "pid", "ipc", "uts", "net", "time", "cgroup"}) {
    all += identityOf(std::string("/proc/self/ns/") + kind) + " ";
  }
  return all;
}

std::string user() {
  std::array<uid_t, 3> users{};
  std::array<gid_t, 3> groups{};
  getresuid(&users[0], &users[1], &users[2]);
  getresgid(&groups[0], &groups[1], &groups[2]);
  std::vector<gid_t> more(static_cast<size_t>(std::max(0, getgroups(0, nullptr))));
  more.resize(
      static_cast<size_t>(std::max(0, getgroups(static_cast<int>(more.size()), more.data()))));
  std::sort(more.begin(), more.end());
  return hexOf(users.data(), sizeof users) + hexOf(groups.data(), sizeof groups) +
         hexOf(more.data(), more.size() * sizeof(gid_t));
}

std::string capabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
  syscall(SYS_capget, &header, sets.data());
  return hexOf(sets.data(), sizeof sets);
}

std::string confinement() {
  return std::to_string(prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0)) + " " +
         std::to_string(prctl(PR_GET_SECCOMP, 0, 0, 0, 0)) + " " +
         std::to_string(personality(0xffffffff));
}

std::string scheduling() {
  cpu_set_t cpus;
  CPU_ZERO(&cpus);
  sched_getaffinity(0, sizeof cpus, &cpus);
  sched_param realTime{};
  sched_getparam(0, &realTime);
  return std::to_string(getpriority(PRIO_PROCESS, 0)) + " " +
         std::to_string(sched_getscheduler(0)) + " " + std::to_string(realTime.sched_priority) +
         " " + std::to_string(syscall(SYS_ioprio_get, 1 /* IOPRIO_WHO_PROCESS */, 0)) + " " +
         std::to_string(prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0)) + " " + hexOf(&cpus, sizeof cpus);
}

std::string lineOf(const char* file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return line;
}

std::string ignoredSignals() {
  std::string text;
  for (int signal = 1; signal < NSIG; ++signal) {
    if (isIgnored(signal)) text += std::to_string(signal) + " ";
  }
  return text;
}

std::string blockedSignals() {
  sigset_t blocked;
  sigemptyset(&blocked);
  sigprocmask(SIG_BLOCK, nullptr, &blocked);
  std::string text;
  for (int signal = 1; signal < NSIG; ++signal) {
    if (sigismember(&blocked, signal) == 1) text += std::to_string(signal) + " ";
  }
  return text;
}

void addVariables(ProcessShape& shape) {
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string_view variable = *entry;
    const std::string_view name = variable.substr(0, variable.find('='));
    if (!isReadAtStart(name)) continue;
    shape["the environment variable " + std::string(name)] = variable.substr(name.size());
  }
}

}  // namespace

bool isReadAtStart(std::string_view variable) {
  return std::find(kNames.begin(), kNames.end(), variable) != kNames.end() ||
         std::any_of(kPrefixes.begin(), kPrefixes.end(),
                     [&](std::string_view prefix) { return variable.starts_with(prefix); });
}

ProcessShape currentShape(const std::filesystem::path& program) {
  ProcessShape shape = {
      {"the quillon program", versionOf(program)},
      {"its namespaces", namespaces()},
      {"its root folder", identityOf("/")},
      {"its user and groups", user()},
      {"its capabilities", capabilities()},
      {"its confinement", confinement()},
      {"its scheduling", scheduling()},
      {"its blocked signals", blockedSignals()},
      {"its ignored signals", ignoredSignals()},
      {"its security label", lineOf("/proc/self/attr/current")},
      {"its place in line when memory runs out", lineOf("/proc/self/oom_score_adj")},
      {"its memory limits", memoryLimits()},
  };
  addVariables(shape);
  return shape;
}

std::string firstDifference(const ProcessShape& one, const ProcessShape& other) {
  for (const auto& [name, value] : one) {
    const auto found = other.find(name);
    if (found == other.end() || found->second != value) return name;
  }
  for (const auto& [name, value] : other) {
    if (one.find(name) == one.end()) return name;
  }
  return {};
}

}  // namespace quillon::launchpad
