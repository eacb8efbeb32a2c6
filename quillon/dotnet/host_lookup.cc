#include "quillon/dotnet/host_lookup.h"

#include <string>
#include <system_error>

#include "quillon/dotnet/runtime_lookup.h"
#include "quillon/dotnet/version.h"

namespace quillon::dotnet {
namespace {

namespace fs = std::filesystem;

std::optional<Host> hostIn(const fs::path& root) {
  std::string newest;
  std::error_code error;
  const fs::path versions = root / "host/fxr";
  for (fs::directory_iterator entry(versions, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string version = entry->path().filename().string();
    if (newest.empty() || isPreferred(version, newest)) {
      newest = version;
    }
  }
  fs::path library = versions / newest / "libhostfxr.so";
  if (root.empty() || newest.empty() || !fs::exists(library, error)) {
    return std::nullopt;
  }
  return Host{root, std::move(library)};
}

}  // namespace

std::filesystem::path rootOfFramework(const std::filesystem::path& framework) {
  const fs::path shared = framework.parent_path().parent_path();
  return shared.filename() == "shared" ? shared.parent_path() : fs::path();
}

std::optional<Host> findHost(const std::optional<std::filesystem::path>& framework) {
  if (framework) {
    if (auto host = hostIn(rootOfFramework(*framework))) {
      return host;
    }
  }
  const auto found = findFramework();
  return found ? hostIn(rootOfFramework(found->directory)) : std::nullopt;
}

}  // namespace quillon::dotnet
