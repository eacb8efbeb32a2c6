#include "launcher/launchpad/client.h"

#include <poll.h>

#include <array>
#include <cerrno>

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

// What the launch pad did last with a launch.
struct Progress {
  bool verbose = false;
  bool taken = false;
  std::optional<Asked> result;
};

int launchPadGone() {
  return report({"the launch pad ended, and the application with it", "start it again"},
                kLaunchPadState);
}

// An application that was told to end before it began does not begin elsewhere.
Asked declined(const SignalRelay& signals, const std::string& why) {
  if (signals.endingSignal() != 0) dieBy(signals.endingSignal());
  return {std::nullopt, why};
}

Asked lost(const SignalRelay& signals, bool taken) {
  if (taken) return {launchPadGone(), {}};
  return declined(signals, "the launch pad ended");
}

void handleTaken(Packet& packet, SignalRelay& signals, Progress& progress) {
  progress.taken = true;
  if (!packet.descriptors.empty()) signals.setTarget(std::move(packet.descriptors.front()));
  if (!progress.verbose) return;
  const uint64_t process = RecordReader(packet.bytes).number();
  launcher::tell({"launched by the launch pad, in its process " + std::to_string(process), {}});
}

void handle(Packet& packet, SignalRelay& signals, Progress& progress) {
  switch (packet.kind) {
    case PacketKind::kTaken:
      handleTaken(packet, signals, progress);
      break;
    case PacketKind::kEnded:
      progress.result = Asked{endAs(endingOf(packet.bytes)), {}};
      break;
    case PacketKind::kDeclined:
      progress.result = declined(signals, packet.bytes);
      break;
    default:
      break;
  }
}

void waitForEither(int socket, const SignalRelay& signals) {
  std::array<pollfd, 2> events = {{{socket, POLLIN, 0}, {signals.descriptor(), POLLIN, 0}}};
  while (poll(events.data(), events.size(), -1) < 0 && errno == EINTR) {
  }
}

Asked follow(const Descriptor& socket, bool verbose) {
  SignalRelay signals;
  Progress progress;
  progress.verbose = verbose;
  while (!progress.result) {
    waitForEither(socket.get(), signals);
    signals.relay();
    Packet packet;
    switch (receivePacketNow(socket.get(), packet)) {
      case Received::kPacket:
        handle(packet, signals, progress);
        break;
      case Received::kEnd:
        progress.result = lost(signals, progress.taken);
        break;
      case Received::kNothingYet:
        break;
    }
  }
  return *progress.result;
}

}  // namespace

Asked askForLaunch(const launcher::LaunchOptions& options, const std::filesystem::path& program) {
  const Descriptor socket = connectTo(addressOf(options.device));
  if (!socket) return {};
  if (!sendRequest(socket.get(), makeRequest(options, program))) {
    return {std::nullopt, "the launch pad cannot be told"};
  }
  return follow(socket, options.verbose);
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
