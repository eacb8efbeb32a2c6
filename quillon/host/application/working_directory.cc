#include "quillon/host/application/working_directory.h"

#include <string>
#include <system_error>

#include "quillon/base/shell_word.h"
#include "quillon/base/terminal.h"
#include "quillon/device/working_directory.h"

namespace quillon::host {

namespace fs = std::filesystem;

void useOwnFolder(const LaunchTarget& target, const fs::path& hidden) {
  fs::path folder = fs::path(target.assembly).parent_path();
  std::error_code error;
  fs::current_path(folder, error);
  if (error) {
    folder = "/";
    fs::current_path(folder, error);
  }
  const std::string result = "; the application starts in '" + folder.string() + "'";
  if (hidden.empty()) {
    return tell({"the working directory was removed" + result, "launch from another folder"});
  }
  tell({"the device root hides the working directory '" + hidden.string() + "'" + result,
        device::canStayWritable(hidden)
            ? "to keep it: quillon launch --writable " + shellWord(hidden.string())
            : "launch from another folder"});
}

}  // namespace quillon::host
