// Makes each system call and each allocation of an installation fail. Packages must be complete
// afterwards, and a failure must be reported.
//
// QUILLON_FAULTS_SAMPLE=N checks every Nth call and every Nth allocation only.
#include <gmock/gmock.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <map>
#include <new>
#include <ostream>
#include <set>
#include <tuple>
#include <utility>

#include "tests/support/figure.h"
#include "tests/system/faults/failing_memory.h"
#include "tests/system/torture/traced_process.h"
#include "tests/unit/platform/left_packages.h"
#include "workstation/config_store.h"

namespace quillon::test {
namespace {

using faults::Shortage;
using torture::Follower;
using torture::SystemCall;
using torture::Verdict;

constexpr int kFailed = 3;         // exit status of a child whose work has reported a failure
constexpr unsigned kSeconds = 60;  // until a child counts as hanging
constexpr char kKey[] = "db/group/key";

// What fails in the work of a child process.
struct Fault {
  const char* name;
  const char* figure;
  int error = 0;  // of a system call; 0 if an allocation fails
  Shortage shortage = Shortage::kOnce;
};

void PrintTo(const Fault& fault, std::ostream* stream) { *stream << fault.name; }

constexpr char kCallsFail[] = "workstation, each system call of a change fails";
constexpr Fault kErrors[] = {{"EIO", kCallsFail, EIO},
                             {"ENOSPC", kCallsFail, ENOSPC},
                             {"EACCES", kCallsFail, EACCES},
                             {"EMFILE", kCallsFail, EMFILE}};
constexpr Fault kShortages[] = {
    {"Once", "workstation, each allocation of a change fails once", 0, Shortage::kOnce},
    {"FromThenOn", "workstation, memory runs out at each allocation of a change", 0,
     Shortage::kFromThenOn}};

// Calls for memory and for the process itself. If they fail, the process cannot go on.
bool isOfProcess(const SystemCall& call) {
  static const std::set<std::uint64_t> numbers = {
      SYS_brk,   SYS_mmap,       SYS_mremap, SYS_munmap,       SYS_mprotect,
      SYS_futex, SYS_exit_group, SYS_exit,   SYS_rt_sigaction, SYS_rt_sigprocmask};
  return numbers.contains(call.number);
}

class InstallFailureTest : public LeftPackagesTest, public ::testing::WithParamInterface<Fault> {
 protected:
  using Work = std::function<bool()>;  // returns whether it succeeded

  enum class Length { kLong, kShort };

  // Runs the work again and again, with another call or allocation that fails, until all have
  // failed. `check` gets whether the work has succeeded.
  void failEach(const std::function<void()>& prepare, const Work& work,
                const std::function<void(bool)>& check, Length length = Length::kLong) {
    const std::size_t step = sampleStep(length);
    bool isLast = false;
    std::size_t made = 0;
    for (std::size_t index = 1; !isLast && !HasFailure(); index += step) {
      SCOPED_TRACE(std::string(GetParam().name) + ", failing at " + std::to_string(index));
      InsideDeviceTest::SetUp();
      prepare();
      const auto result =
          isOfCalls() ? failCall(index, work, made) : failAllocation(index, work, made);
      isLast = made < index;
      if (!result.allowed) {
        QUILLON_SKIP(result.reason);
      }
      ++figures[GetParam().figure].cases;
      ASSERT_THAT(result.ending, ::testing::AnyOf("", "status " + std::to_string(kFailed)));
      check(result.ending.empty());
    }
    EXPECT_GT(made, 4U) << "the work hardly does anything that can fail";
  }

  // A fault ends its test, so that each test finds one at most.
  void TearDown() override { figures[GetParam().figure].faults += HasFailure() ? 1 : 0; }

  static void TearDownTestSuite() {
    for (const auto& [what, figure] : std::exchange(figures, {})) {
      printFigure(what, std::to_string(figure.cases) + " cases",
                  "0 faults, " + std::to_string(figure.faults) + " found",
                  figure.faults == 0 && figure.cases > 0);
    }
  }

  [[nodiscard]] static bool isOfCalls() { return GetParam().error != 0; }

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

 private:
  struct Figure {
    std::size_t cases = 0;
    std::size_t faults = 0;
  };
  static inline std::map<std::string, Figure> figures;

  static std::size_t sampleStep(Length length) {
    constexpr std::size_t kOfShort = 11;  // times as many cases
    const char* text = std::getenv("QUILLON_FAULTS_SAMPLE");
    const std::size_t usual = isOfCalls() ? 11 : 307;
    const std::size_t step = text == nullptr ? usual : std::max(1, std::atoi(text));
    return length == Length::kLong ? step : std::max<std::size_t>(1, step / kOfShort);
  }

  // In the child process. An exception reaches the caller, which can report it.
  static void run(const Work& work) {
    alarm(kSeconds);
    bool hasSucceeded = false;
    try {
      hasSucceeded = work();
    } catch (const std::bad_alloc&) {
    }
    if (!hasSucceeded) {
      _exit(kFailed);
    }
  }

  // Makes a system call fail. `made` is the number of calls that the work has made.
  static torture::TraceResult failCall(std::size_t index, const Work& work, std::size_t& made) {
    made = 0;
    const auto fail = [&](const SystemCall& call) {
      const bool isChosen = !isOfProcess(call) && ++made == index;
      return isChosen ? Verdict::fail(GetParam().error) : Verdict::run();
    };
    return torture::follow([&] { run(work); }, Follower{fail, nullptr});
  }

  // The same with an allocation.
  static torture::TraceResult failAllocation(std::size_t index, const Work& work,
                                             std::size_t& made) {
    const auto let = [](const SystemCall&) { return Verdict::run(); };
    const auto result = torture::follow(
        [&] {
          faults::failAllocation(index, GetParam().shortage);
          run(work);
        },
        Follower{let, nullptr});
    made = faults::allocationsMade();
    return result;
  }
};

TEST_P(InstallFailureTest, ANewPackage) {
  VersionOfP sample("1");
  failEach([] {}, installation(sample.manifest()),
           [](bool succeeded) {
             expectState(versionOf("p"), "none", "1", succeeded);
             expectComplete();
           });
}

TEST_P(InstallFailureTest, AReplacement) {
  VersionOfP sample("2");
  failEach([] { install("1"); }, installation(sample.manifest()),
           [](bool succeeded) {
             expectState(versionOf("p"), "1", "2", succeeded);
             expectCompleteAndInstalled();
           });
}

TEST_P(InstallFailureTest, AReplacementAtAnotherRoot) {
  VersionOfP sample("2", "root = '/opt/share/p'");
  failEach([] { install("1"); }, installation(sample.manifest()),
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
  failEach(interruptReplacement, installation(sample.manifest()), [](bool) {
    EXPECT_EQ(versionOf("p"), "1");
    expectCompleteAndInstalled();
  });
}

TEST_P(InstallFailureTest, ARemoval) {
  failEach([] { install("1"); }, [] { return workstation::removePackage("p").value_or(false); },
           [](bool succeeded) {
             expectState(versionOf("p"), "1", "none", succeeded);
             expectComplete();
           });
}

// A list that cannot be read is no empty list.
TEST_P(InstallFailureTest, AList) {
  failEach([] { install("1"); },
           [] {
             const auto packages = workstation::listPackages();
             if (packages && packages->size() != 1) {
               std::abort();
             }
             return packages.has_value();
           },
           [](bool) {}, Length::kShort);
}

TEST_P(InstallFailureTest, AKeyThatIsSet) {
  failEach([] { ASSERT_TRUE(workstation::setConfig(kKey, 1)); },
           [] { return workstation::setConfig(kKey, 2).has_value(); },
           [](bool succeeded) {
             const auto value = workstation::getConfig(kKey);
             ASSERT_TRUE(value && *value);
             expectState(std::to_string(std::get<int>(**value)), "1", "2", succeeded);
             EXPECT_TRUE(workstation::setConfig(kKey, 3));
             EXPECT_EQ(workstation::listConfig("").value().size(), 1U);
           },
           Length::kShort);
}

TEST_P(InstallFailureTest, AKeyThatIsRead) {
  failEach([] { ASSERT_TRUE(workstation::setConfig(kKey, 1)); },
           [] {
             const auto value = workstation::getConfig(kKey);
             if (value && !*value) {
               std::abort();
             }
             return value.has_value();
           },
           [](bool) {}, Length::kShort);
}

TEST_P(InstallFailureTest, AKeyThatIsRemoved) {
  failEach([] { ASSERT_TRUE(workstation::setConfig(kKey, 1)); },
           [] { return workstation::unsetConfig(kKey).value_or(false); },
           [](bool succeeded) {
             const auto value = workstation::getConfig(kKey);
             ASSERT_TRUE(value);
             expectState(*value ? "1" : "none", "1", "none", succeeded);
             EXPECT_TRUE(workstation::setConfig(kKey, 3));
             EXPECT_EQ(workstation::listConfig("").value().size(), 1U);
           },
           Length::kShort);
}

// A list that lacks keys because they could not be read is wrong.
TEST_P(InstallFailureTest, AListOfKeys) {
  failEach([] { ASSERT_TRUE(workstation::setConfig(kKey, 1)); },
           [] {
             const auto keys = workstation::listConfig("");
             if (keys && keys->size() != 1) {
               std::abort();
             }
             return keys.has_value();
           },
           [](bool) {}, Length::kShort);
}

std::string nameOf(const ::testing::TestParamInfo<Fault>& fault) { return fault.param.name; }

INSTANTIATE_TEST_SUITE_P(Errors, InstallFailureTest, ::testing::ValuesIn(kErrors), nameOf);
INSTANTIATE_TEST_SUITE_P(Memory, InstallFailureTest, ::testing::ValuesIn(kShortages), nameOf);

}  // namespace
}  // namespace quillon::test
