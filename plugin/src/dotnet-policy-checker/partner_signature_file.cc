#include "plugin/src/dotnet-policy-checker/partner_signature_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool isOfType(int descriptor, mode_t first, mode_t second) {
  struct stat status {};
  const mode_t type = fstat(descriptor, &status) == 0 ? status.st_mode & S_IFMT : 0;
  return type == first || type == second;
}

}  // namespace

PartnerFile openPartnerFile(const char* path) {
  if (path == nullptr) {
    return nullptr;
  }
  // Without O_NONBLOCK, opening a FIFO waits for a writer (fifo(7)).
  const int descriptor = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (descriptor < 0) {
    return nullptr;
  }
  PartnerFile file(isOfType(descriptor, S_IFREG, S_IFDIR) ? fdopen(descriptor, "r") : nullptr);
  if (file == nullptr) {
    close(descriptor);
  }
  return file;
}

std::optional<std::size_t> sizeOf(FILE* file) {
  // On some file systems seeking to the end of a directory succeeds, so only regular files have a
  // size.
  if (!isOfType(fileno(file), S_IFREG, S_IFREG) || fseek(file, 0, SEEK_END) != 0) {
    return std::nullopt;
  }
  const long size = ftell(file);
  if (size < 0 || fseek(file, 0, SEEK_SET) != 0) {
    return std::nullopt;
  }
  return static_cast<std::size_t>(size);
}
