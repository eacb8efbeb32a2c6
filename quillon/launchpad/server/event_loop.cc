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
#include "quillon/base/trace_span.h"
#include "quillon/host/application/target.h"
#include "quillon/launchpad/protocol/address.h"
#include "quillon/launchpad/protocol/hand_over.h"
#include "quillon/launchpad/server/fingerprint.h"
#include "quillon/launchpad/server/fresh_worker.h"
#include "quillon/launchpad/server/wait_time.h"
#include "workstation/packages.h"

namespace quillon::launchpad {
namespace {

// In one round of the loop, so that connections of other users cannot delay launches for long.
constexpr int kMaxAccepts = 64;
constexpr std::chrono::milliseconds kAcceptPause(100);

Failure notInspected() {
  return {"the launch pad may not inspect this process",
          "start both as the same user and outside of sandboxes"};
}

// difference  "its scheduling", "its namespaces", "the environment variable TZ" and so on
Failure differs(const std::string& difference) {
  const bool isPlural = difference.starts_with("its ") && difference.ends_with('s');
  return {difference + (isPlural ? " differ" : " differs") + " from the launch pad's",
          "start the launch pad in the same state, for example from this terminal"};
}

Failure notReady(bool isFirst) {
  return {"no process is ready for it",
          isFirst ? "this was the first launch of its kind: launch it again in a few seconds"
                  : "wait a few seconds between launches, or prepare more processes (--size)"};
}

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
      state_(std::move(parts.state)),
      fresh_(options.fresh),
      inspector_(std::move(parts.inspector)),
      listener_(std::move(parts.listener)),
      zone_(std::move(parts.zone)),
      serviceManager_(std::move(parts.serviceManager)),
      signals_(openSignals(parts.ignored)),
      pressure_(std::move(parts.pressure)),
      pools_(
          {options.size, std::chrono::milliseconds(static_cast<long>(options.refillDelay * 1000)),
           [this] { return currentFingerprint(config_.plugin); },
           [this](WorkerProcess& worker) { receiveAll(worker); }, Clock::now, options.memory << 10,
           [this](const PoolKey& key) { return !key.application || catalogue_.isCurrent(key); }},
          [this](const PoolKey& key, Descriptor channel) { runChild(key, std::move(channel)); }) {
  for (const PoolKey& key : catalogue_.keysOfInstalled(options.types)) {
    pools_.ensurePool(key);
  }
}

void EventLoop::run() {
  serviceManager_.tellReady();
  while (!stopping_ || !pools_.isEmpty()) {
    poll(shorter(pools_.refill(), serviceManager_.keepAlive()));
  }
}

std::vector<EventLoop::Watch> EventLoop::watches() {
  std::vector<Watch> all;
  if (isAccepting()) {
    all.push_back({listener_.get(), [this] { acceptClients(); }});
  }
  all.push_back({signals_.get(), [this] { onSignals(); }});
  all.push_back({inspector_.descriptor(), [this] { onInspected(); }});
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
      clients_[nextClient_++].socket = std::move(socket);
    }
  }
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
      onRequest(number, message);
      break;
    case MessageKind::kStatus:
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
    worker->client = 0;
    killWorker(*worker);
  }
  inspector_.forget(number);
  clients_.erase(found);
}

void EventLoop::onRequest(uint64_t client, const Message& message) {
  const TraceSpan span("launch pad: find the application");
  auto request = parseRequest(message);
  if (!request) {
    return removeClient(client);
  }
  clients_[client].application = request->appId;
  clients_[client].requested = Clock::now();
  // The inspector reads /proc while this process looks the application up.
  const bool isInspected = inspector_.inspect(client, clients_[client].socket.get());
  auto entry = findEntry(*request);
  // Workers inherit this process's memory, and the state contains environment variables.
  explicit_bzero(request->processState.data(), request->processState.size());
  if (!entry) {
    return decline(client, entry.error());
  }
  if (!isInspected) {
    return decline(client, notInspected());
  }
  clients_[client].entry = std::move(*entry);
  pools_.discardOutdated(currentFingerprint(config_.plugin));
}

void EventLoop::onInspected() {
  const TraceSpan span("launch pad: compare the client, assign a process");
  while (const auto finding = inspector_.next()) {
    const auto found = clients_.find(finding->client);
    if (found == clients_.end()) {
      continue;
    }
    const auto entry = std::exchange(found->second.entry, nullptr);
    if (const auto equal = compareState(*finding); !equal) {
      decline(finding->client, equal.error());
      continue;
    }
    const bool isFirst = !pools_.hasPool(entry->key);
    pools_.ensurePool(entry->key);
    const bool isAssigned = assign(finding->client, *entry, finding->limits);
    pools_.recordUse(entry->ownKey);
    if (!isAssigned) {
      decline(finding->client, notReady(isFirst));
    }
  }
}

// The application to launch. Fails if a worker cannot launch it.
Expected<std::shared_ptr<const Entry>> EventLoop::findEntry(const Request& request) {
  if (stopping_) {
    return fail("the launch pad is about to stop", "start another one");
  }
  const std::string difference = firstDifference(state_, request.processState);
  if (!difference.empty()) {
    return tl::unexpected(differs(difference));
  }
  auto entry = catalogue_.find(request);
  if (entry && host::entersZone((*entry)->target.type) && !zone_.isCurrent()) {
    return fail("the security zone is another one than at the launch pad's start",
                "restart the launch pad after the zone");
  }
  return entry;
}

Expected<void> EventLoop::compareState(const Finding& finding) const {
  if (!finding.wasRead) {
    return tl::unexpected(notInspected());
  }
  if (!finding.difference.empty()) {
    return tl::unexpected(differs(finding.difference));
  }
  if (!canAdopt(limits_, finding.limits)) {
    return fail("its resource limits are higher than the launch pad's",
                "start the launch pad with these limits (ulimit -a)");
  }
  const rlim_t descriptors = finding.limits[RLIMIT_NOFILE].rlim_max;
  if (descriptors < kMinDescriptorLimit) {
    return fail("its limit of open files is " + std::to_string(descriptors) +
                    ", and a prepared process needs " + std::to_string(kMinDescriptorLimit),
                "raise it (ulimit -n)");
  }
  return {};
}

// Returns false if no worker is ready. Client and worker get a connection of their own: what the
// application gets from the client goes through it and never enters this process.
bool EventLoop::assign(uint64_t number, const Entry& entry, const Limits& limits) {
  const auto [clientEnd, workerEnd] = makeSocketPair();
  if (!clientEnd) {
    return false;
  }
  WorkerProcess* worker = pools_.take(entry.ownKey);
  if (worker == nullptr) {
    worker = pools_.take(entry.key);
  }
  if (worker == nullptr) {
    return false;
  }
  Client& client = clients_[number];
  worker->client = number;
  worker->application = entry.target.application.id;
  client.worker = worker->number;
  // If a message cannot be sent, the client gets the worker's end, and may ask for another one.
  if (!sendTaken(client.socket.get(), worker->pid, worker->pidfd.get(), clientEnd.get()) ||
      !sendAssignment(worker->channel.get(), entry.target, limits, workerEnd.get()) ||
      !notePackage(*worker, entry.target)) {
    killWorker(*worker);
  }
  return true;
}

// Notes which package the worker runs, while the worker takes the launch over. The plug-in asks for
// the note, so the worker waits for kNoted before that.
bool EventLoop::notePackage(const WorkerProcess& worker, const host::LaunchTarget& target) {
  const auto registered =
      workstation::registerProcess(worker.pid, target.package.id, target.application.id);
  if (!registered) {
    tell(registered.error());
  }
  return sendMessage(worker.channel.get(), MessageKind::kNoted);
}

// Failures with an exit status of their own are those of a direct launch, too.
void EventLoop::decline(uint64_t number, const Failure& why) {
  const Client& client = clients_[number];
  const bool isLaunchable = why.status == kServiceFailed;
  if (isLaunchable) {
    statistics_.onDirect(client.application, why.what);
  }
  sendDecline(client.socket.get(), {why.what, why.remedy, isLaunchable});
  inspector_.forget(number);
  clients_.erase(number);
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
    onStarted(worker);
  }
  return true;
}

void EventLoop::onStarted(WorkerProcess& worker) {
  const auto client = clients_.find(worker.client);
  if (client != clients_.end()) {
    statistics_.onPrepared(std::chrono::duration_cast<std::chrono::microseconds>(
                               Clock::now() - client->second.requested),
                           worker.key.application.has_value());
  }
  pools_.onStarted(worker);
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
  if (stopping_) {
    return pools_.killAll();
  }
  stopping_ = true;
  serviceManager_.tellStopping();
  pools_.close();
}

Status EventLoop::status() const {
  Status status;
  status.pid = static_cast<uint64_t>(pid_);
  status.isStopping = stopping_;
  status.watchesPressure = static_cast<bool>(pressure_);
  pools_.addTo(status);
  statistics_.addTo(status);
  return status;
}

// In a new child: releases what only the server needs.
void EventLoop::runChild(const PoolKey& key, Descriptor channel) {
  clients_.clear();
  listener_.reset();
  zone_.close();
  inspector_.close();
  serviceManager_.close();
  signals_.reset();
  pressure_.reset();
  const auto run = fresh_ ? execWorker : runWorker;
  run(config_, key, pid_, std::move(channel));
}

}  // namespace quillon::launchpad
