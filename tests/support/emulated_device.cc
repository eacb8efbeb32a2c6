// device::enter() for test programs that run under emulation. An emulator lacks the system calls
// with which the program makes the view of a device root, such as openat2(2) and fsopen(2). This
// one shows the same files by mount(2), which is enough to test the plug-in. The process must be
// allowed to mount, as in scripts/in-sysroot.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/device/device_root.h"
#include "quillon/device/layout.h"

namespace quillon::device {
namespace {

namespace fs = std::filesystem;

// A folder by its path on the machine, which can be reached after something else is mounted there.
using OpenFolder = std::pair<fs::path, Descriptor>;

bool isFolder(const fs::path& path) { return fs::is_directory(fs::symlink_status(path)); }

Expected<void> failed(const fs::path& path) {
  return fail("cannot mount '" + path.string() + "': " + std::strerror(errno));
}

// The device root's files over the machine's, in one folder at the top of the tree.
Expected<void> overlay(const fs::path& device, const std::string& name) {
  const fs::path target = "/" + name;
  fs::create_directories(target);
  const std::string layers = "lowerdir=" + (device / name).string() + ":" + target.string();
  const int result = mount("overlay", target.c_str(), "overlay", MS_RDONLY, layers.c_str());
  return result == 0 ? Expected<void>() : failed(target);
}

Expected<void> bindFolder(const std::string& source, const fs::path& target) {
  fs::create_directories(target);
  const int result = mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr);
  return result == 0 ? Expected<void>() : failed(target);
}

Expected<void> showDevice(const fs::path& device) {
  for (const auto& entry : fs::directory_iterator(device)) {
    const std::string name = entry.path().filename();
    if (name != kRecordDirectory && name != "tmp" && isFolder(entry.path())) {
      RETURN_IF_FAILED(overlay(device, name));
    }
  }
  for (const std::string_view folder : kDeviceDirectories) {
    if (isFolder(device / folder)) {
      RETURN_IF_FAILED(bindFolder(device / folder, fs::path("/") / folder));
    }
  }
  return {};
}

}  // namespace

std::optional<fs::path> current() { return std::nullopt; }

Expected<Entered> enter(const fs::path& directory, const EnterOptions& options) {
  if (unshare(CLONE_NEWNS) != 0) {
    return fail(std::string("cannot make a mount namespace: ") + std::strerror(errno));
  }
  const fs::path device = fs::canonical(directory);
  std::vector<fs::path> paths = options.visible;
  paths.push_back(device);
  std::vector<OpenFolder> visible;
  for (const fs::path& path : paths) {
    visible.emplace_back(path, Descriptor(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)));
  }
  RETURN_IF_FAILED(showDevice(device));
  for (const auto& [path, folder] : visible) {
    if (!fs::exists(path)) {
      RETURN_IF_FAILED(bindFolder("/proc/self/fd/" + std::to_string(folder.get()), path));
    }
  }
  unsetenv("TMPDIR");
  return Entered{};
}

}  // namespace quillon::device
