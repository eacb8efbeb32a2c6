#include "launcher/launchpad/request.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <workstation/log_handover.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "launcher/launchpad/text_record.h"

namespace quillon::launchpad {
namespace {

constexpr int kSeals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
constexpr off_t kLongest = 64 * 1024 * 1024;

// Which descriptors a request comes with: bits 0 to 2 the standard ones, bit 3 the log's. The
// one to tell the application's begin through is always there, the last of all.
constexpr uint64_t kLogBit = 1U << 3;

std::string bytesOf(const Limits& limits) {
  return {reinterpret_cast<const char*>(limits.data()), limits.size() * sizeof(rlimit)};
}

Limits limitsOf(const std::string& bytes) {
  const auto* first = reinterpret_cast<const char*>(bytes.data());
  Limits limits(bytes.size() / sizeof(rlimit));
  std::copy(first, first + limits.size() * sizeof(rlimit), reinterpret_cast<char*>(limits.data()));
  return limits;
}

std::vector<std::string> currentEnvironment() {
  std::vector<std::string> all;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    all.emplace_back(*entry);
  }
  return all;
}

mode_t currentUmask() {
  const mode_t mask = umask(0);
  umask(mask);
  return mask;
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

std::string encode(const Request& request) {
  RecordWriter writer;
  writer.text(request.appId);
  encodeOptional(writer, request.type);
  encodeOptional(writer, request.exec);
  writer.number(request.raw ? 1 : 0).texts(request.arguments).texts(request.environment);
  writer.text(request.workingDirectory).number(request.umask).text(bytesOf(request.limits));
  writer.map(request.shape);
  writer.text(request.log.target).number(static_cast<uint64_t>(request.log.level));
  writer.number(request.log.applicationOutput ? 1 : 0);
  writer.number(request.others.size());
  for (const int other : request.others) writer.number(static_cast<uint64_t>(other));
  return writer.bytes();
}

std::vector<int> decodeOthers(RecordReader& reader) {
  std::vector<int> others;
  for (uint64_t left = std::min<uint64_t>(reader.number(), kMostOthers); left > 0; --left) {
    others.push_back(static_cast<int>(reader.number()));
  }
  return others;
}

Descriptor memoryFileOf(const std::string& text) {
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

std::vector<int> inheritedDescriptors() {
  std::vector<int> others;
  std::error_code error;
  for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end;
       !error && entry != end; entry.increment(error)) {
    const int fd = std::atoi(entry->path().filename().c_str());
    const int flags = fcntl(fd, F_GETFD);
    if (fd > STDERR_FILENO && flags >= 0 && (flags & FD_CLOEXEC) == 0) others.push_back(fd);
  }
  return others;
}

Request makeRequest(const launcher::LaunchOptions& options, const std::filesystem::path& program) {
  std::error_code ignored;
  Request request;
  request.appId = options.appId;
  request.type = options.type;
  request.exec = options.exec;
  request.raw = options.raw;
  request.arguments = options.arguments;
  request.environment = currentEnvironment();
  request.workingDirectory = std::filesystem::current_path(ignored).string();
  request.umask = currentUmask();
  request.limits = currentLimits();
  request.shape = currentShape(program);
  request.log = workstation::currentLog();
  request.others = inheritedDescriptors();
  return request;
}

bool sendRequest(int socket, const Request& request, int began) {
  const Descriptor file = memoryFileOf(encode(request));
  if (!file) return false;
  std::vector<int> descriptors = {file.get()};
  const uint64_t there = collectDescriptors(descriptors);
  descriptors.push_back(began);
  descriptors.insert(descriptors.end(), request.others.begin(), request.others.end());
  return sendPacket(socket, PacketKind::kLaunch, RecordWriter().number(there).bytes(), descriptors);
}

std::optional<Request> decodeRequest(const std::string& text) {
  RecordReader reader(text);
  Request request;
  request.appId = reader.text();
  request.type = decodeOptional(reader);
  request.exec = decodeOptional(reader);
  request.raw = reader.number() != 0;
  request.arguments = reader.texts();
  request.environment = reader.texts();
  request.workingDirectory = reader.text();
  request.umask = static_cast<mode_t>(reader.number());
  request.limits = limitsOf(reader.text());
  request.shape = reader.map();
  request.log.target = reader.text();
  request.log.level = static_cast<int>(reader.number());
  request.log.applicationOutput = reader.number() != 0;
  request.others = decodeOthers(reader);
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

std::optional<ArrivedRequest> openRequest(Packet packet) {
  if (packet.descriptors.empty()) return std::nullopt;
  RecordReader reader(packet.bytes);
  const uint64_t there = reader.number();
  if (!reader.atEnd() || there > (kLogBit | 7U)) return std::nullopt;
  auto request = decodeRequest(textOf(packet.descriptors.front().get()));
  if (!request) return std::nullopt;
  const size_t expected =
      2 + static_cast<size_t>(__builtin_popcountll(there)) + request->others.size();
  if (packet.descriptors.size() != expected) return std::nullopt;
  return ArrivedRequest{std::move(*request), std::move(packet)};
}

RequestDescriptors takeDescriptors(std::vector<Descriptor>& descriptors, uint64_t there) {
  RequestDescriptors taken;
  size_t next = 1;  // after the request itself
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

void tellBegun(int began) { [[maybe_unused]] const int told = eventfd_write(began, 1); }

bool wasToldBegun(int began) {
  pollfd told{began, POLLIN, 0};
  return poll(&told, 1, 0) == 1;
}

}  // namespace quillon::launchpad
