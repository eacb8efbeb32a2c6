#include "quillon/launchpad/client/pending_launch.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <utility>

#include "quillon/base/exit_status.h"
#include "quillon/base/record.h"
#include "quillon/base/report.h"
#include "quillon/base/terminal.h"

namespace quillon::launchpad {
namespace {

using std::chrono::milliseconds;

constexpr unsigned kMaxWorkers = 2;           // that get the launch one after the other
constexpr milliseconds kExitTimeout{10'000};  // of a killed process

// Why the client gives up, by stage.
constexpr std::array kSilent = {"the launch pad does not answer",
                                "its prepared process does not take the launch over",
                                "its prepared process does not start the application"};

void awaitExit(const Descriptor& process) {
  pollfd exited{process.get(), POLLIN, 0};
  ::poll(&exited, 1, static_cast<int>(kExitTimeout.count()));
}

}  // namespace

PendingLaunch::PendingLaunch(const Descriptor& server, const Request& request,
                             const EncodedHandOver& handOver, const sigset_t& ignored, bool verbose,
                             const Timeouts& timeouts, std::function<void()> onStart)
    : server_(server),
      request_(request),
      handOver_(handOver),
      verbose_(verbose),
      timeouts_(timeouts),
      onStart_(std::move(onStart)),
      signals_(ignored) {
  enter(Stage::kRequested);
}

LaunchOutcome PendingLaunch::awaitOutcome() {
  while (!outcome_) {
    poll();
    signals_.relay();
    if (onStart_) {
      readWorker();
    }
    readServer();
    if (outcome_) {
      break;
    }
    const bool isInterrupted = stage_ == Stage::kRequested && signals_.endingSignal() != 0;
    if (isInterrupted || (deadline_ && Clock::now() >= *deadline_)) {
      onTimeout();
    }
  }
  return *std::move(outcome_);
}

void PendingLaunch::enter(Stage stage) {
  stage_ = stage;
  deadline_.reset();
  if (stage != Stage::kStarted) {
    deadline_ = Clock::now() + timeouts_.at(static_cast<size_t>(stage));
  } else if (onStart_) {
    onStart_();
  }
}

// Without onStart_, does not wait for messages of the worker: they matter only if it ends or a
// deadline passes, and waking up for them would compete with the start of the application.
void PendingLaunch::poll() const {
  milliseconds wait(-1);
  if (deadline_) {
    wait = std::max(std::chrono::ceil<milliseconds>(*deadline_ - Clock::now()), milliseconds(0));
  }
  const int worker = onStart_ && stage_ != Stage::kStarted ? worker_.get() : -1;
  std::array<pollfd, 3> events = {
      {{server_.get(), POLLIN, 0}, {signals_.descriptor(), POLLIN, 0}, {worker, POLLIN, 0}}};
  ::poll(events.data(), events.size(), static_cast<int>(wait.count()));
}

void PendingLaunch::readServer() {
  Message message;
  switch (receiveMessageNow(server_.get(), message)) {
    case Received::kMessage:
      return handle(std::move(message));
    case Received::kEnd:
      return onServerGone();
    case Received::kNothingYet:
      return;
  }
}

// A server that sends a malformed message counts as gone.
void PendingLaunch::handle(Message message) {
  if (message.kind == MessageKind::kTaken) {
    onTaken(parseTaken(std::move(message)));
  } else if (message.kind == MessageKind::kEnded) {
    const auto state = decodeExitState(message.bytes.view());
    state ? onWorkerEnded(*state) : onServerGone();
  } else if (message.kind == MessageKind::kDeclined) {
    auto decline = parseDecline(message);
    decline ? onDeclined(*std::move(decline)) : onServerGone();
  }
}

void PendingLaunch::onTaken(TakenReply reply) {
  if (stage_ != Stage::kRequested || !reply.pidfd || !reply.connection) {
    return;  // the deadline decides
  }
  worker_ = std::move(reply.connection);
  signals_.setTarget(std::move(reply.pidfd));
  enter(Stage::kHandedOver);
  if (!handOver_.send(worker_.get())) {
    signals_.killTarget();  // the server reports its end
  }
  if (verbose_) {
    tell({"launched by the launch pad, in its process " + std::to_string(reply.worker), {}});
  }
}

void PendingLaunch::readWorker() {
  Message message;
  while (worker_ && receiveBytesNow(worker_.get(), message) == Received::kMessage) {
    if (message.kind == MessageKind::kTakenOver) {
      enter(Stage::kTakenOver);
    }
    if (message.kind == MessageKind::kStarted) {
      enter(Stage::kStarted);
    }
  }
}

// A worker that has the whole launch and exits by itself has reported its failure, for instance a
// refusal by the plug-in. That is the result, as in a direct launch.
void PendingLaunch::onWorkerEnded(const ExitState& state) {
  readWorker();
  if (stage_ == Stage::kStarted || (stage_ == Stage::kTakenOver && !state.bySignal)) {
    outcome_ = LaunchOutcome{exitAs(state), {}};
    return;
  }
  worker_.reset();
  enter(Stage::kRequested);
  if (++failedWorkers_ == kMaxWorkers || !sendRequest(server_.get(), request_)) {
    decline("the prepared process died before the application began");
  }
}

// Kills the worker, unless the application has started. Returns false if it has. A worker cannot
// report its start after the shutdown().
bool PendingLaunch::endWorker() {
  if (!worker_) {
    return true;
  }
  shutdown(worker_.get(), SHUT_RD);
  readWorker();
  if (stage_ == Stage::kStarted) {
    return false;
  }
  signals_.killTarget();
  awaitExit(signals_.target());
  return true;
}

// Most workers end with the server by themselves, but not those that have changed their
// credentials.
void PendingLaunch::onServerGone() {
  if (endWorker()) {
    return decline("the launch pad closed the connection");
  }
  signals_.killTarget();
  awaitExit(signals_.target());
  const Failure failure{"the launch pad ended, and the application with it", "start it again",
                        kLaunchPadState};
  outcome_ = LaunchOutcome{report(failure), {}};
}

void PendingLaunch::onTimeout() {
  const Stage before = stage_;
  readWorker();
  if (stage_ == before && endWorker()) {
    decline(kSilent.at(static_cast<size_t>(stage_)));
  }
}

// A decision of this process, of which the server knows nothing.
void PendingLaunch::decline(const std::string& reason) {
  sendMessage(server_.get(), MessageKind::kDirect,
              RecordWriter().text(request_.appId).text(reason).bytes());
  onDeclined({reason, "see what the launch pad says: quillon launchpad status"});
}

// A signal that asked the application to end before it started also prevents the direct launch.
void PendingLaunch::onDeclined(Decline why) {
  if (signals_.endingSignal() != 0) {
    killSelfBy(signals_.endingSignal());
  }
  outcome_ =
      LaunchOutcome{std::nullopt, std::move(why.reason), std::move(why.remedy), why.isLaunchable};
}

}  // namespace quillon::launchpad
