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
    readServer();
    if (outcome_) {
      break;
    }
    if (onStart_) {
      readWorker();
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
  const bool awaitsWorker = stage_ == Stage::kHandedOver || stage_ == Stage::kTakenOver;
  const int worker = onStart_ && awaitsWorker ? connection_.client.get() : -1;
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
  switch (message.kind) {
    case MessageKind::kConnection:
      return onConnection(parseConnection(std::move(message)));
    case MessageKind::kTaken:
      return onTaken(parseTaken(std::move(message)));
    case MessageKind::kEnded: {
      const auto state = decodeExitState(message.bytes.view());
      return state ? onWorkerEnded(*state) : onServerGone();
    }
    case MessageKind::kDeclined: {
      auto decline = parseDecline(message);
      return decline ? onDeclined(*std::move(decline)) : onServerGone();
    }
    default:
      return;
  }
}

void PendingLaunch::onConnection(Connection connection) {
  if (stage_ == Stage::kRequested && connection.client) {
    connection_ = std::move(connection);
    isHandedOver_ = handOver_.send(connection_.client.get());
  }
}

void PendingLaunch::onTaken(TakenReply reply) {
  if (stage_ != Stage::kRequested || !reply.pidfd) {
    return;  // the deadline decides
  }
  signals_.setTarget(std::move(reply.pidfd));
  enter(Stage::kHandedOver);
  if (!isHandedOver_) {
    signals_.killTarget();  // the server reports its end
  }
  if (verbose_) {
    tell({"launched by the launch pad, in its process " + std::to_string(reply.worker), {}});
  }
}

// A worker has the launch only after kTaken.
void PendingLaunch::readWorker() {
  Message message;
  while (stage_ != Stage::kRequested &&
         receiveBytesNow(connection_.client.get(), message) == Received::kMessage) {
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
  connection_ = {};
  enter(Stage::kRequested);
  if (++failedWorkers_ == kMaxWorkers || !sendRequest(server_.get(), request_)) {
    decline("the prepared process died before the application began");
  }
}

// Kills the worker, unless the application has started. Returns false if it has, and sets the
// outcome if it has ended too. A worker cannot report its start after the shutdown(), also if it
// gets the launch only then.
bool PendingLaunch::endWorker() {
  shutdown(connection_.client.get(), SHUT_RD);
  Message message;
  std::optional<ExitState> ended;
  while (receiveMessageNow(server_.get(), message) == Received::kMessage) {
    if (message.kind == MessageKind::kEnded) {
      ended = decodeExitState(message.bytes.view());
    }
    if (message.kind == MessageKind::kTaken) {
      onTaken(parseTaken(std::move(message)));
    }
  }
  readWorker();
  if (stage_ == Stage::kStarted) {
    if (ended) {
      outcome_ = LaunchOutcome{exitAs(*ended), {}};
    }
    return false;
  }
  if (stage_ != Stage::kRequested) {
    signals_.killTarget();
    awaitExit(signals_.target());
  }
  return true;
}

// Removes the hand-over from the connection if no worker has received it. Otherwise a server that
// is stopped would keep the descriptors of this process open.
void PendingLaunch::takeBack() const {
  Message handOver;
  receiveMessageNow(connection_.worker.get(), handOver);
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
    decline(kSilent.at(static_cast<size_t>(before)));
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
  takeBack();
  if (signals_.endingSignal() != 0) {
    killSelfBy(signals_.endingSignal());
  }
  outcome_ =
      LaunchOutcome{std::nullopt, std::move(why.reason), std::move(why.remedy), why.isLaunchable};
}

}  // namespace quillon::launchpad
