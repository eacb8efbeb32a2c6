#include "quillon/host/launch.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <tuple>
#include <utility>
#include <vector>

#include "device_names.h"
#include "device_paths.h"
#include "quillon/base/files.h"
#include "quillon/base/report.h"
#include "quillon/base/terminal.h"
#include "quillon/base/trace_span.h"
#include "quillon/device/cached_lists.h"
#include "quillon/device/device_root.h"
#include "quillon/host/application/application_id.h"
#include "quillon/host/application/target.h"
#include "quillon/host/application/working_directory.h"
#include "quillon/host/assemblies/assembly_image.h"
#include "quillon/host/background_task.h"
#include "quillon/host/membarrier.h"
#include "quillon/host/plan.h"
#include "quillon/host/plugin/assembly_validation.h"
#include "quillon/host/plugin/plugin_calls.h"
#include "quillon/host/plugin/plugin_library.h"
#include "quillon/host/runtime/framework_check.h"
#include "quillon/host/runtime/runtime.h"
#include "quillon/host/runtime/runtime_settings.h"
#include "quillon/host/runtime_plan.h"
#include "quillon/prefetch/read_ahead.h"
#include "quillon/prefetch/recorder.h"
#include "quillon/resolution/hostpolicy.h"
#include "quillon/resolution/resolution.h"
#include "workstation/config_store.h"

namespace quillon::host {
namespace {

namespace fs = std::filesystem;

// Writes with stdio: a program that names std::cout constructs all standard streams when it starts.
void print(const LaunchPlan& plan, void (*format)(const LaunchPlan&, std::ostream&), FILE* file) {
  std::ostringstream text;
  format(plan, text);
  std::fputs(text.str().c_str(), file);
}

// Adds the variables that the plug-in sets, so that it only replaces their values. While another
// thread reads the environment, setenv(3) must not add a variable, because it may then release the
// array that the other thread reads. Returns the names of those that were not set.
std::vector<const char*> addVariablesOfPlugin() {
  std::vector<const char*> added;
  for (const char* name :
       {device_names::kApplicationVariable, device_names::kSocketsHandlerVariable,
        device_names::kCertificatesVariable}) {
    if (getenv(name) == nullptr) {
      setenv(name, "", 0);
      added.push_back(name);
    }
  }
  return added;
}

// The named plug-in (--plugin) may leave some of these variables alone.
void unsetIfEmpty(const std::vector<const char*>& names) {
  for (const char* name : names) {
    const char* const value = getenv(name);
    if (value != nullptr && *value == '\0') {
      unsetenv(name);
    }
  }
}

// A launch in progress. The members hold the results of one step for the next ones.
class Launch {
 public:
  explicit Launch(const LaunchOptions& options)
      : options_(options), executable_(executablePath()) {}

  Expected<int> run();

 private:
  Expected<void> prepare();
  Expected<void> enterDevice();
  Expected<LaunchTarget> findApplication() const;
  Expected<void> readRequirements();
  Expected<void> registerProcess();
  void loadPlugin();
  void startLoadingRuntime();
  void finishLoadingRuntime();
  Expected<void> usePlugin();
  void endThreads();
  Expected<void> initializePlugin();
  void planProperties();
  Expected<void> checkFrameworks() const;
  void tellWarning() const;
  Expected<int> printPlan();
  Expected<int> runApplication();
  Expected<Runtime> startRuntime();
  Expected<int> execute(Runtime& runtime);
  Expected<unsigned> executeAssembly(Runtime& runtime) const;
  static int shutDown(Runtime& runtime);
  LaunchPlan plan() const;
  void printVerbosePlan();

  const LaunchOptions& options_;
  const fs::path executable_;
  fs::path pluginFile_;
  std::optional<fs::path> hiddenDirectory_;  // the working directory of the command
  Expected<PluginLibrary> library_;
  LaunchTarget target_;
  Requirements requirements_;
  PluginCalls plugin_;
  PluginLists lists_;
  RuntimePlan runtimePlan_;
  std::vector<const char*> addedVariables_;    // by addVariablesOfPlugin()
  std::optional<device::CachedLists> caches_;  // before the plug-in made its lists
  std::optional<ScopedLttngOff> lttngOff_;     // while the runtime's libraries are loaded
  std::optional<Expected<Runtime>> runtime_;
  std::optional<prefetch::LaunchReadAhead> readAhead_;
  // Sets runtime_ and readAhead_, so it is declared after them.
  std::optional<BackgroundTask> loader_;
};

Expected<int> Launch::run() {
  RETURN_IF_FAILED(prepare());
  return options_.plan ? printPlan() : runApplication();
}

// The runtime's libraries load in another thread from startLoadingRuntime() to
// finishLoadingRuntime(), which takes longer than the steps between.
Expected<void> Launch::prepare() {
  registerMembarrier();
  RETURN_IF_FAILED(enterDevice());
  loadPlugin();
  if (!options_.plan) {
    startLoadingRuntime();
  }
  ASSIGN_OR_RETURN(target_, findApplication());
  RETURN_IF_FAILED(readRequirements());
  RETURN_IF_FAILED(usePlugin());
  RETURN_IF_FAILED(registerProcess());
  // The zone library refuses a process with two threads.
  if (entersZone(target_.type)) {
    endThreads();
  }
  RETURN_IF_FAILED(initializePlugin());
  // validateAssemblies() requires a process with one thread.
  if (!options_.plan && !options_.validate) {
    workstation::startConfigThread();
  }
  finishLoadingRuntime();
  setenv(kAppIdVariable, target_.application.id.c_str(), 1);
  return {};
}

Expected<void> Launch::enterDevice() {
  const TraceSpan span("enter the device root");
  std::error_code ignored;
  pluginFile_ =
      options_.plugin.empty() ? defaultPlugin(executable_) : fs::absolute(options_.plugin, ignored);
  device::EnterOptions view;
  view.visible = {executable_.parent_path().parent_path(), pluginFile_.parent_path()};
  view.writable = options_.writable;
  ASSIGN_OR_RETURN(const device::Entered entered, device::enter(options_.device, view));
  hiddenDirectory_ = entered.hiddenDirectory;
  if (entered.noHome) {
    tell(*entered.noHome);
  }
  return {};
}

// Load the plug-in before the runtime's libraries: the dynamic linker loads one library at a time,
// so the calling thread would wait for the other one.
void Launch::loadPlugin() {
  const TraceSpan span("load the plug-in");
  library_ = host::loadPlugin(pluginFile_);
}

// The runtime's libraries are most of what a launch loads, and no step before the runtime's start
// needs them. The initialization of libcoreclr.so reads the environment.
void Launch::startLoadingRuntime() {
  addedVariables_ = addVariablesOfPlugin();
  lttngOff_.emplace();
  loader_.emplace([this] {
    readAhead_.emplace(options_.appId);
    const TraceSpan span("load the runtime's libraries");
    runtime_ = Runtime::load(device_paths::kNetcoreapp);
  });
}

// No other thread reads the environment after this function, so variables may be added and removed.
void Launch::finishLoadingRuntime() {
  loader_.reset();
  lttngOff_.reset();
  unsetIfEmpty(std::exchange(addedVariables_, {}));
}

void Launch::endThreads() {
  finishLoadingRuntime();
  if (readAhead_) {  // not for a plan
    readAhead_->stop();
  }
}

Expected<LaunchTarget> Launch::findApplication() const {
  const TraceSpan span("find the application");
  return findTarget(options_);
}

Expected<void> Launch::readRequirements() {
  const TraceSpan span("read the application's requirements");
  auto config = readRuntimeConfig(target_.assembly);
  if (!config) {
    return fail(kNotExecutable, config.error());
  }
  requirements_.config = std::move(*config);
  requirements_.frameworkVersion = frameworkVersionOf(device_paths::kNetcoreapp);
  const resolution::Subject subject{target_.assembly, requirements_.config,
                                    requirements_.frameworkVersion};
  if (auto answer = resolution::findAnswer(subject)) {
    requirements_.additions = std::move(answer->additions);
    return {};
  }
  endThreads();  // the question needs a process with one thread
  requirements_.additions = resolution::askAndStore(subject);
  return {};
}

Expected<void> Launch::usePlugin() {
  if (!library_) {
    return fail(kNoPlugin, library_.error());
  }
  plugin_ = PluginCalls(*library_, &target_);
  return {};
}

// Call before the first function of the plug-in that looks up the package of this process.
Expected<void> Launch::registerProcess() {
  const TraceSpan span("register the process");
  if (auto registered =
          workstation::registerProcess(getpid(), target_.package.id, target_.application.id);
      !registered) {
    return fail(kServiceFailed, registered.error());
  }
  return {};
}

Expected<void> Launch::initializePlugin() {
  RETURN_IF_FAILED(plugin_.initialize());
  if (options_.plan || options_.verbose) {
    caches_ = device::readCachedLists();
  }
  ASSIGN_OR_RETURN(lists_, plugin_.lists());
  planProperties();
  return {};
}

void Launch::planProperties() {
  const TraceSpan span("plan the runtime's properties");
  runtimePlan_ = planRuntime(target_, lists_, requirements_);
}

// Whether this machine has the frameworks that the application needs.
Expected<void> Launch::checkFrameworks() const {
  RETURN_IF_FAILED(requireFramework(runtimePlan_.wantedVersion, runtimePlan_.frameworkVersion,
                                    options_.device.string()));
  return resolution::requireFrameworks(runtimePlan_.additions);
}

void Launch::tellWarning() const {
  if (const auto warning =
          resolution::warningAbout(target_.application.id, runtimePlan_.additions)) {
    tell(*warning);
  }
}

LaunchPlan Launch::plan() const {
  LaunchPlan plan{options_,
                  target_,
                  lists_,
                  runtimePlan_,
                  pluginFile_.string(),
                  caches_,
                  hasReadyToRunCode(fs::path(target_.assembly)),
                  {},
                  {}};
  plan.refusals = predictRefusals(target_);
  if (const auto found = checkFrameworks(); !found) {
    plan.missing = found.error();
  }
  return plan;
}

Expected<int> Launch::printPlan() {
  findShadowsInFolders(runtimePlan_);
  const LaunchPlan plan = this->plan();
  print(plan, options_.json ? printPlanJson : printPlanText, stdout);
  if (std::fflush(stdout) != 0) {
    return tl::unexpected(outputFailure());
  }
  if (plan.missing) {
    tell({"to go further: " + plan.missing->what, plan.missing->remedy});
  }
  for (const Failure& warning : warningsOf(plan)) {
    tell(warning);
  }
  for (const Failure& refusal : plan.refusals) {
    tell(refusal);
  }
  if (!plan.refusals.empty()) {
    return plan.refusals.front().status;
  }
  return plan.missing ? plan.missing->status : kSuccess;
}

Expected<int> Launch::runApplication() {
  if (auto found = checkFrameworks(); !found) {
    if (options_.planIfMissing) {
      print(plan(), printPlanText, stdout);
    }
    return tl::unexpected(found.error());
  }
  RETURN_IF_FAILED(requireAssembly(target_));
  if (hiddenDirectory_) {
    useOwnFolder(target_, *hiddenDirectory_);
  }
  if (options_.verbose) {
    printVerbosePlan();
  }
  // validateAssemblies() requires a process with one thread, so call it before the runtime starts.
  if (options_.validate) {
    endThreads();
    RETURN_IF_FAILED(
        validateAssemblies(plugin_, target_, resolution::ownAssemblies(runtimePlan_.additions)));
  }
  tellWarning();
  applySettings(options_.settings);
  ASSIGN_OR_RETURN(Runtime runtime, startRuntime());
  return execute(runtime);
}

Expected<Runtime> Launch::startRuntime() {
  Expected<Runtime>& runtime = *runtime_;
  if (!runtime) {
    return fail(kRuntimeFailed, runtime.error());
  }
  const TraceSpan span("coreclr_initialize");
  // Not part of the plan: its value is an address in this process.
  RuntimeProperties properties = runtimePlan_.properties;
  resolution::addHostpolicy(properties);
  resolution::setHostpolicyApplication(target_.assembly);
  const auto started = runtime->start(executable_, target_.application.id, properties);
  if (!started) {
    return fail(kRuntimeFailed, started.error());
  }
  return *runtime;
}

Expected<int> Launch::execute(Runtime& runtime) {
  plugin_.setRuntime(runtime);
  if (options_.preload) {
    plugin_.preload();
  }
  RETURN_IF_FAILED(plugin_.setApplication());
  if (!options_.raw) {
    plugin_.captureOutput();
  }
  plugin_.beforeExecute();
  if (options_.onStart) {
    options_.onStart();
  }
  auto ended = executeAssembly(runtime);
  plugin_.finalize();
  const int latched = shutDown(runtime);
  if (!ended) {
    return fail(kNotExecutable, ended.error());
  }
  return latched;
}

// The span covers the loading of the assembly and Main: native code cannot observe the start of
// Main. The records of ended processes are removed when this process exits, so that nobody waits
// for it.
Expected<unsigned> Launch::executeAssembly(Runtime& runtime) const {
  const TraceSpan span("coreclr_execute_assembly: Main");
  std::ignore = std::atexit(workstation::forgetEndedProcesses);
  const prefetch::Recorder recorder(readAhead_->needsProfile() ? options_.appId : "",
                                    target_.assembly);
  return runtime.execute(target_.assembly, options_.arguments);
}

int Launch::shutDown(Runtime& runtime) {
  const TraceSpan span("coreclr_shutdown_2");
  return runtime.shutDown();
}

void Launch::printVerbosePlan() {
  findShadowsInFolders(runtimePlan_);
  print(plan(), printPlanText, stderr);
}

}  // namespace

int launch(const LaunchOptions& options) {
  keepTerminal();
  Launch launch(options);
  auto ended = launch.run();
  if (ended) {
    return *ended;
  }
  tell(ended.error());
  return ended.error().status;
}

}  // namespace quillon::host
