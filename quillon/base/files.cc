#include "quillon/base/files.h"

#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

namespace quillon {
namespace {

constexpr int kWriteTimeoutMs = 1000;
constexpr size_t kTypicalSize = 2048;

// O_NONBLOCK, since open(2) of a FIFO would wait for its other end.
constexpr int kOpenFlags = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// Whether `file` is open and a regular file. Sets errno if it is not.
bool isRegular(const Descriptor& file, struct stat& status) {
  if (!file || fstat(file.get(), &status) != 0) {
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return false;
  }
  return true;
}

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

template <typename T>
void addBytes(std::string& fingerprint, const T& value) {
  fingerprint.append(reinterpret_cast<const char*>(&value), sizeof value);
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

RegularFile openRegularFile(const std::filesystem::path& file, std::size_t limit, LastLink link) {
  const int flags = kOpenFlags | (link == LastLink::kRefuse ? O_NOFOLLOW : 0);
  Descriptor opened(open(file.c_str(), O_RDONLY | flags));
  struct stat status {};
  if (!isRegular(opened, status)) {
    return {};
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size > limit) {
    errno = EFBIG;
    return {};
  }
  return {std::move(opened), size, status.st_uid, (status.st_mode & (S_IWGRP | S_IWOTH)) != 0};
}

std::optional<std::string> readContent(const RegularFile& file) {
  std::string content(file.size, '\0');
  size_t length = 0;
  while (length < content.size()) {
    const ssize_t part =
        read(file.descriptor.get(), content.data() + length, content.size() - length);
    if (part == 0) {
      break;  // the file has become shorter
    }
    if (part < 0 && errno != EINTR) {
      return std::nullopt;
    }
    length += part < 0 ? 0 : static_cast<size_t>(part);
  }
  content.resize(length);
  return content;
}

std::optional<std::string> readWholeFile(const std::filesystem::path& file, std::size_t limit) {
  const RegularFile source = openRegularFile(file, limit);
  return source.descriptor ? readContent(source) : std::nullopt;
}

Descriptor openForAppending(const std::filesystem::path& file) {
  constexpr mode_t kMode = 0644;
  Descriptor opened(open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | kOpenFlags, kMode));
  if (!opened && errno == ENXIO) {
    errno = EINVAL;  // a FIFO without a reader, or a socket
  }
  struct stat status {};
  return isRegular(opened, status) ? std::move(opened) : Descriptor();
}

void appendFileIdentity(std::string& fingerprint, int folder, const char* file) {
  struct stat status {};
  if (fstatat(folder, file, &status, 0) != 0) {
    status = {};  // inode 0 is no file's
  }
  addBytes(fingerprint, status.st_dev);
  addBytes(fingerprint, status.st_ino);
  addBytes(fingerprint, status.st_size);
  addBytes(fingerprint, status.st_mtim);
  addBytes(fingerprint, status.st_ctim);  // a program can set the other one back
}

bool lockFile(int descriptor, std::chrono::milliseconds patience) {
  using std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kPause(10);
  const auto end = steady_clock::now() + patience;
  while (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      return false;
    }
    if (steady_clock::now() >= end) {
      errno = EBUSY;
      return false;
    }
    std::this_thread::sleep_for(kPause);
  }
  return true;
}

std::string fileErrorText(int error, std::size_t limit) {
  constexpr std::size_t kMebibyte = std::size_t{1} << 20;
  switch (error) {
    case EISDIR:
    case EINVAL:
      return "not a regular file";
    case EFBIG:
      return "larger than " + std::to_string(limit / kMebibyte) + " MiB";
    default:
      return std::strerror(error);
  }
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
