// The native libraries that a prepared process loads.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/system/device/device_fixture.h"

namespace quillon::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr char kList[] = "/usr/bin/dotnet_preload_so_list.txt";
constexpr char kLibraries[] = "/usr/share/dotnet.velora/lib/";

class LibraryPreload : public DeviceLaunch {
 protected:
  void SetUp() override {
    DeviceLaunch::SetUp();
    if (IsSkipped()) {
      return;
    }
    put("/usr/bin/.keep");
    put(std::string(kLibraries) + ".keep");
    std::filesystem::copy_file(QUILLON_PRELOAD_ONE, onMachine(std::string(kLibraries) + "one.so"));
    std::filesystem::copy_file(QUILLON_PRELOAD_TWO, onMachine(std::string(kLibraries) + "two.so"));
  }
  DriverRun launch() {
    return run(
        {"initialize=inhouse", "set_coreclr_info", "preload", "mapped=one.so", "mapped=two.so"});
  }
  static std::vector<bool> loaded(const DriverRun& launched) {
    return {launched.result("mapped", 0).get<bool>(), launched.result("mapped", 1).get<bool>()};
  }
};

TEST_F(LibraryPreload, LoadsEveryWordOfTheList) {
  put(kList, std::string(kLibraries) + "one.so\t" + kLibraries + "two.so\n");
  const DriverRun launched = launch();
  EXPECT_THAT(loaded(launched), ElementsAre(true, true));
  EXPECT_THAT(launched.messages(6), IsEmpty());
}

TEST_F(LibraryPreload, ReportsALibraryThatDoesNotLoadAndContinues) {
  put(kList, std::string("libno-such.so\n\n  ") + kLibraries + "two.so");
  const DriverRun launched = launch();
  EXPECT_THAT(loaded(launched), ElementsAre(false, true));
  EXPECT_THAT(launched.messages(6), ElementsAre(HasSubstr("libno-such.so: cannot open shared")));
}

TEST_F(LibraryPreload, AnEmptyListLoadsNothing) {
  put(kList, "");
  EXPECT_THAT(loaded(launch()), ElementsAre(false, false));
}

// open(2) of a FIFO waits for a writer.
TEST_F(LibraryPreload, AFifoAsTheListLoadsNothing) {
  ASSERT_EQ(mkfifo(onMachine(kList).c_str(), 0666), 0);
  EXPECT_THAT(loaded(launch()), ElementsAre(false, false));
}

TEST_F(LibraryPreload, AMissingListIsNoError) {
  const DriverRun launched = launch();
  EXPECT_THAT(loaded(launched), ElementsAre(false, false));
  EXPECT_THAT(
      launched.linesFrom("4 [quillon-tv-plugin] plugin_preload"),
      ElementsAre("4 [quillon-tv-plugin] plugin_preload", "3 Decorator::Preload",
                  "4 ### plugin_preload called ###", "4 ### preloadSharedLibraries called ###",
                  "4 [quillon-tv-plugin] process in Host. preload C# methods"));
}

TEST_F(LibraryPreload, IgnoresAListThatIsADirectory) {
  std::filesystem::create_directories(onMachine(kList));
  const DriverRun launched = launch();
  EXPECT_EQ(launched.status, 0) << launched.output;
  EXPECT_THAT(loaded(launched), ElementsAre(false, false));
  EXPECT_THAT(launched.messages(6), IsEmpty());
}

}  // namespace
}  // namespace quillon::test
