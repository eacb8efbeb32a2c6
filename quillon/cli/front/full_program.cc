#include "quillon/cli/front/full_program.h"

#include <sys/auxv.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "quillon/base/files.h"
#include "quillon/base/report.h"

namespace quillon::cli {
namespace {

constexpr std::string_view kName = "/quillon";

// The same file by a second path, which says that the launch is declined. The path that a program
// was executed by is not visible to applications, unlike arguments, the environment and
// descriptors.
constexpr std::string_view kNameIfDeclined = "/./quillon";

}  // namespace

std::string fullProgram() {
  const std::filesystem::path front = executablePath();
  return front.empty() ? std::string()
                       : (front.parent_path().parent_path() / "libexec").string().append(kName);
}

int runFullProgram(const std::string& program, char** arguments, bool isDeclined) {
  std::string path = program;
  if (isDeclined && path.ends_with(kName)) {
    path.replace(path.size() - kName.size(), kName.size(), kNameIfDeclined);
  }
  execv(path.c_str(), arguments);
  return report(
      {"cannot execute '" + program + "': " + std::strerror(errno), "install quillon again"});
}

bool isDeclinedLaunch() {
  const auto* const path = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
  return path != nullptr && std::string_view(path).ends_with(kNameIfDeclined);
}

}  // namespace quillon::cli
