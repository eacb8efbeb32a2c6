#include "quillon/launchpad/worker/worker.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "device_paths.h"
#include "quillon/base/terminal.h"
#include "quillon/host/application/application_id.h"
#include "quillon/host/membarrier.h"
#include "quillon/host/plugin/plugin_calls.h"
#include "quillon/host/runtime/framework_check.h"
#include "quillon/host/runtime/runtime.h"
#include "quillon/host/runtime/runtime_config.h"
#include "quillon/host/runtime/runtime_settings.h"
#include "quillon/host/runtime_plan.h"
#include "quillon/launchpad/protocol/assignment.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/worker/managed_side.h"
#include "quillon/launchpad/worker/placeholders.h"
#include "quillon/launchpad/worker/process_setup.h"
#include "quillon/launchpad/worker/stdio.h"
#include "workstation/log_config.h"
#include "workstation/packages.h"

namespace quillon::launchpad {
namespace {

Expected<host::Runtime> loadRuntime() {
  const host::ScopedLttngOff lttngOff;
  return host::Runtime::load(device_paths::kNetcoreapp);
}

// Whether an application that does nothing leaves nothing behind: earlier runtimes make an event
// source each time that one runs, and startup hooks are the launch's.
bool canRehearse(const host::RuntimeProperties& properties) {
  constexpr char kFirstRuntime[] = "10.0.0";
  const std::string version = host::frameworkVersionOf(device_paths::kNetcoreapp);
  return !version.empty() && host::serves(version, kFirstRuntime) &&
         std::none_of(properties.begin(), properties.end(),
                      [](const auto& property) { return property.first == "STARTUP_HOOKS"; });
}

class Worker {
 public:
  Worker(const WorkerConfig& config, const PoolKey& key, pid_t launchPad, Descriptor channel)
      : config_(config), key_(key), launchPad_(launchPad), channel_(std::move(channel)) {
    target_.type = key.type;
  }

  Expected<int> run();

 private:
  Expected<void> prepare();
  Expected<void> askPlugin();
  Expected<void> startRuntime();
  Expected<void> prepareRuntime();
  Expected<void> rehearse();
  void awaitAssignment(Message& packet);
  Expected<void> takeOver(Message& packet);
  void become(const Request& request);
  [[nodiscard]] bool takeDescriptorsOver(RequestDescriptors descriptors, const Request& request);
  Expected<void> tellApplication();
  Expected<int> execute();

  const WorkerConfig& config_;
  const PoolKey& key_;
  const pid_t launchPad_;
  Descriptor channel_;
  host::LaunchTarget target_;
  host::PluginCalls plugin_;
  host::PluginLists lists_;
  StdioPlaceholders standard_;
  Placeholders folders_;
  std::optional<host::Runtime> runtime_;
  bool rehearses_ = false;
  ManagedSide managed_;
  EnvironmentChanges changes_;  // by the preparation
  Variables seenByRuntime_;     // its own copy is of its start
  Variables seenByWarmUp_;      // or of this moment
  std::vector<std::string> arguments_;
  Descriptor began_;  // where the asking command is told
};

Expected<int> Worker::run() {
  RETURN_IF_FAILED(prepare());
  sendMessage(channel_.get(), MessageKind::kReady);
  Message packet;
  awaitAssignment(packet);
  RETURN_IF_FAILED(takeOver(packet));
  RETURN_IF_FAILED(tellApplication());
  return execute();
}

Expected<void> Worker::prepare() {
  setParentDeathSignal(launchPad_);
  detachFromLaunchPad(config_.blocked);
  if (!standard_.open()) return fail(kServiceFailed, {"cannot make a memory file", {}});
  host::registerMembarrier();
  RETURN_IF_FAILED(askPlugin());
  // The zone that the plug-in may have entered and the lists that it may have saved were the last
  // to need any.
  dropCapabilities();
  setParentDeathSignal(launchPad_);
  RETURN_IF_FAILED(startRuntime());
  RETURN_IF_FAILED(prepareRuntime());
  workstation::cachePackages();
  changes_ = changesSince(config_.environment);
  changes_.emplace("TMPDIR", std::nullopt);  // unset in a device root, whoever had it
  standard_.findDuplicates();
  return {};
}

Expected<void> Worker::askPlugin() {
  auto library = host::loadPlugin(config_.plugin);
  if (!library) return fail(kNoPlugin, library.error());
  plugin_ = host::PluginCalls(*library, &target_);
  RETURN_IF_FAILED(plugin_.initialize());
  auto lists = plugin_.lists();
  if (!lists) return tl::unexpected(lists.error());
  lists_ = std::move(*lists);
  return {};
}

Expected<void> Worker::startRuntime() {
  auto folders = Placeholders::open(host::LaunchTarget::kFolderCount);
  if (!folders) return fail(kServiceFailed, folders.error());
  folders_ = std::move(*folders);
  auto runtime = loadRuntime();
  if (!runtime) return fail(kRuntimeFailed, runtime.error());
  runtime_ = std::move(*runtime);
  const auto plan = host::planPrepared(folders_.paths(), lists_, key_.settings,
                                       managedAssembly(config_.plugin).string());
  rehearses_ = canRehearse(plan.properties);
  const host::ScopedJitThreadKeepAlive keepAlive;
  seenByRuntime_ = currentVariables();
  const auto started = runtime_->start(config_.executable, "launchpad", plan.properties);
  if (!started) return fail(kRuntimeFailed, started.error());
  return {};
}

Expected<void> Worker::prepareRuntime() {
  // Before anything managed looks at the console: descriptors 1 and 2 are final then.
  if (!key_.raw) plugin_.captureOutput();
  plugin_.setRuntime(*runtime_);
  plugin_.preload();
  if (auto bound = managed_.bind(*runtime_); !bound) return fail(kRuntimeFailed, bound.error());
  seenByWarmUp_ = currentVariables();
  managed_.warmUp(host::propertiesOfApplication(target_, lists_));
  return rehearses_ ? rehearse() : Expected<void>();
}

// The runtime's way to Main. Where it was before is overwritten: the entry assembly, the command
// line and the exit status are those of the last one.
Expected<void> Worker::rehearse() {
  const auto ended = runtime_->execute(managedAssembly(config_.plugin).string(), {});
  if (!ended) return fail(kRuntimeFailed, ended.error());
  return {};
}

void Worker::awaitAssignment(Message& packet) {
  const auto received = receiveMessage(channel_.get(), packet);
  // Not told to have taken the launch over, so that the launch pad tries it on another process.
  if (received != Received::kMessage || packet.kind != MessageKind::kAssign) _exit(kServiceFailed);
}

Expected<void> Worker::takeOver(Message& packet) {
  auto assignment = readAssignment(packet);
  if (!assignment) return fail(kServiceFailed, {"the launch pad sent no launch", {}});
  Request* const request = &assignment->request;
  target_ = std::move(assignment->target);
  arguments_ = std::move(request->arguments);
  replaceEnvironment(request->environment, changes_);
  setenv(host::kAppIdVariable, target_.application.id.c_str(), 1);
  if (!takeDescriptorsOver(takeDescriptors(packet.descriptors, assignment->there), *request)) {
    return fail(kServiceFailed, {"a descriptor of the launch has the number of an own one", {}});
  }
  packet.descriptors.clear();
  become(*request);
  sendMessage(channel_.get(), MessageKind::kTakenOver);
  return {};
}

// Where output is captured, descriptors 1 and 2 lead to the plug-in's pipes already, and only what
// the runtime duplicated before is led to the asking command's.
bool Worker::takeDescriptorsOver(RequestDescriptors descriptors, const Request& request) {
  for (size_t i = 0; i < request.others.size(); ++i) {
    const int number = request.others[i];
    if (fcntl(number, F_GETFD) >= 0) return false;
    dup2(descriptors.others[i].get(), number);
  }
  for (int which = STDIN_FILENO; which <= STDERR_FILENO; ++which) {
    standard_.lead(which, descriptors.standard[static_cast<size_t>(which)].get());
  }
  moveTerminal(descriptors.standard[STDERR_FILENO].get());
  workstation::LogConfig log = request.log;
  log.descriptor = descriptors.log.release();
  workstation::useLog(log);
  began_ = std::move(descriptors.began);
  return true;
}

void Worker::become(const Request& request) {
  umask(request.umask);
  launchpad::takeOver(request.limits);
  if (request.workingDirectory.empty() || chdir(request.workingDirectory.c_str()) != 0) {
    [[maybe_unused]] const int result = chdir("/");
  }
}

Expected<void> Worker::tellApplication() {
  folders_.leadTo(target_.folders());
  const Variables now = currentVariables();
  auto variables = changesBetween(seenByRuntime_, now);
  variables.merge(changesBetween(seenByWarmUp_, now));
  if (!managed_.assign(host::propertiesOfApplication(target_, lists_), variables)) {
    return fail(kRuntimeFailed, {"the runtime does not take the application's properties", {}});
  }
  RETURN_IF_FAILED(plugin_.setApplication());
  plugin_.beforeExecute();
  return {};
}

Expected<int> Worker::execute() {
  signalStarted(began_.get());
  began_.reset();
  sendMessage(channel_.get(), MessageKind::kStarted);
  channel_.reset();
  auto ended = runtime_->execute(target_.assembly, arguments_);
  plugin_.finalize();
  const int latched = runtime_->shutDown();
  if (!ended) return fail(kNotExecutable, ended.error());
  return latched;
}

}  // namespace

void runWorker(const WorkerConfig& config, const PoolKey& key, pid_t launchPad,
               Descriptor channel) {
  Worker worker(config, key, launchPad, std::move(channel));
  const auto ended = worker.run();
  if (ended) std::exit(*ended);
  tell(ended.error());
  std::exit(ended.error().status);
}

}  // namespace quillon::launchpad
