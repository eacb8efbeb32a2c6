#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "quillon/base/files.h"
#include "quillon/base/shell_word.h"
#include "quillon/device/device_root.h"
#include "quillon/device/home.h"
#include "quillon/device/isolation.h"
#include "quillon/device/layout.h"
#include "quillon/device/mounts.h"
#include "quillon/device/record.h"
#include "quillon/device/tree_path.h"
#include "quillon/device/view.h"
#include "quillon/device/working_directory.h"
#include "quillon/device/zone_holder.h"
#include "quillon/dotnet/host_lookup.h"

namespace quillon::device {
namespace {

namespace fs = std::filesystem;

Expected<void> requireDeviceDirectories(const fs::path& directory) {
  const Descriptor root(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (const std::string_view folder : kDeviceDirectories) {
    if (folder != kOptionalDeviceDirectory && !openFolder(root, std::string(folder))) {
      return fail("the device root '" + directory.string() + "' has no folder '" +
                      std::string(folder) + "', or only a link to one",
                  "repair it: quillon device init " + shellWord(directory.string()));
    }
  }
  return {};
}

Expected<void> requireFramework(const fs::path& directory, const Record& record) {
  std::error_code error;
  if (!record.framework || fs::is_directory(*record.framework, error)) {
    return {};
  }
  return fail("the framework folder '" + record.framework->string() + "' of the device root '" +
                  directory.string() + "' is gone",
              "find the framework again: quillon device init " + shellWord(directory.string()));
}

// Returns the canonical paths of those that exist, with each folder before its contents.
std::vector<std::string> canonical(const std::vector<fs::path>& paths) {
  std::vector<std::string> found;
  for (const fs::path& path : paths) {
    std::error_code error;
    const fs::path plain = fs::canonical(path, error);
    if (!error) {
      found.push_back(plain.string());
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

Expected<void> requireWritable(const std::vector<fs::path>& paths) {
  for (const fs::path& path : paths) {
    std::error_code error;
    const fs::path plain = fs::canonical(path, error);
    if (error) {
      return fail("cannot keep '" + path.string() + "' writable: " + error.message(),
                  "create it first");
    }
    if (holdsDeviceDirectory(plain.relative_path().string())) {
      return fail("cannot keep '" + path.string() + "' writable: it contains folders of the device",
                  "name a folder below it");
    }
  }
  return {};
}

// Whether folders of the device take the place of this path of the machine.
bool isHidden(const fs::path& path) {
  const std::string inTree = path.relative_path().string();
  return std::any_of(kDeviceDirectories.begin(), kDeviceDirectories.end(),
                     [&](std::string_view folder) { return isBeneath(inTree, folder); });
}

struct Plan {
  std::string device;
  Record record;
  std::vector<std::string> visible;
  std::vector<std::string> writable;
};

// The process needs its program and the libraries of the installation ("libexec/quillon",
// "lib/...").
Plan makePlan(const fs::path& directory, Record record, const EnterOptions& options) {
  std::vector<fs::path> visible = options.visible;
  std::error_code error;
  const fs::path programs = executablePath().parent_path();
  visible.insert(visible.end(), {directory, programs, programs.parent_path()});
  // The machine's other frameworks are beside the recorded one.
  if (record.framework && isHidden(*record.framework)) {
    visible.push_back(dotnet::rootOfFramework(*record.framework));
  }
  return {directory.string(), std::move(record), canonical(visible), canonical(options.writable)};
}

Expected<void> showPaths(View& view, const Plan& plan) {
  for (const std::string& path : plan.visible) {
    if (holdsDeviceDirectory(fs::path(path).relative_path().string())) {
      continue;  // it would hide the folders of the device
    }
    RETURN_IF_FAILED(view.show(path));
  }
  for (const std::string& path : plan.writable) {
    RETURN_IF_FAILED(view.openForWriting(path));
  }
  return {};
}

Expected<void> moveInto(const Plan& plan) {
  View view(plan.device);
  RETURN_IF_FAILED(view.build());
  if (plan.record.framework) {
    RETURN_IF_FAILED(view.showFramework(plan.record.framework->string()));
  }
  RETURN_IF_FAILED(showPaths(view, plan));
  return view.moveIn();
}

Entered withHome() {
  Entered entered;
  if (auto home = useHome(); !home) {
    entered.noHome = std::move(home).error();
  }
  return entered;
}

Expected<Entered> isolateAndMove(const Plan& plan) {
  const WorkingDirectory before = workingDirectory();
  RETURN_IF_FAILED(isolateMounts(findZoneHolder(plan.device)));
  RETURN_IF_FAILED(moveInto(plan));
  // TMPDIR names a folder of the machine. Inside, temporary files belong in the device's "/tmp".
  unsetenv("TMPDIR");
  Entered entered = withHome();
  if (!changeTo(before)) {
    entered.hiddenDirectory = before.path;
  }
  return entered;
}

bool isSameRoot(const fs::path& directory, const fs::path& inside) {
  std::error_code error;
  return fs::absolute(directory, error).lexically_normal() == inside ||
         fs::canonical(directory, error) == inside;
}

Expected<Entered> enterFromOutside(const fs::path& directory, const EnterOptions& options) {
  ASSIGN_OR_RETURN(Record record, withStatus(kNoDeviceRoot, readRecord(directory)));
  std::error_code error;
  const fs::path device = fs::canonical(directory, error);
  RETURN_IF_FAILED(withStatus(kNoDeviceRoot, requireDeviceDirectories(device)));
  RETURN_IF_FAILED(withStatus(kNoRuntime, requireFramework(device, record)));
  RETURN_IF_FAILED(withStatus(kUnusablePath, requireWritable(options.writable)));
  return withStatus(kNoNamespace, isolateAndMove(makePlan(device, std::move(record), options)));
}

}  // namespace

std::optional<fs::path> current() {
  return readWholeFile("/" + std::string(kInsideMarker), kMaxTextSize);
}

Expected<Entered> enter(const fs::path& directory, const EnterOptions& options) {
  const auto inside = current();
  if (!inside) {
    return enterFromOutside(directory, options);
  }
  if (isSameRoot(directory, *inside)) {
    return withHome();
  }
  return fail(kNoNamespace,
              {"this process is already inside the device root '" + inside->string() + "'",
               "leave its shell first"});
}

}  // namespace quillon::device
