#include "quillon/launchpad/worker/worker.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <thread>
#include <utility>

#include "device_paths.h"
#include "quillon/base/directory_entries.h"
#include "quillon/base/files.h"
#include "quillon/base/record.h"
#include "quillon/base/terminal.h"
#include "quillon/base/trace_span.h"
#include "quillon/device/working_directory.h"
#include "quillon/host/application/application_id.h"
#include "quillon/host/application/working_directory.h"
#include "quillon/host/assemblies/module_initializer.h"
#include "quillon/host/membarrier.h"
#include "quillon/host/plugin/plugin_calls.h"
#include "quillon/host/runtime/framework_check.h"
#include "quillon/host/runtime/runtime.h"
#include "quillon/host/runtime/runtime_config.h"
#include "quillon/host/runtime/runtime_settings.h"
#include "quillon/host/runtime_plan.h"
#include "quillon/launchpad/protocol/hand_over.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/worker/descriptor_numbers.h"
#include "quillon/launchpad/worker/loaded_files.h"
#include "quillon/launchpad/worker/managed_side.h"
#include "quillon/launchpad/worker/placeholders.h"
#include "quillon/launchpad/worker/process_setup.h"
#include "quillon/launchpad/worker/stdio.h"
#include "quillon/launchpad/worker/terminal_setup.h"
#include "quillon/resolution/hostpolicy.h"
#include "quillon/resolution/resolution.h"
#include "workstation/log_config.h"
#include "workstation/packages.h"

namespace quillon::launchpad {
namespace {

Expected<host::Runtime> loadRuntime() {
  const host::ScopedLttngOff lttngOff;
  return host::Runtime::load(device_paths::kNetcoreapp);
}

// Whether a Main can run in advance without an effect on the application. Before .NET 10, the
// runtime creates an event source for each run. Startup hooks must run in the launch only.
bool canRehearse(const host::RuntimeProperties& properties) {
  constexpr char kMinVersion[] = "10.0.0";
  const std::string version = host::frameworkVersionOf(device_paths::kNetcoreapp);
  return !version.empty() && host::serves(version, kMinVersion) &&
         std::none_of(properties.begin(), properties.end(),
                      [](const auto& property) { return property.first == "STARTUP_HOOKS"; });
}

// Waits for a message of one kind. If the peer has ended, so does the process. The client then
// launches without it: before kTakenOver in any case, and later because the server has ended.
Message awaitMessage(const Descriptor& socket, MessageKind kind) {
  Message message;
  if (receiveMessage(socket.get(), message) != Received::kMessage || message.kind != kind) {
    _exit(kServiceFailed);
  }
  return message;
}

// The proportional set size of this process (proc(5), smaps_rollup); 0 if it is not known.
uint64_t memoryKib() {
  constexpr std::string_view kName = "\nPss:";
  const std::string text = readSmallFileAt(AT_FDCWD, "/proc/self/smaps_rollup");
  const size_t at = text.find(kName);
  return at == std::string::npos ? 0 : std::strtoull(text.c_str() + at + kName.size(), nullptr, 10);
}

// The paths under which the runtime finds the assemblies of a folder.
//
// seenAs  the name by which the runtime knows the folder
void addAssemblies(std::vector<std::string>& files, const std::string& folder,
                   const std::string& seenAs) {
  const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (const std::string& name : directoryEntries(opened.get())) {
    if (name.ends_with(".dll") || name.ends_with(".exe")) {
      files.push_back(seenAs + "/" + name);
    }
  }
}

class Worker {
 public:
  Worker(const WorkerConfig& config, const PoolKey& key, pid_t server, Descriptor channel)
      : config_(config), key_(key), server_(server), channel_(std::move(channel)) {
    target_.type = key.type;
  }

  Expected<int> run();

 private:
  Expected<void> prepare();
  Expected<void> initializePlugin();
  Expected<void> startRuntime();
  Expected<void> warmUpRuntime();
  void rehearse();
  Expected<void> prepareApplication();
  [[nodiscard]] bool canCompileMain(const std::vector<std::string>& own) const;
  [[noreturn]] void endUnsuitable(const std::string& why);
  Expected<void> awaitAssignment();
  Expected<void> takeOver();
  Expected<void> takeOverInherited(HandOver& handOver);
  Expected<void> takeOverDescriptors(HandOver& handOver);
  void applyProcessState(const HandOver& handOver) const;
  Expected<void> giveToRuntime();
  Expected<void> assignToRuntime(const EnvironmentChanges& variables);
  Expected<void> configureApplication();
  Expected<unsigned> executeAssembly();
  Expected<int> execute();

  const WorkerConfig& config_;
  const PoolKey& key_;
  const pid_t server_;
  Descriptor channel_;
  host::LaunchTarget target_;
  host::PluginCalls plugin_;
  host::PluginLists lists_;
  StdioPlaceholders stdio_;
  Placeholders folders_;
  std::optional<host::Runtime> runtime_;
  bool rehearses_ = false;
  std::vector<std::string> trusted_;  // assemblies
  LoadedFiles files_;
  bool hasProperties_ = false;  // the runtime has the application's
  ManagedSide managed_;
  EnvironmentChanges changes_;  // made by the preparation
  // The environment of the runtime's start and that of the warm-up. The runtime has copied each of
  // its variables at one of these moments.
  Variables variablesAtStart_;
  Variables variablesAtWarmUp_;
  std::vector<std::string> arguments_;
  Limits limits_;
  Descriptor client_;  // a socket to it
};

Expected<int> Worker::run() {
  RETURN_IF_FAILED(prepare());
  sendMessage(channel_.get(), MessageKind::kReady, RecordWriter().number(memoryKib()).bytes());
  RETURN_IF_FAILED(awaitAssignment());
  folders_.redirect(target_.folders());  // while the client sends the rest
  RETURN_IF_FAILED(takeOver());
  RETURN_IF_FAILED(configureApplication());
  return execute();
}

Expected<void> Worker::prepare() {
  setParentDeathSignal(server_);
  detachFromServer(config_.blocked);
  if (!stdio_.open()) {
    return fail(kServiceFailed, {"cannot create a memory file", {}});
  }
  ASSIGN_OR_RETURN(std::optional<LowNumbers> lowNumbers, LowNumbers::occupy(channel_));
  host::registerMembarrier();
  RETURN_IF_FAILED(initializePlugin());
  // Nothing after this needs capabilities: the plug-in has entered the zone and saved its lists.
  dropCapabilities();
  setParentDeathSignal(server_);
  RETURN_IF_FAILED(startRuntime());
  RETURN_IF_FAILED(warmUpRuntime());
  RETURN_IF_FAILED(prepareApplication());
  workstation::cachePackages();
  changes_ = changesSince(config_.environment);
  changes_.insert(config_.changes.begin(), config_.changes.end());
  changes_.emplace("TMPDIR", std::nullopt);  // a device root has none, even if the client has
  lowNumbers.reset();
  stdio_.findDuplicates();
  return {};
}

Expected<void> Worker::initializePlugin() {
  auto library = host::loadPlugin(config_.plugin);
  if (!library) {
    return fail(kNoPlugin, library.error());
  }
  plugin_ = host::PluginCalls(*library, &target_);
  if (auto initialized = plugin_.initialize(); !initialized) {
    if (initialized.error().status == kUsage) {
      sendMessage(channel_.get(), MessageKind::kUnsuitable);
    }
    return initialized;
  }
  ASSIGN_OR_RETURN(lists_, plugin_.lists());
  return {};
}

Expected<void> Worker::startRuntime() {
  auto folders = Placeholders::open(host::LaunchTarget::kFolderCount);
  if (!folders) {
    return fail(kServiceFailed, folders.error());
  }
  folders_ = std::move(*folders);
  auto runtime = loadRuntime();
  if (!runtime) {
    return fail(kRuntimeFailed, runtime.error());
  }
  runtime_ = std::move(*runtime);
  const host::Requirements requirements{{{}, {}, key_.settings}, {}, key_.additions};
  auto plan = host::planPrepared(folders_.paths(), lists_, requirements,
                                 managedAssembly(config_.plugin).string());
  resolution::addHostpolicy(plan.properties, findTerminalSetup);
  rehearses_ = canRehearse(plan.properties);
  trusted_ = plan.assemblies.trusted();
  const host::ScopedJitThreadKeepAlive lasting;
  variablesAtStart_ = currentVariables();
  const auto started = runtime_->start(config_.executable, "launchpad", plan.properties);
  if (!started) {
    return fail(kRuntimeFailed, started.error());
  }
  return {};
}

Expected<void> Worker::warmUpRuntime() {
  // Descriptors 1 and 2 must be final before managed code first uses the console.
  if (!key_.raw) {
    plugin_.captureOutput();
  }
  plugin_.setRuntime(*runtime_);
  plugin_.preload();
  if (auto bound = managed_.bind(*runtime_); !bound) {
    return fail(kRuntimeFailed, bound.error());
  }
  variablesAtWarmUp_ = currentVariables();
  managed_.warmUp(host::propertiesOfApplication(target_, lists_, key_.additions));
  if (rehearses_) {
    rehearse();
  }
  return {};
}

// Runs a Main that does nothing, so that the runtime's path to Main is compiled. The application's
// run replaces what this one sets: entry assembly, command line and exit status. The thread stays
// in that Main until the process ends.
void Worker::rehearse() {
  managed_.beginRehearsal();
  std::thread([runtime = *runtime_, assembly = managedAssembly(config_.plugin).string()]() mutable {
    const auto ended = runtime.execute(assembly, {});
    tell(ended ? Failure{"the rehearsal of a launch has ended", {}} : ended.error());
    _exit(kRuntimeFailed);
  }).detach();
  managed_.awaitRehearsal();
}

// For a worker that knows its application: loads the assembly and compiles Main. In a direct launch
// the runtime does the same before it runs any code of the application.
Expected<void> Worker::prepareApplication() {
  if (!key_.application) {
    return {};
  }
  target_.application.id = key_.application->id;
  target_.package.rootPath = key_.application->packageRoot;
  target_.assembly = key_.application->assembly;
  // Before the placeholders lead to its folder; see Launchpad.LoadApplication().
  files_.record({target_.assembly});
  if (!managed_.loadApplication(target_.assembly)) {
    endUnsuitable("its assembly cannot be loaded");
  }
  folders_.redirect(target_.folders());
  std::vector<std::string> own = key_.additions.assemblies;
  const auto folders = target_.folders();
  for (size_t i = 0; i < folders.size(); ++i) {
    addAssemblies(own, folders[i], folders_.paths().at(i));
  }
  files_.record(own);
  if (canCompileMain(own) && !managed_.compileMain()) {
    endUnsuitable("its Main needs an assembly that is not in its own folders");
  }
  const auto loaded = managed_.loadedFiles();
  if (!loaded || !files_.keep(*loaded, trusted_)) {
    endUnsuitable("its Main needs an assembly that is not in its own folders");
  }
  return assignToRuntime({});
}

// Whether Main can be compiled without running code of the application or changing what it finds
// out. Startup hooks run before, and may provide assemblies. A module initializer of an assembly
// that Main uses would run.
bool Worker::canCompileMain(const std::vector<std::string>& own) const {
  const auto hasInitializer = [](const std::string& file) {
    return host::hasModuleInitializer(std::filesystem::path(file));
  };
  return rehearses_ && !hasInitializer(target_.assembly) &&
         std::none_of(own.begin(), own.end(), hasInitializer) &&
         std::none_of(trusted_.begin(), trusted_.end(), hasInitializer);
}

// The server kills this process when it gets the message.
void Worker::endUnsuitable(const std::string& why) {
  tell({"no process of its own is prepared for '" + target_.application.id + "': " + why,
        "its launches use the other prepared processes"});
  sendMessage(channel_.get(), MessageKind::kUnsuitable);
  _exit(kServiceFailed);
}

Expected<void> Worker::awaitAssignment() {
  auto assignment = parseAssignment(awaitMessage(channel_, MessageKind::kAssign));
  if (!assignment) {
    return fail(kServiceFailed, {"the launch pad sent a malformed launch", {}});
  }
  target_ = std::move(assignment->target);
  limits_ = std::move(assignment->limits);
  client_ = std::move(assignment->connection);
  return {};
}

Expected<void> Worker::takeOver() {
  const TraceSpan span("take the launch over");
  auto handOver = parseHandOver(awaitMessage(client_, MessageKind::kHandOver));
  if (!handOver) {
    return fail(kServiceFailed, {"the client sent a malformed launch", {}});
  }
  arguments_ = std::move(handOver->arguments);
  replaceEnvironment(std::move(handOver->environment), changes_);
  setenv(host::kAppIdVariable, target_.application.id.c_str(), 1);
  RETURN_IF_FAILED(takeOverDescriptors(*handOver));
  applyProcessState(*handOver);
  if (!files_.areCurrent()) {
    _exit(kServiceFailed);  // the client asks for another process
  }
  sendMessage(client_.get(), MessageKind::kTakenOver);
  return {};
}

// The descriptors of the launch were received at low numbers, which the application needs.
Expected<void> Worker::takeOverInherited(HandOver& handOver) {
  if (handOver.inherited.empty()) {
    return {};
  }
  RETURN_IF_FAILED(raise(client_));
  RETURN_IF_FAILED(raise(handOver.logFile));
  for (Descriptor& descriptor : handOver.standard) {
    RETURN_IF_FAILED(raise(descriptor));
  }
  for (Descriptor& descriptor : handOver.inherited) {
    RETURN_IF_FAILED(raise(descriptor));
  }
  return duplicateTo(handOver.inheritedDescriptors, handOver.inherited);
}

// If output is captured, descriptors 1 and 2 already refer to the plug-in's pipes, and only the
// duplicates that the runtime made before are redirected to the client's.
Expected<void> Worker::takeOverDescriptors(HandOver& handOver) {
  RETURN_IF_FAILED(takeOverInherited(handOver));
  for (int which = STDIN_FILENO; which <= STDERR_FILENO; ++which) {
    stdio_.redirect(which, handOver.standard[static_cast<size_t>(which)].get());
  }
  moveTerminal(handOver.standard[STDERR_FILENO].get());
  workstation::LogConfig log = handOver.log;
  log.descriptor = handOver.logFile.release();
  workstation::useLog(log);
  return {};
}

void Worker::applyProcessState(const HandOver& handOver) const {
  umask(handOver.umask);
  ignoreSignals(handOver.ignoredSignals);
  adoptLimits(limits_);
  if (!device::changeTo(handOver.workingDirectory)) {
    host::useOwnFolder(target_, handOver.workingDirectory.path);
  }
}

Expected<void> Worker::giveToRuntime() {
  const TraceSpan span("give the application to the runtime");
  const Variables now = currentVariables();
  auto variables = changesBetween(variablesAtStart_, now);
  variables.merge(changesBetween(variablesAtWarmUp_, now));
  return assignToRuntime(variables);
}

// A worker that knows its application has set the properties before it had the launch.
Expected<void> Worker::assignToRuntime(const EnvironmentChanges& variables) {
  host::RuntimeProperties properties;
  if (!std::exchange(hasProperties_, true)) {
    resolution::setHostpolicyApplication(target_.assembly);
    properties = host::propertiesOfApplication(target_, lists_, key_.additions);
  }
  if (!managed_.assign(properties, variables)) {
    return fail(kRuntimeFailed, {"the runtime refuses the application's properties", {}});
  }
  return {};
}

Expected<void> Worker::configureApplication() {
  RETURN_IF_FAILED(giveToRuntime());
  awaitMessage(channel_, MessageKind::kNoted);
  RETURN_IF_FAILED(plugin_.setApplication());
  plugin_.beforeExecute();
  if (const auto warning = resolution::warningAbout(target_.application.id, key_.additions)) {
    tell(*warning);
  }
  return {};
}

Expected<unsigned> Worker::executeAssembly() {
  const TraceSpan span("coreclr_execute_assembly: Main");
  return runtime_->execute(target_.assembly, arguments_);
}

Expected<int> Worker::execute() {
  // A client that has given up launches the application itself.
  if (!sendMessage(client_.get(), MessageKind::kStarted)) {
    _exit(kServiceFailed);
  }
  client_.reset();
  sendMessage(channel_.get(), MessageKind::kStarted);
  channel_.reset();
  auto ended = executeAssembly();
  plugin_.finalize();
  const int latched = runtime_->shutDown();
  if (!ended) {
    return fail(kNotExecutable, ended.error());
  }
  return latched;
}

}  // namespace

void runWorker(const WorkerConfig& config, const PoolKey& key, pid_t server, Descriptor channel) {
  Worker worker(config, key, server, std::move(channel));
  const auto ended = worker.run();
  if (ended) {
    std::exit(*ended);
  }
  tell(ended.error());
  std::exit(ended.error().status);
}

}  // namespace quillon::launchpad
