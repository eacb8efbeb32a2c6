#include "quillon/launchpad/server/event_loop.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>

#include "quillon/base/exit_status.h"
#include "quillon/base/record.h"
#include "quillon/base/terminal.h"
#include "quillon/launchpad/protocol/address.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/server/fingerprint.h"
#include "quillon/launchpad/server/fresh_worker.h"
#include "quillon/launchpad/server/wait_time.h"
#include "workstation/packages.h"

namespace quillon::launchpad {
namespace {

// In one round of the loop, so that connections of other users cannot delay launches for long.
constexpr int kMaxAccepts = 64;
// Clients without a request that get a connection to a worker beforehand. The kernel counts its
// descriptors until the client receives them, and lets no process of the user send any if they are
// more than the limit of open files of that process, usually 1024 (unix(7), ETOOMANYREFS).
constexpr long kMaxOffers = 64;
constexpr std::chrono::milliseconds kAcceptPause(100);
constexpr std::chrono::milliseconds kStartCheck(50);

// Whether descriptors remain for a launch, a new worker and the files that they need.
bool hasSpareDescriptors(int anyDescriptor) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const Descriptor lowest(fcntl(anyDescriptor, F_DUPFD_CLOEXEC, 0));
  return lowest && static_cast<rlim_t>(lowest.get()) + kSpareDescriptors <= limit.rlim_cur;
}

// ignored  signals that the process ignored at its start
Descriptor openSignals(const sigset_t& ignored) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    if (sigismember(&ignored, signal) == 0) {
      sigaddset(&signals, signal);
    }
  }
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return Descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

}  // namespace

EventLoop::EventLoop(const LaunchpadOptions& options, WorkerConfig config, ServerParts parts)
    : pid_(getpid()),
      config_(std::move(config)),
      fresh_(options.fresh),
      listener_(std::move(parts.listener)),
      serviceManager_(std::move(parts.serviceManager)),
      signals_(openSignals(parts.ignored)),
      pressure_(std::move(parts.pressure)),
      pools_(
          {options.size, std::chrono::milliseconds(static_cast<long>(options.refillDelay * 1000)),
           [this] { return currentFingerprint(config_.plugin); },
           [this](WorkerProcess& worker) { receiveAll(worker); }, Clock::now, options.memory << 10,
           [this](const PoolKey& key) {
             return !key.application || requests_.catalogue().isCurrent(key);
           }},
          [this](const PoolKey& key, Descriptor channel) { runChild(key, std::move(channel)); }),
      requests_(std::move(parts.launches), config_.plugin, clients_, pools_, statistics_) {
  for (const PoolKey& key : requests_.catalogue().keysOfInstalled(options.types)) {
    pools_.ensurePool(key);
  }
}

void EventLoop::run() {
  serviceManager_.tellReady();
  while (!pools_.isClosed() || !pools_.isEmpty()) {
    const auto wait = receiveStarts();
    poll(shorter(wait, shorter(pools_.refill(), serviceManager_.keepAlive())));
  }
}

std::vector<EventLoop::Watch> EventLoop::watches() {
  std::vector<Watch> all;
  if (isAccepting()) {
    all.push_back({listener_.get(), [this] { acceptClients(); }});
  }
  all.push_back({signals_.get(), [this] { onSignals(); }});
  all.push_back({requests_.descriptor(), [this] { requests_.onInspected(); }});
  if (pressure_) {
    all.push_back({pressure_.get(), [this] { onMemoryPressure(); }, POLLPRI});
  }
  for (const auto& [number, client] : clients_) {
    all.push_back({client.socket.get(), [this, client = number] { onClientReadable(client); }});
  }
  for (const WorkerProcess* worker : pools_.all()) {
    const uint64_t number = worker->number;
    const auto onReadable = [this, number] {
      if (WorkerProcess* const found = pools_.find(number)) {
        onWorkerReadable(*found);
      }
    };
    if (worker->channel && worker->stage != Stage::kAssigned) {
      all.push_back({worker->channel.get(), onReadable});
    }
    all.push_back({worker->pidfd.get(), [this, number] { onWorkerEnded(number); }});
  }
  return all;
}

void EventLoop::poll(std::chrono::milliseconds timeout) {
  if (!isAccepting() && (timeout.count() < 0 || timeout > kAcceptPause)) {
    timeout = kAcceptPause;
  }
  const std::vector<Watch> all = watches();
  std::vector<pollfd> events;
  events.reserve(all.size());
  for (const Watch& watch : all) {
    events.push_back({watch.descriptor, watch.events, 0});
  }
  if (::poll(events.data(), events.size(), static_cast<int>(timeout.count())) <= 0) {
    return;
  }
  for (size_t i = 0; i < all.size(); ++i) {
    if (events[i].revents != 0) {
      all[i].handler();
    }
  }
}

void EventLoop::acceptClients() {
  for (int accepted = 0; accepted < kMaxAccepts; ++accepted) {
    Descriptor socket = acceptFrom(listener_.get());
    if (!socket && errno == EPERM) {
      continue;
    }
    if (!socket) {
      acceptAgain_ = errno == EAGAIN ? acceptAgain_ : Clock::now() + kAcceptPause;
      return;
    }
    // If the connection is closed instead, the client launches directly at once.
    if (hasSpareDescriptors(socket.get()) || removeOldestIdleClient()) {
      Client& client = clients_[nextClient_++];
      client.socket = std::move(socket);
      if (countIdleClients() <= kMaxOffers) {
        LaunchRequests::offerConnection(client);
      }
    }
  }
}

long EventLoop::countIdleClients() const {
  return std::count_if(clients_.begin(), clients_.end(),
                       [](const auto& entry) { return entry.second.isIdle(); });
}

bool EventLoop::removeOldestIdleClient() {
  const auto oldest = std::find_if(clients_.begin(), clients_.end(),
                                   [](const auto& entry) { return entry.second.isIdle(); });
  if (oldest == clients_.end()) {
    return false;
  }
  clients_.erase(oldest);
  return true;
}

bool EventLoop::isAccepting() const { return Clock::now() >= acceptAgain_; }

void EventLoop::onClientReadable(uint64_t client) {
  const auto found = clients_.find(client);
  if (found == clients_.end()) {
    return;
  }
  Message message;
  switch (receiveBytesNow(found->second.socket.get(), message)) {
    case Received::kMessage:
      tryClientMessage(client, std::move(message));
      break;
    case Received::kEnd:
      removeClient(client);
      break;
    case Received::kNothingYet:
      break;
  }
}

// A request that cannot be handled, for example for want of memory, ends only its own client.
void EventLoop::tryClientMessage(uint64_t client, Message message) try {
  onClientMessage(client, std::move(message));
} catch (const std::exception& exception) {
  tell({"cannot handle a request: " + std::string(exception.what()), ""});
  removeClient(client);
}

void EventLoop::onClientMessage(uint64_t number, Message message) {
  if (message.kind == MessageKind::kDirect) {
    return onDirect(message);
  }
  Client& client = clients_[number];
  if (!client.isIdle()) {
    return removeClient(number);  // a client has one launch at a time
  }
  switch (message.kind) {
    case MessageKind::kLaunch:
      if (!requests_.onRequest(number, message)) {
        removeClient(number);
      }
      break;
    case MessageKind::kStatus:
      receiveStarts();
      sendMessage(client.socket.get(), MessageKind::kAnswer, encode(status()));
      clients_.erase(number);
      break;
    case MessageKind::kReload:
      sendMessage(client.socket.get(), MessageKind::kAnswer);
      clients_.erase(number);
      pools_.reload();
      break;
    case MessageKind::kStop:
      sendMessage(client.socket.get(), MessageKind::kAnswer);
      client.awaitsShutdown = true;
      stopOrKill();
      break;
    default:
      clients_.erase(number);
  }
}

// An application ends with its client, as if they were one process.
void EventLoop::removeClient(uint64_t number) {
  const auto found = clients_.find(number);
  if (found == clients_.end()) {
    return;
  }
  if (WorkerProcess* const worker = pools_.find(found->second.worker)) {
    receiveAll(*worker);  // the application may have started
    worker->client = 0;
    killWorker(*worker);
  }
  requests_.forget(number);
  clients_.erase(found);
}

void EventLoop::onDirect(const Message& message) {
  RecordReader reader(message.bytes.view());
  std::string application = reader.text();
  std::string reason = reader.text();
  if (reader.atEnd()) {
    statistics_.onDirect(std::move(application), std::move(reason));
  }
}

// Returns false if no message is pending.
bool EventLoop::onWorkerReadable(WorkerProcess& worker) {
  Message message;
  const Received received = receiveBytesNow(worker.channel.get(), message);
  if (received == Received::kEnd) {
    worker.channel.reset();
  }
  if (received != Received::kMessage) {
    return false;
  }
  if (message.kind == MessageKind::kReady) {
    worker.memoryKib = RecordReader(message.bytes.view()).number();
    pools_.onReady(worker);
  }
  if (message.kind == MessageKind::kUnsuitable && worker.stage == Stage::kPreparing) {
    pools_.refuse(worker.key);
  }
  if (message.kind == MessageKind::kStarted && worker.stage == Stage::kAssigned) {
    onStarted(worker, parseStarted(message));
  }
  return true;
}

void EventLoop::onStarted(WorkerProcess& worker, Clock::time_point when) {
  const auto client = clients_.find(worker.client);
  if (client != clients_.end()) {
    statistics_.onPrepared(
        std::chrono::duration_cast<std::chrono::microseconds>(when - client->second.requested),
        worker.key.application.has_value());
    client->second.boost.reset();
  }
  pools_.onStarted(worker);
}

// The loop does not wait for messages of assigned workers: nothing depends on them soon, and waking
// up would compete with the start of the application. Returns the time until the next call.
std::chrono::milliseconds EventLoop::receiveStarts() {
  std::chrono::milliseconds wait = kNever;
  for (WorkerProcess* const worker : pools_.all()) {
    if (worker->stage == Stage::kAssigned) {
      receiveAll(*worker);
    }
    if (worker->stage == Stage::kAssigned) {
      wait = kStartCheck;
    }
  }
  return wait;
}

void EventLoop::receiveAll(WorkerProcess& worker) {
  while (worker.channel && onWorkerReadable(worker)) {
  }
}

void EventLoop::onWorkerEnded(uint64_t number) {
  WorkerProcess* const worker = pools_.find(number);
  if (worker == nullptr) {
    return;
  }
  receiveAll(*worker);  // what it sent before its end comes first
  const auto exitState = reapWorker(*worker);
  if (!exitState) {
    return;
  }
  const auto client = clients_.find(worker->client);
  pools_.onEnded(number);
  if (client != clients_.end()) {
    client->second.worker = 0;
    client->second.boost.reset();
    if (!sendMessage(client->second.socket.get(), MessageKind::kEnded, encode(*exitState))) {
      clients_.erase(client);  // which tells it, too
    }
  }
  workstation::forgetEndedProcesses();
}

void EventLoop::onSignals() {
  signalfd_siginfo info{};
  while (read(signals_.get(), &info, sizeof info) == sizeof info) {
    info.ssi_signo == SIGHUP ? pools_.reload() : stopOrKill();
  }
}

// Reports the event once: poll(2) clears it. POLLERR means that the kernel has ended the reports.
void EventLoop::onMemoryPressure() {
  pollfd event{pressure_.get(), POLLPRI, 0};
  if (::poll(&event, 1, 0) == 1 && (event.revents & POLLERR) != 0) {
    pressure_.reset();
    return;
  }
  pools_.onMemoryPressure();
}

void EventLoop::stopOrKill() {
  if (pools_.isClosed()) {
    return pools_.killAll();
  }
  serviceManager_.tellStopping();
  pools_.close();
}

Status EventLoop::status() const {
  Status status;
  status.pid = static_cast<uint64_t>(pid_);
  status.isStopping = pools_.isClosed();
  status.watchesPressure = static_cast<bool>(pressure_);
  pools_.addTo(status);
  statistics_.addTo(status);
  return status;
}

// In a new child: releases what only the server needs.
void EventLoop::runChild(const PoolKey& key, Descriptor channel) {
  clients_.clear();
  listener_.reset();
  requests_.close();
  serviceManager_.close();
  signals_.reset();
  pressure_.reset();
  const auto run = fresh_ ? execWorker : runWorker;
  run(config_, key, pid_, std::move(channel));
}

}  // namespace quillon::launchpad
