// The server's event loop: serves clients and workers and keeps the pools filled.
//
// It must run in one thread and start no other, because it forks the workers.
#pragma once

#include <poll.h>
#include <signal.h>

#include <chrono>
#include <functional>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/server/clients.h"
#include "quillon/launchpad/server/launch_requests.h"
#include "quillon/launchpad/server/pools.h"
#include "quillon/launchpad/server/server.h"
#include "quillon/launchpad/server/service_manager.h"
#include "quillon/launchpad/server/statistics.h"
#include "quillon/launchpad/worker/worker.h"

namespace quillon::launchpad {

// The server accepts no client without this many free descriptors.
inline constexpr size_t kSpareDescriptors = 32;

// What the server has opened before it entered the device root.
struct ServerParts {
  LaunchParts launches;
  Descriptor listener;
  Descriptor pressure;  // see watchMemoryPressure()
  ServiceManager serviceManager;
  sigset_t ignored;  // signals to ignore, which are blocked
};

class EventLoop {
 public:
  // Construct in the process that has entered the device root.
  EventLoop(const LaunchpadOptions& options, WorkerConfig config, ServerParts parts);

  // Returns when a client or a signal has asked the server to stop and all workers have ended.
  void run();

 private:
  // A descriptor and the handler to call when it has one of the events.
  struct Watch {
    int descriptor;
    std::function<void()> handler;
    short events = POLLIN;
  };
  std::vector<Watch> watches();
  void poll(std::chrono::milliseconds timeout);

  void acceptClients();
  [[nodiscard]] long countIdleClients() const;
  bool removeOldestIdleClient();
  [[nodiscard]] bool isAccepting() const;
  void onClientReadable(uint64_t client);
  void tryClientMessage(uint64_t client, Message message);
  void onClientMessage(uint64_t client, Message message);
  void removeClient(uint64_t client);

  void onDirect(const Message& message);

  bool onWorkerReadable(WorkerProcess& worker);
  void receiveAll(WorkerProcess& worker);
  void onStarted(WorkerProcess& worker, Clock::time_point when);
  std::chrono::milliseconds receiveStarts();
  void onWorkerEnded(uint64_t number);

  void onSignals();
  void onMemoryPressure();
  void stopOrKill();
  [[nodiscard]] Status status() const;
  void runChild(const PoolKey& key, Descriptor channel);

  const pid_t pid_;
  const WorkerConfig config_;
  const bool fresh_;
  Descriptor listener_;
  ServiceManager serviceManager_;
  Descriptor signals_;
  Descriptor pressure_;  // see memory_pressure.h
  Clients clients_;
  uint64_t nextClient_ = 1;
  Clock::time_point acceptAgain_;
  Pools pools_;
  Statistics statistics_;
  LaunchRequests requests_;
};

}  // namespace quillon::launchpad
