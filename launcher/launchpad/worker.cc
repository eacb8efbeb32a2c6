#include "launcher/launchpad/worker.h"

#include <device_paths.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <workstation/log_handover.h>
#include <workstation/packages.h>

#include <algorithm>
#include <cstdlib>

#include "launcher/application_id.h"
#include "launcher/framework_check.h"
#include "launcher/launchpad/assignment.h"
#include "launcher/launchpad/managed_side.h"
#include "launcher/launchpad/packet.h"
#include "launcher/launchpad/placeholders.h"
#include "launcher/launchpad/request.h"
#include "launcher/launchpad/stamp.h"
#include "launcher/launchpad/standard_places.h"
#include "launcher/launchpad/worker_process.h"
#include "launcher/plugin_calls.h"
#include "launcher/runtime.h"
#include "launcher/runtime_config.h"
#include "launcher/runtime_plan.h"
#include "launcher/runtime_settings.h"
#include "launcher/terminal.h"
#include "launcher/thread_barrier.h"

namespace quillon::launchpad {
namespace {

using launcher::Launched;
using launcher::stop;

Expected<launcher::Runtime> loadRuntime() {
  const launcher::WithoutIdleTracing quiet;
  return launcher::Runtime::load(device_paths::kNetcoreapp);
}

// Whether an application that does nothing leaves nothing behind: earlier runtimes make an event
// source each time that one runs, and startup hooks are the launch's.
bool canRehearse(const launcher::RuntimeProperties& properties) {
  constexpr char kFirstRuntime[] = "10.0.0";
  const std::string version = launcher::frameworkVersionOf(device_paths::kNetcoreapp);
  return !version.empty() && launcher::serves(version, kFirstRuntime) &&
         std::none_of(properties.begin(), properties.end(),
                      [](const auto& property) { return property.first == "STARTUP_HOOKS"; });
}

class Worker {
 public:
  Worker(const Workshop& workshop, const PoolKey& key, pid_t launchPad, Descriptor channel)
      : workshop_(workshop), key_(key), launchPad_(launchPad), channel_(std::move(channel)) {
    target_.type = key.type;
  }

  Launched<int> run();

 private:
  Launched<void> prepare();
  Launched<void> askPlugin();
  Launched<void> startRuntime();
  Launched<void> prepareRuntime();
  Launched<void> rehearse();
  void awaitAssignment(Packet& packet);
  Launched<void> takeOver(Packet& packet);
  void become(const Request& request);
  [[nodiscard]] bool takeDescriptorsOver(RequestDescriptors descriptors, const Request& request);
  Launched<void> tellApplication();
  Launched<int> execute();

  const Workshop& workshop_;
  const PoolKey& key_;
  const pid_t launchPad_;
  Descriptor channel_;
  std::string stamp_;
  launcher::LaunchTarget target_;
  launcher::PluginCalls plugin_;
  launcher::PluginLists lists_;
  StandardPlaces standard_;
  Placeholders folders_;
  std::optional<launcher::Runtime> runtime_;
  bool rehearses_ = false;
  ManagedSide managed_;
  EnvironmentChanges changes_;  // by the preparation
  Variables seenByRuntime_;     // its own copy is of its start
  Variables seenByWarmUp_;      // or of this moment
  std::vector<std::string> arguments_;
  Descriptor began_;  // where the asking command is told
};

Launched<int> Worker::run() {
  if (auto prepared = prepare(); !prepared) return tl::unexpected(prepared.error());
  sendPacket(channel_.get(), PacketKind::kReady, stamp_);
  Packet packet;
  awaitAssignment(packet);
  if (auto taken = takeOver(packet); !taken) return tl::unexpected(taken.error());
  if (auto told = tellApplication(); !told) return tl::unexpected(told.error());
  return execute();
}

Launched<void> Worker::prepare() {
  dieWith(launchPad_);
  detachFromLaunchPad(workshop_.blocked);
  if (!standard_.open()) return stop(kServiceFailed, {"cannot make a memory file", {}});
  launcher::registerThreadBarrier();
  stamp_ = currentStamp(workshop_.plugin);
  if (auto asked = askPlugin(); !asked) return asked;
  // The zone that the plug-in may have entered and the lists that it may have saved were the last
  // to need any.
  dropCapabilities();
  dieWith(launchPad_);
  if (auto started = startRuntime(); !started) return started;
  if (auto prepared = prepareRuntime(); !prepared) return prepared;
  workstation::rememberPackages();
  changes_ = changesSince(workshop_.environment);
  changes_.emplace("TMPDIR", std::nullopt);  // unset in a device root, whoever had it
  standard_.findDuplicates();
  return {};
}

Launched<void> Worker::askPlugin() {
  auto library = launcher::loadPlugin(workshop_.plugin);
  if (!library) return stop(kNoPlugin, library.error());
  plugin_ = launcher::PluginCalls(*library, &target_);
  if (auto known = plugin_.initialize(); !known) return known;
  auto lists = plugin_.lists();
  if (!lists) return tl::unexpected(lists.error());
  lists_ = std::move(*lists);
  return {};
}

Launched<void> Worker::startRuntime() {
  auto folders = Placeholders::open(launcher::LaunchTarget::kFolders);
  if (!folders) return stop(kServiceFailed, folders.error());
  folders_ = std::move(*folders);
  auto runtime = loadRuntime();
  if (!runtime) return stop(kRuntimeFailed, runtime.error());
  runtime_ = std::move(*runtime);
  const auto plan = launcher::planPrepared(folders_.paths(), lists_, key_.settings,
                                           managedAssembly(workshop_.plugin).string());
  rehearses_ = canRehearse(plan.properties);
  const launcher::WithLastingCompiler lasting;
  seenByRuntime_ = currentVariables();
  const auto started = runtime_->start(workshop_.executable, "launchpad", plan.properties);
  if (!started) return stop(kRuntimeFailed, started.error());
  return {};
}

Launched<void> Worker::prepareRuntime() {
  // Before anything managed looks at the console: descriptors 1 and 2 are final then.
  if (!key_.raw) plugin_.captureOutput();
  plugin_.setRuntime(*runtime_);
  plugin_.preload();
  if (auto bound = managed_.bind(*runtime_); !bound) return stop(kRuntimeFailed, bound.error());
  seenByWarmUp_ = currentVariables();
  managed_.warmUp(launcher::propertiesOfApplication(target_, lists_));
  return rehearses_ ? rehearse() : Launched<void>();
}

// The runtime's way to Main. Where it was before is overwritten: the entry assembly, the command
// line and the exit status are those of the last one.
Launched<void> Worker::rehearse() {
  const auto ended = runtime_->execute(managedAssembly(workshop_.plugin).string(), {});
  if (!ended) return stop(kRuntimeFailed, ended.error());
  return {};
}

void Worker::awaitAssignment(Packet& packet) {
  const auto received = receivePacket(channel_.get(), packet);
  // Not told to have taken the launch over, so that the launch pad tries it on another process.
  if (received != Received::kPacket || packet.kind != PacketKind::kAssign) _exit(kServiceFailed);
}

Launched<void> Worker::takeOver(Packet& packet) {
  auto assignment = readAssignment(packet);
  if (!assignment) return stop(kServiceFailed, {"the launch pad sent no launch", {}});
  Request* const request = &assignment->request;
  target_ = std::move(assignment->target);
  arguments_ = std::move(request->arguments);
  replaceEnvironment(request->environment, changes_);
  setenv(launcher::kAppIdVariable, target_.application.id.c_str(), 1);
  if (!takeDescriptorsOver(takeDescriptors(packet.descriptors, assignment->there), *request)) {
    return stop(kServiceFailed, {"a descriptor of the launch has the number of an own one", {}});
  }
  packet.descriptors.clear();
  become(*request);
  sendPacket(channel_.get(), PacketKind::kTakenOver);
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
  launcher::moveTerminal(descriptors.standard[STDERR_FILENO].get());
  workstation::LogHandover log = request.log;
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

Launched<void> Worker::tellApplication() {
  folders_.leadTo(target_.folders());
  const Variables now = currentVariables();
  auto variables = changesBetween(seenByRuntime_, now);
  variables.merge(changesBetween(seenByWarmUp_, now));
  if (!managed_.assign(launcher::propertiesOfApplication(target_, lists_), variables)) {
    return stop(kRuntimeFailed, {"the runtime does not take the application's properties", {}});
  }
  if (auto told = plugin_.setApplication(); !told) return told;
  plugin_.beforeExecute();
  return {};
}

Launched<int> Worker::execute() {
  tellBegun(began_.get());
  began_.reset();
  sendPacket(channel_.get(), PacketKind::kStarted);
  channel_.reset();
  auto ended = runtime_->execute(target_.assembly, arguments_);
  plugin_.finalize();
  const int latched = runtime_->shutDown();
  if (!ended) return stop(kNotExecutable, ended.error());
  return latched;
}

}  // namespace

void runWorker(const Workshop& workshop, const PoolKey& key, pid_t launchPad, Descriptor channel) {
  Worker worker(workshop, key, launchPad, std::move(channel));
  const auto ended = worker.run();
  if (ended) std::exit(*ended);
  launcher::tell(ended.error());
  std::exit(ended.error().status);
}

}  // namespace quillon::launchpad
