#include "quillon/host/launch.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>

#include "device_paths.h"
#include "quillon/base/files.h"
#include "quillon/base/terminal.h"
#include "quillon/base/trace_span.h"
#include "quillon/device/device_root.h"
#include "quillon/host/application/application_id.h"
#include "quillon/host/application/target.h"
#include "quillon/host/assemblies/assembly_image.h"
#include "quillon/host/plan.h"
#include "quillon/host/plugin/assembly_validation.h"
#include "quillon/host/plugin/plugin_calls.h"
#include "quillon/host/plugin/plugin_library.h"
#include "quillon/host/runtime/framework_check.h"
#include "quillon/host/runtime/runtime.h"
#include "quillon/host/runtime/runtime_settings.h"
#include "quillon/host/runtime_plan.h"
#include "quillon/host/side_thread.h"
#include "quillon/host/thread_barrier.h"

namespace quillon::host {
namespace {

namespace fs = std::filesystem;

// Through C's streams: std::cout and its kin are made at the start of each program that names one.
void print(const LaunchPlan& plan, void (*asText)(const LaunchPlan&, std::ostream&), FILE* to) {
  std::ostringstream text;
  asText(plan, text);
  std::fputs(text.str().c_str(), to);
}

// A launch in progress: what one step leaves for the next.
class Launch {
 public:
  explicit Launch(const LaunchOptions& options)
      : options_(options), executable_(executablePath()) {}

  Expected<int> run();

 private:
  Expected<void> prepare();
  Expected<void> enterDevice();
  Expected<LaunchTarget> findApplication() const;
  Expected<void> registerSelf();
  void beginLoadingRuntime();
  void awaitLoading();
  Expected<void> load();
  Expected<void> askPlugin();
  Expected<void> planProperties();
  Expected<int> printPlan();
  Expected<int> runApplication();
  Expected<Runtime> startRuntime();
  Expected<int> execute(Runtime& runtime);
  Expected<unsigned> executeAssembly(Runtime& runtime) const;
  static int shutDown(Runtime& runtime);
  LaunchPlan plan() const;
  void explain();

  const LaunchOptions& options_;
  const fs::path executable_;
  fs::path pluginFile_;
  LaunchTarget target_;
  PluginCalls plugin_;
  PluginLists lists_;
  RuntimePlan runtimePlan_;
  bool tpaFromCache_ = false;
  std::optional<WithoutIdleTracing> quiet_;  // while the runtime is loaded
  std::optional<Expected<Runtime>> runtime_;
  // Loads it, and so ends first. It has ended before the plug-in's first call: what the plug-in
  // sets is the calling thread's.
  std::optional<SideThread> loader_;
};

Expected<int> Launch::run() {
  RETURN_IF_FAILED(prepare());
  return options_.plan ? printPlan() : runApplication();
}

Expected<void> Launch::prepare() {
  registerThreadBarrier();
  RETURN_IF_FAILED(enterDevice());
  if (!options_.plan) beginLoadingRuntime();
  auto target = findApplication();
  if (!target) return tl::unexpected(target.error());
  target_ = std::move(*target);
  RETURN_IF_FAILED(load());
  RETURN_IF_FAILED(registerSelf());
  awaitLoading();
  setenv(kAppIdVariable, target_.application.id.c_str(), 1);
  return askPlugin();
}

Expected<void> Launch::enterDevice() {
  const TraceSpan span("enter the device root");
  std::error_code ignored;
  pluginFile_ =
      options_.plugin.empty() ? defaultPlugin(executable_) : fs::absolute(options_.plugin, ignored);
  device::EnterOptions view;
  view.visible = {executable_.parent_path().parent_path(), pluginFile_.parent_path()};
  view.writable = options_.writable;
  auto entered = device::enter(options_.device, view);
  if (entered) return {};
  return tl::unexpected(entered.error());
}

// The runtime's libraries are most of what a launch loads, and nothing before the plug-in's first
// call needs them.
void Launch::beginLoadingRuntime() {
  quiet_.emplace();
  loader_.emplace([this] {
    const TraceSpan span("load the runtime's libraries");
    runtime_ = Runtime::load(device_paths::kNetcoreapp);
  });
}

// From here on the environment may change.
void Launch::awaitLoading() {
  loader_.reset();
  quiet_.reset();
}

Expected<LaunchTarget> Launch::findApplication() const {
  const TraceSpan span("find the application");
  return findTarget(options_);
}

Expected<void> Launch::load() {
  const TraceSpan span("load the plug-in");
  auto library = loadPlugin(pluginFile_);
  if (!library) return fail(kNoPlugin, library.error());
  plugin_ = PluginCalls(*library, &target_);
  return {};
}

// Before anything of the plug-in that asks whose process this is.
Expected<void> Launch::registerSelf() {
  const TraceSpan span("register the process");
  if (auto noted = workstation::registerProcess(getpid(), target_.package.id); !noted) {
    return fail(kServiceFailed, noted.error());
  }
  workstation::forgetEndedProcesses();
  return {};
}

Expected<void> Launch::askPlugin() {
  RETURN_IF_FAILED(plugin_.initialize());
  const std::string cached = cachedTpa();
  auto lists = plugin_.lists();
  if (!lists) return tl::unexpected(lists.error());
  lists_ = std::move(*lists);
  tpaFromCache_ = lists_.tpa && !cached.empty() && *lists_.tpa == cached;
  return planProperties();
}

Expected<void> Launch::planProperties() {
  const TraceSpan span("plan the runtime's properties");
  auto planned = planRuntime(target_, lists_);
  if (!planned) return fail(kNotExecutable, planned.error());
  runtimePlan_ = std::move(*planned);
  return {};
}

LaunchPlan Launch::plan() const {
  LaunchPlan plan{options_,
                  target_,
                  lists_,
                  runtimePlan_,
                  pluginFile_.string(),
                  tpaFromCache_,
                  bringsCompiledCode(fs::path(target_.assembly)),
                  {},
                  {}};
  plan.refusals = predictRefusals(target_);
  const auto framework = requireFramework(runtimePlan_.wantedVersion, runtimePlan_.frameworkVersion,
                                          options_.device.string());
  if (!framework) plan.missing = framework.error();
  return plan;
}

Expected<int> Launch::printPlan() {
  findShadowsInFolders(runtimePlan_);
  const LaunchPlan plan = this->plan();
  print(plan, options_.json ? printPlanJson : printPlanText, stdout);
  if (plan.missing) tell({"to go further: " + plan.missing->what, plan.missing->remedy});
  for (const Failure& refusal : plan.refusals) tell(refusal);
  return plan.refusals.empty() ? kSuccess : plan.refusals.front().status;
}

Expected<int> Launch::runApplication() {
  if (auto found = requireFramework(runtimePlan_.wantedVersion, runtimePlan_.frameworkVersion,
                                    options_.device.string());
      !found) {
    print(plan(), printPlanText, stdout);
    return tl::unexpected(found.error());
  }
  RETURN_IF_FAILED(requireAssembly(target_));
  if (options_.verbose) explain();
  // Before the runtime, and so before other threads, exists.
  if (options_.validate) {
    RETURN_IF_FAILED(validateAssemblies(plugin_, target_));
  }
  applySettings(options_.settings);
  auto runtime = startRuntime();
  if (!runtime) return tl::unexpected(runtime.error());
  return execute(*runtime);
}

Expected<Runtime> Launch::startRuntime() {
  Expected<Runtime>& runtime = *runtime_;
  if (!runtime) return fail(kRuntimeFailed, runtime.error());
  const TraceSpan span("coreclr_initialize");
  const auto started = runtime->start(executable_, target_.application.id, runtimePlan_.properties);
  if (!started) return fail(kRuntimeFailed, started.error());
  return *runtime;
}

Expected<int> Launch::execute(Runtime& runtime) {
  plugin_.setRuntime(runtime);
  if (options_.preload) plugin_.preload();
  RETURN_IF_FAILED(plugin_.setApplication());
  if (!options_.raw) plugin_.captureOutput();
  plugin_.beforeExecute();
  auto ended = executeAssembly(runtime);
  plugin_.finalize();
  const int latched = shutDown(runtime);
  if (!ended) return fail(kNotExecutable, ended.error());
  return latched;
}

// Nothing native sees the moment of Main: the runtime loads the assembly first, within this span.
Expected<unsigned> Launch::executeAssembly(Runtime& runtime) const {
  const TraceSpan span("coreclr_execute_assembly: Main");
  return runtime.execute(target_.assembly, options_.arguments);
}

int Launch::shutDown(Runtime& runtime) {
  const TraceSpan span("coreclr_shutdown_2");
  return runtime.shutDown();
}

void Launch::explain() {
  findShadowsInFolders(runtimePlan_);
  print(plan(), printPlanText, stderr);
}

}  // namespace

int launch(const LaunchOptions& options) {
  keepTerminal();
  Launch launch(options);
  auto ended = launch.run();
  if (ended) return *ended;
  tell(ended.error());
  return ended.error().status;
}

}  // namespace quillon::host
