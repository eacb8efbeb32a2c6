// Extra DLL directories: placeholder descriptors that later refer to the application's required
// directories.
#include <gmock/gmock.h>

#include <algorithm>
#include <sstream>

#include "tests/system/device/device_fixture.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kApp[] = "org.example.app";
constexpr char kExec[] = "/opt/usr/apps/org.example.app/bin/A.dll";

class Dpc : public DeviceLaunch {
 protected:
  // An application that requires the packages of a list with separator ";".
  void require(const std::string& packages) {
    makeApplication(kApp, "\"/tv/metadata/d.pc/required\" = \"" + packages + "\"");
  }
  void offer(const std::string& package) {
    put("/opt/usr/apps/" + package + "/shared/res/d.pc/Name.txt", package);
  }
  DriverRun launch(std::vector<std::string> more = {}) {
    std::vector<std::string> steps = {"initialize=inhouse", "get_extra_dll_path",
                                      std::string("set_app_info=") + kApp + "," + kExec};
    steps.insert(steps.end(), more.begin(), more.end());
    return run(steps, kApp);
  }
  // Returns the descriptor numbers of the placeholders.
  static std::vector<std::string> placeholders(const DriverRun& launched) {
    std::vector<std::string> numbers;
    std::istringstream list(launched.result("get_extra_dll_path").get<std::string>());
    for (std::string path; std::getline(list, path, ':');) {
      constexpr char kPrefix[] = "/proc/self/fd/";
      if (path.rfind(kPrefix, 0) == 0) {
        numbers.push_back(path.substr(sizeof(kPrefix) - 1));
      }
    }
    return numbers;
  }
  static std::string target(const DriverRun& launched, std::size_t placeholder) {
    return launched.result("descriptors")[placeholders(launched).at(placeholder)]["target"];
  }
};

TEST_F(Dpc, PlaceholdersComeBeforeThePlatformsDirectories) {
  put("/usr/share/dotnet.velora/d.pc/abc/A.dll");
  put("/usr/share/dotnet.velora/d.pc/file");
  std::filesystem::create_directory_symlink("/usr/share/dotnet.velora/d.pc/abc",
                                            onMachine("/usr/share/dotnet.velora/d.pc/link"));
  const DriverRun launched = run({"initialize=inhouse", "get_extra_dll_path", "descriptors"});
  const std::vector<std::string> numbers = placeholders(launched);
  ASSERT_EQ(numbers.size(), 10U);
  std::string expected;
  for (const std::string& number : numbers) {
    expected += ":/proc/self/fd/" + number;
    EXPECT_THAT(launched.result("descriptors")[number]["target"], HasSubstr("/proc/"));
  }
  expected += ":/usr/share/dotnet.velora/d.pc/abc";
  EXPECT_EQ(launched.result("get_extra_dll_path"), expected);
  EXPECT_EQ(launched.lines().back(), "3 Extra Dll Path : " + expected);
  EXPECT_THAT(launched.lines(), Contains("3 ExtraDllPath : " + expected));
  EXPECT_THAT(launched.lines(), Not(Contains("3 Decorator::GetExtraDllPath")));
}

TEST_F(Dpc, WithoutPlatformDirectoriesThereAreOnlyPlaceholders) {
  const DriverRun launched = run({"initialize=inhouse", "get_extra_dll_path"});
  EXPECT_EQ(placeholders(launched).size(), 10U);
  EXPECT_THAT(launched.result("get_extra_dll_path").get<std::string>(),
              Not(HasSubstr("dotnet.velora")));
  EXPECT_THAT(launched.messages(6), ::testing::IsEmpty());
}

TEST_F(Dpc, ARequiredDirectoryTakesTheFirstPlaceholder) {
  require("pkgA;pkgB");
  offer("pkgB");
  const DriverRun launched = launch({"descriptors"});
  ASSERT_EQ(launched.status, 0) << launched.output;
  EXPECT_EQ(target(launched, 0), "/opt/usr/apps/pkgB/shared/res/d.pc");
  EXPECT_TRUE(launched.result("descriptors")[placeholders(launched)[0]]["cloexec"]);
  EXPECT_THAT(target(launched, 1), HasSubstr("/proc/"));
  EXPECT_FALSE(launched.result("descriptors")[placeholders(launched)[1]]["cloexec"]);
  EXPECT_THAT(launched.lines(), Contains("3 DPC path : /opt/usr/apps/pkgB/shared/res/d.pc/"));
  EXPECT_THAT(launched.lines(), Not(Contains("3 DPC path : /opt/usr/apps/pkgA/shared/res/d.pc/")));
}

TEST_F(Dpc, ThePathGivenEarlierLeadsToTheRequiredFiles) {
  require("pkgB");
  offer("pkgB");
  const std::string first = placeholders(run({"initialize=inhouse", "get_extra_dll_path"})).at(0);
  const DriverRun launched = launch({"read=/proc/self/fd/" + first + "/Name.txt"});
  EXPECT_EQ(launched.result("read"), "pkgB");
}

TEST_F(Dpc, NothingIsLeftOpenBesidesThePlaceholders) {
  require("pkgB;pkgC");
  offer("pkgB");
  offer("pkgC");
  const DriverRun launched = run({"initialize=inhouse", "get_extra_dll_path", "descriptors",
                                  std::string("set_app_info=") + kApp + "," + kExec, "descriptors"},
                                 kApp);
  EXPECT_EQ(launched.result("descriptors", 0).size(), launched.result("descriptors", 1).size());
}

// Without standard input, the required directory is opened as descriptor 0.
TEST_F(Dpc, ADirectoryMayBeOpenedWithTheNumberZero) {
  require("pkgB");
  offer("pkgB");
  const DriverRun launched =
      run({"initialize=inhouse", "get_extra_dll_path", "close_standard_input",
           std::string("set_app_info=") + kApp + "," + kExec, "descriptors"},
          kApp);
  EXPECT_EQ(target(launched, 0), "/opt/usr/apps/pkgB/shared/res/d.pc");
}

TEST_F(Dpc, EmptyPiecesTakeNoPlaceholder) {
  require(";;pkgB;");
  offer("pkgB");
  EXPECT_EQ(target(launch({"descriptors"}), 0), "/opt/usr/apps/pkgB/shared/res/d.pc");
}

TEST_F(Dpc, MappingStopsAtTheLastPlaceholder) {
  std::string packages;
  for (char c = 'a'; c < 'a' + 12; ++c) {
    packages += std::string("pkg") + c + ";";
    offer(std::string("pkg") + c);
  }
  require(packages);
  const DriverRun launched = launch({"descriptors"});
  EXPECT_EQ(launched.status, 0);
  EXPECT_EQ(target(launched, 9), "/opt/usr/apps/pkgj/shared/res/d.pc");
  EXPECT_THAT(launched.lines(), Not(Contains("3 DPC path : /opt/usr/apps/pkgk/shared/res/d.pc/")));
}

TEST_F(Dpc, WithoutPlaceholdersNothingIsMapped) {
  require("pkgB");
  offer("pkgB");
  const DriverRun launched =
      run({"initialize=inhouse", std::string("set_app_info=") + kApp + "," + kExec, "process_name"},
          kApp);
  EXPECT_EQ(launched.result("process_name"), "DN_.example.app");
  EXPECT_THAT(launched.lines(), Not(Contains("3 DPC path : /opt/usr/apps/pkgB/shared/res/d.pc/")));
}

TEST_F(Dpc, TheStrategyComesBeforeTheMapping) {
  require("pkgB");
  offer("pkgB");
  const std::vector<std::string> lines = launch().lines();
  const auto position = [&](const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) - lines.begin();
  };
  const auto named = position("4 Process Name : DN_.example.app");
  const auto mapped = position("3 DPC path : /opt/usr/apps/pkgB/shared/res/d.pc/");
  EXPECT_LT(position("3 Decorator::SetAppInfo"), named);
  EXPECT_LT(named, mapped);
  EXPECT_LT(mapped, static_cast<long>(lines.size()));
}

}  // namespace
}  // namespace quillon::test
