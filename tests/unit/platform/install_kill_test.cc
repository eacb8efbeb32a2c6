// Kills an installation at each of its system calls. Packages must be complete afterwards.
#include <gmock/gmock.h>
#include <sys/syscall.h>

#include <filesystem>

#include "tests/system/torture/traced_process.h"
#include "tests/unit/platform/device_main.h"
#include "tests/unit/platform/sample_package.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using torture::Follower;
using torture::SystemCall;
using torture::Verdict;
using workstation::findPackageOfApplication;
using workstation::listPackages;

class InstallKillTest : public InsideDeviceTest {
 protected:
  // Runs the work again and again, and kills it at its first, second, ... system call until it
  // completes. Checks after each run.
  template <typename Prepare, typename Work, typename Check>
  void killAtEachCall(const Prepare& prepare, const Work& work, const Check& check) {
    bool killed = true;
    size_t index = 1;
    for (; killed; ++index) {
      InsideDeviceTest::SetUp();
      prepare();
      const auto at = [&](const SystemCall& call) {
        return call.index == index ? Verdict::kill() : Verdict::run();
      };
      const auto result = torture::follow(work, Follower{at, nullptr});
      if (!result.allowed) {
        QUILLON_SKIP(result.reason);
      }
      killed = result.killed;
      expectReadable();
      check();
      if (HasFailure()) {
        FAIL() << "killed at call " << index;
      }
    }
    RecordProperty("calls", static_cast<int>(index - 2));
    EXPECT_GT(index, 50U) << "the work made no calls worth the name";
  }

  // A launch reads the registry before anything cleans up.
  static void expectReadable() {
    for (const char* application : {"p.main", "none"}) {
      const auto found = findPackageOfApplication(application);
      EXPECT_TRUE(found) << found.error().what;
    }
    const auto list = listPackages();
    EXPECT_TRUE(list) << list.error().what;
  }

  // The next installation cleans up. Then files and registry match and no other files are left.
  static void expectComplete() {
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

  // In addition, the replaced package is installed, in the old or the new version.
  static void expectCompleteAndInstalled() {
    expectComplete();
    const auto packages = listPackages().value();
    ASSERT_EQ(packages.size(), 2U);
    EXPECT_EQ(packages[1].id, "p");
  }
};

void install(const std::string& version, const std::string& line = "") {
  SamplePackage sample("p", version);
  sample.add(line).file("version", version).file("other", version);
  sample.add("[[application]]\nid = 'p.main'\nexec = 'version'");
  if (!sample.install()) {
    std::abort();
  }
}

TEST_F(InstallKillTest, ANewPackage) {
  killAtEachCall([] {}, [] { install("1"); }, expectComplete);
}

TEST_F(InstallKillTest, AReplacement) {
  killAtEachCall([] { install("1"); }, [] { install("2"); }, expectCompleteAndInstalled);
}

TEST_F(InstallKillTest, AReplacementAtAnotherRoot) {
  killAtEachCall([] { install("1"); }, [] { install("2", "root = '/opt/share/p'"); },
                 expectCompleteAndInstalled);
}

TEST_F(InstallKillTest, ARemoval) {
  killAtEachCall([] { install("1"); },
                 [] {
                   if (!workstation::removePackage("p")) {
                     std::abort();
                   }
                 },
                 expectComplete);
}

}  // namespace
}  // namespace quillon::test
