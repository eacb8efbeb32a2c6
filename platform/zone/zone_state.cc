#include "workstation/zone_state.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace quillon::workstation {
namespace {

constexpr char kNameLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.";

// Fields of /proc/PID/stat from the command, field 2, to the start time, field 22. The command may
// contain any characters.
constexpr int kStartTimeAfterCommand = 20;

// Reads a small file. Returns false if it cannot be read or does not fit.
template <std::size_t N>
bool readText(const char* path, char (&text)[N]) {
  const int file = ::open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    return false;
  }
  const ssize_t length = ::read(file, text, N - 1);
  ::close(file);
  text[length < 0 ? 0 : length] = '\0';
  return length >= 0 && static_cast<std::size_t>(length) < N - 1;
}

// Other programs lock whole files, or bytes near their start.
constexpr off_t kLockedByte = 0x7a6f6e65;

struct flock lockOfType(short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = kLockedByte;
  lock.l_len = 1;
  return lock;
}

// Returns the process that holds the zone, or 0. Asks for a read lock, since any process that can
// read the file can take one itself.
pid_t holderOf(int file) {
  struct flock lock = lockOfType(F_RDLCK);
  const bool isHeld = ::fcntl(file, F_GETLK, &lock) == 0 && lock.l_type == F_WRLCK &&
                      lock.l_start == kLockedByte && lock.l_len == 1;
  return isHeld && lock.l_pid > 0 ? lock.l_pid : 0;
}

// Returns a pidfd, or -1 with errno.
int openHolderOf(int file, pid_t& pid) {
  pid = holderOf(file);
  if (pid == 0) {
    errno = ESRCH;
    return -1;
  }
  const int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  // The holder may have ended before the call, and its id may belong to another process now. If the
  // process with this id still holds the zone, it is the one that the pidfd refers to.
  if (pidfd >= 0 && holderOf(file) != pid) {
    ::close(pidfd);
    errno = ESRCH;
    return -1;
  }
  return pidfd;
}

const char* skipColumns(const char* text, int columns) {
  while (text != nullptr && columns-- > 0) {
    text = std::strchr(text + 1, ' ');
  }
  return text;
}

}  // namespace

bool isZoneName(const char* name) {
  const std::size_t length = name == nullptr ? 0 : ::strnlen(name, kMaxZoneNameLength + 1);
  return length > 0 && length <= kMaxZoneNameLength && name[0] != '.' &&
         std::strspn(name, kNameLetters) == length;
}

unsigned long long startTimeOf(pid_t pid) {
  char path[32];
  char text[1024];
  std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
  if (!readText(path, text)) {
    return 0;
  }
  unsigned long long startTime = 0;
  const char* column = skipColumns(std::strrchr(text, ')'), kStartTimeAfterCommand);
  return column != nullptr && std::sscanf(column, "%llu", &startTime) == 1 ? startTime : 0;
}

bool holdZone(int file) {
  const struct flock lock = lockOfType(F_WRLCK);
  return ::fcntl(file, F_SETLK, &lock) == 0;
}

int openZoneHolder(int directory, const char* name, pid_t& pid) {
  const int file = ::openat(directory, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) {
    return -1;
  }
  const int pidfd = openHolderOf(file, pid);
  const int error = errno;
  ::close(file);
  errno = error;
  return pidfd;
}

}  // namespace quillon::workstation
