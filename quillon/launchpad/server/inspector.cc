#include "quillon/launchpad/server/inspector.h"

#include <linux/close_range.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "quillon/base/process.h"
#include "quillon/base/processor.h"
#include "quillon/base/record.h"
#include "quillon/launchpad/protocol/fields.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/state/inspection_proof.h"
#include "quillon/launchpad/state/peer.h"
#include "quillon/launchpad/worker/process_setup.h"

namespace quillon::launchpad {
namespace {

constexpr size_t kMaxMessage = 1024;  // between the server and the child

// Receives one message. Returns nullopt with errno, or with errno 0 at the end.
std::optional<std::string> receiveBytes(int channel, int flags) {
  std::string bytes(kMaxMessage, '\0');
  const ssize_t length = recv(channel, bytes.data(), bytes.size(), flags);
  if (length <= 0) {
    errno = length == 0 ? 0 : errno;
    return std::nullopt;
  }
  bytes.resize(static_cast<size_t>(length));
  return bytes;
}

bool sendBytes(int channel, const std::string& bytes, int flags) {
  return send(channel, bytes.data(), bytes.size(), MSG_NOSIGNAL | flags) ==
         static_cast<ssize_t>(bytes.size());
}

template <typename Archive, typename AnyFinding>
void visitFinding(Archive&& archive, AnyFinding& finding) {
  archive(finding.client, finding.wasRead, finding.difference, finding.limits);
}

Finding inspectProcess(const ProcessState& own, uint64_t client, pid_t pid) {
  Finding finding{client, false, {}, limitsOf(pid)};
  const ProcessState state = observedStateOf(ProcProcess(pid), finding.limits);
  finding.wasRead = !state.empty();
  finding.difference = firstDifference(own, state);
  return finding;
}

// The child keeps no other descriptor of the server.
[[noreturn]] void runChild(const ProcessState& own, pid_t server, const Descriptor& channel) {
  setParentDeathSignal(server);
  sigset_t all;
  sigfillset(&all);
  detachFromServer(all);
  const auto number = static_cast<unsigned>(channel.get());
  close_range(0, number - 1, 0);
  close_range(number + 1, ~0U, 0);
  while (const auto question = receiveBytes(channel.get(), 0)) {
    RecordReader reader(*question);
    const uint64_t client = reader.number();
    const auto pid = static_cast<pid_t>(reader.number());
    const Finding finding = inspectProcess(own, client, pid);
    RecordWriter answer;
    visitFinding(Encoder(answer), finding);
    sendBytes(channel.get(), answer.bytes(), 0);  // waits until the server has read others
  }
  _exit(0);
}

}  // namespace

Expected<Inspector> Inspector::start(const ProcessState& own) {
  Inspector inspector;
  inspector.proof_ = openInspectionProof();
  auto [outer, inner] = makeSocketPair();
  if (!inspector.proof_ || !outer) {
    return fail("no descriptor is available", "raise the limit of open files (ulimit -n)");
  }
  inspector.channel_ = std::move(outer);
  const pid_t server = getpid();
  inspector.process_ = fork();
  if (inspector.process_ == 0) {
    runChild(own, server, inner);
  }
  if (inspector.process_ < 0) {
    return fail("cannot start a process", "check the number of processes (ulimit -u)");
  }
  return inspector;
}

// A process id of 0 means that the peer is in a PID namespace that /proc does not show.
bool Inspector::inspect(uint64_t client, int socket) {
  const pid_t pid = credentialsOfPeer(socket).pid;
  if (pid <= 0) {
    return false;
  }
  Descriptor peer = pidfdOfPeer(socket, pid);
  const auto question = RecordWriter().number(client).number(static_cast<uint64_t>(pid)).take();
  if (!peer || !sendBytes(channel_.get(), question, MSG_DONTWAIT)) {
    return false;
  }
  moveToOtherProcessor(process_);
  peers_[client] = std::move(peer);
  return true;
}

void Inspector::forget(uint64_t client) { peers_.erase(client); }

// A client that has not ended by now has had its process id all the time, so the finding is about
// it and not about another process that got its id.
std::optional<Finding> Inspector::next() {
  auto finding = channel_ ? receive() : unfinished();
  if (!finding) {
    return std::nullopt;
  }
  const auto peer = peers_.find(finding->client);
  finding->wasRead = finding->wasRead && peer != peers_.end() && isRunning(peer->second);
  if (peer != peers_.end()) {
    peers_.erase(peer);
  }
  return finding;
}

std::optional<Finding> Inspector::receive() {
  const auto bytes = receiveBytes(channel_.get(), MSG_DONTWAIT);
  if (!bytes && errno == EAGAIN) {
    return std::nullopt;
  }
  if (!bytes) {
    channel_.reset();
    return unfinished();
  }
  RecordReader reader(*bytes);
  Finding finding;
  visitFinding(Decoder(reader), finding);
  finding.wasRead = finding.wasRead && reader.atEnd();
  return finding;
}

// After the child's end, for each client whose inspection it has not finished.
std::optional<Finding> Inspector::unfinished() {
  if (peers_.empty()) {
    return std::nullopt;
  }
  return Finding{peers_.begin()->first, false, {}, {}};
}

void Inspector::close() {
  channel_.reset();
  proof_.reset();
  peers_.clear();
}

}  // namespace quillon::launchpad
