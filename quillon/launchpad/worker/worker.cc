#include "quillon/launchpad/worker/worker.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "quillon/base/files.h"
#include "quillon/base/record.h"
#include "quillon/base/terminal.h"
#include "quillon/base/trace_span.h"
#include "quillon/host/application/application_id.h"
#include "quillon/host/membarrier.h"
#include "quillon/host/plugin/plugin_calls.h"
#include "quillon/launchpad/protocol/hand_over.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/worker/descriptor_numbers.h"
#include "quillon/launchpad/worker/own_application.h"
#include "quillon/launchpad/worker/prepared_runtime.h"
#include "quillon/launchpad/worker/process_setup.h"
#include "quillon/launchpad/worker/stdio.h"
#include "quillon/launchpad/worker/take_over.h"
#include "quillon/resolution/resolution.h"
#include "workstation/packages.h"

namespace quillon::launchpad {
namespace {

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
  Expected<void> warmUpRuntime();
  Expected<void> prepareApplication();
  [[noreturn]] void endUnsuitable(const std::string& why);
  void warmUpAgain() const;
  Expected<void> awaitAssignment();
  Expected<void> takeOver();
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
  std::optional<PreparedRuntime> runtime_;
  OwnApplication application_;
  EnvironmentChanges changes_;  // made by the preparation
  std::vector<std::string> arguments_;
  Limits limits_;
  Descriptor client_;  // a socket to it
};

Expected<int> Worker::run() {
  RETURN_IF_FAILED(prepare());
  sendMessage(channel_.get(), MessageKind::kReady, RecordWriter().number(memoryKib()).bytes());
  warmUpAgain();
  RETURN_IF_FAILED(awaitAssignment());
  runtime_->setFolders(target_);  // while the client sends the rest
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
  ASSIGN_OR_RETURN(auto runtime, PreparedRuntime::start(config_.executable, config_.plugin, key_,
                                                        std::move(lists_)));
  runtime_.emplace(std::move(runtime));
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

Expected<void> Worker::warmUpRuntime() {
  // Descriptors 1 and 2 must be final before managed code first uses the console.
  if (!key_.raw) {
    plugin_.captureOutput();
  }
  plugin_.setRuntime(runtime_->runtime());
  plugin_.preload();
  return runtime_->warmUp(target_);
}

Expected<void> Worker::prepareApplication() {
  if (!key_.application) {
    return {};
  }
  target_.application.id = key_.application->id;
  target_.package.rootPath = key_.application->packageRoot;
  target_.assembly = key_.application->assembly;
  if (const auto prepared = application_.prepare(target_, key_.additions, *runtime_); !prepared) {
    if (!application_.isCurrent()) {
      return fail(kServiceFailed, {"the files of '" + target_.application.id +
                                       "' changed while a process was prepared for it",
                                   {}});
    }
    endUnsuitable(prepared.error().what);
  }
  return runtime_->setApplication(target_);
}

// The server kills this process when it gets the message.
void Worker::endUnsuitable(const std::string& why) {
  tell({"no process of its own is prepared for '" + target_.application.id + "': " + why,
        "its launches use the other prepared processes"});
  sendMessage(channel_.get(), MessageKind::kUnsuitable);
  _exit(kServiceFailed);
}

// Does nothing if there is a launch before.
void Worker::warmUpAgain() const {
  pollfd assignment{channel_.get(), POLLIN, 0};
  if (poll(&assignment, 1, static_cast<int>(ManagedSide::kQuietTime.count())) == 0) {
    runtime_->managed().warmUpAgain();
  }
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
  RETURN_IF_FAILED(takeOverDescriptors(*handOver, stdio_, client_));
  takeOverProcessState(*handOver, limits_, target_);
  if (!application_.isCurrent()) {
    _exit(kServiceFailed);  // the client asks for another process
  }
  sendMessage(client_.get(), MessageKind::kTakenOver);
  return {};
}

Expected<void> Worker::configureApplication() {
  RETURN_IF_FAILED(runtime_->setApplicationAndEnvironment(target_));
  const bool hasBoostListener = parseNoted(awaitMessage(channel_, MessageKind::kNoted));
  RETURN_IF_FAILED(plugin_.setApplication(hasBoostListener));
  plugin_.beforeExecute();
  if (const auto warning = resolution::warningAbout(target_.application.id, key_.additions)) {
    tell(*warning);
  }
  return {};
}

Expected<unsigned> Worker::executeAssembly() {
  const TraceSpan span("coreclr_execute_assembly: Main");
  return runtime_->runtime().execute(target_.assembly, arguments_);
}

Expected<int> Worker::execute() {
  // A client that has given up launches the application itself.
  if (!sendMessage(client_.get(), MessageKind::kStarted)) {
    _exit(kServiceFailed);
  }
  client_.reset();
  sendStarted(channel_.get());
  channel_.reset();
  auto ended = executeAssembly();
  plugin_.finalize();
  const int latched = runtime_->runtime().shutDown();
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
