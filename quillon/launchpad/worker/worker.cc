#include "quillon/launchpad/worker/worker.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <thread>

#include "device_paths.h"
#include "quillon/base/terminal.h"
#include "quillon/device/working_directory.h"
#include "quillon/host/application/application_id.h"
#include "quillon/host/application/working_directory.h"
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
#include "quillon/launchpad/worker/managed_side.h"
#include "quillon/launchpad/worker/placeholders.h"
#include "quillon/launchpad/worker/process_setup.h"
#include "quillon/launchpad/worker/stdio.h"
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

// Waits for a message of one kind. If the peer has ended, so does the process: since it has not
// sent kTakenOver, the client launches without it.
Message awaitMessage(const Descriptor& socket, MessageKind kind) {
  Message message;
  if (receiveMessage(socket.get(), message) != Received::kMessage || message.kind != kind) {
    _exit(kServiceFailed);
  }
  return message;
}

// Duplicates the inherited descriptors to the numbers that they have in the client.
Expected<void> takeOverInherited(const std::vector<Descriptor>& descriptors,
                                 const std::vector<int>& numbers) {
  for (size_t i = 0; i < numbers.size() && i < descriptors.size(); ++i) {
    const int number = numbers[i];
    if (fcntl(number, F_GETFD) >= 0) {
      return fail(kServiceFailed, {"descriptor " + std::to_string(number) +
                                       " of the caller is already in use in the prepared process",
                                   {}});
    }
    dup2(descriptors[i].get(), number);
  }
  return {};
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
  Expected<void> awaitAssignment();
  Expected<void> takeOver();
  Expected<void> takeOverDescriptors(HandOver& handOver);
  void applyProcessState(const HandOver& handOver) const;
  Expected<void> configureApplication();
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
  sendMessage(channel_.get(), MessageKind::kReady);
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
  host::registerMembarrier();
  RETURN_IF_FAILED(initializePlugin());
  // Nothing after this needs capabilities: the plug-in has entered the zone and saved its lists.
  dropCapabilities();
  setParentDeathSignal(server_);
  RETURN_IF_FAILED(startRuntime());
  RETURN_IF_FAILED(warmUpRuntime());
  workstation::cachePackages();
  changes_ = changesSince(config_.environment);
  changes_.insert(config_.changes.begin(), config_.changes.end());
  changes_.emplace("TMPDIR", std::nullopt);  // a device root has none, even if the client has
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
      sendMessage(channel_.get(), MessageKind::kUnknownType);
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
  resolution::addHostpolicy(plan.properties);
  rehearses_ = canRehearse(plan.properties);
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
  auto handOver = parseHandOver(awaitMessage(client_, MessageKind::kHandOver));
  if (!handOver) {
    return fail(kServiceFailed, {"the client sent a malformed launch", {}});
  }
  arguments_ = std::move(handOver->arguments);
  replaceEnvironment(std::move(handOver->environment), changes_);
  setenv(host::kAppIdVariable, target_.application.id.c_str(), 1);
  RETURN_IF_FAILED(takeOverDescriptors(*handOver));
  applyProcessState(*handOver);
  sendMessage(client_.get(), MessageKind::kTakenOver);
  return {};
}

// If output is captured, descriptors 1 and 2 already refer to the plug-in's pipes, and only the
// duplicates that the runtime made before are redirected to the client's.
Expected<void> Worker::takeOverDescriptors(HandOver& handOver) {
  RETURN_IF_FAILED(takeOverInherited(handOver.inherited, handOver.inheritedDescriptors));
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
  adoptLimits(limits_);
  if (!device::changeTo(handOver.workingDirectory)) {
    host::useOwnFolder(target_, handOver.workingDirectory.path);
  }
}

Expected<void> Worker::configureApplication() {
  const Variables now = currentVariables();
  auto variables = changesBetween(variablesAtStart_, now);
  variables.merge(changesBetween(variablesAtWarmUp_, now));
  resolution::setHostpolicyApplication(target_.assembly);
  if (!managed_.assign(host::propertiesOfApplication(target_, lists_, key_.additions), variables)) {
    return fail(kRuntimeFailed, {"the runtime refuses the application's properties", {}});
  }
  RETURN_IF_FAILED(plugin_.setApplication());
  plugin_.beforeExecute();
  if (const auto warning = resolution::warningAbout(target_.application.id, key_.additions)) {
    tell(*warning);
  }
  return {};
}

Expected<int> Worker::execute() {
  // A client that has given up launches the application itself.
  if (!sendMessage(client_.get(), MessageKind::kStarted)) {
    _exit(kServiceFailed);
  }
  client_.reset();
  sendMessage(channel_.get(), MessageKind::kStarted);
  channel_.reset();
  auto ended = runtime_->execute(target_.assembly, arguments_);
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
