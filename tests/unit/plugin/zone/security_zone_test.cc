#include "plugin/src/plugin-util/security_zone.h"

#include <gmock/gmock.h>

#include "tests/unit/plugin/zone/zone_fixture.h"

namespace quillon::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Matcher;
using ::testing::MatchesRegex;

constexpr char kAppdebug[] = "http://velora.example/privilege/internal/appdebugging";

using Lines = std::vector<Matcher<std::string>>;

Lines operator+(Lines one, const Lines& other) {
  one.insert(one.end(), other.begin(), other.end());
  return one;
}

const Lines kBegin = {"4 ### enterSecureZone() called ###", "3 Host",
                      "4 ### Attach to App Zone ###", "4 Start AttachZone"};
const Lines kFunctions = {MatchesRegex(
    "4 _get_zone : 0x[0-9a-f]+, _release_Zone : 0x[0-9a-f]+, _attach_Zone : 0x[0-9a-f]+")};
const Lines kNoDebug = {"4 ### HasAppdebugPrivilege() called ###", "4 Package ID : org.example"};
const Lines kDebug = kNoDebug + Lines{std::string("3 ") + kAppdebug,
                                      std::string("4 ### Have ") + kAppdebug + " privilege ###"};
const Lines kTry = {"4 Try to Attach appzone"};

void expectNothingLeft(const ZoneRun& run) {
  EXPECT_FALSE(run.libraryMapped);
  EXPECT_EQ(run.descriptorsLeft, 0);
}

void expectRefused(const ZoneRun& run) {
  EXPECT_FALSE(run.returned);
  EXPECT_EQ(run.status, 0);
  expectNothingLeft(run);
}

class SecurityZone : public ZoneTest {
 protected:
  void SetUp() override {
    ZoneTest::SetUp();
    if (!IsSkipped()) {
      showZone();
    }
  }
};

TEST_F(SecurityZone, AnAttachedProcessGoesOnWithTheLibraryClosed) {
  placeLibrary("NOTHING");
  const ZoneRun run = this->run(enterSecureZone);
  EXPECT_TRUE(run.returned);
  EXPECT_THAT(run.lines, ElementsAreArray(kBegin + kFunctions + kNoDebug + kTry));
  EXPECT_THAT(run.calls, ElementsAre("get(appzone)", "attach(context)", "release(context)"));
  expectNothingLeft(run);
}

TEST_F(SecurityZone, TracesTheAttachment) {
  const ZoneRun run = this->run([] {
    platform().trace.clear();
    AttachZone("appzone");
    exit(platform().trace.front().find(" void AttachZone(const std::string&)") != std::string::npos
             ? 1
             : 2);
  });
  EXPECT_EQ(run.status, 1);
}

TEST_F(SecurityZone, OnlyANegativeResultIsAFailure) {
  placeLibrary("NOTHING");
  const ZoneRun run = this->run(enterSecureZone, "attach-zero");
  EXPECT_TRUE(run.returned);
  EXPECT_THAT(run.lines, ElementsAreArray(kBegin + kFunctions + kNoDebug + kTry));
}

TEST_F(SecurityZone, TheDebuggingPrivilegeEnablesDebugModeBeforeTheAttach) {
  placeLibrary("NOTHING");
  const ZoneRun run = this->run(enterSecureZone, "", {kAppdebug});
  EXPECT_TRUE(run.returned);
  EXPECT_THAT(run.lines, ElementsAreArray(kBegin + kFunctions + kDebug + kTry));
  EXPECT_THAT(run.calls,
              ElementsAre("get(appzone)", "debug(context)", "attach(context)", "release(context)"));
  expectNothingLeft(run);
}

TEST_F(SecurityZone, AttachZoneTakesAnyName) {
  placeLibrary("NOTHING");
  const ZoneRun run = this->run([] { AttachZone("other"); });
  EXPECT_TRUE(run.returned);
  EXPECT_EQ(run.lines.back(), "4 Try to Attach other");
  EXPECT_EQ(run.calls.front(), "get(other)");
}

TEST_F(SecurityZone, AMissingLibraryLetsTheLaunchGoOnOutside) {
  const ZoneRun run = this->run(enterSecureZone);
  EXPECT_TRUE(run.returned);
  EXPECT_THAT(run.lines, ElementsAreArray(kBegin));
  expectNothingLeft(run);
}

TEST_F(SecurityZone, ALibraryThatIsNoneCountsAsMissing) {
  write(root_ / "usr/lib/libzone.so.5", "no library");
  const ZoneRun run = this->run(enterSecureZone);
  EXPECT_TRUE(run.returned);
  EXPECT_THAT(run.lines, ElementsAreArray(kBegin));
  expectNothingLeft(run);
}

TEST_F(SecurityZone, ANullContextEndsTheLaunch) {
  placeLibrary("NOTHING");
  const ZoneRun run = this->run(enterSecureZone, "no-context", {kAppdebug});
  expectRefused(run);
  EXPECT_THAT(run.lines, ElementsAreArray(kBegin + kFunctions + Lines{"6 Zone Context is NULL!"}));
  EXPECT_THAT(run.calls, ElementsAre("get(appzone)"));
}

TEST_F(SecurityZone, ARefusedDebugModeEndsTheLaunchWithoutAnAttach) {
  placeLibrary("NOTHING");
  const ZoneRun run = this->run(enterSecureZone, "debug-refused", {kAppdebug});
  expectRefused(run);
  EXPECT_THAT(run.lines,
              ElementsAreArray(kBegin + kFunctions + kDebug + Lines{"6 failed to set debug mode"}));
  EXPECT_THAT(run.calls, ElementsAre("get(appzone)", "debug(context)", "release(context)"));
}

TEST_F(SecurityZone, ARefusedDebugModeIsNothingToAnApplicationThatNeedsNone) {
  placeLibrary("NOTHING");
  const ZoneRun run = this->run(enterSecureZone, "debug-refused");
  EXPECT_TRUE(run.returned);
  EXPECT_THAT(run.calls, ElementsAre("get(appzone)", "attach(context)", "release(context)"));
}

TEST_F(SecurityZone, ARefusedAttachEndsTheLaunch) {
  placeLibrary("NOTHING");
  const ZoneRun run = this->run(enterSecureZone, "attach-refused");
  expectRefused(run);
  EXPECT_THAT(run.lines, ElementsAreArray(kBegin + kFunctions + kNoDebug + kTry +
                                          Lines{"6 failed to Attach Zone"}));
  EXPECT_THAT(run.calls, ElementsAre("get(appzone)", "attach(context)", "release(context)"));
}

TEST_F(SecurityZone, LinesNameTheUnitAndCarryTheColourOfTheirLevel) {
  placeLibrary("NOTHING");
  EXPECT_EQ(run(enterSecureZone, "attach-refused").lastOrigin,
            "plugin-util.cc AttachZone \x1b[31m");
}

class SecurityZoneFunctions : public SecurityZone,
                              public ::testing::WithParamInterface<std::string> {};

TEST_P(SecurityZoneFunctions, EachIsNeededWhetherItWouldBeCalledOrNot) {
  placeLibrary(GetParam());
  const ZoneRun run = this->run(enterSecureZone);
  expectRefused(run);
  EXPECT_THAT(run.lines, ElementsAreArray(kBegin + Lines{"6 Can't find Attach Zone APIs"}));
  EXPECT_THAT(run.calls, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Missing, SecurityZoneFunctions,
                         ::testing::Values("GET_CONTEXT", "RELEASE_CONTEXT", "ATTACH_PROCESS",
                                           "ENABLE_DEBUG_MODE"),
                         [](const auto& missing) { return missing.param; });

class ZoneLookup : public ZoneTest {};

TEST_F(ZoneLookup, SeesTheZonesRootFromOutsideOnly) {
  showZone();
  EXPECT_EQ(run([] { isInAppZone() ? exit(1) : exit(2); }).status, 2);
  EXPECT_THAT(run([] { isInAppZone(); }).lines, ElementsAre("3 Host"));
  std::filesystem::remove(root_ / "zone/appzone");
  EXPECT_EQ(run([] { isInAppZone() ? exit(1) : exit(2); }).status, 1);
  EXPECT_THAT(run([] { isInAppZone(); }).lines, ElementsAre("3 AppZone"));
}

TEST_F(ZoneLookup, InsideTheZoneNoLibraryIsLoaded) {
  placeLibrary("GET_CONTEXT");  // would end the process if it were used
  const ZoneRun run = this->run(enterSecureZone);
  EXPECT_TRUE(run.returned);
  EXPECT_THAT(run.lines, ElementsAre("4 ### enterSecureZone() called ###", "3 AppZone",
                                     "4 ### Already in App Zone ###"));
}

TEST_F(ZoneLookup, ResultsHaveTheValuesThatOtherCodeStores) {
  static_assert(Host == 0 && AppZone == 1);
  showZone();
  EXPECT_EQ(run([] { exit(10 + GetZone()); }).status, 10);
}

}  // namespace
}  // namespace quillon::test
