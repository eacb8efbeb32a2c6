#include "quillon/launchpad/server/server.h"

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "device_paths.h"
#include "quillon/base/exit_status.h"
#include "quillon/base/failure.h"
#include "quillon/base/files.h"
#include "quillon/base/shell_word.h"
#include "quillon/base/terminal.h"
#include "quillon/device/device_root.h"
#include "quillon/host/plugin/plugin_library.h"
#include "quillon/launchpad/protocol/address.h"
#include "quillon/launchpad/protocol/hand_over.h"
#include "quillon/launchpad/server/debugger_files.h"
#include "quillon/launchpad/server/event_loop.h"
#include "quillon/launchpad/server/inspector.h"
#include "quillon/launchpad/server/memory_pressure.h"
#include "quillon/launchpad/server/own_environment.h"
#include "quillon/launchpad/server/service_manager.h"
#include "quillon/launchpad/state/inspection_proof.h"
#include "quillon/launchpad/worker/managed_side.h"
#include "quillon/prefetch/background_read_ahead.h"

namespace quillon::launchpad {
namespace {

namespace fs = std::filesystem;

// Reset all signal dispositions, so that applications do not inherit signals that our parent
// ignored. This process still ignores them: it blocks them.
void resetSignalDispositions(const sigset_t& ignored) {
  sigprocmask(SIG_BLOCK, &ignored, nullptr);
  for (int signal = 1; signal < NSIG; ++signal) {
    ::signal(signal, SIG_DFL);
  }
}

// Applications must not inherit descriptors of our parent.
void closeInherited() {
  for (const int fd : ProcSelf().inheritedDescriptors()) {
    close(fd);
  }
}

// Each client and each worker needs descriptors. Applications get the limit of their client. Fails
// if the pools could use up all descriptors, so that no client could be served, or if a worker has
// too few.
Expected<void> raiseDescriptorLimit(const LaunchpadOptions& options) {
  constexpr rlim_t kOwn = 32;  // standard streams, listener, signals, some clients and so on
  constexpr rlim_t kPerWorker = 2;
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  const rlim_t workers = kMaxPools * options.size + (options.memory > 0 ? kMaxOwnPools : 0);
  const rlim_t needed =
      std::max(kOwn + kSpareDescriptors + kPerWorker * workers, rlim_t{kMinDescriptorLimit});
  if (limit.rlim_max < needed) {
    return fail("the launch pad needs " + std::to_string(needed) +
                    " file descriptors, and the limit is " + std::to_string(limit.rlim_max),
                "raise it (ulimit -n), or prepare fewer processes (--size)");
  }
  setrlimit(RLIMIT_NOFILE, &limit);
  return {};
}

sigset_t blockedSignals() {
  sigset_t blocked;
  sigprocmask(SIG_BLOCK, nullptr, &blocked);
  return blocked;
}

// The kernel does not show what a seccomp filter forbids, so no client could be compared with this
// process.
Expected<Inspector> startInspector() {
  const ProcSelf self;
  const ProcessState own = observedStateOf(self, currentLimits());
  if (own.empty()) {
    return fail("/proc lacks values that describe this process", "mount it (proc(5))");
  }
  if (self.status("Seccomp").value_or("0") != "0") {
    return fail("a seccomp filter confines this process, and perhaps not its clients",
                "start the launch pad without the filter; launches do not need it");
  }
  return Inspector::start(own);
}

Expected<void> enterDevice(const LaunchpadOptions& options, const WorkerConfig& config) {
  device::EnterOptions view;
  view.visible = {config.executable.parent_path().parent_path(), config.plugin.parent_path()};
  view.writable = options.writable;
  ASSIGN_OR_RETURN(const device::Entered entered, device::enter(options.device, view));
  if (entered.noHome) {
    tell(*entered.noHome);
  }
  return {};
}

Expected<void> requireParts(const LaunchpadOptions& options, const WorkerConfig& config) {
  std::error_code ignored;
  if (!fs::exists(config.plugin, ignored)) {
    return fail(kNoPlugin, {"the plug-in '" + config.plugin.string() + "' is missing",
                            "build the target quillon-tv-plugin"});
  }
  if (const fs::path own = managedAssembly(config.plugin); !fs::exists(own, ignored)) {
    return fail(kNoRuntime, {"the launch pad's own assembly '" + own.string() + "' is missing",
                             "build the target 'managed' on a machine with a .NET SDK"});
  }
  if (!fs::exists(fs::path(device_paths::kNetcoreapp) / "libcoreclr.so", ignored)) {
    return fail(kNoRuntime, {"the device root has no .NET runtime",
                             "quillon device init " + shellWord(options.device.string())});
  }
  return {};
}

Expected<void> run(const LaunchpadOptions& options) {
  RETURN_IF_FAILED(restartWithOwnEnvironment());
  const ProcSelf self;
  const sigset_t blocked = blockedSignals();
  const sigset_t ignored = self.ignoredSignals();
  resetSignalDispositions(ignored);
  closeInherited();
  RETURN_IF_FAILED(raiseDescriptorLimit(options));
  ServiceManager serviceManager;
  const fs::path executable = executablePath();
  WorkerConfig config{executable, host::defaultPlugin(executable), currentEntries(), blocked, {}};
  auto inspector = startInspector();
  if (!inspector) {
    return fail(kServiceFailed, inspector.error());
  }
  ProcessState state = declaredStateOf(self) + inspectionProofOf(getpid());
  const std::string address = addressOf(options.device);
  if (address.empty()) {
    return fail(kNoDeviceRoot,
                {"there is no folder '" + options.device.string() + "'",
                 "make a device root: quillon device init " + shellWord(options.device.string())});
  }
  ZoneView zone(options.device);
  auto listener = listenAt(address, options.device);
  if (!listener) {
    return fail(kLaunchPadState, listener.error());
  }
  Descriptor pressure = watchMemoryPressure();
  RETURN_IF_FAILED(enterDevice(options, config));
  RETURN_IF_FAILED(requireParts(options, config));
  removeDebuggerFilesOfDead();  // left by a launch pad that was killed
  prefetch::readAheadForAllInBackground();
  EventLoop(options, std::move(config),
            {{std::move(state), std::move(*inspector), std::move(zone)},
             std::move(*listener),
             std::move(pressure),
             std::move(serviceManager),
             ignored})
      .run();
  return {};
}

}  // namespace

int serve(const LaunchpadOptions& options) {
  keepTerminal();
  const auto ended = run(options);
  if (ended) {
    return kSuccess;
  }
  tell(ended.error());
  return ended.error().status;
}

}  // namespace quillon::launchpad
