#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/system/zone/zone_fixture.h"

namespace quillon::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace fs = std::filesystem;

class ZoneCommand : public ZoneTest {};

TEST_F(ZoneCommand, AZoneRunsFromStartToStop) {
  start();
  const pid_t process = holder();
  const std::string name = std::to_string(process);
  EXPECT_TRUE(fs::is_directory(root_ / "zone/appzone"));
  EXPECT_NE(namespaceOf(name, "mnt"), namespaceOf("self", "mnt"));
  EXPECT_THAT(zone("list").output,
              "zone appzone: runs, held by process " + name + "; inside: none\n");
  const Outcome stopped = zone("stop appzone");
  EXPECT_EQ(stopped.status, 0);
  EXPECT_EQ(stopped.output, "zone appzone: stopped\n");
  EXPECT_TRUE(ends(process));
  EXPECT_THAT(leftovers(), IsEmpty());
  EXPECT_EQ(zone("list").output, "");
}

TEST_F(ZoneCommand, StartReturnsWhileTheHolderKeepsNoneOfItsStreams) {
  // inChild reads until every process has closed the output.
  EXPECT_EQ(zone("start appzone").status, 0);
  for (const char* stream : {"0", "1", "2"}) {
    EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(holder()) + "/fd/" + stream), "/dev/null");
  }
}

TEST_F(ZoneCommand, AZoneIsStartedOnce) {
  start();
  const pid_t process = holder();
  const Outcome again = zone("start appzone");
  EXPECT_EQ(again.status, kZoneState);
  EXPECT_THAT(again.output, HasSubstr("runs already, held by process " + std::to_string(process)));
  EXPECT_EQ(holder(), process);
}

TEST_F(ZoneCommand, ZonesOfOtherNamesRunBesideEachOther) {
  start("one");
  start("two");
  EXPECT_NE(holder("one"), holder("two"));
  EXPECT_EQ(zone("stop one").status, 0);
  EXPECT_THAT(zone("list").output, HasSubstr("zone two: runs"));
}

TEST_F(ZoneCommand, ListsAsJson) {
  EXPECT_EQ(zone("list --json").output, "[]\n");
  start();
  EXPECT_EQ(zone("list --json").output,
            "[\n  {\n    \"name\": \"appzone\",\n    \"holder\": " + std::to_string(holder()) +
                ",\n    \"processes\": []\n  }\n]\n");
}

TEST_F(ZoneCommand, ListNamesTheProcessesInside) {
  start();
  std::string listed;
  const Outcome outcome = inDevice([&] {
    const ZoneLibrary library;
    void* context = library.getContext("appzone");
    if (library.attachProcess(context) < 0) {
      return 1;
    }
    // The tool must run outside the device root, so this child process does not run it.
    return library.releaseContext(&context);
  });
  EXPECT_EQ(outcome.status, 0);
  int life[2];
  ASSERT_EQ(::pipe(life), 0);
  const pid_t inside = ::fork();
  if (inside == 0) {
    ::close(life[1]);
    char byte = 0;
    ::_exit(inDevice([&] {
              const ZoneLibrary library;
              void* context = library.getContext("appzone");
              library.attachProcess(context);
              return static_cast<int>(::read(life[0], &byte, 1));
            }).status);
  }
  ::close(life[0]);
  for (int time = 0; time < 500 && listed.find("inside: none") == std::string::npos; ++time) {
    listed = zone("list").output;
    if (listed.find("inside: none") == std::string::npos) {
      break;
    }
    listed.clear();
    ::usleep(10000);
  }
  EXPECT_THAT(listed, ::testing::MatchesRegex(
                          "zone appzone: runs, held by process [0-9]+; inside: [0-9]+\n"));
  ::close(life[1]);
  EXPECT_TRUE(ends(inside));
}

TEST_F(ZoneCommand, AZoneWithAKilledHolderIsNotRunning) {
  start();
  const pid_t process = holder();
  ::kill(process, SIGKILL);
  ASSERT_TRUE(ends(process));
  EXPECT_EQ(zone("list").output,
            "zone appzone: not running; its holder ended without being stopped\n");
  const Outcome stopped = zone("stop appzone");
  EXPECT_EQ(stopped.status, 0);
  EXPECT_EQ(stopped.output, "zone appzone: had ended already; removed its files\n");
  EXPECT_THAT(leftovers(), IsEmpty());
}

TEST_F(ZoneCommand, StartReplacesAKilledHolder) {
  start();
  const pid_t process = holder();
  ::kill(process, SIGKILL);
  ASSERT_TRUE(ends(process));
  start();
  EXPECT_NE(holder(), process);
  EXPECT_THAT(zone("list").output, HasSubstr("zone appzone: runs"));
}

TEST_F(ZoneCommand, TheHolderEndsOnSigterm) {
  start();
  const pid_t process = holder();
  ::kill(process, SIGINT);
  ::kill(process, SIGHUP);
  ::usleep(50000);
  EXPECT_THAT(zone("list").output, HasSubstr("zone appzone: runs"));
  ::kill(process, SIGTERM);
  EXPECT_TRUE(ends(process));
}

TEST_F(ZoneCommand, StopOfAnUnknownZoneReportsHowToFindIt) {
  const Outcome outcome = zone("stop appzone");
  EXPECT_EQ(outcome.status, kZoneState);
  EXPECT_THAT(outcome.output,
              AllOf(HasSubstr("no zone 'appzone' runs"), HasSubstr("quillon zone list")));
}

TEST_F(ZoneCommand, NamesThatAreNoFileNamesAreRefused) {
  const std::vector<std::string> names = {"../x", ".x", "a/b", "''", "'a b'", std::string(65, 'a')};
  for (const std::string& name : names) {
    EXPECT_EQ(zone("start " + name).status, kUsage) << name;
  }
  EXPECT_THAT(leftovers(), IsEmpty());
  EXPECT_EQ(zone("start " + std::string(64, 'a')).status, 0);
}

TEST_F(ZoneCommand, AFolderThatIsNotADeviceRootStaysUnchanged) {
  const fs::path folder = fresh("/var/tmp");
  root_ = folder;
  EXPECT_EQ(zone("start appzone").status, kNoDeviceRoot);
  EXPECT_EQ(zone("list").status, kNoDeviceRoot);
  EXPECT_TRUE(fs::is_empty(folder));
}

TEST_F(ZoneCommand, TheZoneLibraryIsCopiedToTheDeviceRootOnce) {
  start();
  EXPECT_EQ(read(root_ / "usr/lib/libzone.so.5"), read(QUILLON_ZONE_LIBRARY));
  zone("stop appzone");
  write(root_ / "usr/lib/libzone.so.5", "the device's own");
  start();
  EXPECT_EQ(read(root_ / "usr/lib/libzone.so.5"), "the device's own");
}

TEST_F(ZoneCommand, AFailedStartLeavesNothing) {
  // A folder that the view needs is missing.
  fs::remove_all(root_ / "opt/data");
  const Outcome outcome = zone("start appzone");
  EXPECT_EQ(outcome.status, kNoDeviceRoot);
  EXPECT_THAT(outcome.output, HasSubstr("opt/data"));
  EXPECT_THAT(leftovers(), IsEmpty());
}

TEST_F(ZoneCommand, TheMachinesMountsStayAsTheyWere) {
  const std::string before = read("/proc/self/mountinfo");
  start();
  EXPECT_EQ(read("/proc/self/mountinfo"), before);
  zone("stop appzone");
  EXPECT_EQ(read("/proc/self/mountinfo"), before);
}

}  // namespace
}  // namespace quillon::test
