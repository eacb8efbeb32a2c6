#include "quillon/launchpad/client/client.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

#include "quillon/base/record.h"
#include "quillon/base/shell_word.h"
#include "quillon/launchpad/client/pending_launch.h"
#include "quillon/launchpad/protocol/address.h"
#include "quillon/launchpad/protocol/hand_over.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/state/inspection_proof.h"

namespace quillon::launchpad {
namespace {

constexpr std::chrono::milliseconds kAnswerTimeout{2'000};
constexpr std::chrono::milliseconds kForever{-1};

// Why a worker cannot have the inherited descriptors under the same numbers. Empty if it can.
std::string whyNotInherited(const std::vector<int>& descriptors) {
  if (descriptors.size() > kMaxInheritedDescriptors) {
    return "a prepared process cannot take over " + std::to_string(descriptors.size()) +
           " inherited descriptors, but at most " + std::to_string(kMaxInheritedDescriptors);
  }
  const auto highest = std::max_element(descriptors.begin(), descriptors.end());
  if (highest != descriptors.end() && *highest >= kMinOwnDescriptor) {
    return "a prepared process cannot take over the inherited descriptor " +
           std::to_string(*highest) + ": it uses the numbers from " +
           std::to_string(kMinOwnDescriptor) + " on";
  }
  return {};
}

// Waits for a message and ignores kConnection, which the server sends to every client. Returns
// kNothingYet when the time is over.
Received awaitMessage(const Descriptor& socket, Message& message, std::chrono::milliseconds time) {
  Received received = Received::kNothingYet;
  do {
    pollfd readable{socket.get(), POLLIN, 0};
    ::poll(&readable, 1, static_cast<int>(time.count()));
    received = receiveMessageNow(socket.get(), message);
  } while (received == Received::kMessage && message.kind == MessageKind::kConnection);
  return received;
}

Failure notRunning(const std::filesystem::path& device) {
  return {"no launch pad of this user runs for the device root '" + device.string() + "'",
          "start one: quillon launchpad --device " + shellWord(device.string())};
}

Failure silent(pid_t process) {
  const std::string id = std::to_string(process);
  return {
      "the launch pad, process " + id + ", does not answer",
      "if it is stopped, continue it (kill -CONT " + id + ") or end it (kill -KILL " + id + ")"};
}

// Tells the server why this process launches the application itself.
LaunchOutcome direct(const Descriptor& server, const host::LaunchOptions& options, Failure why) {
  sendMessage(server.get(), MessageKind::kDirect,
              RecordWriter().text(options.appId).text(why.what).bytes());
  return {std::nullopt, std::move(why.what), std::move(why.remedy)};
}

}  // namespace

LaunchOutcome requestLaunch(const host::LaunchOptions& options, const workstation::LogConfig& log,
                            const std::string& program) {
  const auto server = connectTo(addressOf(options.device));
  if (!server) {
    return {std::nullopt, server.error().what, server.error().remedy};
  }
  if (!*server) {
    return {};
  }
  const ProcSelf self;
  Request request = makeRequest(options, self, program);
  if (request.processState.empty()) {
    return direct(*server, options,
                  {"/proc lacks values that describe this process", "mount it (proc(5))"});
  }
  const ProcessState proof = inspectionProofOf(processOfPeer(server->get()));
  if (proof.empty()) {
    return direct(*server, options,
                  {"this process may not inspect the launch pad: Landlock confines it, or it has "
                   "fewer rights",
                   "launch with the rights of the launch pad"});
  }
  request.processState += proof;
  const std::vector<int> inherited = self.inheritedDescriptors();
  if (std::string reason = whyNotInherited(inherited); !reason.empty()) {
    return direct(*server, options,
                  {std::move(reason),
                   "close those that the application does not need; see ls -l /proc/$$/fd"});
  }
  if (!sendRequest(server->get(), request)) {
    return direct(*server, options, {"the request cannot be sent", {}});
  }
  // Encoded while the server answers.
  const EncodedHandOver handOver(options.arguments, self, log, inherited);
  return PendingLaunch(*server, request, handOver, self.ignoredSignals(), options.verbose,
                       kTimeouts, options.onStart)
      .awaitOutcome();
}

bool isServed(const std::filesystem::path& device) {
  const auto server = connectTo(addressOf(device));
  return server && *server;
}

bool hasWorkingDirectoryReadOnly(const std::filesystem::path& device) {
  const auto server = connectTo(addressOf(device));
  if (!server || !*server || access(".", W_OK) != 0) {
    return false;
  }
  // The path as the launch pad sees it; see "/proc/PID/root" in proc(5).
  std::error_code error;
  const std::string inside = "/proc/" + std::to_string(processOfPeer(server->get())) + "/root" +
                             std::filesystem::current_path(error).string();
  const bool isShared = !error && std::filesystem::equivalent(inside, ".", error) &&
                        access(inside.c_str(), W_OK) == 0;
  return !isShared;
}

Expected<std::string> command(const std::filesystem::path& device, MessageKind kind) {
  ASSIGN_OR_RETURN(const Descriptor server, connectTo(addressOf(device)));
  if (!server || !sendMessage(server.get(), kind)) {
    return tl::unexpected(notRunning(device));
  }
  Message answer;
  switch (awaitMessage(server, answer, kAnswerTimeout)) {
    case Received::kMessage:
      break;
    case Received::kNothingYet:
      return tl::unexpected(silent(processOfPeer(server.get())));
    case Received::kEnd:
      return fail("the launch pad closed the connection", "try again");
  }
  Message more;
  while (kind == MessageKind::kStop && awaitMessage(server, more, kForever) != Received::kEnd) {
  }
  return std::string(answer.bytes.view());
}

Expected<Status> statusOf(const std::filesystem::path& device) {
  ASSIGN_OR_RETURN(const std::string answer, command(device, MessageKind::kStatus));
  if (auto status = decodeStatus(answer)) {
    return *std::move(status);
  }
  return fail("the launch pad's answer is malformed", "restart it: another version may run");
}

}  // namespace quillon::launchpad
