#include "quillon/launchpad/client/client.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "quillon/base/exit_status.h"
#include "quillon/base/report.h"
#include "quillon/base/terminal.h"
#include "quillon/launchpad/client/signal_relay.h"
#include "quillon/launchpad/protocol/address.h"
#include "quillon/launchpad/protocol/exit_state.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/state/inspection_proof.h"
#include "quillon/launchpad/state/peer.h"

namespace quillon::launchpad {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// The server answers at once unless, for instance, it is stopped by SIGSTOP.
constexpr milliseconds kAnswerTimeout{2000};
constexpr milliseconds kExitTimeout{10'000};  // of a killed process

// A launch from the sent request to its outcome.
class PendingLaunch {
 public:
  // started  the eventfd that was sent with the request
  // ignored  the signals that this process ignores
  PendingLaunch(const Descriptor& socket, const Descriptor& started, const sigset_t& ignored,
                bool verbose)
      : socket_(socket), started_(started), verbose_(verbose), signals_(ignored) {}

  LaunchOutcome awaitOutcome();

 private:
  void poll() const;
  void handle(Message message);
  void onTaken(TakenReply reply);
  LaunchOutcome declined(std::string reason) const;
  LaunchOutcome onServerGone() const;
  LaunchOutcome onTimeout();
  [[nodiscard]] bool isTaken() const { return static_cast<bool>(signals_.target()); }
  [[nodiscard]] milliseconds timeLeft() const;

  const Descriptor& socket_;
  const Descriptor& started_;
  const bool verbose_;
  const Clock::time_point sentAt_ = Clock::now();
  SignalRelay signals_;
  std::optional<LaunchOutcome> outcome_;
};

void awaitExit(const Descriptor& process) {
  pollfd exited{process.get(), POLLIN, 0};
  ::poll(&exited, 1, static_cast<int>(kExitTimeout.count()));
}

// A signal that asked the application to end before it started also prevents the direct launch.
LaunchOutcome PendingLaunch::declined(std::string reason) const {
  if (signals_.endingSignal() != 0) {
    killSelfBy(signals_.endingSignal());
  }
  return {std::nullopt, std::move(reason)};
}

// The workers end with the server.
LaunchOutcome PendingLaunch::onServerGone() const {
  if (isTaken()) {
    awaitExit(signals_.target());
  }
  if (!wasStarted(started_.get())) {
    return declined("the launch pad ended");
  }
  const Failure failure{"the launch pad ended, and the application with it", "start it again",
                        kLaunchPadState};
  return {report(failure), {}};
}

milliseconds PendingLaunch::timeLeft() const {
  return std::max(std::chrono::ceil<milliseconds>(sentAt_ + kAnswerTimeout - Clock::now()),
                  milliseconds(0));
}

// The server sends kTaken before it assigns the request to a worker. After shutdown() it cannot
// send anything, so only a message that has already arrived can tell that a worker has the request.
LaunchOutcome PendingLaunch::onTimeout() {
  shutdown(socket_.get(), SHUT_RD);
  Message message;
  if (receiveMessageNow(socket_.get(), message) == Received::kMessage) {
    handle(std::move(message));
  }
  if (outcome_) {
    return *outcome_;
  }
  if (!isTaken()) {
    return declined("the launch pad does not answer");
  }
  signals_.killTarget();
  return onServerGone();
}

void PendingLaunch::onTaken(TakenReply reply) {
  if (reply.pidfd) {
    signals_.setTarget(std::move(reply.pidfd));
  }
  if (verbose_) {
    tell({"launched by the launch pad, in its process " + std::to_string(reply.worker), {}});
  }
}

void PendingLaunch::handle(Message message) {
  switch (message.kind) {
    case MessageKind::kTaken:
      onTaken(parseTaken(std::move(message)));
      break;
    case MessageKind::kEnded:
      outcome_ = LaunchOutcome{exitAs(decodeExitState(message.bytes.view())), {}};
      break;
    case MessageKind::kDeclined:
      outcome_ = declined(std::string(message.bytes.view()));
      break;
    default:
      break;
  }
}

void PendingLaunch::poll() const {
  std::array<pollfd, 2> events = {{{socket_.get(), POLLIN, 0}, {signals_.descriptor(), POLLIN, 0}}};
  ::poll(events.data(), events.size(), isTaken() ? -1 : static_cast<int>(timeLeft().count()));
}

LaunchOutcome PendingLaunch::awaitOutcome() {
  while (!outcome_) {
    poll();
    signals_.relay();
    Message message;
    switch (receiveMessageNow(socket_.get(), message)) {
      case Received::kMessage:
        handle(std::move(message));
        break;
      case Received::kEnd:
        outcome_ = onServerGone();
        break;
      case Received::kNothingYet:
        if (isTaken()) {
          break;
        }
        if (signals_.endingSignal() != 0 || timeLeft().count() == 0) {
          outcome_ = onTimeout();
        }
        break;
    }
  }
  return *outcome_;
}

// Whether a worker can have the inherited descriptors under the same numbers.
bool canBeInherited(const std::vector<int>& descriptors) {
  return descriptors.size() <= kMaxInheritedDescriptors &&
         std::all_of(descriptors.begin(), descriptors.end(),
                     [](int fd) { return fd >= kMinInheritedDescriptor; });
}

// Empty if this process may not inspect the launch pad.
ProcessState proofFor(const Descriptor& socket) {
  const auto server = credentialsOfPeer(socket.get());
  return server ? inspectionProofOf(server->pid) : ProcessState();
}

}  // namespace

LaunchOutcome requestLaunch(const host::LaunchOptions& options, const std::string& program) {
  const Descriptor socket = connectTo(addressOf(options.device));
  if (!socket) {
    return {};
  }
  const ProcSelf self;
  Request request = makeRequest(options, self, program);
  if (request.processState.empty()) {
    return {std::nullopt, "/proc lacks values that describe this process"};
  }
  const std::string proof = proofFor(socket);
  if (proof.empty()) {
    return {std::nullopt,
            "this process may not inspect the launch pad: Landlock confines it, or it has fewer "
            "rights"};
  }
  request.processState += proof;
  if (!canBeInherited(request.inheritedDescriptors)) {
    return {std::nullopt, "a prepared process cannot take over its inherited descriptors"};
  }
  const Descriptor started(eventfd(0, EFD_CLOEXEC));
  if (!started || !sendRequest(socket.get(), request, started.get())) {
    return {std::nullopt, "the request cannot be sent"};
  }
  return PendingLaunch(socket, started, self.ignoredSignals(), options.verbose).awaitOutcome();
}

bool isServed(const std::filesystem::path& device) {
  return static_cast<bool>(connectTo(addressOf(device)));
}

Expected<std::string> command(const std::filesystem::path& device, MessageKind kind) {
  const Descriptor socket = connectTo(addressOf(device));
  if (!socket || !sendMessage(socket.get(), kind)) {
    return fail("no launch pad of this user runs for the device root '" + device.string() + "'",
                "start one: quillon launchpad --device " + device.string());
  }
  Message message;
  std::string answer;
  while (receiveMessage(socket.get(), message) == Received::kMessage) {
    answer += message.bytes.view();
  }
  return answer;
}

}  // namespace quillon::launchpad
