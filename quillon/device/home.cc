#include "quillon/device/home.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "quillon/device/layout.h"

namespace quillon::device {
namespace {

// The variables of the XDG Base Directory Specification, with their folders in the home directory.
constexpr std::array<std::pair<const char*, const char*>, 4> kFolders = {{
    {"XDG_CONFIG_HOME", "/.config"},
    {"XDG_CACHE_HOME", "/.cache"},
    {"XDG_DATA_HOME", "/.local/share"},
    {"XDG_STATE_HOME", "/.local/state"},
}};
constexpr mode_t kOnlyOwner = 0700;

// The sticky bit of kHomes keeps other users from replacing a folder that this user owns.
bool isOwnFolder(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid();
}

// .NET reports no folder for user data if it does not exist.
bool makeHome(const std::string& home) {
  if (mkdir(home.c_str(), kOnlyOwner) != 0) {
    return false;
  }
  mkdir((home + "/.local").c_str(), kOnlyOwner);
  for (const auto& [variable, folder] : kFolders) {
    mkdir((home + folder).c_str(), kOnlyOwner);
  }
  return true;
}

}  // namespace

Expected<void> useHome() {
  const std::string home = std::string(kHomes) + "/" + std::to_string(geteuid());
  if (!isOwnFolder(home) && !makeHome(home)) {
    const int cause = errno;
    if (cause != EEXIST) {
      return fail("cannot create the home directory '" + home +
                      "' in the device root: " + std::strerror(cause),
                  "let the owner of the device root repair it: quillon device init");
    }
    if (!isOwnFolder(home)) {  // another launch may have created it meanwhile
      return fail(
          "the home directory '" + home + "' in the device root is not a folder of this user",
          "let the owner of the device root remove it");
    }
  }
  setenv("HOME", home.c_str(), 1);
  for (const auto& [variable, folder] : kFolders) {
    setenv(variable, (home + folder).c_str(), 1);
  }
  return {};
}

}  // namespace quillon::device
