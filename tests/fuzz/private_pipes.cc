#include "tests/fuzz/private_pipes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "quillon_tv_plugin.h"

namespace {

// The folder that the wrapped calls use; empty if there are no private pipes.
std::string folder;
std::string unsent;

bool isPipe(const char* path) {
  return !folder.empty() && (std::strcmp(path, QUILLON_DLL_REQUEST_PIPE) == 0 ||
                             std::strcmp(path, QUILLON_DLL_ANSWER_PIPE) == 0);
}

// Maps the path of a pipe to the private folder.
std::string redirected(const char* path) {
  return isPipe(path) ? folder + std::strrchr(path, '/') : path;
}

}  // namespace

// The linker's names: "__wrap_x" is called instead of x, "__real_x" is x.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
int __real_open(const char* path, int flags, ...);
FILE* __real_fopen(const char* path, const char* mode);
int __real_lstat(const char* path, struct stat* status);
int __real_remove(const char* path);
int __real_mkfifo(const char* path, mode_t mode);
int __real_chmod(const char* path, mode_t mode);

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  const int file =
      __real_open(redirected(path).c_str(), flags | (isPipe(path) ? O_NONBLOCK : 0), mode);
  if (file >= 0 && isPipe(path) && (flags & O_PATH) == 0) {
    static_cast<void>(!write(file, unsent.data(), unsent.size()));
    unsent.clear();
  }
  return file;
}
FILE* __wrap_fopen(const char* path, const char* mode) {
  return __real_fopen(redirected(path).c_str(), mode);
}
int __wrap_lstat(const char* path, struct stat* status) {
  return __real_lstat(redirected(path).c_str(), status);
}
int __wrap_remove(const char* path) { return __real_remove(redirected(path).c_str()); }
int __wrap_mkfifo(const char* path, mode_t mode) {
  return __real_mkfifo(redirected(path).c_str(), mode);
}
int __wrap_chmod(const char* path, mode_t mode) {
  return __real_chmod(redirected(path).c_str(), mode);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace quillon::fuzz {
namespace {

int openedPipe(const char* path) {
  mkfifo(path, 0600);
  return __real_open(redirected(path).c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
}

}  // namespace

PrivatePipes::PrivatePipes() {
  folder = folder_.path();
  requests_ = openedPipe(QUILLON_DLL_REQUEST_PIPE);
  answers_ = openedPipe(QUILLON_DLL_ANSWER_PIPE);
}

PrivatePipes::~PrivatePipes() {
  close(requests_);
  close(answers_);
  unsent.clear();
  folder.clear();
}

void PrivatePipes::send(std::string_view bytes) { unsent = bytes.substr(0, 4096); }

std::string PrivatePipes::take(int pipe) {
  std::string text(1 << 16, '\0');
  const ssize_t length = read(pipe, text.data(), text.size());
  text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return text;
}

}  // namespace quillon::fuzz
