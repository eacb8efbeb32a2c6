#include "launcher/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/descriptor.h"

namespace quillon::launcher {

std::optional<std::string> readWholeFile(const std::filesystem::path& file) {
  // Not waiting: a pipe would.
  const Descriptor source(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!source || fstat(source.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  std::string content(static_cast<size_t>(status.st_size), '\0');
  size_t length = 0;
  for (ssize_t part = 1; part > 0 && length < content.size();) {
    part = read(source.get(), content.data() + length, content.size() - length);
    if (part > 0) length += static_cast<size_t>(part);
  }
  content.resize(length);
  return content;
}

}  // namespace quillon::launcher
