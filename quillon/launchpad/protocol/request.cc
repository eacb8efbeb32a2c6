#include "quillon/launchpad/protocol/request.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstring>
#include <utility>

#include "quillon/base/record.h"
#include "workstation/log_config.h"

namespace quillon::launchpad {
namespace {

constexpr int kSeals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
constexpr off_t kLongest = 64 * 1024 * 1024;

// Which descriptors a request comes with: bit 4 the memory file that holds it, first of all, bits 0
// to 2 the standard ones, bit 3 the log's. The one to tell the application's begin through is
// always there, before the further ones.
constexpr uint64_t kLogBit = 1U << 3;
constexpr uint64_t kFileBit = 1U << 4;
constexpr uint64_t kAllBits = kFileBit | kLogBit | 7U;

// A longer one goes into a memory file. The launch pad hands it on with a few paths beside it.
constexpr size_t kLongestInMessage = kMaxMessageSize / 2;
// What is before the environment, and behind it.
constexpr size_t kUsualHead = 2 * 1024;
constexpr size_t kUsualRest = 256;

std::string bytesOf(const Limits& limits) {
  return {reinterpret_cast<const char*>(limits.data()), limits.size() * sizeof(rlimit)};
}

Limits limitsOf(const std::string& bytes) {
  const auto* first = reinterpret_cast<const char*>(bytes.data());
  Limits limits(bytes.size() / sizeof(rlimit));
  std::copy(first, first + limits.size() * sizeof(rlimit), reinterpret_cast<char*>(limits.data()));
  return limits;
}

// It is octal, and cannot be asked for without being changed otherwise (umask(2)).
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

bool isOpen(int fd) { return fcntl(fd, F_GETFD) >= 0; }

// The descriptors to send, and the bits that tell them apart.
uint64_t collectDescriptors(std::vector<int>& descriptors) {
  uint64_t there = 0;
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (!isOpen(fd)) continue;
    descriptors.push_back(fd);
    there |= 1U << fd;
  }
  if (const int log = workstation::currentLog().descriptor; log >= 0) {
    descriptors.push_back(log);
    there |= kLogBit;
  }
  return there;
}

void encodeOptional(RecordWriter& writer, const std::optional<std::string>& value) {
  writer.texts(value ? std::vector<std::string>{*value} : std::vector<std::string>{});
}

std::optional<std::string> decodeOptional(RecordReader& reader) {
  const auto values = reader.texts();
  return values.empty() ? std::nullopt : std::optional<std::string>(values.front());
}

void encodeEnvironment(RecordWriter& writer) {
  uint64_t count = 0;
  size_t length = 0;
  for (; environ != nullptr && environ[count] != nullptr; ++count) {
    length += sizeof count + std::strlen(environ[count]);
  }
  writer.reserve(length + kUsualRest).number(count);
  for (uint64_t i = 0; i < count; ++i) writer.text(environ[i]);
}

// What the launch pad looks at comes first.
void encode(const Request& request, RecordWriter& writer) {
  writer.text(request.appId);
  encodeOptional(writer, request.type);
  encodeOptional(writer, request.exec);
  writer.number(request.raw ? 1 : 0).text(bytesOf(request.limits)).text(request.shape);
  writer.number(request.others.size());
  for (const int other : request.others) writer.number(static_cast<uint64_t>(other));
  writer.texts(request.arguments);
  encodeEnvironment(writer);
  writer.text(request.workingDirectory).number(request.umask);
  writer.text(request.log.target).number(static_cast<uint64_t>(request.log.level));
  writer.number(request.log.applicationOutput ? 1 : 0);
}

std::vector<int> decodeOthers(RecordReader& reader) {
  std::vector<int> others;
  for (uint64_t left = std::min<uint64_t>(reader.number(), kMostOthers); left > 0; --left) {
    others.push_back(static_cast<int>(reader.number()));
  }
  return others;
}

Request decodeHead(RecordReader& reader) {
  Request request;
  request.appId = reader.text();
  request.type = decodeOptional(reader);
  request.exec = decodeOptional(reader);
  request.raw = reader.number() != 0;
  request.limits = limitsOf(reader.text());
  request.shape = reader.text();
  request.others = decodeOthers(reader);
  return request;
}

Descriptor memoryFileOf(std::string_view text) {
  Descriptor file(memfd_create("quillon-launch", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  for (size_t done = 0; file && done < text.size();) {
    const ssize_t written = write(file.get(), text.data() + done, text.size() - done);
    if (written <= 0) return {};
    done += static_cast<size_t>(written);
  }
  if (!file || fcntl(file.get(), F_ADD_SEALS, kSeals) != 0) return {};
  return file;
}

}  // namespace

Request makeRequest(const host::LaunchOptions& options, const ProcSelf& process,
                    const std::string& program) {
  Request request;
  request.appId = options.appId;
  request.type = options.type;
  request.exec = options.exec;
  request.raw = options.raw;
  request.arguments = options.arguments;
  request.workingDirectory = workingDirectory();
  request.umask = umaskOf(process);
  request.limits = currentLimits();
  request.shape = processStateOf(process, program);
  request.log = workstation::currentLog();
  request.others = process.inheritedDescriptors();
  return request;
}

bool sendRequest(int socket, const Request& request, int began) {
  std::vector<int> descriptors;
  descriptors.reserve(kMaxDescriptors);
  uint64_t there = collectDescriptors(descriptors);
  descriptors.push_back(began);
  descriptors.insert(descriptors.end(), request.others.begin(), request.others.end());
  RecordWriter writer;
  writer.reserve(kUsualHead).number(there);
  encode(request, writer);
  if (writer.bytes().size() <= kLongestInMessage) {
    return sendMessage(socket, MessageKind::kLaunch, writer.bytes(), descriptors);
  }
  const Descriptor file = memoryFileOf(std::string_view(writer.bytes()).substr(sizeof there));
  if (!file) return false;
  descriptors.insert(descriptors.begin(), file.get());
  there |= kFileBit;
  return sendMessage(socket, MessageKind::kLaunch, RecordWriter().number(there).bytes(),
                     descriptors);
}

std::optional<Request> decodeRequest(const std::string& text) {
  RecordReader reader(text);
  Request request = decodeHead(reader);
  request.arguments = reader.texts();
  request.environment = reader.texts();
  request.workingDirectory = reader.text();
  request.umask = static_cast<mode_t>(reader.number());
  request.log.target = reader.text();
  request.log.level = static_cast<int>(reader.number());
  request.log.applicationOutput = reader.number() != 0;
  if (!reader.atEnd()) return std::nullopt;
  return request;
}

std::string textOf(int memoryFile) {
  struct stat status {};
  const int seals = fcntl(memoryFile, F_GET_SEALS);
  if (seals < 0 || (seals & kSeals) != kSeals || fstat(memoryFile, &status) != 0 ||
      status.st_size > kLongest) {
    return {};
  }
  std::string text(static_cast<size_t>(status.st_size), '\0');
  const ssize_t length = pread(memoryFile, text.data(), text.size(), 0);
  return length == status.st_size ? text : std::string();
}

std::string textOf(std::string_view inMessage, uint64_t there,
                   const std::vector<Descriptor>& descriptors) {
  if ((there & kFileBit) == 0) return std::string(inMessage);
  return descriptors.empty() ? std::string() : textOf(descriptors.front().get());
}

std::optional<ArrivedRequest> openRequest(Message packet) {
  RecordReader reader(packet.bytes);
  const uint64_t there = reader.number();
  if (there > kAllBits) return std::nullopt;
  const std::string text = textOf(reader.rest(), there, packet.descriptors);
  RecordReader head(text);
  Request request = decodeHead(head);
  const size_t expected =
      1 + static_cast<size_t>(__builtin_popcountll(there)) + request.others.size();
  if (!head.ok() || packet.descriptors.size() != expected) return std::nullopt;
  return ArrivedRequest{std::move(request), std::move(packet)};
}

RequestDescriptors takeDescriptors(std::vector<Descriptor>& descriptors, uint64_t there) {
  RequestDescriptors taken;
  size_t next = (there & kFileBit) == 0 ? 0 : 1;
  for (size_t i = 0; i < taken.standard.size(); ++i) {
    if ((there & (1U << i)) != 0 && next < descriptors.size()) {
      taken.standard[i] = std::move(descriptors[next++]);
    }
  }
  if ((there & kLogBit) != 0 && next < descriptors.size()) {
    taken.log = std::move(descriptors[next++]);
  }
  if (next < descriptors.size()) taken.began = std::move(descriptors[next++]);
  for (; next < descriptors.size(); ++next) taken.others.push_back(std::move(descriptors[next]));
  return taken;
}

void signalStarted(int began) { [[maybe_unused]] const int told = eventfd_write(began, 1); }

bool wasStarted(int began) {
  pollfd told{began, POLLIN, 0};
  return poll(&told, 1, 0) == 1;
}

}  // namespace quillon::launchpad
