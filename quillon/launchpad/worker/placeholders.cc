#include "quillon/launchpad/worker/placeholders.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "device_paths.h"

namespace quillon::launchpad {
namespace {

Descriptor openFolder(const char* path) {
  return Descriptor(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

}  // namespace

Expected<Placeholders> Placeholders::open(size_t count) {
  Placeholders placeholders;
  for (size_t i = 0; i < count; ++i) {
    placeholders.descriptors_.push_back(openFolder(device_paths::kPlaceholderTarget));
    if (!placeholders.descriptors_.back()) {
      return fail(std::string("cannot open /proc/self: ") + std::strerror(errno),
                  "check that /proc is mounted and that descriptors are available (ulimit -n)");
    }
  }
  return placeholders;
}

std::vector<std::string> Placeholders::paths() const {
  std::vector<std::string> paths;
  paths.reserve(descriptors_.size());
  for (const Descriptor& descriptor : descriptors_) {
    paths.push_back(device_paths::kPlaceholderPrefix + std::to_string(descriptor.get()));
  }
  return paths;
}

void Placeholders::redirect(const std::vector<std::string>& folders) {
  for (size_t i = 0; i < folders.size() && i < descriptors_.size(); ++i) {
    const Descriptor folder = openFolder(folders[i].c_str());
    if (folder) {
      dup3(folder.get(), descriptors_[i].get(), O_CLOEXEC);
    }
  }
}

}  // namespace quillon::launchpad
