#include "quillon/launchpad/state/process_state.h"

#include <fcntl.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <string_view>
#include <utility>

#include "quillon/base/record.h"

namespace quillon::launchpad {
namespace {

constexpr std::array<std::string_view, 8> kPrefixes = {
    "DOTNET_", "COMPlus_", "CORECLR_", "LD_", "LC_", "MALLOC_", "LTTNG_", "QUILLON_TRACE"};
constexpr std::array<std::string_view, 13> kNames = {
    "LANG",         "LANGUAGE",     "TZ",           "TZDIR",          "LOCPATH",
    "NLSPATH",      "GCONV_PATH",   "ICU_DATA",     "GLIBC_TUNABLES", "CLR_ICU_VERSION_OVERRIDE",
    "ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"};

constexpr size_t kTypicalSize = 1536;

// See namespaces(7).
constexpr std::array kNamespaces = {
    "ns/user", "ns/mnt", "ns/pid",  "ns/pid_for_children", "ns/ipc",
    "ns/uts",  "ns/net", "ns/time", "ns/cgroup",           "ns/time_for_children"};

// Lines of "status" that every supported kernel writes.
constexpr std::array kRequiredLines = {"Umask",  "Uid",          "Gid",       "Groups",
                                       "SigBlk", "SigIgn",       "CapInh",    "CapPrm",
                                       "CapEff", "Cpus_allowed", "NoNewPrivs"};

// Settings of prctl(2) that exec() keeps, by the option that reads them. Older C libraries do not
// declare them all. Those of the second list write their value to an address.
constexpr std::array kSettings = {27 /* PR_GET_SECUREBITS */,
                                  30 /* PR_GET_TIMERSLACK */,
                                  34 /* PR_MCE_KILL_GET */,
                                  42 /* PR_GET_THP_DISABLE */,
                                  58 /* PR_GET_IO_FLUSHER */,
                                  66 /* PR_GET_MDWE */,
                                  68 /* PR_GET_MEMORY_MERGE */};
constexpr std::array kWrittenSettings = {25 /* PR_GET_TSC */, 37 /* PR_GET_CHILD_SUBREAPER */};

template <typename T>
void append(std::string& bytes, const T& value) {
  bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

struct stat statusAt(int folder, const char* path) {
  struct stat status {};
  if (fstatat(folder, path, &status, 0) != 0) {
    status = {};
  }
  return status;
}

// Identity and version: an upgrade replaces the program at the same path.
std::string versionOf(const std::string& program) {
  const auto status = statusAt(AT_FDCWD, program.empty() ? "/proc/self/exe" : program.c_str());
  std::string bytes;
  append(bytes, status.st_dev);
  append(bytes, status.st_ino);
  append(bytes, status.st_mtim);
  return bytes;
}

std::string rootFolderOf(const ProcProcess& process) {
  const auto status = process.fileAt("root");
  std::string bytes;
  append(bytes, status.st_dev);
  append(bytes, status.st_ino);
  return bytes;
}

std::string namespacesOf(const ProcProcess& process) {
  std::string all;
  for (const char* kind : kNamespaces) {
    all += process.targetOf(kind) + " ";
  }
  return all;
}

std::string linesOf(const ProcProcess& process, std::initializer_list<const char*> names) {
  std::string all;
  for (const char* name : names) {
    all.append(process.status(name).value_or("")) += '\n';
  }
  return all;
}

std::string signalsOf(const ProcSelf& process, const char* name) {
  std::string bytes;
  append(bytes, process.signals(name));
  return bytes;
}

// A sandbox may emulate /proc and leave out lines.
bool isComplete(const ProcProcess& process) {
  return std::all_of(kRequiredLines.begin(), kRequiredLines.end(),
                     [&](const char* line) { return process.status(line).has_value(); });
}

std::string confinementOf(const ProcProcess& process) {
  return linesOf(process, {"NoNewPrivs", "Seccomp", "Seccomp_filters", "Speculation_Store_Bypass",
                           "SpeculationIndirectBranch"});
}

// As sched_getattr(2) returns them. Older C libraries do not declare it.
struct SchedulingAttributes {
  uint32_t size;
  uint32_t policy;
  uint64_t flags;
  int32_t nice;
  uint32_t priority;
  uint64_t runtime;
  uint64_t deadline;
  uint64_t period;
  uint32_t utilisationMin;
  uint32_t utilisationMax;
};
static_assert(sizeof(SchedulingAttributes) == 56);

std::string schedulingOf(const ProcProcess& process) {
  const pid_t pid = process.pid();
  SchedulingAttributes attributes{};
  syscall(SYS_sched_getattr, pid, &attributes, sizeof attributes, 0);
  std::string all = linesOf(process, {"Cpus_allowed", "Mems_allowed"});
  append(all, getpriority(PRIO_PROCESS, static_cast<id_t>(pid)));
  append(all, attributes.policy);
  append(all, attributes.flags);
  append(all, attributes.priority);
  append(all, attributes.utilisationMin);
  append(all, attributes.utilisationMax);
  append(all, syscall(SYS_ioprio_get, 1 /* IOPRIO_WHO_PROCESS */, pid));
  return all;
}

// See set_mempolicy(2).
std::string memoryPolicy() {
  constexpr unsigned long kMaxNodes = 1024;
  int mode = 0;
  std::array<unsigned long, kMaxNodes / CHAR_BIT / sizeof(unsigned long)> nodes{};
  syscall(SYS_get_mempolicy, &mode, nodes.data(), kMaxNodes, nullptr, 0);
  std::string all;
  append(all, mode);
  append(all, nodes);
  return all;
}

std::string settings() {
  std::string all;
  append(all, personality(0xffffffff));
  for (const int option : kSettings) {
    append(all, prctl(option, 0, 0, 0, 0));
  }
  for (const int option : kWrittenSettings) {
    int value = 0;
    prctl(option, &value, 0, 0, 0);
    append(all, value);
  }
  return all;
}

void addVariables(RecordWriter& state) {
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string_view variable = *entry;
    const std::string_view name = variable.substr(0, variable.find('='));
    if (!isReadAtStart(name)) {
      continue;
    }
    state.text("the environment variable " + std::string(name)).text(variable.substr(name.size()));
  }
}

using Values = std::map<std::string_view, std::string_view>;

// Refers to the state, so that no copy of an environment variable remains. Empty if the state is
// malformed.
Values toMap(const ProcessState& state) {
  Values all;
  RecordReader reader(state);
  while (reader.ok() && !reader.atEnd()) {
    const std::string_view name = reader.view();
    reader.require(!name.empty());  // firstDifference() could not report it
    all[name] = reader.view();
  }
  return reader.ok() ? all : Values();
}

}  // namespace

bool isReadAtStart(std::string_view variable) {
  return std::find(kNames.begin(), kNames.end(), variable) != kNames.end() ||
         std::any_of(kPrefixes.begin(), kPrefixes.end(),
                     [&](std::string_view prefix) { return variable.starts_with(prefix); });
}

ProcessState declaredStateOf(const ProcSelf& process, const std::string& program) {
  if (!isComplete(process)) {
    return {};
  }
  RecordWriter state;
  state.reserve(kTypicalSize).text("the quillon program").text(versionOf(program));
  state.text("its blocked signals").text(signalsOf(process, "SigBlk"));
  state.text("its prctl(2) settings").text(settings());
  state.text("its memory policy").text(memoryPolicy());
  addVariables(state);
  return state.take();
}

ProcessState observedStateOf(const ProcProcess& process, const Limits& limits) {
  if (!isComplete(process) || process.targetOf(kNamespaces.front()).empty()) {
    return {};
  }
  RecordWriter state;
  state.reserve(kTypicalSize).text("its namespaces").text(namespacesOf(process));
  state.text("its root folder").text(rootFolderOf(process));
  state.text("its user and groups").text(linesOf(process, {"Uid", "Gid", "Groups"}));
  state.text("its capabilities")
      .text(linesOf(process, {"CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb"}));
  state.text("its confinement").text(confinementOf(process));
  state.text("its scheduling").text(schedulingOf(process));
  state.text("its security label").text(process.contentOf("attr/current"));
  state.text("its place in line when memory runs out").text(process.contentOf("oom_score_adj"));
  state.text("its core dump filter").text(process.contentOf("coredump_filter"));
  state.text("its memory limits").text(memoryLimitsOf(limits));
  return state.take();
}

// States are usually equal byte for byte. Otherwise they may still hold the same environment
// variables in another order.
std::string firstDifference(const ProcessState& one, const ProcessState& other) {
  if (one == other) {
    return {};
  }
  const auto left = toMap(one);
  const auto right = toMap(other);
  for (const auto& [name, value] : left) {
    const auto found = right.find(name);
    if (found == right.end() || found->second != value) {
      return std::string(name);
    }
  }
  for (const auto& [name, value] : right) {
    if (left.find(name) == left.end()) {
      return std::string(name);
    }
  }
  return {};
}

}  // namespace quillon::launchpad
