#include "quillon/dotnet/host_lookup.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "tests/support/temporary_directory.h"

namespace quillon::dotnet {
namespace {

namespace fs = std::filesystem;

class HostLookup : public ::testing::Test {
 protected:
  void add(const std::string& version) const {
    const fs::path folder = root() / "host/fxr" / version;
    fs::create_directories(folder);
    std::ofstream(folder / "libhostfxr.so") << "host";
  }
  fs::path root() const { return directory_.path() / "dotnet"; }
  fs::path framework() const { return root() / "shared/Microsoft.NETCore.App/10.0.2"; }

 private:
  test::TemporaryDirectory directory_;
};

TEST_F(HostLookup, FindsTheNewestHostBesideTheFramework) {
  for (const char* version : {"10.0.2", "10.0.12", "9.0.20", "11.0.0-preview.1"}) {
    add(version);
  }
  const auto host = findHost(framework());
  ASSERT_TRUE(host.has_value());
  EXPECT_EQ(host->root, root());
  EXPECT_EQ(host->library, root() / "host/fxr/10.0.12/libhostfxr.so");
}

TEST_F(HostLookup, LooksElsewhereIfTheFrameworkHasNone) {
  setenv("QUILLON_DOTNET_ROOT", root().c_str(), 1);
  EXPECT_FALSE(findHost(std::nullopt).has_value());
  fs::create_directories(framework());
  std::ofstream(framework() / "libcoreclr.so") << "runtime";
  EXPECT_FALSE(findHost("/elsewhere/framework").has_value());
  add("10.0.2");
  ASSERT_TRUE(findHost("/elsewhere/framework").has_value());
  EXPECT_EQ(findHost("/elsewhere/framework")->root, root());
  unsetenv("QUILLON_DOTNET_ROOT");
}

TEST_F(HostLookup, KnowsTheFolderOfAFramework) {
  EXPECT_EQ(rootOfFramework("/a/shared/Microsoft.NETCore.App/10.0.2"), "/a");
  EXPECT_EQ(rootOfFramework("/a/elsewhere/Microsoft.NETCore.App/10.0.2"), "");
  EXPECT_EQ(rootOfFramework("/"), "");
}

}  // namespace
}  // namespace quillon::dotnet
