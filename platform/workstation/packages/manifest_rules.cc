#include "packages/manifest_rules.h"

#include <algorithm>
#include <array>
#include <filesystem>

#include "device_names.h"

namespace quillon::workstation {
namespace {

constexpr size_t kMaxIdLength = 200;

// The folders that contain packages. None contains files of the platform, which would otherwise
// read what a package has put there.
constexpr std::array<std::string_view, 3> kParents = {"/opt/usr/apps/", "/usr/apps/",
                                                      "/opt/share/"};

// The longest type, "inhouseapitest", contains another one.
constexpr std::array<std::string_view, 3> kTypes = {
    device_names::kInhouseType, device_names::kDotnetType, device_names::kNormalType};

bool hasControlCharacter(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

bool leavesItsFolder(const std::filesystem::path& path) {
  return std::find(path.begin(), path.end(), "..") != path.end();
}

// Installations use such names for temporary folders, and remove them.
bool isTemporaryName(std::string_view name) { return name.starts_with(".quillon-"); }

// An absolute path in its shortest form, such as "/a/b".
bool isPlainAbsolute(const std::filesystem::path& path) {
  return path.is_absolute() && path.native() == path.lexically_normal().native() &&
         path.has_filename();
}

}  // namespace

std::string wrongWithText(std::string_view text) {
  if (text.empty()) {
    return "is empty";
  }
  if (hasControlCharacter(text)) {
    return "contains a control character";
  }
  return {};
}

std::string wrongWithId(std::string_view id) {
  if (std::string wrong = wrongWithText(id); !wrong.empty()) {
    return wrong;
  }
  if (id.size() > kMaxIdLength) {
    return "is longer than " + std::to_string(kMaxIdLength) + " bytes";
  }
  if (id == "." || id == "..") {
    return "names a folder, not a package";
  }
  if (isTemporaryName(id)) {
    return "begins with '.quillon-'";
  }
  if (id.find_first_of("/:") != id.npos) {
    return "contains '/' or ':'";
  }
  return {};
}

std::string wrongWithType(std::string_view type) {
  if (std::string wrong = wrongWithText(type); !wrong.empty()) {
    return wrong;
  }
  const bool isKnown = std::any_of(kTypes.begin(), kTypes.end(), [&](std::string_view known) {
    return type.find(known) != type.npos;
  });
  return isKnown ? "" : "is not an application type: '" + std::string(type) + "'";
}

std::string wrongWithRoot(const std::string& root) {
  if (std::string wrong = wrongWithText(root); !wrong.empty()) {
    return wrong;
  }
  if (!isPlainAbsolute(root)) {
    return "is not an absolute path in its shortest form";
  }
  if (root.find(':') != root.npos) {
    return "contains ':', which joins lists of paths";
  }
  const bool allowed = std::any_of(kParents.begin(), kParents.end(), [&](std::string_view parent) {
    return root.starts_with(parent);
  });
  if (!allowed) {
    return "is not below /opt/usr/apps, /usr/apps or /opt/share";
  }
  return root.find("/.quillon-") == root.npos ? "" : "contains a name that begins with '.quillon-'";
}

std::string wrongWithExec(const std::string& exec, const std::string& root) {
  if (std::string wrong = wrongWithText(exec); !wrong.empty()) {
    return wrong;
  }
  if (leavesItsFolder(exec)) {
    return "contains '..'";
  }
  const std::string path = execPath(exec, root);
  const bool isFolder = path.ends_with('/') || (root + '/').starts_with(path + '/');
  return isFolder ? "names a folder" : "";
}

std::string execPath(const std::string& exec, const std::string& root) {
  return (std::filesystem::path(root) / exec).lexically_normal().string();
}

}  // namespace quillon::workstation
