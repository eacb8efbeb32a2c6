#include "quillon/launchpad/server/event_loop.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>

#include "quillon/base/exit_status.h"
#include "quillon/base/terminal.h"
#include "quillon/host/application/target.h"
#include "quillon/launchpad/protocol/address.h"
#include "quillon/launchpad/server/fingerprint.h"
#include "quillon/launchpad/server/fresh_worker.h"
#include "workstation/packages.h"

namespace quillon::launchpad {
namespace {

constexpr unsigned kMaxAttempts = 2;  // to assign a launch to a worker
// Clients send their request as soon as they are connected.
constexpr std::chrono::seconds kMaxIdleTime(1);
constexpr std::chrono::milliseconds kAcceptPause(100);
constexpr char kNotInspected[] = "the launch pad may not inspect this process";
constexpr char kDiffers[] = " differs from the launch pad's";

// Whether enough descriptors are available for the launches of several clients.
bool hasSpareDescriptors(int anyDescriptor) {
  constexpr rlim_t kSpare = 2 * kMaxDescriptors;
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const Descriptor lowest(fcntl(anyDescriptor, F_DUPFD_CLOEXEC, 0));
  return lowest && static_cast<rlim_t>(lowest.get()) + kSpare <= limit.rlim_cur;
}

Descriptor openSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    sigaddset(&signals, signal);
  }
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return Descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

}  // namespace

EventLoop::EventLoop(const LaunchpadOptions& options, WorkerConfig config, ProcessState state,
                     Inspector inspector, Descriptor listener, ZoneView zone)
    : pid_(getpid()),
      config_(std::move(config)),
      state_(std::move(state)),
      fresh_(options.fresh),
      inspector_(std::move(inspector)),
      listener_(std::move(listener)),
      zone_(std::move(zone)),
      signals_(openSignals()),
      pools_(
          {options.size, std::chrono::milliseconds(static_cast<long>(options.refillDelay * 1000)),
           [this] { return currentFingerprint(config_.plugin); }},
          [this](const PoolKey& key, Descriptor channel) { runChild(key, std::move(channel)); }) {
  for (const PoolKey& key : catalogue_.keysOfInstalled(options.types)) {
    pools_.ensurePool(key);
  }
}

void EventLoop::run() {
  while (!stopping_ || !pools_.isEmpty()) {
    poll(pools_.refill());
  }
}

std::vector<EventLoop::Watch> EventLoop::watches() {
  std::vector<Watch> all;
  if (isAccepting()) {
    all.push_back({listener_.get(), [this] { acceptClients(); }});
  }
  all.push_back({signals_.get(), [this] { onSignals(); }});
  all.push_back({inspector_.descriptor(), [this] { onInspected(); }});
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
    if (worker->channel) {
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
    events.push_back({watch.descriptor, POLLIN, 0});
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
  while (hasSpareDescriptors(listener_.get())) {
    Descriptor socket = acceptFrom(listener_.get());
    if (!socket && errno != ENFILE) {
      return;
    }
    if (!socket) {
      break;
    }
    Client& client = clients_[nextClient_++];
    client.socket = std::move(socket);
    client.connectedAt = Clock::now();
  }
  removeIdleClients();
}

// Frees the descriptors of clients that have sent no request, and pauses before the next accept.
void EventLoop::removeIdleClients() {
  const auto now = Clock::now();
  std::erase_if(clients_, [&](const auto& entry) {
    const Client& client = entry.second;
    return !client.launch && !client.awaitsShutdown && now - client.connectedAt > kMaxIdleTime;
  });
  acceptAgain_ = now + kAcceptPause;
}

bool EventLoop::isAccepting() const { return Clock::now() >= acceptAgain_; }

void EventLoop::onClientReadable(uint64_t client) {
  const auto found = clients_.find(client);
  if (found == clients_.end()) {
    return;
  }
  Message message;
  switch (receiveMessageNow(found->second.socket.get(), message)) {
    case Received::kMessage:
      onClientMessage(client, std::move(message));
      break;
    case Received::kEnd:
      removeClient(client);
      break;
    case Received::kNothingYet:
      break;
  }
}

void EventLoop::onClientMessage(uint64_t number, Message message) {
  Client& client = clients_[number];
  if (client.launch) {
    return removeClient(number);  // a client sends one request
  }
  switch (message.kind) {
    case MessageKind::kLaunch:
      onRequest(number, std::move(message));
      break;
    case MessageKind::kStatus:
      sendMessage(client.socket.get(), MessageKind::kAnswer, status());
      clients_.erase(number);
      break;
    case MessageKind::kReload:
      pools_.reload();
      clients_.erase(number);
      break;
    case MessageKind::kStop:
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
  if (found->second.launch) {
    if (WorkerProcess* const worker = pools_.find(found->second.launch->worker)) {
      worker->client = 0;
      killWorker(*worker);
    }
  }
  clients_.erase(found);
}

void EventLoop::onRequest(uint64_t client, Message message) {
  auto request = ReceivedRequest::parse(std::move(message));
  if (!request) {
    return removeClient(client);
  }
  auto entry = findEntry(request->request());
  if (!entry) {
    return decline(client, entry.error().what);
  }
  if (!inspector_.inspect(client, clients_[client].socket.get())) {
    return decline(client, kNotInspected);
  }
  clients_[client].launch = Launch{std::move(request), std::move(*entry)};
  pools_.discardOutdated(currentFingerprint(config_.plugin));  // while the inspector reads /proc
}

void EventLoop::onInspected() {
  while (const auto finding = inspector_.next()) {
    const auto found = clients_.find(finding->client);
    if (found == clients_.end()) {
      continue;
    }
    const Launch& launch = *found->second.launch;
    if (const auto equal = judge(*finding, launch.request->request()); !equal) {
      decline(finding->client, equal.error().what);
      continue;
    }
    pools_.ensurePool(launch.entry->key);
    if (!assign(finding->client)) {
      decline(finding->client, "no process is ready for it");
    }
  }
}

// Whether a worker has what the client has, and the launch gives it no more.
Expected<void> EventLoop::judge(const Finding& finding, const Request& request) const {
  if (!finding.wasRead) {
    return fail(kNotInspected);
  }
  if (!finding.difference.empty()) {
    return fail(finding.difference + kDiffers);
  }
  if (!canAdopt(finding.limits, request.limits)) {
    return fail("the resource limits in its request are higher than its own");
  }
  return {};
}

// The application to launch. Fails if a worker cannot launch it.
Expected<std::shared_ptr<const Entry>> EventLoop::findEntry(const Request& request) {
  if (stopping_) {
    return fail("the launch pad is about to stop");
  }
  RETURN_IF_FAILED(compareState(request));
  auto entry = catalogue_.find(request);
  if (entry && host::entersZone((*entry)->target.type) && !zone_.isCurrent()) {
    return fail("the security zone is another one than at the launch pad's start");
  }
  return entry;
}

Expected<void> EventLoop::compareState(const Request& request) const {
  const std::string difference = firstDifference(state_, request.processState);
  if (!difference.empty()) {
    return fail(difference + kDiffers);
  }
  if (!canAdopt(limits_, request.limits)) {
    return fail("its resource limits are higher than the launch pad's");
  }
  return {};
}

// Returns false if no worker is ready. Sends kTaken to the client first, because a client that has
// not received it may launch the application itself.
bool EventLoop::assign(uint64_t number) {
  Client& client = clients_[number];
  Launch& launch = *client.launch;
  WorkerProcess* const worker = pools_.take(launch.entry->key);
  if (worker == nullptr) {
    return false;
  }
  worker->client = number;
  launch.worker = worker->number;
  const auto& target = launch.entry->target;
  const auto registered = workstation::registerProcess(worker->pid, target.package.id);
  if (!registered) {
    tell(registered.error());
  }
  if (!sendTaken(client.socket.get(), worker->pid, worker->pidfd.get())) {
    return true;  // the client has ended: its socket becomes readable
  }
  if (!launch.request->assign(worker->channel.get(), target)) {
    killWorker(*worker);
  }
  return true;
}

void EventLoop::decline(uint64_t client, const std::string& reason) {
  sendMessage(clients_[client].socket.get(), MessageKind::kDeclined, reason);
  clients_.erase(client);
}

// Returns false if no message is pending.
bool EventLoop::onWorkerReadable(WorkerProcess& worker) {
  Message message;
  const Received received = receiveMessageNow(worker.channel.get(), message);
  if (received == Received::kEnd) {
    worker.channel.reset();
  }
  if (received != Received::kMessage) {
    return false;
  }
  if (message.kind == MessageKind::kReady) {
    pools_.onReady(worker);
  }
  if (message.kind == MessageKind::kTakenOver) {
    worker.tookOver = true;
  }
  if (message.kind == MessageKind::kStarted && worker.stage == Stage::kAssigned) {
    pools_.onStarted(worker);
    const auto client = clients_.find(worker.client);
    // Frees the client's descriptors, which only the application may keep open.
    if (client != clients_.end()) {
      client->second.launch->request.reset();
    }
  }
  return true;
}

void EventLoop::onWorkerEnded(uint64_t number) {
  WorkerProcess* const worker = pools_.find(number);
  if (worker == nullptr) {
    return;
  }
  // Messages that the worker sent before its end come first.
  while (worker->channel && onWorkerReadable(*worker)) {
  }
  const auto exitState = reapWorker(*worker);
  if (!exitState) {
    return;
  }
  const uint64_t client = worker->client;
  // A worker that has the whole launch and exits by itself has reported its failure, for instance a
  // refusal by the plug-in. That is the result, as in a direct launch.
  const bool isResult =
      worker->stage == Stage::kRunning || (worker->tookOver && !exitState->bySignal);
  // The plug-in does not know the application type.
  if (worker->stage == Stage::kPreparing && !exitState->bySignal && exitState->number == kUsage) {
    pools_.removePool(worker->key);
  }
  pools_.onEnded(number);
  const bool hasClient = clients_.find(client) != clients_.end();
  if (hasClient && !isResult) {
    return retry(client);
  }
  if (hasClient) {
    sendMessage(clients_[client].socket.get(), MessageKind::kEnded, encode(*exitState));
    clients_.erase(client);
  }
  workstation::forgetEndedProcesses();
}

void EventLoop::retry(uint64_t client) {
  Launch& launch = *clients_[client].launch;
  if (++launch.failedWorkers < kMaxAttempts && assign(client)) {
    return;
  }
  decline(client, "the prepared process died before the application began");
}

void EventLoop::onSignals() {
  signalfd_siginfo info{};
  while (read(signals_.get(), &info, sizeof info) == sizeof info) {
    info.ssi_signo == SIGHUP ? pools_.reload() : stopOrKill();
  }
}

void EventLoop::stopOrKill() {
  if (stopping_) {
    return pools_.killAll();
  }
  stopping_ = true;
  pools_.close();
}

std::string EventLoop::status() const {
  return std::string(stopping_ ? "stopping" : "serving") + ", process " + std::to_string(pid_) +
         "\n" + pools_.describe();
}

// In a new child: releases what only the server needs.
void EventLoop::runChild(const PoolKey& key, Descriptor channel) {
  clients_.clear();
  listener_.reset();
  zone_.close();
  inspector_.close();
  signals_.reset();
  const auto run = fresh_ ? execWorker : runWorker;
  run(config_, key, pid_, std::move(channel));
}

}  // namespace quillon::launchpad
