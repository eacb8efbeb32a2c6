#include "quillon/launchpad/server/server.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <iostream>

#include "device_paths.h"
#include "quillon/base/exit_status.h"
#include "quillon/base/files.h"
#include "quillon/base/record.h"
#include "quillon/base/terminal.h"
#include "quillon/device/device_root.h"
#include "quillon/host/application/target.h"
#include "quillon/host/plugin/plugin_library.h"
#include "quillon/launchpad/protocol/address.h"
#include "quillon/launchpad/protocol/assignment.h"
#include "quillon/launchpad/server/clients.h"
#include "quillon/launchpad/server/debugger_files.h"
#include "quillon/launchpad/server/fingerprint.h"
#include "quillon/launchpad/server/pools.h"
#include "quillon/launchpad/server/zone_view.h"
#include "quillon/launchpad/worker/managed_side.h"
#include "quillon/launchpad/worker/worker.h"
#include "workstation/packages.h"

namespace quillon::launchpad {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kMostDeaths = 2;  // one try, and one again
// Commands ask as soon as they are connected.
constexpr std::chrono::seconds kLongestSilence(1);
constexpr std::chrono::milliseconds kPauseWithoutRoom(100);

// Whoever starts the launch pad may ignore signals, which every application would then: as from a
// terminal, none is.
void resetSignalDispositions() {
  for (int signal = 1; signal < NSIG; ++signal) ::signal(signal, SIG_DFL);
}

// No application is to find what somebody left open for the launch pad.
void closeInherited() {
  for (const int fd : ProcSelf().inheritedDescriptors()) close(fd);
}

// Each command has a descriptor here, and a few more for a moment. Applications get their own
// limit.
void allowManyDescriptors() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

// Whether there are as many left as the launches of several commands need.
bool hasSpareDescriptors(int any) {
  constexpr rlim_t kSpare = 2 * kMaxDescriptors;
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const Descriptor lowest(fcntl(any, F_DUPFD_CLOEXEC, 0));
  return lowest && static_cast<rlim_t>(lowest.get()) + kSpare <= limit.rlim_cur;
}

sigset_t blockedSignals() {
  sigset_t blocked;
  sigprocmask(SIG_BLOCK, nullptr, &blocked);
  return blocked;
}

Descriptor openSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return Descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

class Server {
 public:
  Server(const LaunchpadOptions& options, WorkerConfig config, ProcessState shape,
         Descriptor listener, ZoneView zone);

  void run();

 private:
  // Something to wait for: a descriptor, and what to do when it can be read.
  struct Watch {
    int descriptor;
    std::function<void()> act;
  };

  std::vector<Watch> watches();
  void watchProcesses(std::vector<Watch>& watches);
  void waitAndAct(std::chrono::milliseconds atMost);

  void accept();
  void makeRoom();
  [[nodiscard]] bool hasRoom() const;
  void onReadable(uint64_t client);
  bool onReadable(Process& process);
  void answer(uint64_t number, Message packet);
  void handleSignals();

  void launch(uint64_t number, Message packet);
  Expected<std::shared_ptr<const Entry>> check(const Request& request);
  Expected<void> compare(const Request& request) const;
  bool assign(uint64_t number);
  void decline(uint64_t client, const std::string& why);
  void endClient(uint64_t number);

  void reap(uint64_t process);
  void processEnded(const Process& process, const ExitState& ending);
  void retry(uint64_t client);

  void stopOrKill();
  std::string status();
  void becomeWorker(const PoolKey& key, Descriptor channel);

  const pid_t launchPad_ = getpid();
  const WorkerConfig config_;
  const ProcessState shape_;
  const Limits limits_ = currentLimits();
  Descriptor listener_;
  ZoneView zone_;
  Descriptor signals_;
  Clients clients_;
  uint64_t nextClient_ = 1;
  Clock::time_point acceptAgain_;
  Catalogue catalogue_;
  Pools pools_;
  bool stopping_ = false;
};

Server::Server(const LaunchpadOptions& options, WorkerConfig config, ProcessState shape,
               Descriptor listener, ZoneView zone)
    : config_(std::move(config)),
      shape_(std::move(shape)),
      listener_(std::move(listener)),
      zone_(std::move(zone)),
      signals_(openSignals()),
      pools_(
          {options.size, std::chrono::milliseconds(static_cast<long>(options.refillDelay * 1000)),
           [this] { return currentFingerprint(config_.plugin); }},
          [this](const PoolKey& key, Descriptor channel) {
            becomeWorker(key, std::move(channel));
          }) {
  for (const PoolKey& key : catalogue_.keysOfInstalled(options.types)) pools_.want(key);
}

void Server::run() {
  while (!stopping_ || !pools_.isEmpty()) waitAndAct(pools_.refill());
}

std::vector<Server::Watch> Server::watches() {
  std::vector<Watch> all;
  if (hasRoom()) all.push_back({listener_.get(), [this] { accept(); }});
  all.push_back({signals_.get(), [this] { handleSignals(); }});
  for (const auto& [number, client] : clients_) {
    all.push_back({client.socket.get(), [this, client = number] { onReadable(client); }});
  }
  watchProcesses(all);
  return all;
}

// What a process said is heard before its end.
void Server::watchProcesses(std::vector<Watch>& watches) {
  for (const Process* process : pools_.all()) {
    const uint64_t number = process->number;
    const auto hearIt = [this, number] {
      if (Process* const found = pools_.find(number)) onReadable(*found);
    };
    if (process->channel) watches.push_back({process->channel.get(), hearIt});
    watches.push_back({process->pidfd.get(), [this, number] { reap(number); }});
  }
}

void Server::waitAndAct(std::chrono::milliseconds atMost) {
  if (!hasRoom() && (atMost.count() < 0 || atMost > kPauseWithoutRoom)) atMost = kPauseWithoutRoom;
  const std::vector<Watch> all = watches();
  std::vector<pollfd> events;
  for (const Watch& watch : all) events.push_back({watch.descriptor, POLLIN, 0});
  if (poll(events.data(), events.size(), static_cast<int>(atMost.count())) <= 0) return;
  for (size_t i = 0; i < all.size(); ++i) {
    if (events[i].revents != 0) all[i].act();
  }
}

void Server::accept() {
  while (hasSpareDescriptors(listener_.get())) {
    Descriptor socket = acceptFrom(listener_.get());
    if (!socket && errno != ENFILE) return;
    if (!socket) break;
    Client& client = clients_[nextClient_++];
    client.socket = std::move(socket);
    client.since = Clock::now();
  }
  makeRoom();
}

// The next command waits for a moment, and those that asked for nothing wait no longer.
void Server::makeRoom() {
  const auto now = Clock::now();
  std::erase_if(clients_, [&](const auto& entry) {
    const Client& client = entry.second;
    return !client.launch && !client.awaitsEnd && now - client.since > kLongestSilence;
  });
  acceptAgain_ = now + kPauseWithoutRoom;
}

bool Server::hasRoom() const { return Clock::now() >= acceptAgain_; }

void Server::onReadable(uint64_t client) {
  const auto found = clients_.find(client);
  if (found == clients_.end()) return;
  Message packet;
  switch (receiveMessageNow(found->second.socket.get(), packet)) {
    case Received::kMessage:
      answer(client, std::move(packet));
      break;
    case Received::kEnd:
      endClient(client);
      break;
    case Received::kNothingYet:
      break;
  }
}

void Server::answer(uint64_t number, Message packet) {
  Client& client = clients_[number];
  if (client.launch) return endClient(number);  // nobody who waits for one says anything
  switch (packet.kind) {
    case MessageKind::kLaunch:
      launch(number, std::move(packet));
      break;
    case MessageKind::kStatus:
      sendMessage(client.socket.get(), MessageKind::kAnswer, status());
      clients_.erase(number);
      break;
    case MessageKind::kReload:
      pools_.renew();
      clients_.erase(number);
      break;
    case MessageKind::kStop:
      client.awaitsEnd = true;
      stopOrKill();
      break;
    default:
      clients_.erase(number);
  }
}

void Server::launch(uint64_t number, Message packet) {
  auto arrived = openRequest(std::move(packet));
  if (!arrived) return endClient(number);
  auto entry = check(arrived->request);
  if (!entry) return decline(number, entry.error().what);
  pools_.want((*entry)->key);
  pools_.discardAllBut(currentFingerprint(config_.plugin));
  clients_[number].launch = Launch{std::move(*arrived), std::move(*entry)};
  if (!assign(number)) decline(number, "no process is ready for it");
}

// What the application would be launched as, where a prepared process can do it.
Expected<std::shared_ptr<const Entry>> Server::check(const Request& request) {
  if (stopping_) return fail("the launch pad is about to stop");
  RETURN_IF_FAILED(compare(request));
  auto entry = catalogue_.find(request);
  if (entry && host::entersZone((*entry)->target.type) && !zone_.isCurrent()) {
    return fail("the security zone is another one than at the launch pad's start");
  }
  return entry;
}

Expected<void> Server::compare(const Request& request) const {
  const std::string difference = firstDifference(shape_, request.shape);
  if (!difference.empty()) return fail(difference + " differs from the launch pad's");
  if (!canTakeOver(limits_, request.limits)) {
    return fail("its resource limits are higher than the launch pad's");
  }
  return {};
}

// False where no process is ready. The asking command is told first: what is not told to have been
// taken it may launch itself.
bool Server::assign(uint64_t number) {
  Client& client = clients_[number];
  Launch& launch = *client.launch;
  Process* const process = pools_.take(launch.entry->key);
  if (process == nullptr) return false;
  process->client = number;
  launch.process = process->number;
  const auto& target = launch.entry->target;
  const auto noted = workstation::registerProcess(process->pid, target.package.id);
  if (!noted) tell(noted.error());
  if (!sendMessage(client.socket.get(), MessageKind::kTaken,
                   RecordWriter().number(static_cast<uint64_t>(process->pid)).bytes(),
                   {process->pidfd.get()})) {
    return true;  // the command has ended, which its socket will tell
  }
  if (!sendAssignment(process->channel.get(), target, launch.arrived.packet)) {
    killProcess(*process);
  }
  return true;
}

void Server::decline(uint64_t client, const std::string& why) {
  sendMessage(clients_[client].socket.get(), MessageKind::kDeclined, why);
  clients_.erase(client);
}

// An application ends with its asking command, as if they were one process.
void Server::endClient(uint64_t number) {
  const auto found = clients_.find(number);
  if (found == clients_.end()) return;
  if (found->second.launch) {
    if (Process* const process = pools_.find(found->second.launch->process)) {
      process->client = 0;
      killProcess(*process);
    }
  }
  clients_.erase(found);
}

// False where it has nothing more to say for now.
bool Server::onReadable(Process& process) {
  Message packet;
  const Received received = receiveMessageNow(process.channel.get(), packet);
  if (received == Received::kEnd) process.channel.reset();
  if (received != Received::kMessage) return false;
  if (packet.kind == MessageKind::kReady) pools_.noteReady(process);
  if (packet.kind == MessageKind::kTakenOver) process.tookOver = true;
  if (packet.kind == MessageKind::kStarted && process.stage == Stage::kAssigned) {
    pools_.noteServed(process);
    const auto client = clients_.find(process.client);
    // Its descriptors are the application's alone from here on.
    if (client != clients_.end()) client->second.launch->arrived = {};
  }
  return true;
}

void Server::reap(uint64_t number) {
  Process* const process = pools_.find(number);
  if (process == nullptr) return;
  while (process->channel && onReadable(*process)) {
  }
  const auto ending = endingOf(*process);
  if (!ending) return;
  const uint64_t client = process->client;
  const bool hasBegun = process->stage == Stage::kRunning;
  // One that had all of its launch and ended by itself has said why: the plug-in refused, or the
  // launch failed.
  const bool saidWhy = process->tookOver && !ending->bySignal;
  // The plug-in knows no such application type.
  if (process->stage == Stage::kPreparing && !ending->bySignal && ending->number == kUsage) {
    pools_.drop(process->key);
  }
  pools_.noteEnded(number);
  if (clients_.find(client) == clients_.end()) return workstation::forgetEndedProcesses();
  if (!hasBegun && !saidWhy) return retry(client);
  sendMessage(clients_[client].socket.get(), MessageKind::kEnded, toBytes(*ending));
  clients_.erase(client);
  workstation::forgetEndedProcesses();
}

void Server::retry(uint64_t client) {
  Launch& launch = *clients_[client].launch;
  if (++launch.deaths < kMostDeaths && assign(client)) return;
  decline(client, "the prepared process died before the application began");
}

void Server::handleSignals() {
  signalfd_siginfo info{};
  while (read(signals_.get(), &info, sizeof info) == sizeof info) {
    info.ssi_signo == SIGHUP ? pools_.renew() : stopOrKill();
  }
}

void Server::stopOrKill() {
  if (stopping_) return pools_.killAll();
  stopping_ = true;
  pools_.close();
}

std::string Server::status() {
  return std::string(stopping_ ? "stopping" : "serving") + ", process " + std::to_string(getpid()) +
         "\n" + pools_.describe();
}

// In a fresh child: what is the launch pad's alone is let go of.
void Server::becomeWorker(const PoolKey& key, Descriptor channel) {
  clients_.clear();
  listener_.reset();
  zone_.close();
  signals_.reset();
  runWorker(config_, key, launchPad_, std::move(channel));
}

Expected<void> enterDevice(const LaunchpadOptions& options, const WorkerConfig& config) {
  device::EnterOptions view;
  view.visible = {config.executable.parent_path().parent_path(), config.plugin.parent_path()};
  auto entered = device::enter(options.device, view);
  if (entered) return {};
  return tl::unexpected(entered.error());
}

Expected<void> requireParts(const LaunchpadOptions& options, const WorkerConfig& config) {
  std::error_code ignored;
  if (!fs::exists(config.plugin, ignored)) {
    return fail(kNoPlugin, {"the plug-in '" + config.plugin.string() + "' is missing",
                            "build the target quillon-tv-plugin"});
  }
  if (const fs::path own = managedAssembly(config.plugin); !fs::exists(own, ignored)) {
    return fail(kNoRuntime, {"the launch pad's own assembly '" + own.string() + "' is missing",
                             "build the target 'managed' where there is a .NET SDK"});
  }
  if (!fs::exists(fs::path(device_paths::kNetcoreapp) / "libcoreclr.so", ignored)) {
    return fail(kNoRuntime, {"the device root has no .NET runtime",
                             "quillon device init " + options.device.string()});
  }
  return {};
}

Expected<void> run(const LaunchpadOptions& options) {
  std::error_code ignored;
  const fs::path executable = executablePath();
  WorkerConfig config{executable, host::defaultPlugin(executable), currentEntries(),
                      blockedSignals()};
  ProcessState shape = processStateOf(ProcSelf());
  if (shape.empty()) {
    return fail(kServiceFailed, {"/proc does not tell what this process is", "mount it (proc(5))"});
  }
  const std::string address = addressOf(options.device);
  if (address.empty()) {
    return fail(kNoDeviceRoot, {"there is no folder '" + options.device.string() + "'",
                                "make a device root: quillon device init DIR"});
  }
  ZoneView zone(options.device);
  auto listener = listenAt(address, options.device);
  if (!listener) return fail(kLaunchPadState, listener.error());
  RETURN_IF_FAILED(enterDevice(options, config));
  RETURN_IF_FAILED(requireParts(options, config));
  removeDebuggerFilesOfDead();  // of a launch pad before this one that was killed
  Server(options, std::move(config), std::move(shape), std::move(*listener), std::move(zone)).run();
  return {};
}

}  // namespace

int serve(const LaunchpadOptions& options) {
  keepTerminal();
  resetSignalDispositions();
  closeInherited();
  allowManyDescriptors();
  const auto ended = run(options);
  if (ended) return kSuccess;
  tell(ended.error());
  return ended.error().status;
}

}  // namespace quillon::launchpad
