// What a worker receives: the assignment of the launch pad and the hand-over of the client. Each
// has one form: encoding an accepted one gives the same bytes. A hand-over keeps every descriptor
// that it carries. Input: the message, see scripted_message.h.
#include <algorithm>

#include "quillon/base/record.h"
#include "quillon/launchpad/protocol/hand_over.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/protocol/sealed_memory.h"
#include "tests/fuzz/round_trip.h"
#include "tests/fuzz/scripted_message.h"

namespace {

using namespace quillon::launchpad;

constexpr std::uint64_t kFileBit = 1U << 4;

void requireAssignmentHasOneForm(std::string_view script) {
  Message message = quillon::fuzz::scriptedMessage(script);
  const std::string bytes(message.bytes.view());
  const auto assignment = parseAssignment(std::move(message));
  if (!assignment) {
    return;
  }
  FUZZ_REQUIRE(assignment->connection);
  const Message again = quillon::fuzz::sentAndReceived([&](int socket) {
    return sendAssignment(socket, assignment->target, assignment->limits, 0);
  });
  FUZZ_REQUIRE(again.bytes.view() == bytes);
}

// The bytes of a hand-over after its first number.
std::string encoded(const HandOver& handOver) {
  quillon::RecordWriter writer;
  writer.texts(handOver.environment).texts(handOver.arguments);
  writer.text(handOver.workingDirectory.path);
  writer.number(handOver.workingDirectory.device).number(handOver.workingDirectory.inode);
  writer.number(handOver.umask).number(handOver.ignoredSignals);
  writer.number(handOver.inheritedDescriptors.size());
  for (const int fd : handOver.inheritedDescriptors) {
    writer.number(static_cast<std::uint64_t>(fd));
  }
  writer.text(handOver.log.target).number(static_cast<std::uint64_t>(handOver.log.level));
  writer.number(handOver.log.applicationOutput ? 1 : 0);
  return writer.take();
}

// The fields of a hand-over as its message or its memory file has them.
std::string fieldsOf(const Message& message) {
  quillon::RecordReader reader(message.bytes.view());
  const std::uint64_t bits = reader.number();
  if ((bits & kFileBit) != 0 && !message.descriptors.empty()) {
    return std::string(readSealedMemory(message.descriptors.front().get()).view());
  }
  return std::string(reader.rest());
}

void requireHandOverIsWhole(std::string_view script) {
  Message message = quillon::fuzz::scriptedMessage(script);
  const std::string fields = fieldsOf(message);
  const std::uint64_t bits = quillon::RecordReader(message.bytes.view()).number();
  const std::size_t carried = message.descriptors.size();
  const auto handOver = parseHandOver(std::move(message));
  if (!handOver) {
    return;
  }
  FUZZ_REQUIRE(encoded(*handOver) == fields);
  FUZZ_REQUIRE(handOver->inherited.size() == handOver->inheritedDescriptors.size());
  const auto standard =
      static_cast<std::size_t>(std::count_if(handOver->standard.begin(), handOver->standard.end(),
                                             [](const auto& fd) { return bool(fd); }));
  FUZZ_REQUIRE(standard + handOver->inherited.size() + (handOver->logFile ? 1 : 0) +
                   ((bits & kFileBit) != 0 ? 1 : 0) ==
               carried);
}

}  // namespace

FUZZ_TARGET(launchpad_worker) {
  requireAssignmentHasOneForm(bytes);
  requireHandOverIsWhole(bytes);
}
