#include "quillon/launchpad/protocol/hand_over.h"

#include <fcntl.h>
#include <unistd.h>

#include <bit>
#include <charconv>
#include <cstring>
#include <utility>

#include "quillon/base/record.h"
#include "quillon/launchpad/protocol/fields.h"
#include "quillon/launchpad/protocol/sealed_memory.h"

namespace quillon::launchpad {
namespace {

constexpr size_t kMaxSizeInMessage = kMaxMessageSize / 2;  // longer ones go into a memory file
constexpr size_t kTypicalSize = 1024;                      // without the environment

// The first number of a message's bytes says which of the optional descriptors the message carries:
// bits 0 to 2 for the standard ones. The descriptors follow each other in this order: the memory
// file, the standard descriptors, the log's, the inherited ones.
constexpr uint64_t kLogBit = 1U << 3;
constexpr uint64_t kFileBit = 1U << 4;
constexpr uint64_t kAllBits = kFileBit | kLogBit | 7U;

// All fields but the environment, which comes first.
template <typename Archive, typename AnyHandOver>
void visit(Archive&& archive, AnyHandOver& handOver) {
  archive(handOver.arguments, handOver.workingDirectory.path, handOver.workingDirectory.device,
          handOver.workingDirectory.inode, handOver.umask, handOver.ignoredSignals,
          handOver.inheritedDescriptors, handOver.log.target, handOver.log.level,
          handOver.log.applicationOutput);
}

// Encodes environ(7) without a copy of it.
void encodeEnvironment(RecordWriter& writer) {
  uint64_t count = 0;
  size_t length = 0;
  for (; environ != nullptr && environ[count] != nullptr; ++count) {
    length += sizeof count + std::strlen(environ[count]);
  }
  writer.reserve(length + kTypicalSize).number(count);
  for (uint64_t i = 0; i < count; ++i) {
    writer.text(environ[i]);
  }
}

// The umask of the process, which umask(2) cannot query without a change.
mode_t umaskOf(const ProcSelf& process) {
  const std::string_view digits = process.status("Umask").value_or("");
  mode_t mask = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), mask, 8);
  return mask;
}

// Whether a message carries exactly the descriptors that its bytes name.
bool hasItsDescriptors(const Message& message, uint64_t bits, const HandOver& handOver) {
  const size_t count =
      static_cast<size_t>(std::popcount(bits)) + handOver.inheritedDescriptors.size();
  return bits <= kAllBits && message.descriptors.size() == count;
}

void detachDescriptors(Message& message, uint64_t bits, HandOver& handOver) {
  size_t next = (bits & kFileBit) != 0 ? 1 : 0;
  for (size_t fd = 0; fd < handOver.standard.size(); ++fd) {
    if ((bits & (1U << fd)) != 0) {
      handOver.standard[fd] = std::move(message.descriptors[next++]);
    }
  }
  if ((bits & kLogBit) != 0) {
    handOver.logFile = std::move(message.descriptors[next++]);
  }
  while (next < message.descriptors.size()) {
    handOver.inherited.push_back(std::move(message.descriptors[next++]));
  }
}

}  // namespace

EncodedHandOver::EncodedHandOver(const std::vector<std::string>& arguments, const ProcSelf& process,
                                 const workstation::LogConfig& log,
                                 const std::vector<int>& inherited) {
  uint64_t bits = 0;
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) >= 0) {
      descriptors_.push_back(fd);
      bits |= 1U << fd;
    }
  }
  if (log.descriptor >= 0) {
    descriptors_.push_back(log.descriptor);
    bits |= kLogBit;
  }
  descriptors_.insert(descriptors_.end(), inherited.begin(), inherited.end());
  RecordWriter writer;
  writer.number(bits);
  encodeEnvironment(writer);
  HandOver handOver;
  handOver.arguments = arguments;
  handOver.workingDirectory = device::workingDirectory();
  handOver.umask = umaskOf(process);
  handOver.ignoredSignals = process.signals("SigIgn");
  handOver.inheritedDescriptors = inherited;
  handOver.log = log;
  visit(Encoder(writer), std::as_const(handOver));
  bytes_ = writer.take();
  if (bytes_.size() > kMaxSizeInMessage) {
    // If this fails, so does send().
    file_ = makeSealedMemory(std::string_view(bytes_).substr(sizeof bits));
    descriptors_.insert(descriptors_.begin(), file_.get());
    bytes_ = RecordWriter().number(bits | kFileBit).take();
  }
}

bool EncodedHandOver::send(int worker) const {
  return sendMessage(worker, MessageKind::kHandOver, bytes_, descriptors_);
}

std::optional<HandOver> parseHandOver(Message message) {
  RecordReader reader(message.bytes.view());
  const uint64_t bits = reader.number();
  SensitiveBytes storage;
  std::string_view encoded = reader.rest();
  if ((bits & kFileBit) != 0 && !message.descriptors.empty()) {
    storage = readSealedMemory(message.descriptors.front().get());
    encoded = storage.view();
  }
  RecordReader fields(encoded);
  HandOver handOver;
  handOver.environment = fields.texts();
  visit(Decoder(fields), handOver);
  if (!fields.atEnd() || !hasItsDescriptors(message, bits, handOver)) {
    return std::nullopt;
  }
  detachDescriptors(message, bits, handOver);
  return handOver;
}

}  // namespace quillon::launchpad
