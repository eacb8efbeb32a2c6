// Makes each system call of an installation fail. Packages must be complete afterwards, and a
// failure must be reported.
//
// QUILLON_FAULTS_SAMPLE=N checks every Nth call only.
#include <gmock/gmock.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <set>
#include <tuple>

#include "tests/support/figure.h"
#include "tests/system/torture/traced_process.h"
#include "tests/unit/platform/left_packages.h"
#include "workstation/config_store.h"

namespace quillon::test {
namespace {

using torture::Follower;
using torture::SystemCall;
using torture::Verdict;

constexpr int kFailed = 3;  // exit status of a child whose work has reported a failure
constexpr char kKey[] = "db/group/key";

// Calls for memory and for the process itself. If they fail, the process cannot go on.
bool isOfProcess(const SystemCall& call) {
  static const std::set<std::uint64_t> numbers = {
      SYS_brk,   SYS_mmap,       SYS_mremap, SYS_munmap,       SYS_mprotect,
      SYS_futex, SYS_exit_group, SYS_exit,   SYS_rt_sigaction, SYS_rt_sigprocmask};
  return numbers.contains(call.number);
}

std::size_t sampleStep() {
  const char* text = std::getenv("QUILLON_FAULTS_SAMPLE");
  return text == nullptr ? 11 : std::max(1, std::atoi(text));
}

class InstallFailureTest : public LeftPackagesTest, public ::testing::WithParamInterface<int> {
 protected:
  using Work = std::function<bool()>;  // returns whether it succeeded

  std::size_t step = sampleStep();

  // Runs the work again and again, with another call that fails, until all have failed. `check`
  // gets whether the work has succeeded.
  void failEachCall(const std::function<void()>& prepare, const Work& work,
                    const std::function<void(bool)>& check) {
    bool isLast = false;
    std::size_t cases = 0;
    for (std::size_t index = 1; !isLast && !HasFailure(); index += step, ++cases) {
      SCOPED_TRACE("failing call " + std::to_string(index));
      InsideDeviceTest::SetUp();
      prepare();
      std::size_t made = 0;
      const auto fail = [&](const SystemCall& call) {
        const bool isChosen = !isOfProcess(call) && ++made == index;
        return isChosen ? Verdict::fail(GetParam()) : Verdict::run();
      };
      const auto result = torture::follow(
          [&] {
            if (!work()) {
              _exit(kFailed);
            }
          },
          Follower{fail, nullptr});
      if (!result.allowed) {
        QUILLON_SKIP(result.reason);
      }
      isLast = made < index;
      ASSERT_THAT(result.ending, ::testing::AnyOf("", "status " + std::to_string(kFailed)));
      check(result.ending.empty());
    }
    allCases += cases;
    faults += HasFailure() ? 1 : 0;
    EXPECT_GT(cases * step, 4U) << "the work made no calls worth the name";
  }

  static void TearDownTestSuite() {
    printFigure("workstation, each system call of a change fails",
                std::to_string(allCases) + " cases",
                "0 faults, " + std::to_string(faults) + " found", faults == 0);
  }

  static inline std::size_t allCases = 0;
  static inline std::size_t faults = 0;

  static void install(const std::string& version) { ASSERT_TRUE(VersionOfP(version).install()); }

  // An installation, whose sample is made before.
  static Work installation(const std::string& manifest) {
    return [manifest] { return workstation::installPackage(manifest).has_value(); };
  }

  // After a failure the new state is right, too: the flush after the change has failed.
  static void expectState(const std::string& state, const std::string& before,
                          const std::string& after, bool succeeded) {
    EXPECT_TRUE(state == after || (!succeeded && state == before)) << state;
  }

  static std::string versionOf(const std::string& package) {
    const auto packages = workstation::listPackages();
    EXPECT_TRUE(packages);
    for (const auto& installed : *packages) {
      if (installed.id == package) {
        return installed.version;
      }
    }
    return "none";
  }
};

TEST_P(InstallFailureTest, ANewPackage) {
  VersionOfP sample("1");
  failEachCall([] {}, installation(sample.manifest()),
               [](bool succeeded) {
                 expectState(versionOf("p"), "none", "1", succeeded);
                 expectComplete();
               });
}

TEST_P(InstallFailureTest, AReplacement) {
  VersionOfP sample("2");
  failEachCall([] { install("1"); }, installation(sample.manifest()),
               [](bool succeeded) {
                 expectState(versionOf("p"), "1", "2", succeeded);
                 expectCompleteAndInstalled();
               });
}

TEST_P(InstallFailureTest, AReplacementAtAnotherRoot) {
  VersionOfP sample("2", "root = '/opt/share/p'");
  failEachCall([] { install("1"); }, installation(sample.manifest()),
               [](bool succeeded) {
                 expectState(versionOf("p"), "1", "2", succeeded);
                 expectCompleteAndInstalled();
               });
}

// Leaves the new files of a replacement at the root, and the old ones beside it.
void interruptReplacement() {
  ASSERT_TRUE(VersionOfP("1").install());
  VersionOfP sample("2");
  const std::string manifest = sample.manifest();
  bool isReplaced = false;
  const auto killAfterReplacing = [&](const SystemCall& call) {
    const bool kills = isReplaced;
    isReplaced = isReplaced || (call.number == SYS_renameat2 && call.arguments[4] != 0);
    return kills ? Verdict::kill() : Verdict::run();
  };
  const auto install = [&] { std::ignore = workstation::installPackage(manifest); };
  torture::follow(install, Follower{killAfterReplacing, nullptr});
}

// The installation of another package restores the old files.
TEST_P(InstallFailureTest, ARecovery) {
  SamplePackage sample("other");
  failEachCall(interruptReplacement, installation(sample.manifest()), [](bool) {
    EXPECT_EQ(versionOf("p"), "1");
    expectCompleteAndInstalled();
  });
}

TEST_P(InstallFailureTest, ARemoval) {
  failEachCall([] { install("1"); }, [] { return workstation::removePackage("p").value_or(false); },
               [](bool succeeded) {
                 expectState(versionOf("p"), "1", "none", succeeded);
                 expectComplete();
               });
}

// A list that cannot be read is no empty list.
TEST_P(InstallFailureTest, AList) {
  step = 1;
  failEachCall([] { install("1"); },
               [] {
                 const auto packages = workstation::listPackages();
                 if (packages && packages->size() != 1) {
                   std::abort();
                 }
                 return packages.has_value();
               },
               [](bool) {});
}

TEST_P(InstallFailureTest, AKeyThatIsSet) {
  step = 1;
  failEachCall([] { ASSERT_TRUE(workstation::setConfig(kKey, 1)); },
               [] { return workstation::setConfig(kKey, 2).has_value(); },
               [](bool succeeded) {
                 const auto value = workstation::getConfig(kKey);
                 ASSERT_TRUE(value && *value);
                 expectState(std::to_string(std::get<int>(**value)), "1", "2", succeeded);
                 EXPECT_TRUE(workstation::setConfig(kKey, 3));
                 EXPECT_EQ(workstation::listConfig("").value().size(), 1U);
               });
}

TEST_P(InstallFailureTest, AKeyThatIsRead) {
  step = 1;
  failEachCall([] { ASSERT_TRUE(workstation::setConfig(kKey, 1)); },
               [] {
                 const auto value = workstation::getConfig(kKey);
                 if (value && !*value) {
                   std::abort();
                 }
                 return value.has_value();
               },
               [](bool) {});
}

INSTANTIATE_TEST_SUITE_P(Errors, InstallFailureTest, ::testing::Values(EIO, ENOSPC, EACCES, EMFILE),
                         [](const auto& error) {
                           return std::string(strerrorname_np(error.param));
                         });

}  // namespace
}  // namespace quillon::test
