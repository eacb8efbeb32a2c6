#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "tools/device/companion.h"
#include "tools/device/device_root.h"
#include "tools/device/isolation.h"
#include "tools/device/layout.h"
#include "tools/device/mounts.h"
#include "tools/device/record.h"
#include "tools/device/view.h"

namespace quillon::device {
namespace {

namespace fs = std::filesystem;

tl::unexpected<EnterFailure> failed(EnterError error, Failure failure) {
  return tl::unexpected(EnterFailure{{std::move(failure)}, error});
}

Expected<void> requireDeviceDirectories(const fs::path& directory) {
  const Descriptor root(::open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (const std::string_view folder : kDeviceDirectories) {
    if (folder != kOptionalDeviceDirectory && !openFolder(root, std::string(folder))) {
      return fail("the device root '" + directory.string() + "' has no folder '" +
                      std::string(folder) + "' of its own",
                  "make it anew: quillon device init " + directory.string());
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
              "find the machine's framework anew: quillon device init " + directory.string());
}

// Existing ones only, without symbolic links, folders before what they hold.
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
                  "make it first");
    }
    if (holdsDeviceDirectory(plain.relative_path().string())) {
      return fail("cannot keep '" + path.string() + "' writable: it holds folders of the device",
                  "name a folder further down");
    }
  }
  return {};
}

struct Plan {
  std::string device;
  Record record;
  std::vector<std::string> visible;
  std::vector<std::string> writable;
};

// A process needs its own program and what lies beside it ("bin/quillon", "lib/...").
Plan makePlan(const fs::path& directory, Record record, const EnterOptions& options) {
  std::vector<fs::path> visible = options.visible;
  std::error_code error;
  const fs::path programs = fs::read_symlink("/proc/self/exe", error).parent_path();
  visible.insert(visible.end(), {directory, programs, programs.parent_path()});
  return {directory.string(), std::move(record), canonical(visible), canonical(options.writable)};
}

Expected<void> showPaths(View& view, const Plan& plan) {
  for (const std::string& path : plan.visible) {
    if (holdsDeviceDirectory(fs::path(path).relative_path().string())) {
      continue;  // to show it would hide the device's folder
    }
    if (auto shown = view.show(path); !shown) {
      return shown;
    }
  }
  for (const std::string& path : plan.writable) {
    if (auto opened = view.openForWriting(path); !opened) {
      return opened;
    }
  }
  return {};
}

Expected<void> moveInto(const Plan& plan) {
  View view(plan.device);
  if (auto built = view.build(); !built) {
    return built;
  }
  if (plan.record.framework) {
    if (auto shown = view.showFramework(plan.record.framework->string()); !shown) {
      return shown;
    }
  }
  if (auto shown = showPaths(view, plan); !shown) {
    return shown;
  }
  return view.moveIn();
}

Expected<void> isolateAndMove(const Plan& plan) {
  std::error_code error;
  const fs::path workingDirectory = fs::current_path(error);
  if (auto isolated = isolateMounts(findCompanion(plan.device)); !isolated) {
    return isolated;
  }
  if (auto moved = moveInto(plan); !moved) {
    return moved;
  }
  // The working directory is "/" by now.
  if (!workingDirectory.empty()) {
    fs::current_path(workingDirectory, error);
  }
  // It names a folder of the machine; inside, temporary files belong to the device's "/tmp".
  ::unsetenv("TMPDIR");
  return {};
}

bool isSameRoot(const fs::path& directory, const fs::path& inside) {
  std::error_code error;
  return fs::absolute(directory, error).lexically_normal() == inside ||
         fs::canonical(directory, error) == inside;
}

tl::expected<void, EnterFailure> enterFromOutside(const fs::path& directory,
                                                  const EnterOptions& options) {
  auto record = readRecord(directory);
  if (!record) {
    return failed(EnterError::kNoDeviceRoot, record.error());
  }
  std::error_code error;
  const fs::path device = fs::canonical(directory, error);
  if (auto whole = requireDeviceDirectories(device); !whole) {
    return failed(EnterError::kNoDeviceRoot, whole.error());
  }
  if (auto found = requireFramework(device, *record); !found) {
    return failed(EnterError::kNoFramework, found.error());
  }
  if (auto usable = requireWritable(options.writable); !usable) {
    return failed(EnterError::kUnusablePath, usable.error());
  }
  if (auto moved = isolateAndMove(makePlan(device, std::move(*record), options)); !moved) {
    return failed(EnterError::kNoNamespace, moved.error());
  }
  return {};
}

}  // namespace

std::optional<fs::path> current() {
  std::ifstream marker("/" + std::string(kInsideMarker), std::ios::binary);
  if (!marker) {
    return std::nullopt;
  }
  return fs::path(std::string(std::istreambuf_iterator<char>(marker), {}));
}

tl::expected<void, EnterFailure> enter(const fs::path& directory, const EnterOptions& options) {
  const auto inside = current();
  if (!inside) {
    return enterFromOutside(directory, options);
  }
  if (isSameRoot(directory, *inside)) {
    return {};
  }
  return failed(EnterError::kNoNamespace,
                {"this process is already inside the device root '" + inside->string() + "'",
                 "leave its shell first"});
}

ExitStatus exitStatusOf(EnterError error) {
  switch (error) {
    case EnterError::kNoDeviceRoot:
      return kNoDeviceRoot;
    case EnterError::kNoNamespace:
      return kNoNamespace;
    case EnterError::kNoFramework:
      return kNoRuntime;
    case EnterError::kUnusablePath:
      return kUnusablePath;
  }
  return kNoNamespace;
}

}  // namespace quillon::device
