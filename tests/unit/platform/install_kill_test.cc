// An installation killed at every system call in turn: what stands afterwards is whole.
#include <gmock/gmock.h>
#include <sys/syscall.h>

#include <filesystem>

#include "tests/torture/traced_process.h"
#include "tests/unit/platform/device_main.h"
#include "tests/unit/platform/sample_package.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using torture::Follower;
using torture::SystemCall;
using torture::Verdict;
using workstation::listPackages;

class InstallKillTest : public InsideDeviceTest {
 protected:
  // Kills the work at its first, second, ... system call until it is through, and checks after
  // each.
  template <typename Prepare, typename Work, typename Check>
  void killEverywhere(const Prepare& prepare, const Work& work, const Check& check) {
    bool killed = true;
    size_t index = 1;
    for (; killed; ++index) {
      InsideDeviceTest::SetUp();
      prepare();
      const auto at = [&](const SystemCall& call) {
        return call.index == index ? Verdict::kill() : Verdict::run();
      };
      const auto result = torture::follow(work, Follower{at, nullptr});
      if (!result.allowed) QUILLON_SKIP(result.reason);
      killed = result.killed;
      check();
      if (HasFailure()) FAIL() << "killed at call " << index;
    }
    RecordProperty("calls", static_cast<int>(index - 2));
    EXPECT_GT(index, 50U) << "the work made no calls worth the name";
  }

  // The next installation clears up; then files and registry agree and nothing else is there.
  static void expectWhole() {
    ASSERT_TRUE(SamplePackage("other").install());
    const auto packages = listPackages().value();
    size_t others = 0;
    for (const auto& package : packages) {
      if (package.id == "other") {
        ++others;
        continue;
      }
      EXPECT_EQ(contentsOf(package.rootPath + "/version"), package.version);
      EXPECT_EQ(contentsOf(package.rootPath + "/other"), package.version);
    }
    size_t folders = 0;
    for (const char* parent : {"/opt/usr/apps", "/opt/share"}) {
      std::error_code error;
      for (const auto& entry : fs::directory_iterator(parent, error)) {
        EXPECT_FALSE(entry.path().filename().string().starts_with(".")) << entry.path();
        ++folders;
      }
    }
    EXPECT_EQ(others, 1U);
    EXPECT_EQ(folders, packages.size());
  }

  // And the package that was replaced is there, in whichever version.
  static void expectWholeAndThere() {
    expectWhole();
    const auto packages = listPackages().value();
    ASSERT_EQ(packages.size(), 2U);
    EXPECT_EQ(packages[1].id, "p");
  }
};

void install(const std::string& version, const std::string& line = "") {
  SamplePackage sample("p", version);
  sample.add(line).file("version", version).file("other", version);
  if (!sample.install()) std::abort();
}

TEST_F(InstallKillTest, ANewPackage) {
  killEverywhere([] {}, [] { install("1"); }, expectWhole);
}

TEST_F(InstallKillTest, AReplacement) {
  killEverywhere([] { install("1"); }, [] { install("2"); }, expectWholeAndThere);
}

TEST_F(InstallKillTest, AReplacementAtAnotherRoot) {
  killEverywhere([] { install("1"); }, [] { install("2", "root = '/opt/share/p'"); },
                 expectWholeAndThere);
}

TEST_F(InstallKillTest, ARemoval) {
  killEverywhere([] { install("1"); },
                 [] {
                   if (!workstation::removePackage("p")) std::abort();
                 },
                 expectWhole);
}

}  // namespace
}  // namespace quillon::test
