#include "tests/fuzz/private_pipes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstring>

#include "quillon_tv_plugin.h"
#include "tests/fuzz/target.h"

namespace {

// Made once, because that takes longer than what most inputs do.
struct Pipe {
  Pipe() {
    int ends[2];
    FUZZ_REQUIRE(pipe2(ends, O_NONBLOCK | O_CLOEXEC) == 0);
    reader = ends[0];
    writer = ends[1];
  }
  [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(reader); }

  int reader;
  int writer;  // stays open: the last close would discard the content
};

bool isPrivate = false;
std::string unsent;

Pipe& requests() {
  static Pipe pipe;
  return pipe;
}
Pipe& answers() {
  static Pipe pipe;
  return pipe;
}

// The pipe that stands for a path; null for other paths.
const Pipe* pipeAt(const char* path) {
  if (!isPrivate) {
    return nullptr;
  }
  if (std::strcmp(path, QUILLON_DLL_REQUEST_PIPE) == 0) {
    return &requests();
  }
  return std::strcmp(path, QUILLON_DLL_ANSWER_PIPE) == 0 ? &answers() : nullptr;
}

std::string take(const Pipe& pipe) {
  std::string text(1 << 16, '\0');
  const ssize_t length = read(pipe.reader, text.data(), text.size());
  text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return text;
}

}  // namespace

// The linker's names: "__wrap_x" is called instead of x, "__real_x" is x.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
int __real_open(const char* path, int flags, ...);
int __real_lstat(const char* path, struct stat* status);
int __real_remove(const char* path);
int __real_mkfifo(const char* path, mode_t mode);

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  const Pipe* const pipe = pipeAt(path);
  if (pipe == nullptr) {
    return __real_open(path, flags, mode);
  }
  const int file = __real_open(pipe->path().c_str(), (flags & ~O_NOFOLLOW) | O_NONBLOCK);
  if (file >= 0 && (flags & O_PATH) == 0) {
    static_cast<void>(!write(file, unsent.data(), unsent.size()));
    unsent.clear();
  }
  return file;
}
int __wrap_lstat(const char* path, struct stat* status) {
  const Pipe* const pipe = pipeAt(path);
  return pipe != nullptr ? fstat(pipe->reader, status) : __real_lstat(path, status);
}
// A server makes the pipes anew. These exist already.
int __wrap_remove(const char* path) { return pipeAt(path) != nullptr ? 0 : __real_remove(path); }
int __wrap_mkfifo(const char* path, mode_t mode) {
  return pipeAt(path) != nullptr ? 0 : __real_mkfifo(path, mode);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace quillon::fuzz {

PrivatePipes::PrivatePipes() {
  isPrivate = true;
  unsent.clear();
  static_cast<void>(takeRequests());
  static_cast<void>(takeAnswers());
}

PrivatePipes::~PrivatePipes() { isPrivate = false; }

void PrivatePipes::send(std::string_view bytes) { unsent = bytes.substr(0, 4096); }

std::string PrivatePipes::takeRequests() const { return take(requests()); }
std::string PrivatePipes::takeAnswers() const { return take(answers()); }

}  // namespace quillon::fuzz
