#include "quillon/resolution/dotnet_view.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

#include "device_paths.h"

namespace quillon::resolution {
namespace {

namespace fs = std::filesystem;

constexpr char kTemplate[] = "/tmp/quillon-dotnet-XXXXXX";
constexpr char kBaseFramework[] = "Microsoft.NETCore.App";

void link(const fs::path& target, const fs::path& place, std::error_code& error) {
  if (!error) {
    fs::create_directory_symlink(target, place, error);
  }
}

void fill(const fs::path& shared, const fs::path& root, const std::string& version,
          std::error_code& error) {
  fs::create_directories(shared / kBaseFramework, error);
  link(device_paths::kNetcoreapp, shared / kBaseFramework / version, error);
  std::error_code missing;
  for (fs::directory_iterator entry(root / "shared", missing), end; !missing && entry != end;
       entry.increment(missing)) {
    if (entry->path().filename() != kBaseFramework) {
      link(entry->path(), shared / entry->path().filename(), error);
    }
  }
}

}  // namespace

Expected<DotnetView> DotnetView::make(const fs::path& root, const std::string& version) {
  std::string folder = kTemplate;
  std::error_code error;
  if (mkdtemp(folder.data()) == nullptr) {
    error = std::error_code(errno, std::generic_category());
  }
  DotnetView view(error ? fs::path() : fs::path(folder));
  if (!error) {
    fill(view.folder_ / "shared", root, version, error);
  }
  if (error) {
    return fail("cannot make a folder in the device root's /tmp: " + error.message(),
                "let its owner run this");
  }
  return view;
}

DotnetView::DotnetView(DotnetView&& other) noexcept : folder_(std::exchange(other.folder_, {})) {}

DotnetView::~DotnetView() {
  std::error_code ignored;
  if (!folder_.empty()) {
    fs::remove_all(folder_, ignored);  // removes links, not what they lead to
  }
}

}  // namespace quillon::resolution
