#include <gmock/gmock.h>
#include <grp.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "tests/support/open_descriptors.h"
#include "tests/system/zone/zone_fixture.h"

namespace quillon::test {
namespace {

using ::testing::HasSubstr;

namespace fs = std::filesystem;

constexpr uid_t kOrdinaryUser = 65534;
constexpr int kUnreachable = 96;

class ZoneLibraryTest : public ZoneTest {
 protected:
  void SetUp() override {
    ZoneTest::SetUp();
    if (!IsSkipped()) {
      write(root_ / "usr/lib/libzone.so.5", read(QUILLON_ZONE_LIBRARY));
    }
  }
};

std::string namespaces() {
  std::string text;
  for (const char* kind : {"mnt", "uts", "ipc"}) {
    text += namespaceOf("self", kind) + " ";
  }
  return text;
}

// Returns the log of the library, with a line "PRIORITY TAG TEXT" per record.
std::string logged() {
  std::string text;
  for (const LogRecord& record : platform().log) {
    text += std::to_string(record.priority) + " " + record.tag + " " + record.text + "\n";
  }
  return text;
}

// Returns 0 if entering the zone succeeds.
int enter(const ZoneLibrary& library, const char* name = "appzone") {
  void* context = library.getContext(name);
  if (context == nullptr) {
    return 1;
  }
  const int result = library.attachProcess(context);
  library.releaseContext(&context);
  return result < 0 || context != nullptr ? 2 : 0;
}

TEST_F(ZoneLibraryTest, AnAttachedProcessIsInTheHoldersNamespaces) {
  start();
  const std::string pid = std::to_string(holder());
  const Outcome outcome = inDevice([&] {
    const ZoneLibrary library;
    const auto before = openDescriptors();
    std::cout << ::access("/zone/appzone", F_OK) << enter(library)
              << ::access("/zone/appzone", F_OK) << " " << openDescriptors() - before << " "
              << platform().log.size();
    for (const char* kind : {"mnt", "uts", "ipc"}) {
      std::cout << " " << (namespaceOf("self", kind) == namespaceOf(pid, kind)) << " "
                << (namespaceOf("self", kind) == namespaceOf(std::to_string(getppid()), kind));
    }
    return 0;
  });
  // Present outside, entered, absent inside; no descriptor, no log line; in each namespace of the
  // holder and in none of the machine's.
  EXPECT_EQ(outcome.output, "00-1 0 0 1 0 1 0 1 0");
}

TEST_F(ZoneLibraryTest, TheDevicesFilesAreTheSameInside) {
  start();
  const Outcome outcome = inDevice([&] {
    write("/opt/usr/apps/before", "outside");
    const ZoneLibrary library;
    if (enter(library) != 0) {
      return 1;
    }
    std::cout << read("/opt/usr/apps/before");
    write("/opt/usr/apps/after", "inside");
    return 0;
  });
  EXPECT_EQ(outcome.output, "outside");
  EXPECT_EQ(read(root_ / "opt/usr/apps/after"), "inside");
}

TEST_F(ZoneLibraryTest, TheWorkingDirectoryStaysWhereTheZoneHasIt) {
  start();
  const auto directoryAfter = [&](const std::string& directory) {
    return inDevice([&] {
             const ZoneLibrary library;
             if (::chdir(directory.c_str()) != 0 || enter(library) != 0) {
               return 1;
             }
             std::cout << fs::current_path().string();
             return 0;
           })
        .output;
  };
  EXPECT_EQ(directoryAfter("/opt/usr/apps"), "/opt/usr/apps");
  EXPECT_EQ(directoryAfter("/zone/appzone"), "/");
}

TEST_F(ZoneLibraryTest, EnteringTwiceSucceeds) {
  start();
  EXPECT_EQ(inDevice([] {
              const ZoneLibrary library;
              return enter(library) + enter(library);
            }).status,
            0);
}

// The zone of an unprivileged user is in a user namespace, which processes must share to enter it.
TEST_F(ZoneLibraryTest, AnOrdinaryUserEntersAZoneOfTheirOwn) {
  if (::geteuid() != 0) {
    return;  // all other tests of this file cover it then
  }
  for (const auto& entry : fs::recursive_directory_iterator(root_)) {
    ASSERT_EQ(::lchown(entry.path().c_str(), kOrdinaryUser, kOrdinaryUser), 0);
  }
  ASSERT_EQ(::chown(root_.c_str(), kOrdinaryUser, kOrdinaryUser), 0);
  const Outcome outcome = inChild([&] {
    if (::setgroups(0, nullptr) != 0 ||
        ::setresgid(kOrdinaryUser, kOrdinaryUser, kOrdinaryUser) != 0 ||
        ::setresuid(kOrdinaryUser, kOrdinaryUser, kOrdinaryUser) != 0) {
      return 3;
    }
    // The kernel denies access to /proc of a process that has changed its user.
    ::prctl(PR_SET_DUMPABLE, 1, 0, 0, 0);
    if (::access(QUILLON_TOOL, X_OK) != 0) {
      return kUnreachable;
    }
    std::cout << zone("start appzone").output
              << std::flush;  // flushed, since children copy the buffer
    const std::string pid = std::to_string(holder());
    std::cout << inDevice([&] {
                   const ZoneLibrary library;
                   std::cout << "entered: " << enter(library) << " "
                             << (namespaceOf("self", "mnt") == namespaceOf(pid, "mnt")) << "\n";
                   return 0;
                 }).output;
    std::cout << zone("stop appzone").output;
    return 0;
  });
  if (outcome.status == kUnreachable) {
    // Depends on the location of the build, not on the machine.
    GTEST_SKIP() << "the build folder is not accessible to ordinary users";
  }
  EXPECT_THAT(outcome.output, ::testing::MatchesRegex("zone appzone: runs, held by process [0-9]+\n"
                                                      "entered: 0 1\n"
                                                      "zone appzone: stopped\n"));
}

// setns(2) would move only one thread of such a process.
TEST_F(ZoneLibraryTest, AProcessWithThreadsIsRefusedAndStaysAsItWas) {
  start();
  const Outcome outcome = inDevice([] {
    const ZoneLibrary library;
    const std::string before = namespaces();
    std::thread thread([] { ::pause(); });
    thread.detach();
    const int entered = enter(library);
    std::cout << entered << (namespaces() == before) << ::access("/zone/appzone", F_OK) << " "
              << logged();
    std::cout.flush();
    ::_exit(0);
    return 0;
  });
  EXPECT_EQ(outcome.output,
            "210 6 ZONE cannot enter the zone 'appzone': the process has more than one thread\n");
}

TEST_F(ZoneLibraryTest, AProcessWithoutTheRightIsRefusedAndStaysAsItWas) {
  start();
  const Outcome outcome = inDevice([] {
    const ZoneLibrary library;
    const std::string before = namespaces();
    dropCapabilities();
    std::cout << enter(library) << (namespaces() == before) << ::access("/zone/appzone", F_OK)
              << " " << logged();
    return 0;
  });
  EXPECT_THAT(outcome.output,
              HasSubstr("210 6 ZONE cannot enter the zone 'appzone': this process may not"));
}

TEST_F(ZoneLibraryTest, AZoneThatStopsAfterTheLookupIsNotEntered) {
  start();
  const pid_t process = holder();
  const Outcome outcome = inDevice([&] {
    const ZoneLibrary library;
    void* context = library.getContext("appzone");
    if (context == nullptr) {
      return 1;
    }
    ::kill(process, SIGKILL);
    if (!ends(process)) {
      return 2;
    }
    const std::string before = namespaces();
    std::cout << (library.attachProcess(context) < 0) << (namespaces() == before) << " "
              << logged();
    return library.releaseContext(&context);
  });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "11 6 ZONE cannot enter the zone 'appzone': it has stopped\n");
}

struct NoZone {
  const char* what;
  const char* name;   // to look up
  const char* state;  // of "appzone"; null: no state file
  const char* line;
};

class ZoneLibraryLookup : public ZoneLibraryTest, public ::testing::WithParamInterface<NoZone> {};

TEST_P(ZoneLibraryLookup, EndsInNullAndOneLine) {
  if (GetParam().state != nullptr) {
    write(root_ / "opt/usr/share/quillon/zones/appzone", GetParam().state);
  }
  const Outcome outcome = inDevice([] {
    const ZoneLibrary library;
    const auto before = openDescriptors();
    errno = ERANGE;
    std::cout << (library.getContext(GetParam().name) == nullptr) << (errno == ERANGE)
              << openDescriptors() - before << " " << platform().log.size() << " " << logged();
    return 0;
  });
  EXPECT_THAT(outcome.output, HasSubstr("110 1 6 ZONE "));
  EXPECT_THAT(outcome.output, HasSubstr(GetParam().line));
}

INSTANTIATE_TEST_SUITE_P(
    OfNoZone, ZoneLibraryLookup,
    ::testing::Values(NoZone{"NeverStarted", "appzone", nullptr,
                             "there is no zone 'appzone': nobody started it"},
                      NoZone{"NullName", nullptr, nullptr, "'(null)' is no name of a zone"},
                      NoZone{"EmptyName", "", nullptr, "'' is no name of a zone"},
                      NoZone{"NameOfAPath", "../x", nullptr, "'../x' is no name of a zone"},
                      NoZone{"HiddenName", ".appzone", nullptr, "'.appzone' is no name of a zone"},
                      NoZone{"EmptyState", "appzone", "",
                             "the zone 'appzone' is not running: its holder has ended"},
                      NoZone{"StateThatNamesAProcess", "appzone", "1 5\n",
                             "the zone 'appzone' is not running: its holder has ended"}),
    [](const auto& param) { return param.param.what; });

TEST_F(ZoneLibraryTest, NullContextsAreRefusedOrIgnored) {
  const Outcome outcome = inDevice([] {
    const ZoneLibrary library;
    void* none = nullptr;
    std::cout << (library.attachProcess(nullptr) < 0) << (library.enableDebugMode(nullptr) < 0)
              << (library.releaseContext(nullptr) == 0) << (library.releaseContext(&none) == 0)
              << " " << logged();
    return 0;
  });
  EXPECT_EQ(outcome.output,
            "1111 6 ZONE cannot enter a zone: no zone given\n"
            "6 ZONE cannot enable debug mode: no zone given\n");
}

TEST_F(ZoneLibraryTest, ReleaseClosesTheContext) {
  start();
  const Outcome outcome = inDevice([] {
    const ZoneLibrary library;
    const auto before = openDescriptors();
    void* context = library.getContext("appzone");
    std::cout << openDescriptors() - before;
    library.releaseContext(&context);
    std::cout << openDescriptors() - before << (context == nullptr);
    return 0;
  });
  EXPECT_EQ(outcome.output, "101");
}

}  // namespace
}  // namespace quillon::test
