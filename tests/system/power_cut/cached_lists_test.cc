// Power cuts while launches write the cached lists.
#include <gtest/gtest.h>

#include "device_paths.h"
#include "tests/system/power_cut/power_cut.h"
#include "tests/system/torture/device_files.h"

namespace quillon::power_cut {
namespace {

using torture::cachePath;
using torture::temporaryPath;
using torture::whole;
using torture::writeFile;

constexpr char kFolders[] = "/usr/share/dotnet.velora/lib:/usr/share/dotnet.velora/tvappapi";

class CachedLists : public PowerCut {
 protected:
  void cutDuringLaunch() {
    cutDuring(
        [] {
          torture::initializePlugin();
          torture::assemblyList();
          torture::libraryFolders();
        },
        [](std::size_t) {
          // The second launch reads what the first one has left.
          for (int times = 0; times < 2; ++times) {
            const torture::Launched launched = launchLists();
            EXPECT_EQ(launched.ending, "");
            EXPECT_EQ(launched.list, expectedAssemblies() + "\n" + kFolders);
          }
          EXPECT_EQ(torture::readFile(cachePath()), whole(expectedAssemblies()));
        });
  }
};

TEST_F(CachedLists, AreWrittenForTheFirstTime) { cutDuringLaunch(); }

TEST_F(CachedLists, ReplaceIncompleteOnes) {
  writeFile(cachePath(), "[START]" + expectedAssemblies());
  writeFile(temporaryPath(), whole(std::string(20'000, 'x')));
  cutDuringLaunch();
}

TEST_F(CachedLists, AreRemovedAfterAnUpdateOfThePlatform) {
  writeFile(device_paths::kWritableFlags, "0\n");
  writeFile(cachePath(), whole("/of/the/old/platform.dll"));
  writeFile(device_paths::kCobaCache, whole(":/of/the/old/platform"));
  cutDuringLaunch();
}

}  // namespace
}  // namespace quillon::power_cut
