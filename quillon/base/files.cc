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

constexpr int kWriteTimeoutMs = 1000;
constexpr size_t kTypicalSize = 2048;

// Whether to retry a write(2) that failed with errno. Waits if the descriptor is full.
bool mayRetry(int descriptor) {
  if (errno == EINTR) {
    return true;
  }
  if (errno != EAGAIN) {
    return false;
  }
  pollfd writable{descriptor, POLLOUT, 0};
  return poll(&writable, 1, kWriteTimeoutMs) > 0;
}

}  // namespace

std::filesystem::path executablePath() {
  std::error_code ignored;
  return std::filesystem::read_symlink("/proc/self/exe", ignored);
}

std::filesystem::path libraryOf(const std::filesystem::path& executable, const char* name) {
  const std::filesystem::path prefix = executable.parent_path().parent_path();
  std::filesystem::path built = prefix / "lib" / name;
  std::error_code ignored;
  if (std::filesystem::exists(built, ignored)) {
    return built;
  }
  return prefix / QUILLON_INSTALLED_LIBRARIES / name;
}

std::optional<std::string> readWholeFile(const std::filesystem::path& file) {
  // O_NONBLOCK, since open(2) of a FIFO would wait for a writer.
  const Descriptor source(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!source || fstat(source.get(), &status) != 0) {
    return std::nullopt;
  }
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
    return std::nullopt;
  }
  std::string content(static_cast<size_t>(status.st_size), '\0');
  size_t length = 0;
  for (ssize_t part = 1; part > 0 && length < content.size();) {
    part = read(source.get(), content.data() + length, content.size() - length);
    if (part > 0) {
      length += static_cast<size_t>(part);
    }
  }
  content.resize(length);
  return content;
}

std::string readSmallFileAt(int directory, const char* file) {
  const Descriptor source(openat(directory, file, O_RDONLY | O_CLOEXEC));
  return source ? readAll(source.get()) : std::string();
}

std::string readAll(int descriptor) {
  std::string content;
  std::array<char, kTypicalSize> part;
  for (;;) {
    const ssize_t length = read(descriptor, part.data(), part.size());
    if (length > 0) {
      content.append(part.data(), static_cast<size_t>(length));
    } else if (length == 0 || errno != EINTR) {
      return content;
    }
  }
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
