#include "workstation/zone_state.h"

#include <fcntl.h>
#include <poll.h>
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

// Reads a small file. Returns false with errno if it cannot be read or does not fit.
template <std::size_t N>
bool readText(int directory, const char* path, char (&text)[N]) {
  const int file = ::openat(directory, path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) {
    return false;
  }
  const ssize_t length = ::read(file, text, N - 1);
  const int error = errno;
  ::close(file);
  errno = length < 0 ? error : EBADMSG;
  text[length < 0 ? 0 : length] = '\0';
  return length >= 0 && static_cast<std::size_t>(length) < N - 1;
}

const char* skipColumns(const char* text, int columns) {
  while (text != nullptr && columns-- > 0) {
    text = std::strchr(text + 1, ' ');
  }
  return text;
}

// A pidfd becomes readable when the process ends, also if it stays a zombie.
bool hasEnded(int pidfd) {
  pollfd ended{pidfd, POLLIN, 0};
  return ::poll(&ended, 1, 0) != 0;
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
  if (!readText(AT_FDCWD, path, text)) {
    return 0;
  }
  unsigned long long startTime = 0;
  const char* column = skipColumns(std::strrchr(text, ')'), kStartTimeAfterCommand);
  return column != nullptr && std::sscanf(column, "%llu", &startTime) == 1 ? startTime : 0;
}

bool readZoneState(int directory, const char* name, ZoneHolder& holder) {
  char text[64];
  char end = '\0';
  if (!readText(directory, name, text)) {
    return false;
  }
  const bool whole = std::sscanf(text, "%d %llu%c", &holder.pid, &holder.startTime, &end) == 3 &&
                     end == '\n' && holder.pid > 0 && holder.startTime > 0;
  errno = EBADMSG;
  return whole;
}

int openZoneHolder(const ZoneHolder& holder) {
  const int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, holder.pid, 0));
  if (pidfd < 0) {
    return -1;
  }
  // The pidfd refers to the process that had this id at the time of the call. It is the holder if
  // the start time matches now and the process is still alive after the comparison.
  if (startTimeOf(holder.pid) == holder.startTime && !hasEnded(pidfd)) {
    return pidfd;
  }
  ::close(pidfd);
  errno = ESRCH;
  return -1;
}

}  // namespace quillon::workstation
