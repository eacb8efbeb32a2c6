#include "launcher/launchpad/client.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "launcher/launchpad/address.h"
#include "launcher/launchpad/ending.h"
#include "launcher/launchpad/request.h"
#include "launcher/launchpad/signal_relay.h"
#include "launcher/launchpad/text_record.h"
#include "launcher/terminal.h"
#include "tools/exit_status.h"
#include "tools/report.h"

namespace quillon::launchpad {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A launch pad that is stopped, say, says nothing to anybody; it answers at once otherwise.
constexpr milliseconds kPatience{2000};
constexpr milliseconds kLongestEnd{10'000};  // of a process that was killed

// A launch that is asked for: what it is told, and by whom.
class Asking {
 public:
  // ignored  the signals that this process ignores
  Asking(const Descriptor& socket, const Descriptor& began, const sigset_t& ignored, bool verbose)
      : socket_(socket), began_(began), verbose_(verbose), signals_(ignored) {}

  Asked follow();

 private:
  void wait() const;
  void handle(Packet& packet);
  void handleTaken(Packet& packet);
  Asked declined(const std::string& why) const;
  Asked lost() const;
  Asked unanswered();
  [[nodiscard]] bool isTaken() const { return static_cast<bool>(signals_.target()); }
  [[nodiscard]] milliseconds patienceLeft() const;

  const Descriptor& socket_;
  const Descriptor& began_;
  const bool verbose_;
  const Clock::time_point asked_ = Clock::now();
  SignalRelay signals_;
  std::optional<Asked> result_;
};

int launchPadGone() {
  return report({"the launch pad ended, and the application with it", "start it again"},
                kLaunchPadState);
}

void awaitEnd(const Descriptor& process) {
  pollfd ended{process.get(), POLLIN, 0};
  poll(&ended, 1, static_cast<int>(kLongestEnd.count()));
}

// An application that was told to end before it began does not begin elsewhere.
Asked Asking::declined(const std::string& why) const {
  if (signals_.endingSignal() != 0) dieBy(signals_.endingSignal());
  return {std::nullopt, why};
}

// Its processes end with it.
Asked Asking::lost() const {
  if (isTaken()) awaitEnd(signals_.target());
  if (wasToldBegun(began_.get())) return {launchPadGone(), {}};
  return declined("the launch pad ended");
}

milliseconds Asking::patienceLeft() const {
  return std::chrono::ceil<milliseconds>(asked_ + kPatience - Clock::now());
}

// Nothing that the launch pad says from here on arrives, and it assigns no process to a launch
// without having said so. It may have, at the last moment.
Asked Asking::unanswered() {
  shutdown(socket_.get(), SHUT_RD);
  Packet packet;
  if (receivePacketNow(socket_.get(), packet) == Received::kPacket) handle(packet);
  if (result_) return *result_;
  if (!isTaken()) return declined("the launch pad does not answer");
  signals_.killTarget();
  return lost();
}

void Asking::handleTaken(Packet& packet) {
  if (!packet.descriptors.empty()) signals_.setTarget(std::move(packet.descriptors.front()));
  if (!verbose_) return;
  const uint64_t process = RecordReader(packet.bytes).number();
  launcher::tell({"launched by the launch pad, in its process " + std::to_string(process), {}});
}

void Asking::handle(Packet& packet) {
  switch (packet.kind) {
    case PacketKind::kTaken:
      handleTaken(packet);
      break;
    case PacketKind::kEnded:
      result_ = Asked{endAs(endingOf(packet.bytes)), {}};
      break;
    case PacketKind::kDeclined:
      result_ = declined(packet.bytes);
      break;
    default:
      break;
  }
}

void Asking::wait() const {
  std::array<pollfd, 2> events = {{{socket_.get(), POLLIN, 0}, {signals_.descriptor(), POLLIN, 0}}};
  const int atMost =
      isTaken() ? -1 : static_cast<int>(std::max(patienceLeft(), milliseconds(0)).count());
  poll(events.data(), events.size(), atMost);
}

Asked Asking::follow() {
  while (!result_) {
    wait();
    signals_.relay();
    Packet packet;
    switch (receivePacketNow(socket_.get(), packet)) {
      case Received::kPacket:
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

Asked askForLaunch(const launcher::LaunchOptions& options, const std::string& program) {
  const Descriptor socket = connectTo(addressOf(options.device));
  if (!socket) return {};
  const OwnProcess self;
  const Request request = makeRequest(options, self, program);
  if (request.shape.empty()) return {std::nullopt, "/proc does not tell what this process is"};
  if (!canBeHandedOver(request.others)) {
    return {std::nullopt, "it has descriptors where a prepared process has its own"};
  }
  const Descriptor began(eventfd(0, EFD_CLOEXEC));
  if (!began || !sendRequest(socket.get(), request, began.get())) {
    return {std::nullopt, "the launch pad cannot be told"};
  }
  return Asking(socket, began, self.ignoredSignals(), options.verbose).follow();
}

bool isServed(const std::filesystem::path& device) {
  return static_cast<bool>(connectTo(addressOf(device)));
}

Expected<std::string> command(const std::filesystem::path& device, PacketKind kind) {
  const Descriptor socket = connectTo(addressOf(device));
  if (!socket || !sendPacket(socket.get(), kind)) {
    return fail("no launch pad of this user runs for the device root '" + device.string() + "'",
                "start one: quillon launchpad --device " + device.string());
  }
  Packet packet;
  std::string answer;
  while (receivePacket(socket.get(), packet) == Received::kPacket) answer += packet.bytes;
  return answer;
}

}  // namespace quillon::launchpad
