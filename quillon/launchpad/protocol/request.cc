#include "quillon/launchpad/protocol/request.h"

#include <utility>

#include "quillon/base/record.h"
#include "quillon/launchpad/protocol/fields.h"

namespace quillon::launchpad {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kTypicalSize = 2 * 1024;

template <typename Archive, typename AnyRequest>
void visitRequest(Archive&& archive, AnyRequest& request) {
  archive(request.appId, request.type, request.exec, request.raw, request.processState);
}

template <typename Archive, typename AnyDecline>
void visitDecline(Archive&& archive, AnyDecline& decline) {
  archive(decline.reason, decline.remedy, decline.isLaunchable);
}

template <typename Archive, typename AnyTarget, typename AnyLimits>
void visitAssignment(Archive&& archive, AnyTarget& target, AnyLimits& limits) {
  archive(target.package.id, target.package.rootPath, target.application.id, target.type,
          target.exec, target.assembly, limits);
}

}  // namespace

Request makeRequest(const host::LaunchOptions& options, const ProcSelf& process,
                    const std::string& program) {
  Request request;
  request.appId = options.appId;
  request.type = options.type;
  request.exec = options.exec;
  request.raw = options.raw;
  request.processState = declaredStateOf(process, program);
  return request;
}

bool sendRequest(int socket, const Request& request) {
  RecordWriter writer;
  writer.reserve(kTypicalSize);
  visitRequest(Encoder(writer), request);
  return sendMessage(socket, MessageKind::kLaunch, writer.bytes());
}

std::optional<Request> parseRequest(const Message& message) {
  RecordReader reader(message.bytes.view());
  Request request;
  visitRequest(Decoder(reader), request);
  return reader.atEnd() ? std::optional(std::move(request)) : std::nullopt;
}

bool sendDecline(int socket, const Decline& decline) {
  RecordWriter writer;
  visitDecline(Encoder(writer), decline);
  return sendMessage(socket, MessageKind::kDeclined, writer.bytes());
}

std::optional<Decline> parseDecline(const Message& message) {
  RecordReader reader(message.bytes.view());
  Decline decline;
  visitDecline(Decoder(reader), decline);
  return reader.atEnd() ? std::optional(std::move(decline)) : std::nullopt;
}

bool sendConnection(int socket, const Connection& connection) {
  return sendMessage(socket, MessageKind::kConnection, {},
                     {connection.client.get(), connection.worker.get()});
}

Connection parseConnection(Message message) {
  if (message.descriptors.size() != 2) {
    return {};
  }
  return {std::move(message.descriptors[0]), std::move(message.descriptors[1])};
}

bool sendTaken(int socket, pid_t worker, int pidfd) {
  return sendMessage(socket, MessageKind::kTaken,
                     RecordWriter().number(static_cast<uint64_t>(worker)).bytes(), {pidfd});
}

TakenReply parseTaken(Message message) {
  RecordReader reader(message.bytes.view());
  TakenReply reply;
  Decoder decoder(reader);
  decoder(reply.worker);
  if (reader.atEnd() && message.descriptors.size() == 1) {
    reply.pidfd = std::move(message.descriptors[0]);
  }
  return reply;
}

bool sendAssignment(int socket, const host::LaunchTarget& target, const Limits& limits,
                    int connection) {
  RecordWriter writer;
  writer.reserve(kTypicalSize);
  visitAssignment(Encoder(writer), target, limits);
  return sendMessage(socket, MessageKind::kAssign, writer.bytes(), {connection});
}

std::optional<Assignment> parseAssignment(Message message) {
  Assignment assignment;
  RecordReader reader(message.bytes.view());
  visitAssignment(Decoder(reader), assignment.target, assignment.limits);
  if (!reader.atEnd() || assignment.limits.size() != RLIM_NLIMITS ||
      message.descriptors.size() != 1) {
    return std::nullopt;
  }
  assignment.connection = std::move(message.descriptors.front());
  return assignment;
}

bool sendNoted(int socket, bool hasBoostListener) {
  return sendMessage(socket, MessageKind::kNoted,
                     RecordWriter().number(hasBoostListener ? 1 : 0).bytes());
}

bool parseNoted(const Message& message) { return RecordReader(message.bytes.view()).number() == 1; }

bool sendStarted(int socket) {
  const Clock::duration now = Clock::now().time_since_epoch();
  return sendMessage(socket, MessageKind::kStarted,
                     RecordWriter().number(static_cast<uint64_t>(now.count())).bytes());
}

Clock::time_point parseStarted(const Message& message) {
  const uint64_t ticks = RecordReader(message.bytes.view()).number();
  return Clock::time_point(Clock::duration(static_cast<Clock::rep>(ticks)));
}

}  // namespace quillon::launchpad
