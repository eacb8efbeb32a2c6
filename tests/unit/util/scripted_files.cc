#include "tests/unit/util/scripted_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string_view>
#include <utility>

#include "tests/support/next_call.h"

namespace quillon::test {
namespace {

void note(const std::string& call) {
  if (files().active) {
    files().calls.push_back(call);
  }
}

std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

long bytesIn(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 ? static_cast<long>(status.st_size) : -1;
}

}  // namespace

ScriptedFiles& files() {
  // Never destroyed, because streams are closed while the process ends.
  static auto* instance = new ScriptedFiles;
  return *instance;
}

}  // namespace quillon::test

using quillon::test::files;
using quillon::test::nameOf;
using quillon::test::next;
using quillon::test::note;

extern "C" {

int lstat(const char* path, struct stat* status) noexcept {
  note("lstat " + nameOf(path));
  return next<decltype(&lstat)>("lstat")(path, status);
}

int fstat(int descriptor, struct stat* status) noexcept {
  files().wasInherited |= (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0;
  const int result = next<decltype(&fstat)>("fstat")(descriptor, status);
  if (result == 0 && files().reportedSize) {
    status->st_size = *files().reportedSize;
  }
  return result;
}

#if __SIZEOF_POINTER__ == 8
// What libboost_filesystem calls.
int lstat64(const char* path, struct stat64* status) noexcept {
  const int result = next<decltype(&lstat64)>("lstat64")(path, status);
  if (result == 0 && S_ISREG(status->st_mode) && files().onFile) {
    std::exchange(files().onFile, nullptr)(path);
  }
  return result;
}
#endif

ssize_t readlink(const char* path, char* target, size_t size) noexcept {
  if (!files().program.empty() && std::string_view(path) == "/proc/self/exe") {
    return static_cast<ssize_t>(files().program.copy(target, size));
  }
  return next<decltype(&readlink)>("readlink")(path, target, size);
}

FILE* fopen(const char* path, const char* mode) {
  note("fopen " + nameOf(path) + " " + mode);
  return next<decltype(&fopen)>("fopen")(path, mode);
}

int fsync(int descriptor) {
  note("fsync " + std::to_string(quillon::test::bytesIn(descriptor)));
  return next<decltype(&fsync)>("fsync")(descriptor);
}

int fclose(FILE* file) {
  note("fclose");
  return next<decltype(&fclose)>("fclose")(file);
}

int rename(const char* from, const char* to) noexcept {
  note("rename " + nameOf(from) + " " + nameOf(to));
  if (files().active && files().renameError != 0) {
    errno = files().renameError;
    return -1;
  }
  return next<decltype(&rename)>("rename")(from, to);
}

void sync() noexcept {
  note("sync");
  if (!files().active) {
    next<decltype(&sync)>("sync")();
  }
}

}  // extern "C"
