#include "quillon/zone/zones.h"

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <system_error>

#include "quillon/base/shell_word.h"
#include "quillon/device/device_root.h"
#include "quillon/device/record.h"
#include "quillon/zone/holder.h"
#include "quillon/zone/library.h"
#include "quillon/zone/state_folder.h"

namespace quillon::zone {
namespace {

namespace fs = std::filesystem;

constexpr int kEndTimeoutMs = 5000;

// Returns the device root's canonical path.
Expected<fs::path> openDevice(const fs::path& device) {
  RETURN_IF_FAILED(withStatus(kNoDeviceRoot, device::readRecord(device)));
  std::error_code error;
  return fs::canonical(device, error);
}

// Fails inside a device root, since the zone folders are read-only under their machine paths there.
Expected<fs::path> openDeviceForChange(const fs::path& device, const std::string& name) {
  if (!workstation::isZoneName(name.c_str())) {
    return fail(kUsage, {"'" + name + "' cannot be the name of a zone",
                         "use up to 64 letters, digits, '-', '_' and '.'"});
  }
  if (const auto inside = device::current()) {
    return fail(kNoNamespace, {"this process is inside the device root '" + inside->string() +
                                   "', and zones are started and stopped from outside",
                               "leave its shell first"});
  }
  return openDevice(device);
}

bool waitForEnd(int holder, int milliseconds) {
  pollfd ended{holder, POLLIN, 0};
  return poll(&ended, 1, milliseconds) > 0;
}

// Ends the process of the pidfd `holder`. Returns 0 or an errno value.
int end(int holder) {
  for (const int signal : {SIGTERM, SIGKILL}) {
    if (syscall(SYS_pidfd_send_signal, holder, signal, nullptr, 0) != 0 && errno != ESRCH) {
      return errno;
    }
    if (waitForEnd(holder, kEndTimeoutMs)) {
      return 0;
    }
  }
  return ETIMEDOUT;
}

std::string mountNamespaceOf(const std::string& process) {
  std::error_code error;
  return fs::read_symlink("/proc/" + process + "/ns/mnt", error).string();
}

bool isNumber(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Returns the other processes in the zone of `holder`.
std::vector<pid_t> processesBeside(pid_t holder) {
  std::vector<pid_t> processes;
  const std::string zone = mountNamespaceOf(std::to_string(holder));
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !zone.empty() && !error && entry != end;
       entry.increment(error)) {
    const std::string process = entry->path().filename().string();
    if (isNumber(process) && mountNamespaceOf(process) == zone && std::stoi(process) != holder) {
      processes.push_back(std::stoi(process));
    }
  }
  return processes;
}

Zone describe(const StateFolder& states, const std::string& name) {
  Zone zone{name, -1, {}};
  pid_t holder = -1;
  if (const Descriptor running = states.openHolder(name, holder)) {
    zone.holder = holder;
    zone.processes = processesBeside(holder);
  }
  return zone;
}

// Creates the files that must exist before the holder enters the device root.
Expected<void> prepare(const fs::path& device, const std::string& name, const StateFolder& states) {
  RETURN_IF_FAILED(states.forget(name));
  RETURN_IF_FAILED(placeLibrary(device));
  return states.show(name);
}

}  // namespace

Expected<pid_t> start(const fs::path& device, const std::string& name,
                      const std::vector<fs::path>& visible) {
  ASSIGN_OR_RETURN(const fs::path root, openDeviceForChange(device, name));
  ASSIGN_OR_RETURN(const StateFolder states, withStatus(kServiceFailed, StateFolder::lock(root)));
  if (const Zone zone = describe(states, name); zone.holder >= 0) {
    return fail(kZoneState, {"the zone '" + name + "' runs already, held by process " +
                                 std::to_string(zone.holder),
                             ""});
  }
  RETURN_IF_FAILED(withStatus(kServiceFailed, prepare(root, name, states)));
  auto holder = startHolder(root, name, visible, states);
  if (!holder) {
    // The next start or stop removes what cannot be removed now.
    [[maybe_unused]] const auto forgotten = states.forget(name);
  }
  return holder;
}

Expected<Stopped> stop(const fs::path& device, const std::string& name) {
  ASSIGN_OR_RETURN(const fs::path root, openDeviceForChange(device, name));
  ASSIGN_OR_RETURN(const StateFolder states, withStatus(kServiceFailed, StateFolder::lock(root)));
  if (!states.knows(name)) {
    return fail(kZoneState,
                {"no zone '" + name + "' runs in '" + root.string() + "'",
                 "list the zones: quillon zone list --device " + shellWord(root.string())});
  }
  pid_t pid = -1;
  const Descriptor holder = states.openHolder(name, pid);
  const int error = holder ? end(holder.get()) : 0;
  if (error != 0) {
    return fail(kServiceFailed,
                {"cannot end process " + std::to_string(pid) + ", which holds the zone '" + name +
                     "': " + std::strerror(error),
                 "let the user who started it stop it"});
  }
  RETURN_IF_FAILED(withStatus(kServiceFailed, states.forget(name)));
  return holder ? Stopped::kRunning : Stopped::kEndedBefore;
}

Expected<std::vector<Zone>> list(const fs::path& device) {
  ASSIGN_OR_RETURN(const fs::path root, openDevice(device));
  const StateFolder states = StateFolder::view(root);
  std::vector<Zone> zones;
  for (const std::string& name : states.names()) {
    zones.push_back(describe(states, name));
  }
  return zones;
}

}  // namespace quillon::zone
