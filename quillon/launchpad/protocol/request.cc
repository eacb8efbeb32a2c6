#include "quillon/launchpad/protocol/request.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <climits>
#include <concepts>
#include <cstring>
#include <utility>

#include "quillon/base/record.h"
#include "quillon/launchpad/protocol/sealed_memory.h"

namespace quillon::launchpad {
namespace {

// A longer request goes into a memory file. The server adds a few paths to a shorter one.
constexpr size_t kMaxSizeInMessage = kMaxMessageSize / 2;
constexpr size_t kTypicalHeadSize = 2 * 1024;  // of the fields before the environment
constexpr size_t kTypicalTailSize = 256;       // of the fields after it
constexpr size_t kTypicalTargetSize = 1024;

// Encoder and Decoder take the same lists of fields, below, so that every field is named once and
// in one order.
class Encoder {
 public:
  explicit Encoder(RecordWriter& writer) : writer_(writer) {}

  template <typename... Fields>
  void operator()(const Fields&... fields) {
    (encode(fields), ...);
  }

  // Encodes environ(7) in place of the field.
  void environment(const std::vector<std::string>& /*field*/) {
    uint64_t count = 0;
    size_t length = 0;
    for (; environ != nullptr && environ[count] != nullptr; ++count) {
      length += sizeof count + std::strlen(environ[count]);
    }
    writer_.reserve(length + kTypicalTailSize).number(count);
    for (uint64_t i = 0; i < count; ++i) {
      writer_.text(environ[i]);
    }
  }

 private:
  void encode(std::integral auto value) { writer_.number(static_cast<uint64_t>(value)); }
  void encode(const std::string& value) { writer_.text(value); }
  void encode(const std::vector<std::string>& values) { writer_.texts(values); }
  void encode(const std::optional<std::string>& value) {
    writer_.number(value ? 1 : 0);
    if (value) {
      writer_.text(*value);
    }
  }
  void encode(const std::vector<int>& values) {
    writer_.number(values.size());
    for (const int value : values) {
      encode(value);
    }
  }
  void encode(const Limits& limits) {
    writer_.text({reinterpret_cast<const char*>(limits.data()), limits.size() * sizeof(rlimit)});
  }

  RecordWriter& writer_;
};

class Decoder {
 public:
  explicit Decoder(RecordReader& reader) : reader_(reader) {}

  template <typename... Fields>
  void operator()(Fields&... fields) {
    (decode(fields), ...);
  }

  void environment(std::vector<std::string>& field) { decode(field); }

 private:
  template <std::integral T>
  void decode(T& value) {
    value = static_cast<T>(reader_.number());
  }
  void decode(std::string& value) { value = reader_.text(); }
  void decode(std::vector<std::string>& values) { values = reader_.texts(); }
  void decode(std::optional<std::string>& value) {
    auto values = reader_.texts();
    if (!values.empty()) {
      value = std::move(values.front());
    }
  }
  void decode(std::vector<int>& values) {
    values.resize(std::min<uint64_t>(reader_.number(), kMaxInheritedDescriptors));
    for (int& value : values) {
      decode(value);
    }
  }
  void decode(Limits& limits) {
    const std::string bytes = reader_.text();
    limits.resize(bytes.size() / sizeof(rlimit));
    bytes.copy(reinterpret_cast<char*>(limits.data()), limits.size() * sizeof(rlimit));
  }

  RecordReader& reader_;
};

// The fields that the server reads.
template <typename Archive, typename AnyRequest>
void visitHead(Archive&& archive, AnyRequest& request) {
  archive(request.appId, request.type, request.exec, request.raw, request.limits,
          request.processState, request.inheritedDescriptors);
}

// The fields that only the worker reads.
template <typename Archive, typename AnyRequest>
void visitTail(Archive&& archive, AnyRequest& request) {
  archive(request.arguments);
  archive.environment(request.environment);
  archive(request.workingDirectory, request.umask, request.log.target, request.log.level,
          request.log.applicationOutput);
}

template <typename Archive, typename AnyTarget>
void visitTarget(Archive&& archive, AnyTarget& target) {
  archive(target.package.id, target.package.rootPath, target.application.id, target.type,
          target.exec, target.assembly);
}

// The first number of a message's bytes: which of the optional descriptors the message carries. The
// descriptors follow each other in this order: the memory file with the request, the standard
// descriptors, the log's, the eventfd of signalStarted(), which is always there, the inherited
// ones.
class DescriptorMask {
 public:
  // Attaches the descriptors of the calling process.
  DescriptorMask(std::vector<int>& descriptors, const Request& request, int started) {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
      if (fcntl(fd, F_GETFD) < 0) {
        continue;
      }
      descriptors.push_back(fd);
      bits_ |= 1U << fd;
    }
    if (const int log = workstation::currentLog().descriptor; log >= 0) {
      descriptors.push_back(log);
      bits_ |= kLogBit;
    }
    descriptors.push_back(started);
    descriptors.insert(descriptors.end(), request.inheritedDescriptors.begin(),
                       request.inheritedDescriptors.end());
  }
  explicit DescriptorMask(uint64_t bits) : bits_(bits) {}

  // Adds a memory file that holds the request.
  void addFile(std::vector<int>& descriptors, const Descriptor& file) {
    descriptors.insert(descriptors.begin(), file.get());
    bits_ |= kFileBit;
  }

  [[nodiscard]] uint64_t bits() const { return bits_; }
  [[nodiscard]] bool hasFile() const { return (bits_ & kFileBit) != 0; }

  // Whether a message carries exactly the descriptors that the mask and the request name.
  [[nodiscard]] bool matches(const Message& message, const Request& request) const {
    const size_t count =
        static_cast<size_t>(std::popcount(bits_)) + 1 + request.inheritedDescriptors.size();
    return bits_ <= kAllBits && message.descriptors.size() == count;
  }

  // Detaches the descriptors, except the memory file's.
  [[nodiscard]] RequestDescriptors detach(Message& message) const {
    RequestDescriptors detached;
    size_t next = hasFile() ? 1 : 0;
    const auto take = [&](Descriptor& into) {
      if (next < message.descriptors.size()) {
        into = std::move(message.descriptors[next++]);
      }
    };
    for (size_t fd = 0; fd < detached.standard.size(); ++fd) {
      if ((bits_ & (1U << fd)) != 0) {
        take(detached.standard[fd]);
      }
    }
    if ((bits_ & kLogBit) != 0) {
      take(detached.log);
    }
    take(detached.started);
    while (next < message.descriptors.size()) {
      take(detached.inherited.emplace_back());
    }
    return detached;
  }

 private:
  static constexpr uint64_t kLogBit = 1U << 3;  // bits 0 to 2: the standard descriptors
  static constexpr uint64_t kFileBit = 1U << 4;
  static constexpr uint64_t kAllBits = kFileBit | kLogBit | 7U;

  uint64_t bits_ = 0;
};

// The encoded request, which is the rest of the message or, if the mask says so, the content of its
// memory file. `storage` must outlive the result.
std::string_view encodedRequest(std::string_view rest, const DescriptorMask& mask,
                                const Message& message, SensitiveBytes& storage) {
  if (!mask.hasFile()) {
    return rest;
  }
  if (!message.descriptors.empty()) {
    storage = readSealedMemory(message.descriptors.front().get());
  }
  return storage.view();
}

// The umask of the process, which umask(2) cannot query without a change.
mode_t umaskOf(const ProcSelf& process) {
  const std::string_view digits = process.status("Umask").value_or("");
  mode_t mask = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), mask, 8);
  return mask;
}

std::string workingDirectory() {
  std::array<char, PATH_MAX> path;
  return getcwd(path.data(), path.size()) == nullptr ? std::string() : path.data();
}

}  // namespace

Request makeRequest(const host::LaunchOptions& options, const ProcSelf& process,
                    const std::string& program) {
  Request request;
  request.appId = options.appId;
  request.type = options.type;
  request.exec = options.exec;
  request.raw = options.raw;
  request.limits = currentLimits();
  request.processState = declaredStateOf(process, program);
  request.inheritedDescriptors = process.inheritedDescriptors();
  request.arguments = options.arguments;
  request.workingDirectory = workingDirectory();
  request.umask = umaskOf(process);
  request.log = workstation::currentLog();
  return request;
}

bool sendRequest(int socket, const Request& request, int started) {
  std::vector<int> descriptors;
  descriptors.reserve(kMaxDescriptors);
  DescriptorMask mask(descriptors, request, started);
  RecordWriter writer;
  writer.reserve(kTypicalHeadSize).number(mask.bits());
  visitHead(Encoder(writer), request);
  visitTail(Encoder(writer), request);
  if (writer.bytes().size() <= kMaxSizeInMessage) {
    return sendMessage(socket, MessageKind::kLaunch, writer.bytes(), descriptors);
  }
  const std::string_view encoded = writer.bytes();
  const Descriptor file = makeSealedMemory(encoded.substr(sizeof mask.bits()));
  if (!file) {
    return false;
  }
  mask.addFile(descriptors, file);
  return sendMessage(socket, MessageKind::kLaunch, RecordWriter().number(mask.bits()).bytes(),
                     descriptors);
}

std::optional<ReceivedRequest> ReceivedRequest::parse(Message message) {
  RecordReader reader(message.bytes.view());
  const DescriptorMask mask(reader.number());
  SensitiveBytes storage;
  RecordReader head(encodedRequest(reader.rest(), mask, message, storage));
  Request request;
  visitHead(Decoder(head), request);
  if (!head.ok() || !mask.matches(message, request)) {
    return std::nullopt;
  }
  return ReceivedRequest(std::move(message), std::move(request));
}

bool ReceivedRequest::assign(int socket, const host::LaunchTarget& target) const {
  std::vector<int> descriptors;
  descriptors.reserve(message_.descriptors.size());
  for (const Descriptor& descriptor : message_.descriptors) {
    descriptors.push_back(descriptor.get());
  }
  RecordReader reader(message_.bytes.view());
  RecordWriter writer;
  writer.reserve(kTypicalTargetSize).number(reader.number());
  visitTarget(Encoder(writer), target);
  return sendMessage(socket, MessageKind::kAssign, writer.bytes(), descriptors, reader.rest());
}

std::optional<Assignment> parseAssignment(Message message) {
  Assignment assignment;
  RecordReader reader(message.bytes.view());
  const DescriptorMask mask(reader.number());
  visitTarget(Decoder(reader), assignment.target);
  SensitiveBytes storage;
  RecordReader encoded(encodedRequest(reader.rest(), mask, message, storage));
  visitHead(Decoder(encoded), assignment.request);
  visitTail(Decoder(encoded), assignment.request);
  if (!reader.ok() || !encoded.atEnd()) {
    return std::nullopt;
  }
  assignment.descriptors = mask.detach(message);
  return assignment;
}

bool sendTaken(int socket, pid_t worker, int pidfd) {
  return sendMessage(socket, MessageKind::kTaken,
                     RecordWriter().number(static_cast<uint64_t>(worker)).bytes(), {pidfd});
}

TakenReply parseTaken(Message message) {
  TakenReply reply{static_cast<pid_t>(RecordReader(message.bytes.view()).number()), {}};
  if (!message.descriptors.empty()) {
    reply.pidfd = std::move(message.descriptors.front());
  }
  return reply;
}

void signalStarted(int started) { [[maybe_unused]] const int sent = eventfd_write(started, 1); }

bool wasStarted(int started) {
  pollfd event{started, POLLIN, 0};
  return poll(&event, 1, 0) == 1;
}

}  // namespace quillon::launchpad
