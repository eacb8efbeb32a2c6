#include "util/log/error_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <memory>

#include "util/log/log.h"
#include "util/undestroyed.h"

Undestroyed<std::string> errorLogFileStorage asm("errorLogFile_storage");
[[gnu::alias("errorLogFile_storage")]] extern std::string errorLogFile;

namespace {

constexpr char kNamePattern[] = "/tmp/dotnet_error.%d.%d.log";
constexpr std::size_t kMaxPathSize = 4096;

std::string nameForThisProcess() {
  std::array<char, kMaxPathSize> name{};
  std::snprintf(name.data(), name.size(), kNamePattern, static_cast<int>(getpid()),
                static_cast<int>(time(nullptr)));
  return name.data();
}

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

bool isRegular(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

// Returns null if the file cannot be opened. Any user can create files in /tmp and guess the name.
// A symbolic link or a pipe of another user is therefore neither written to nor waited for.
File openToAppend(const std::string& path) {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  constexpr mode_t kMode = 0666;
  const int descriptor = open(path.c_str(), kFlags, kMode);
  FILE* file = descriptor >= 0 && isRegular(descriptor) ? fdopen(descriptor, "a") : nullptr;
  if (file == nullptr && descriptor >= 0) {
    close(descriptor);
  }
  return {file, std::fclose};
}

}  // namespace

void writeStringTofile(std::string_view text) {
  QLOG_SCOPE();
  if (errorLogFile.empty()) {
    errorLogFile = nameForThisProcess();
  }
  if (const File file = openToAppend(errorLogFile)) {
    std::fwrite(text.data(), 1, text.size(), file.get());
    std::fputc('\n', file.get());
  }
}
