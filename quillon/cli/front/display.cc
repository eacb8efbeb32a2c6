#include "quillon/cli/front/display.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "quillon/base/descriptor.h"
#include "quillon/base/terminal.h"

namespace quillon::cli {
namespace {

namespace fs = std::filesystem;

constexpr char kSocketFolder[] = "/tmp/.X11-unix";

// The socket of a display on this machine, ":NUMBER" or "unix:NUMBER" with an optional ".SCREEN";
// empty for any other one.
std::string socketOf(std::string_view display) {
  display.remove_prefix(display.starts_with("unix:") ? 4 : 0);
  if (!display.starts_with(':')) {
    return {};
  }
  display.remove_prefix(1);
  const std::string_view number = display.substr(0, display.find_first_not_of("0123456789"));
  return number.empty() ? "" : kSocketFolder + std::string("/X") + std::string(number);
}

// X servers on Linux usually listen at an abstract socket of the same name, too, which no device
// root hides.
bool hasAbstractSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path + 1, sizeof address.sun_path - 1);
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + path.size());
  const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), length) == 0;
}

bool isShown(const host::LaunchOptions& options, const fs::path& path) {
  return std::any_of(options.writable.begin(), options.writable.end(), [&](const fs::path& shown) {
    const fs::path folder = shown.lexically_normal();
    return folder == path || folder == path.parent_path();
  });
}

void keepAuthorityFile() {
  const char* const home = std::getenv("HOME");
  if (home != nullptr) {
    constexpr int kKeepExisting = 0;
    setenv("XAUTHORITY", (std::string(home) + "/.Xauthority").c_str(), kKeepExisting);
  }
}

}  // namespace

void prepareDisplay(const host::LaunchOptions& options) {
  const char* const display = std::getenv("DISPLAY");
  if (display == nullptr || *display == '\0') {
    return;
  }
  keepAuthorityFile();
  const std::string path = socketOf(display);
  if (path.empty() || access(path.c_str(), F_OK) != 0 || isShown(options, path) ||
      hasAbstractSocket(path)) {
    return;
  }
  tell({std::string("the device root hides the socket '") + path + "' of DISPLAY=" + display,
        std::string("if the application needs it: quillon launch --writable ") + kSocketFolder});
}

}  // namespace quillon::cli
