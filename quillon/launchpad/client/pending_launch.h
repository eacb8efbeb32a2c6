// A launch that the client has requested, until its outcome is known.
#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "quillon/base/descriptor.h"
#include "quillon/launchpad/client/client.h"
#include "quillon/launchpad/client/signal_relay.h"
#include "quillon/launchpad/protocol/exit_state.h"
#include "quillon/launchpad/protocol/hand_over.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/protocol/request.h"

namespace quillon::launchpad {

// How long each stage may last before the application starts: until the launch pad answers, until
// the worker has taken over, and until the application starts. The last one includes the plug-in's
// preparation of the application.
using Timeouts = std::array<std::chrono::milliseconds, 3>;
inline constexpr Timeouts kTimeouts = {std::chrono::seconds(2), std::chrono::seconds(5),
                                       std::chrono::seconds(30)};

// The client alone decides whether the launch has happened, by what the worker has sent to it: a
// worker that cannot report its start does not start the application.
class PendingLaunch {
 public:
  // Call when `request` has been sent to `server`. The arguments must outlive the object.
  //
  // ignored  the signals that this process ignores
  // onStart  called when the application starts; may be empty
  PendingLaunch(const Descriptor& server, const Request& request, const EncodedHandOver& handOver,
                const sigset_t& ignored, bool verbose, const Timeouts& timeouts = kTimeouts,
                std::function<void()> onStart = {});

  LaunchOutcome awaitOutcome();

 private:
  using Clock = std::chrono::steady_clock;
  enum class Stage { kRequested, kHandedOver, kTakenOver, kStarted };

  void enter(Stage stage);
  void poll() const;
  void readServer();
  void readWorker();
  void handle(Message message);
  void onConnection(Connection connection);
  void onTaken(TakenReply reply);
  void onWorkerEnded(const ExitState& state);
  void onServerGone();
  void onTimeout();
  bool endWorker();
  void takeBack() const;
  void decline(const std::string& reason);
  void onDeclined(Decline why);

  const Descriptor& server_;
  const Request& request_;
  const EncodedHandOver& handOver_;
  const bool verbose_;
  const Timeouts timeouts_;
  const std::function<void()> onStart_;
  SignalRelay signals_;
  Connection connection_;  // to the worker that gets the launch; invalid until the server offers it
  bool isHandedOver_ = false;  // through the connection
  Stage stage_ = Stage::kRequested;
  std::optional<Clock::time_point> deadline_;  // of the stage
  unsigned failedWorkers_ = 0;                 // that ended before they had the whole launch
  std::optional<LaunchOutcome> outcome_;
};

}  // namespace quillon::launchpad
