#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <ios>

#include "plugin/include-internal/dpc-path-manager.h"
#include "tests/support/recording_platform.h"
#include "tests/support/without_standard_input.h"
#include "tests/unit/plugin/fake_strategy.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr char kKey[] = "http://korvane.example/tv/metadata/d.pc/required";

// Closes the descriptors that a test opened, because the decorator leaves its placeholders open.
class OpenDescriptors {
 public:
  ~OpenDescriptors() {
    for (const int descriptor : opened()) {
      close(descriptor);
    }
  }
  [[nodiscard]] std::vector<int> opened() const {
    std::vector<int> result;
    for (int descriptor = 0; descriptor < 256; ++descriptor) {
      if (isOpen(descriptor) && !before_[static_cast<std::size_t>(descriptor)]) {
        result.push_back(descriptor);
      }
    }
    return result;
  }

 private:
  static bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; }
  static std::vector<bool> snapshot() {
    std::vector<bool> result;
    for (int descriptor = 0; descriptor < 256; ++descriptor) {
      result.push_back(isOpen(descriptor));
    }
    return result;
  }
  std::vector<bool> before_ = snapshot();
};

std::string failureOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::ios_base::failure& failure) {
    return failure.what();
  }
  return "";
}

class DpcPathManager : public PlatformTest {
 protected:
  void require(const std::string& key, const std::string& value) {
    platform().packages = {{"p", "/r", {}, {{"app", "", false, {{key, value}}}}}};
  }
  OpenDescriptors descriptors_;
  FakeStrategy wrapped_;
  DpcPathManagerDecorate decorator_{&wrapped_};
};

TEST_F(DpcPathManager, OpensTenPlaceholdersInOrder) {
  platform().reset();
  const std::string list = decorator_.GetExtraDllPath();
  std::string expected;
  for (const int descriptor : descriptors_.opened()) {
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    EXPECT_TRUE(std::filesystem::equivalent(path, "/proc/self"));
    expected += ":" + path;
  }
  EXPECT_EQ(descriptors_.opened().size(), 10U);
  EXPECT_EQ(list.substr(0, expected.size()), expected);
  EXPECT_THAT(platform().lines(), ElementsAre("3 ExtraDllPath : " + list));
  EXPECT_EQ(platform().log[1].file(), "log.h");
  EXPECT_THAT(wrapped_.calls, IsEmpty());
}

// A launcher may have closed its standard input.
TEST_F(DpcPathManager, APlaceholderMayHaveTheNumberZero) {
  require(kKey, "pkgA;pkgB");
  const WithoutStandardInput without;
  EXPECT_THAT(decorator_.GetExtraDllPath(), StartsWith(":/proc/self/fd/0:"));
  EXPECT_EQ(failureOf([&] { decorator_.SetAppInfo("app", "/path"); }), "");
}

TEST_F(DpcPathManager, AnotherCallOpensTenMoreAndAppends) {
  const std::string first = decorator_.GetExtraDllPath();
  const std::string second = decorator_.GetExtraDllPath();
  EXPECT_EQ(descriptors_.opened().size(), 20U);
  EXPECT_EQ(second.substr(0, first.size()), first);
  EXPECT_GT(second.size(), first.size());
}

// The ten descriptors of the second call are in no list.
TEST_F(DpcPathManager, AnotherCallListsTheFirstTenAgain) {
  const std::string first = decorator_.GetExtraDllPath();
  EXPECT_EQ(decorator_.GetExtraDllPath(), first + first);
}

TEST_F(DpcPathManager, ForwardsTheOtherOperations) {
  EXPECT_EQ(decorator_.GetTPA(), "tpa");
  EXPECT_EQ(decorator_.GetDllPath(), "dll");
  decorator_.Initialize();
  decorator_.Preload();
  decorator_.Finalize();
  EXPECT_THAT(wrapped_.calls,
              ElementsAre("GetTPA()", "GetDllPath()", "Initialize()", "Preload()", "Finalize()"));
}

TEST_F(DpcPathManager, CallsTheWrappedStrategyBeforeItExaminesTheApplication) {
  wrapped_.onCall = [] { EXPECT_THAT(platform().calls, IsEmpty()); };
  decorator_.SetAppInfo("app", "/path");
  EXPECT_THAT(wrapped_.calls, ElementsAre("SetAppInfo(app, /path)"));
  EXPECT_EQ(platform().calls.front(), "app_info_create(app)");
  EXPECT_THAT(platform().messages(3), Contains("Decorator::SetAppInfo"));
}

TEST_F(DpcPathManager, ReadsTheRequiredPackages) {
  require(kKey, "pkgA;pkgB");
  EXPECT_EQ(decorator_.GetDpcList("app"), "pkgA;pkgB");
  EXPECT_THAT(platform().openHandles, IsEmpty());
  EXPECT_THAT(platform().messages(3),
              Contains(std::string("Metadata key : ") + kKey + ", Value : pkgA;pkgB"));
}

TEST_F(DpcPathManager, AKeyThatContainsTheRequiredOneMatchesToo) {
  require("x" + std::string(kKey) + ".more", "p");
  EXPECT_EQ(decorator_.GetDpcList("app"), "p");
  require(std::string(kKey).substr(1), "p");
  EXPECT_EQ(decorator_.GetDpcList("app"), "");
}

TEST_F(DpcPathManager, TheFirstMatchingKeyWins) {
  platform().packages = {
      {"p", "/r", {}, {{"app", "", false, {{"other", "0"}, {kKey, "1"}, {kKey, "2"}}}}}};
  EXPECT_EQ(decorator_.GetDpcList("app"), "1");
  std::string value;
  EXPECT_TRUE(DpcPathManagerDecorate::dpc_metadata_cb("other", "0", &value));
  EXPECT_EQ(value, "");
  EXPECT_FALSE(DpcPathManagerDecorate::dpc_metadata_cb(kKey, "1", &value));
  EXPECT_EQ(value, "1");
  EXPECT_FALSE(DpcPathManagerDecorate::dpc_metadata_cb(kKey, "1", nullptr));
}

TEST_F(DpcPathManager, NullsFromThePlatformRequireNothing) {
  std::string value = "before";
  EXPECT_TRUE(DpcPathManagerDecorate::dpc_metadata_cb(nullptr, "1", &value));
  EXPECT_EQ(value, "before");
  EXPECT_FALSE(DpcPathManagerDecorate::dpc_metadata_cb(kKey, nullptr, &value));
  EXPECT_EQ(value, "");
  EXPECT_FALSE(DpcPathManagerDecorate::dpc_metadata_cb(kKey, nullptr, nullptr));
}

TEST_F(DpcPathManager, AnUnknownApplicationRequiresNothing) {
  EXPECT_EQ(decorator_.GetDpcList("nobody"), "");
  EXPECT_THAT(platform().calls,
              ElementsAre("app_info_create(nobody)", "app_info_foreach_metadata(null)",
                          "app_info_destroy(null)"));
}

TEST_F(DpcPathManager, IgnoresTheResultOfOpeningTheApplication) {
  require(kKey, "pkgA");
  platform().failures["app_info_create"] = -1;
  platform().handlesOfFailures = {"app_info_create"};
  EXPECT_EQ(decorator_.GetDpcList("app"), "pkgA");
  EXPECT_THAT(platform().openHandles, IsEmpty());
}

TEST_F(DpcPathManager, MapsNothingWithoutPlaceholders) {
  require(kKey, "pkgA;pkgB");
  decorator_.SetAppInfo("app", "/path");
  EXPECT_THAT(descriptors_.opened(), IsEmpty());
}

// While the object exists, the process cannot open any more descriptors.
class NoMoreDescriptors {
 public:
  NoMoreDescriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const int next = dup(2);
    close(next);
    const rlimit none{static_cast<rlim_t>(next), before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

TEST_F(DpcPathManager, APlaceholderThatDoesNotOpenIsAFailureForTheCaller) {
  require(kKey, "pkgA");
  const std::string thrown = failureOf([&] {
    const NoMoreDescriptors limit;
    decorator_.GetExtraDllPath();
  });
  EXPECT_THAT(thrown, ::testing::HasSubstr("Fail to open /proc/self"));
  const std::vector<std::string> errors = platform().messages(6);
  EXPECT_THAT(errors, ElementsAre("Failed to open /proc/self"));
  EXPECT_EQ(platform().log.back().message().substr(0, 12), "-DotNETLog:d");

  // The failed placeholder stays in the list, and SetAppInfo fails when it reaches it.
  EXPECT_NE(failureOf([&] { decorator_.SetAppInfo("app", "/path"); }), "");
  EXPECT_THAT(wrapped_.calls, ElementsAre("SetAppInfo(app, /path)"));
}

}  // namespace
}  // namespace quillon::test
