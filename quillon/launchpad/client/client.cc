#include "quillon/launchpad/client/client.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "quillon/base/exit_status.h"
#include "quillon/base/record.h"
#include "quillon/base/report.h"
#include "quillon/base/terminal.h"
#include "quillon/launchpad/client/signal_relay.h"
#include "quillon/launchpad/protocol/address.h"
#include "quillon/launchpad/protocol/exit_state.h"
#include "quillon/launchpad/protocol/request.h"

namespace quillon::launchpad {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A launch pad that is stopped, say, says nothing to anybody; it answers at once otherwise.
constexpr milliseconds kPatience{2000};
constexpr milliseconds kLongestEnd{10'000};  // of a process that was killed

// A launch that is asked for: what it is told, and by whom.
class PendingLaunch {
 public:
  // ignored  the signals that this process ignores
  PendingLaunch(const Descriptor& socket, const Descriptor& began, const sigset_t& ignored,
                bool verbose)
      : socket_(socket), began_(began), verbose_(verbose), signals_(ignored) {}

  LaunchOutcome follow();

 private:
  void wait() const;
  void handle(Message& packet);
  void handleTaken(Message& packet);
  LaunchOutcome declined(const std::string& why) const;
  LaunchOutcome lost() const;
  LaunchOutcome unanswered();
  [[nodiscard]] bool isTaken() const { return static_cast<bool>(signals_.target()); }
  [[nodiscard]] milliseconds patienceLeft() const;

  const Descriptor& socket_;
  const Descriptor& began_;
  const bool verbose_;
  const Clock::time_point asked_ = Clock::now();
  SignalRelay signals_;
  std::optional<LaunchOutcome> result_;
};

int launchPadGone() {
  return report(
      {"the launch pad ended, and the application with it", "start it again", kLaunchPadState});
}

void awaitEnd(const Descriptor& process) {
  pollfd ended{process.get(), POLLIN, 0};
  poll(&ended, 1, static_cast<int>(kLongestEnd.count()));
}

// An application that was told to end before it began does not begin elsewhere.
LaunchOutcome PendingLaunch::declined(const std::string& why) const {
  if (signals_.endingSignal() != 0) killSelfBy(signals_.endingSignal());
  return {std::nullopt, why};
}

// Its processes end with it.
LaunchOutcome PendingLaunch::lost() const {
  if (isTaken()) awaitEnd(signals_.target());
  if (wasStarted(began_.get())) return {launchPadGone(), {}};
  return declined("the launch pad ended");
}

milliseconds PendingLaunch::patienceLeft() const {
  return std::chrono::ceil<milliseconds>(asked_ + kPatience - Clock::now());
}

// Nothing that the launch pad says from here on arrives, and it assigns no process to a launch
// without having said so. It may have, at the last moment.
LaunchOutcome PendingLaunch::unanswered() {
  shutdown(socket_.get(), SHUT_RD);
  Message packet;
  if (receiveMessageNow(socket_.get(), packet) == Received::kMessage) handle(packet);
  if (result_) return *result_;
  if (!isTaken()) return declined("the launch pad does not answer");
  signals_.killTarget();
  return lost();
}

void PendingLaunch::handleTaken(Message& packet) {
  if (!packet.descriptors.empty()) signals_.setTarget(std::move(packet.descriptors.front()));
  if (!verbose_) return;
  const uint64_t process = RecordReader(packet.bytes).number();
  tell({"launched by the launch pad, in its process " + std::to_string(process), {}});
}

void PendingLaunch::handle(Message& packet) {
  switch (packet.kind) {
    case MessageKind::kTaken:
      handleTaken(packet);
      break;
    case MessageKind::kEnded:
      result_ = LaunchOutcome{exitAs(endingOf(packet.bytes)), {}};
      break;
    case MessageKind::kDeclined:
      result_ = declined(packet.bytes);
      break;
    default:
      break;
  }
}

void PendingLaunch::wait() const {
  std::array<pollfd, 2> events = {{{socket_.get(), POLLIN, 0}, {signals_.descriptor(), POLLIN, 0}}};
  const int atMost =
      isTaken() ? -1 : static_cast<int>(std::max(patienceLeft(), milliseconds(0)).count());
  poll(events.data(), events.size(), atMost);
}

LaunchOutcome PendingLaunch::follow() {
  while (!result_) {
    wait();
    signals_.relay();
    Message packet;
    switch (receiveMessageNow(socket_.get(), packet)) {
      case Received::kMessage:
        handle(packet);
        break;
      case Received::kEnd:
        result_ = lost();
        break;
      case Received::kNothingYet:
        if (isTaken()) break;
        if (signals_.endingSignal() != 0 || patienceLeft().count() <= 0) result_ = unanswered();
        break;
    }
  }
  return *result_;
}

// Whether a prepared process can have a request's descriptors at the same numbers.
bool canBeHandedOver(const std::vector<int>& others) {
  return others.size() <= kMostOthers &&
         std::all_of(others.begin(), others.end(), [](int fd) { return fd >= kLowestOther; });
}

}  // namespace

LaunchOutcome requestLaunch(const host::LaunchOptions& options, const std::string& program) {
  const Descriptor socket = connectTo(addressOf(options.device));
  if (!socket) return {};
  const ProcSelf self;
  const Request request = makeRequest(options, self, program);
  if (request.shape.empty()) return {std::nullopt, "/proc does not tell what this process is"};
  if (!canBeHandedOver(request.others)) {
    return {std::nullopt, "it has descriptors where a prepared process has its own"};
  }
  const Descriptor began(eventfd(0, EFD_CLOEXEC));
  if (!began || !sendRequest(socket.get(), request, began.get())) {
    return {std::nullopt, "the launch pad cannot be told"};
  }
  return PendingLaunch(socket, began, self.ignoredSignals(), options.verbose).follow();
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
  Message packet;
  std::string answer;
  while (receiveMessage(socket.get(), packet) == Received::kMessage) answer += packet.bytes;
  return answer;
}

}  // namespace quillon::launchpad
