#include "quillon/launchpad/server/launch_requests.h"

#include <sys/resource.h>

#include <cstring>
#include <string>
#include <utility>

#include "quillon/base/terminal.h"
#include "quillon/base/trace_span.h"
#include "quillon/host/application/target.h"
#include "quillon/launchpad/protocol/hand_over.h"
#include "quillon/launchpad/server/fingerprint.h"
#include "workstation/packages.h"

namespace quillon::launchpad {
namespace {

Failure notInspected() {
  return {"the launch pad may not inspect this process",
          "start both as the same user and outside of sandboxes"};
}

Failure noDescriptors() {
  return {"the launch pad has no descriptors left for it",
          "raise its limit of open files (ulimit -n)"};
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

}  // namespace

LaunchRequests::LaunchRequests(LaunchParts parts, std::filesystem::path plugin, Clients& clients,
                               Pools& pools, Statistics& statistics)
    : state_(std::move(parts.state)),
      inspector_(std::move(parts.inspector)),
      zone_(std::move(parts.zone)),
      plugin_(std::move(plugin)),
      clients_(clients),
      pools_(pools),
      statistics_(statistics) {}

bool LaunchRequests::offerConnection(Client& client) {
  auto [clientEnd, workerEnd] = makeSocketPair();
  Connection connection{std::move(clientEnd), std::move(workerEnd)};
  if (connection.client && sendConnection(client.socket.get(), connection)) {
    client.connection = std::move(connection.worker);
  }
  return static_cast<bool>(client.connection);
}

bool LaunchRequests::onRequest(uint64_t client, const Message& message) {
  const TraceSpan span("launch pad: find the application");
  auto request = parseRequest(message);
  if (!request) {
    return false;
  }
  clients_[client].application = request->appId;
  clients_[client].requested = Clock::now();
  // A worker may have used up the first connection.
  const bool hasConnection = clients_[client].connection || offerConnection(clients_[client]);
  // The inspector reads /proc while this process looks the application up.
  const bool isInspected = inspector_.inspect(client, clients_[client].socket.get());
  Expected<std::shared_ptr<const Entry>> entry = tl::unexpected(noDescriptors());
  if (hasConnection) {
    entry = findEntry(*request);
  }
  // Workers inherit this process's memory, and the state contains environment variables.
  explicit_bzero(request->processState.data(), request->processState.size());
  if (entry && !isInspected) {
    entry = tl::unexpected(notInspected());
  }
  if (!entry) {
    decline(client, entry.error());
    return true;
  }
  clients_[client].boost = boostListenerFor((*entry)->target.type);
  clients_[client].entry = std::move(*entry);
  return true;
}

void LaunchRequests::onInspected() {
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
    WorkerProcess* const worker = assign(finding->client, *entry, finding->limits);
    if (worker != nullptr && !confirm(*worker, entry->target)) {
      killWorker(*worker);  // the client asks for another one
      continue;
    }
    pools_.recordUse(entry->ownKey);
    if (worker == nullptr) {
      decline(finding->client, notReady(isFirst));
    }
  }
}

// The application to launch. Fails if a worker cannot launch it.
Expected<std::shared_ptr<const Entry>> LaunchRequests::findEntry(const Request& request) {
  if (pools_.isClosed()) {
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

Expected<void> LaunchRequests::compareState(const Finding& finding) const {
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

// Returns null if no worker is ready. Client and worker have a connection of their own: what the
// application gets from the client goes through it and never enters this process.
WorkerProcess* LaunchRequests::assign(uint64_t number, const Entry& entry, const Limits& limits) {
  WorkerProcess* worker = pools_.take(entry.ownKey);
  if (worker == nullptr) {
    worker = pools_.take(entry.key);
  }
  if (worker == nullptr) {
    return nullptr;
  }
  Client& client = clients_[number];
  const Descriptor connection = std::move(client.connection);
  worker->client = number;
  worker->application = entry.target.application.id;
  client.worker = worker->number;
  // In this order: a client without the first message knows that no worker has its launch. If a
  // message cannot be sent, the client gets the worker's end, and may ask for another one.
  if (!sendTaken(client.socket.get(), worker->pid, worker->pidfd.get()) ||
      !sendAssignment(worker->channel.get(), entry.target, limits, connection.get())) {
    killWorker(*worker);
  }
  return worker;
}

// While the worker takes the launch over: looks whether it is prepared from what is installed now,
// and notes which package it runs. The worker waits for kNoted before it calls the plug-in, which
// asks for the note, and before it runs code of the application. Returns false if it must not.
bool LaunchRequests::confirm(const WorkerProcess& worker, const host::LaunchTarget& target) {
  const std::string fingerprint = currentFingerprint(plugin_);
  pools_.discardOutdated(fingerprint);
  if (worker.fingerprint != fingerprint) {
    return false;
  }
  const auto registered =
      workstation::registerProcess(worker.pid, target.package.id, target.application.id);
  if (!registered) {
    tell(registered.error());
    return false;  // the client launches directly in the end, which reports the failure
  }
  return sendNoted(worker.channel.get(), clients_[worker.client].boost != nullptr);
}

// A listener for the launch-boost notice, which all launches share that start now. Null if the
// worker has to see to that itself: a zone has another view of the device.
std::shared_ptr<host::BoostListener> LaunchRequests::boostListenerFor(const std::string& type) {
  auto listener = boost_.lock();
  if (host::entersZone(type)) {
    return nullptr;
  }
  if (!listener) {
    listener = std::make_shared<host::BoostListener>();
    boost_ = listener;
  }
  return listener->isListening() ? listener : nullptr;
}

// Failures with an exit status of their own are those of a direct launch, too.
void LaunchRequests::decline(uint64_t number, const Failure& why) {
  const Client& client = clients_[number];
  const bool isLaunchable = why.status == kServiceFailed;
  if (isLaunchable) {
    statistics_.onDirect(client.application, why.what);
  }
  sendDecline(client.socket.get(), {why.what, why.remedy, isLaunchable});
  inspector_.forget(number);
  clients_.erase(number);
  pools_.discardOutdated(currentFingerprint(plugin_));  // as confirm() does for other launches
}

void LaunchRequests::close() {
  zone_.close();
  inspector_.close();
}

}  // namespace quillon::launchpad
