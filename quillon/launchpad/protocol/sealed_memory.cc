#include "quillon/launchpad/protocol/sealed_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillon::launchpad {
namespace {

constexpr int kSeals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
constexpr off_t kMaxSize = 64 * 1024 * 1024;

}  // namespace

Descriptor makeSealedMemory(std::string_view text) {
  Descriptor file(memfd_create("quillon-launch", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  for (size_t done = 0; file && done < text.size();) {
    const ssize_t written = write(file.get(), text.data() + done, text.size() - done);
    if (written <= 0) {
      return {};
    }
    done += static_cast<size_t>(written);
  }
  if (!file || fcntl(file.get(), F_ADD_SEALS, kSeals) != 0) {
    return {};
  }
  return file;
}

SensitiveBytes readSealedMemory(int file) {
  struct stat status {};
  const int seals = fcntl(file, F_GET_SEALS);
  if (seals < 0 || (seals & kSeals) != kSeals || fstat(file, &status) != 0 ||
      status.st_size > kMaxSize) {
    return {};
  }
  SensitiveBytes text(static_cast<size_t>(status.st_size));
  const ssize_t length = pread(file, text.data(), text.view().size(), 0);
  return length == status.st_size ? std::move(text) : SensitiveBytes();
}

}  // namespace quillon::launchpad
