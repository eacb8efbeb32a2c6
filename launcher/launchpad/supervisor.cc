#include "launcher/launchpad/supervisor.h"

#include <device_paths.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <workstation/packages.h>

#include <cerrno>
#include <functional>
#include <iostream>

#include "launcher/launch_target.h"
#include "launcher/launchpad/address.h"
#include "launcher/launchpad/assignment.h"
#include "launcher/launchpad/client_table.h"
#include "launcher/launchpad/debugger_files.h"
#include "launcher/launchpad/managed_side.h"
#include "launcher/launchpad/pools.h"
#include "launcher/launchpad/stamp.h"
#include "launcher/launchpad/text_record.h"
#include "launcher/launchpad/worker.h"
#include "launcher/launchpad/zone_view.h"
#include "launcher/plugin_library.h"
#include "launcher/terminal.h"
#include "tools/device/device_root.h"
#include "tools/exit_status.h"

namespace quillon::launchpad {
namespace {

namespace fs = std::filesystem;
using launcher::Launched;
using launcher::stop;

constexpr unsigned kMostDeaths = 2;  // one try, and one again
// Commands ask as soon as they are connected.
constexpr std::chrono::seconds kLongestSilence(1);
constexpr std::chrono::milliseconds kPauseWithoutRoom(100);

// Whoever starts the launch pad may ignore signals, which every application would then: as from a
// terminal, none is.
void listenToAllSignals() {
  for (int signal = 1; signal < NSIG; ++signal) ::signal(signal, SIG_DFL);
}

// No application is to find what somebody left open for the launch pad.
void closeInherited() {
  for (const int fd : OwnProcess().inheritedDescriptors()) close(fd);
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
  constexpr rlim_t kSpare = 2 * kMostDescriptors;
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

class Supervisor {
 public:
  Supervisor(const LaunchpadOptions& options, Workshop workshop, ProcessShape shape,
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
  void hear(uint64_t client);
  bool hear(Process& process);
  void answer(uint64_t number, Packet packet);
  void handleSignals();

  void launch(uint64_t number, Packet packet);
  Expected<std::shared_ptr<const Entry>> check(const Request& request);
  Expected<void> compare(const Request& request) const;
  bool assign(uint64_t number);
  void decline(uint64_t client, const std::string& why);
  void endClient(uint64_t number);

  void reap(uint64_t process);
  void processEnded(const Process& process, const Ending& ending);
  void retry(uint64_t client);

  void stopOrKill();
  std::string status();
  void becomeWorker(const PoolKey& key, Descriptor channel);

  const pid_t launchPad_ = getpid();
  const Workshop workshop_;
  const ProcessShape shape_;
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

Supervisor::Supervisor(const LaunchpadOptions& options, Workshop workshop, ProcessShape shape,
                       Descriptor listener, ZoneView zone)
    : workshop_(std::move(workshop)),
      shape_(std::move(shape)),
      listener_(std::move(listener)),
      zone_(std::move(zone)),
      signals_(openSignals()),
      pools_(
          {options.size, std::chrono::milliseconds(static_cast<long>(options.refillDelay * 1000))},
          [this](const PoolKey& key, Descriptor channel) {
            becomeWorker(key, std::move(channel));
          }) {
  for (const PoolKey& key : catalogue_.keysOfInstalled(options.types)) pools_.want(key);
}

void Supervisor::run() {
  while (!stopping_ || !pools_.isEmpty()) waitAndAct(pools_.refill());
}

std::vector<Supervisor::Watch> Supervisor::watches() {
  std::vector<Watch> all;
  if (hasRoom()) all.push_back({listener_.get(), [this] { accept(); }});
  all.push_back({signals_.get(), [this] { handleSignals(); }});
  for (const auto& [number, client] : clients_) {
    all.push_back({client.socket.get(), [this, client = number] { hear(client); }});
  }
  watchProcesses(all);
  return all;
}

// What a process said is heard before its end.
void Supervisor::watchProcesses(std::vector<Watch>& watches) {
  for (const Process* process : pools_.all()) {
    const uint64_t number = process->number;
    const auto hearIt = [this, number] {
      if (Process* const found = pools_.find(number)) hear(*found);
    };
    if (process->channel) watches.push_back({process->channel.get(), hearIt});
    watches.push_back({process->pidfd.get(), [this, number] { reap(number); }});
  }
}

void Supervisor::waitAndAct(std::chrono::milliseconds atMost) {
  if (!hasRoom() && (atMost.count() < 0 || atMost > kPauseWithoutRoom)) atMost = kPauseWithoutRoom;
  const std::vector<Watch> all = watches();
  std::vector<pollfd> events;
  for (const Watch& watch : all) events.push_back({watch.descriptor, POLLIN, 0});
  if (poll(events.data(), events.size(), static_cast<int>(atMost.count())) <= 0) return;
  for (size_t i = 0; i < all.size(); ++i) {
    if (events[i].revents != 0) all[i].act();
  }
}

void Supervisor::accept() {
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
void Supervisor::makeRoom() {
  const auto now = Clock::now();
  std::erase_if(clients_, [&](const auto& entry) {
    const Client& client = entry.second;
    return !client.launch && !client.awaitsEnd && now - client.since > kLongestSilence;
  });
  acceptAgain_ = now + kPauseWithoutRoom;
}

bool Supervisor::hasRoom() const { return Clock::now() >= acceptAgain_; }

void Supervisor::hear(uint64_t client) {
  const auto found = clients_.find(client);
  if (found == clients_.end()) return;
  Packet packet;
  switch (receivePacketNow(found->second.socket.get(), packet)) {
    case Received::kPacket:
      answer(client, std::move(packet));
      break;
    case Received::kEnd:
      endClient(client);
      break;
    case Received::kNothingYet:
      break;
  }
}

void Supervisor::answer(uint64_t number, Packet packet) {
  Client& client = clients_[number];
  if (client.launch) return endClient(number);  // nobody who waits for one says anything
  switch (packet.kind) {
    case PacketKind::kLaunch:
      launch(number, std::move(packet));
      break;
    case PacketKind::kStatus:
      sendPacket(client.socket.get(), PacketKind::kAnswer, status());
      clients_.erase(number);
      break;
    case PacketKind::kReload:
      pools_.renew();
      clients_.erase(number);
      break;
    case PacketKind::kStop:
      client.awaitsEnd = true;
      stopOrKill();
      break;
    default:
      clients_.erase(number);
  }
}

void Supervisor::launch(uint64_t number, Packet packet) {
  auto arrived = openRequest(std::move(packet));
  if (!arrived) return endClient(number);
  auto entry = check(arrived->request);
  if (!entry) return decline(number, entry.error().what);
  pools_.want((*entry)->key);
  pools_.discardAllBut(currentStamp(workshop_.plugin));
  clients_[number].launch = Launch{std::move(*arrived), std::move(*entry)};
  if (!assign(number)) decline(number, "no process is ready for it");
}

// What the application would be launched as, where a prepared process can do it.
Expected<std::shared_ptr<const Entry>> Supervisor::check(const Request& request) {
  if (stopping_) return fail("the launch pad is about to stop");
  if (auto same = compare(request); !same) return tl::unexpected(same.error());
  auto entry = catalogue_.find(request);
  if (entry && launcher::entersZone((*entry)->target.type) && !zone_.isCurrent()) {
    return fail("the security zone is another one than at the launch pad's start");
  }
  return entry;
}

Expected<void> Supervisor::compare(const Request& request) const {
  const std::string difference = firstDifference(shape_, request.shape);
  if (!difference.empty()) return fail(difference + " differs from the launch pad's");
  if (!canTakeOver(limits_, request.limits)) {
    return fail("its resource limits are higher than the launch pad's");
  }
  return {};
}

// False where no process is ready. The asking command is told first: what is not told to have been
// taken it may launch itself.
bool Supervisor::assign(uint64_t number) {
  Client& client = clients_[number];
  Launch& launch = *client.launch;
  Process* const process = pools_.take(launch.entry->key);
  if (process == nullptr) return false;
  process->client = number;
  launch.process = process->number;
  const auto& target = launch.entry->target;
  const auto noted = workstation::registerProcess(process->pid, target.package.id);
  if (!noted) launcher::tell(noted.error());
  if (!sendPacket(client.socket.get(), PacketKind::kTaken,
                  RecordWriter().number(static_cast<uint64_t>(process->pid)).bytes(),
                  {process->pidfd.get()})) {
    return true;  // the command has ended, which its socket will tell
  }
  if (!sendAssignment(process->channel.get(), target, launch.arrived.packet)) {
    killProcess(*process);
  }
  return true;
}

void Supervisor::decline(uint64_t client, const std::string& why) {
  sendPacket(clients_[client].socket.get(), PacketKind::kDeclined, why);
  clients_.erase(client);
}

// An application ends with its asking command, as if they were one process.
void Supervisor::endClient(uint64_t number) {
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
bool Supervisor::hear(Process& process) {
  Packet packet;
  const Received received = receivePacketNow(process.channel.get(), packet);
  if (received == Received::kEnd) process.channel.reset();
  if (received != Received::kPacket) return false;
  if (packet.kind == PacketKind::kReady) pools_.noteReady(process, std::move(packet.bytes));
  if (packet.kind == PacketKind::kTakenOver) process.tookOver = true;
  if (packet.kind == PacketKind::kStarted && process.stage == Stage::kAssigned) {
    pools_.noteServed(process);
    const auto client = clients_.find(process.client);
    // Its descriptors are the application's alone from here on.
    if (client != clients_.end()) client->second.launch->arrived = {};
  }
  return true;
}

void Supervisor::reap(uint64_t number) {
  Process* const process = pools_.find(number);
  if (process == nullptr) return;
  while (process->channel && hear(*process)) {
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
  if (clients_.find(client) == clients_.end()) return workstation::clearProcessNotes();
  if (!hasBegun && !saidWhy) return retry(client);
  sendPacket(clients_[client].socket.get(), PacketKind::kEnded, toBytes(*ending));
  clients_.erase(client);
  workstation::clearProcessNotes();
}

void Supervisor::retry(uint64_t client) {
  Launch& launch = *clients_[client].launch;
  if (++launch.deaths < kMostDeaths && assign(client)) return;
  decline(client, "the prepared process died before the application began");
}

void Supervisor::handleSignals() {
  signalfd_siginfo info{};
  while (read(signals_.get(), &info, sizeof info) == sizeof info) {
    info.ssi_signo == SIGHUP ? pools_.renew() : stopOrKill();
  }
}

void Supervisor::stopOrKill() {
  if (stopping_) return pools_.killAll();
  stopping_ = true;
  pools_.close();
}

std::string Supervisor::status() {
  return std::string(stopping_ ? "stopping" : "serving") + ", process " + std::to_string(getpid()) +
         "\n" + pools_.describe();
}

// In a fresh child: what is the launch pad's alone is let go of.
void Supervisor::becomeWorker(const PoolKey& key, Descriptor channel) {
  clients_.clear();
  listener_.reset();
  zone_.close();
  signals_.reset();
  runWorker(workshop_, key, launchPad_, std::move(channel));
}

Launched<void> enterDevice(const LaunchpadOptions& options, const Workshop& workshop) {
  device::EnterOptions view;
  view.visible = {workshop.executable.parent_path().parent_path(), workshop.plugin.parent_path()};
  auto entered = device::enter(options.device, view);
  if (entered) return {};
  return stop(device::exitStatusOf(entered.error().error), entered.error());
}

Launched<void> requireParts(const LaunchpadOptions& options, const Workshop& workshop) {
  std::error_code ignored;
  if (!fs::exists(workshop.plugin, ignored)) {
    return stop(kNoPlugin, {"the plug-in '" + workshop.plugin.string() + "' is missing",
                            "build the target quillon-tv-plugin"});
  }
  if (const fs::path own = managedAssembly(workshop.plugin); !fs::exists(own, ignored)) {
    return stop(kNoRuntime, {"the launch pad's own assembly '" + own.string() + "' is missing",
                             "build the target 'managed' where there is a .NET SDK"});
  }
  if (!fs::exists(fs::path(device_paths::kNetcoreapp) / "libcoreclr.so", ignored)) {
    return stop(kNoRuntime, {"the device root has no .NET runtime",
                             "quillon device init " + options.device.string()});
  }
  return {};
}

Launched<void> run(const LaunchpadOptions& options) {
  std::error_code ignored;
  const fs::path executable = fs::read_symlink("/proc/self/exe", ignored);
  Workshop workshop{executable, launcher::defaultPlugin(executable), currentEntries(),
                    blockedSignals()};
  ProcessShape shape = shapeOf(OwnProcess());
  if (shape.empty()) {
    return stop(kServiceFailed, {"/proc does not tell what this process is", "mount it (proc(5))"});
  }
  const std::string address = addressOf(options.device);
  if (address.empty()) {
    return stop(kNoDeviceRoot, {"there is no folder '" + options.device.string() + "'",
                                "make a device root: quillon device init DIR"});
  }
  ZoneView zone(options.device);
  auto listener = listenAt(address, options.device);
  if (!listener) return stop(kLaunchPadState, listener.error());
  if (auto entered = enterDevice(options, workshop); !entered) return entered;
  if (auto whole = requireParts(options, workshop); !whole) return whole;
  removeDebuggerFilesOfDead();  // of a launch pad before this one that was killed
  Supervisor(options, std::move(workshop), std::move(shape), std::move(*listener), std::move(zone))
      .run();
  return {};
}

}  // namespace

int serve(const LaunchpadOptions& options) {
  launcher::keepTerminal();
  listenToAllSignals();
  closeInherited();
  allowManyDescriptors();
  const auto ended = run(options);
  if (ended) return kSuccess;
  launcher::tell(ended.error());
  return ended.error().status;
}

}  // namespace quillon::launchpad
