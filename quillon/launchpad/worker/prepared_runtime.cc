#include "quillon/launchpad/worker/prepared_runtime.h"

#include <unistd.h>

#include <algorithm>
#include <thread>
#include <utility>

#include "device_paths.h"
#include "quillon/base/exit_status.h"
#include "quillon/base/terminal.h"
#include "quillon/base/trace_span.h"
#include "quillon/host/runtime/framework_check.h"
#include "quillon/host/runtime/runtime_settings.h"
#include "quillon/host/runtime_plan.h"
#include "quillon/launchpad/worker/terminal_setup.h"
#include "quillon/resolution/hostpolicy.h"

namespace quillon::launchpad {
namespace {

Expected<host::Runtime> loadRuntime() {
  const host::ScopedLttngOff lttngOff;
  return host::Runtime::load(device_paths::kNetcoreapp);
}

// Before .NET 10, the runtime creates an event source for each run of a Main. Startup hooks must
// run in the launch only.
bool canRehearseWith(const host::RuntimeProperties& properties) {
  constexpr char kMinVersion[] = "10.0.0";
  const std::string version = host::frameworkVersionOf(device_paths::kNetcoreapp);
  return !version.empty() && host::serves(version, kMinVersion) &&
         std::none_of(properties.begin(), properties.end(),
                      [](const auto& property) { return property.first == "STARTUP_HOOKS"; });
}

}  // namespace

PreparedRuntime::PreparedRuntime(const std::filesystem::path& plugin, const PoolKey& key,
                                 host::PluginLists lists, host::Runtime runtime,
                                 Placeholders folders)
    : ownAssembly_(managedAssembly(plugin).string()),
      key_(key),
      lists_(std::move(lists)),
      runtime_(std::move(runtime)),
      folders_(std::move(folders)) {}

Expected<PreparedRuntime> PreparedRuntime::start(const std::filesystem::path& executable,
                                                 const std::filesystem::path& plugin,
                                                 const PoolKey& key, host::PluginLists lists) {
  auto folders = Placeholders::open(host::LaunchTarget::kFolderCount);
  if (!folders) {
    return fail(kServiceFailed, folders.error());
  }
  auto runtime = loadRuntime();
  if (!runtime) {
    return fail(kRuntimeFailed, runtime.error());
  }
  PreparedRuntime prepared(plugin, key, std::move(lists), std::move(*runtime), std::move(*folders));
  RETURN_IF_FAILED(prepared.startRuntime(executable));
  return prepared;
}

Expected<void> PreparedRuntime::startRuntime(const std::filesystem::path& executable) {
  const host::Requirements requirements{{{}, {}, key_.settings}, {}, key_.additions};
  auto plan = host::planPrepared(folders_.paths(), lists_, requirements, ownAssembly_);
  resolution::addHostpolicy(plan.properties, findTerminalSetup);
  canRehearse_ = canRehearseWith(plan.properties);
  trusted_ = plan.assemblies.trusted();
  const host::ScopedJitThreadKeepAlive lasting;
  environment_.record();
  const auto started = runtime_.start(executable, "launchpad", plan.properties);
  if (!started) {
    return fail(kRuntimeFailed, started.error());
  }
  return {};
}

Expected<void> PreparedRuntime::warmUp(const host::LaunchTarget& target) {
  if (auto bound = managed_.bind(runtime_); !bound) {
    return fail(kRuntimeFailed, bound.error());
  }
  environment_.record();
  managed_.warmUp(host::propertiesOfApplication(target, lists_, key_.additions));
  if (canRehearse_) {
    rehearse();
  }
  return {};
}

// Runs a Main that does nothing, so that the runtime's path to Main is compiled. The application's
// run replaces what this one sets: entry assembly, command line and exit status. The thread stays
// in that Main until the process ends.
void PreparedRuntime::rehearse() {
  managed_.beginRehearsal();
  std::thread([runtime = runtime_, assembly = ownAssembly_]() mutable {
    const auto ended = runtime.execute(assembly, {});
    tell(ended ? Failure{"the rehearsal of a launch has ended", {}} : ended.error());
    _exit(kRuntimeFailed);
  }).detach();
  managed_.awaitRehearsal();
}

Expected<void> PreparedRuntime::setApplicationAndEnvironment(const host::LaunchTarget& target) {
  const TraceSpan span("give the application to the runtime");
  return assign(target, environment_.changes());
}

Expected<void> PreparedRuntime::setApplication(const host::LaunchTarget& target) {
  return assign(target, {});
}

Expected<void> PreparedRuntime::assign(const host::LaunchTarget& target,
                                       const std::vector<CopiedEnvironment::Change>& variables) {
  host::RuntimeProperties properties;
  if (!std::exchange(hasProperties_, true)) {
    resolution::setHostpolicyApplication(target.assembly);
    properties = host::propertiesOfApplication(target, lists_, key_.additions);
  }
  if (!managed_.assign(properties, variables)) {
    return fail(kRuntimeFailed, {"the runtime refuses the application's properties", {}});
  }
  return {};
}

}  // namespace quillon::launchpad
