// The requests for launches: compares the client with this process, finds the application, and
// assigns a worker. If one of these is impossible, declines, and the client launches directly.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "quillon/base/failure.h"
#include "quillon/host/plugin/boost_listener.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/server/catalogue.h"
#include "quillon/launchpad/server/clients.h"
#include "quillon/launchpad/server/inspector.h"
#include "quillon/launchpad/server/pools.h"
#include "quillon/launchpad/server/statistics.h"
#include "quillon/launchpad/server/zone_view.h"
#include "quillon/launchpad/state/limits.h"
#include "quillon/launchpad/state/process_state.h"

namespace quillon::launchpad {

// What the server has opened before it entered the device root.
struct LaunchParts {
  ProcessState state;  // the process's declared one, with the proof of inspection_proof.h
  Inspector inspector;
  ZoneView zone;
};

class LaunchRequests {
 public:
  // The references must outlive the object.
  //
  // plugin  file of the plug-in
  LaunchRequests(LaunchParts parts, std::filesystem::path plugin, Clients& clients, Pools& pools,
                 Statistics& statistics);

  // Gives a client a connection to the worker that it will get, so that it can send its hand-over
  // while its request is handled. Returns false if no descriptor is available. If it is not called
  // before onRequest(), that function does it.
  static bool offerConnection(Client& client);

  // Handles kLaunch of an idle client. Returns false if the message is malformed.
  [[nodiscard]] bool onRequest(uint64_t client, const Message& message);

  // Call when descriptor() is readable.
  void onInspected();
  [[nodiscard]] int descriptor() const { return inspector_.descriptor(); }

  // Releases what is kept for a client that has gone.
  void forget(uint64_t client) { inspector_.forget(client); }

  Catalogue& catalogue() { return catalogue_; }

  // For a child of the server, which must not keep the descriptors.
  void close();

 private:
  Expected<std::shared_ptr<const Entry>> findEntry(const Request& request);
  [[nodiscard]] Expected<void> compareState(const Finding& finding) const;
  WorkerProcess* assign(uint64_t client, const Entry& entry, const Limits& limits);
  bool confirm(const WorkerProcess& worker, const host::LaunchTarget& target);
  std::shared_ptr<host::BoostListener> boostListenerFor(const std::string& type);
  void decline(uint64_t client, const Failure& why);

  const ProcessState state_;
  const Limits limits_ = currentLimits();
  Inspector inspector_;
  ZoneView zone_;
  Catalogue catalogue_;
  std::weak_ptr<host::BoostListener> boost_;
  const std::filesystem::path plugin_;
  Clients& clients_;
  Pools& pools_;
  Statistics& statistics_;
};

}  // namespace quillon::launchpad
