#include "quillon/device/mounts.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/mount.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string_view>

namespace quillon::device {
namespace {

Descriptor openResolved(const Descriptor& root, const std::string& path, uint64_t flags,
                        uint64_t resolve) {
  open_how how{};
  how.flags = flags | O_PATH | O_CLOEXEC;
  how.resolve = resolve;
  return Descriptor(
      static_cast<int>(syscall(SYS_openat2, root.get(), path.c_str(), &how, sizeof how)));
}

bool configure(const Descriptor& context, const char* key, const std::string& value) {
  return fsconfig(context.get(), FSCONFIG_SET_STRING, key, value.c_str(), 0) == 0;
}

// Returns the detached mount of a configured file system; invalid, with errno set, on failure.
Descriptor mountOf(const Descriptor& context, unsigned attributes) {
  if (fsconfig(context.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0) {
    return Descriptor();
  }
  return Descriptor(fsmount(context.get(), FSMOUNT_CLOEXEC, attributes));
}

std::string pathOf(const Descriptor& descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor.get());
}

std::string remedyOf(int error) {
  switch (error) {
    case EPERM:
    case EACCES:
      return "let this process make mounts: security policies (AppArmor, SELinux, a container's "
             "seccomp filter) can forbid it";
    case ENOSYS:
      return "use Linux 5.12 or later";
    case ENODEV:
      return "load the file system's module (modprobe overlay), or enable CONFIG_OVERLAY_FS";
    case ENOSPC:
      return "raise the limit: sysctl fs.mount-max";
    case EMFILE:
      return "raise the limit of open files (ulimit -n)";
    default:
      return {};
  }
}

// The mount table escapes blanks, tabs, line breaks and backslashes as "\" and three octal digits.
std::string unescape(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size()) {
      plain += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 3)), nullptr, 8));
      i += 3;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

// Removes the first word and the blank after it from `line`, and returns the word.
std::string_view takeWord(std::string_view& line) {
  const std::size_t end = std::min(line.find(' '), line.size());
  const std::string_view word = line.substr(0, end);
  line.remove_prefix(std::min(end + 1, line.size()));
  return word;
}

// "id parent major:minor root PATH options optional... - TYPE source options"
MountPoint parseMountLine(std::string_view line) {
  std::string_view word;
  MountPoint point;
  for (int column = 0; column < 5; ++column) {
    word = takeWord(line);
  }
  point.path = unescape(word);
  while (!line.empty() && takeWord(line) != "-") {
  }
  point.type = takeWord(line);
  return point;
}

}  // namespace

tl::unexpected<Failure> stepFailed(const std::string& step, int error) {
  return fail("cannot " + step + ": " + std::strerror(error), remedyOf(error));
}

Descriptor openInside(const Descriptor& root, const std::string& path) {
  return openResolved(root, path, 0, RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS);
}

Descriptor openFolder(const Descriptor& root, const std::string& path) {
  return openResolved(root, path, O_DIRECTORY, RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS);
}

Expected<Descriptor> copyTree(const std::string& path) {
  Descriptor tree(open_tree(
      AT_FDCWD, path.c_str(),
      OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_RECURSIVE | AT_NO_AUTOMOUNT | AT_SYMLINK_NOFOLLOW));
  if (!tree) {
    return stepFailed("copy the mounts of '" + path + "' into the device root's view", errno);
  }
  return tree;
}

Expected<Descriptor> newTmpfs(const char* mode) {
  const Descriptor context(fsopen("tmpfs", FSOPEN_CLOEXEC));
  if (context && configure(context, "source", "quillon") && configure(context, "mode", mode)) {
    if (Descriptor mount = mountOf(context, MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV); mount) {
      return mount;
    }
  }
  return stepFailed("make a tmpfs for the device root's view", errno);
}

tl::expected<Descriptor, int> newOverlay(const Descriptor& upper, const Descriptor& lower) {
  // Pass descriptors, since a ":" or "," in the path of a layer would end it.
  const Descriptor context(fsopen("overlay", FSOPEN_CLOEXEC));
  if (context && configure(context, "source", "quillon") &&
      configure(context, "lowerdir", pathOf(upper) + ":" + pathOf(lower))) {
    if (Descriptor mount = mountOf(context, MOUNT_ATTR_RDONLY); mount) {
      return mount;
    }
  }
  return tl::unexpected(errno);
}

Expected<void> makeReadOnly(const Descriptor& mount, Reach reach, const std::string& path) {
  mount_attr attributes{};
  attributes.attr_set = MOUNT_ATTR_RDONLY;
  const unsigned flags = AT_EMPTY_PATH | (reach == Reach::kWholeTree ? AT_RECURSIVE : 0U);
  if (mount_setattr(mount.get(), "", flags, &attributes, sizeof attributes) != 0) {
    return stepFailed("make '" + path + "' read-only", errno);
  }
  return {};
}

Expected<void> attach(const Descriptor& mount, const Descriptor& target, const std::string& path) {
  if (move_mount(mount.get(), "", target.get(), "",
                 MOVE_MOUNT_F_EMPTY_PATH | MOVE_MOUNT_T_EMPTY_PATH) != 0) {
    return stepFailed("mount on '" + path + "' in the device root's view", errno);
  }
  return {};
}

std::vector<MountPoint> readMountPoints() {
  std::vector<MountPoint> points;
  std::ifstream table("/proc/self/mountinfo");
  for (std::string line; std::getline(table, line);) {
    points.push_back(parseMountLine(line));
  }
  return points;
}

}  // namespace quillon::device
