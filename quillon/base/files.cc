#include "quillon/base/files.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "quillon/base/descriptor.h"

namespace quillon {
namespace {

constexpr int kFullForMs = 1000;
constexpr size_t kTypicalSize = 2048;

// Whether a write that failed with errno is worth another try.
bool mayRetry(int descriptor) {
  if (errno == EINTR) return true;
  if (errno != EAGAIN) return false;
  pollfd writable{descriptor, POLLOUT, 0};
  return poll(&writable, 1, kFullForMs) > 0;
}

}  // namespace

std::filesystem::path executablePath() {
  std::error_code ignored;
  return std::filesystem::read_symlink("/proc/self/exe", ignored);
}

std::optional<std::string> readWholeFile(const std::filesystem::path& file) {
  // O_NONBLOCK: the open of a FIFO would wait for a writer.
  const Descriptor source(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!source || fstat(source.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  std::string content(static_cast<size_t>(status.st_size), '\0');
  size_t length = 0;
  for (ssize_t part = 1; part > 0 && length < content.size();) {
    part = read(source.get(), content.data() + length, content.size() - length);
    if (part > 0) length += static_cast<size_t>(part);
  }
  content.resize(length);
  return content;
}

std::string readSmallFileAt(int directory, const char* file) {
  const Descriptor source(openat(directory, file, O_RDONLY | O_CLOEXEC));
  std::string content;
  std::array<char, kTypicalSize> part;
  while (source) {
    const ssize_t length = read(source.get(), part.data(), part.size());
    if (length <= 0) break;
    content.append(part.data(), static_cast<size_t>(length));
  }
  return content;
}

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written >= 0) {
      bytes.remove_prefix(static_cast<size_t>(written));
    } else if (!mayRetry(descriptor)) {
      return false;
    }
  }
  return true;
}

}  // namespace quillon
