#include "plugin/src/zq-function-global/global_adapter.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <stdexcept>
#include <type_traits>

#include "tests/support/recording_platform.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

constexpr char kKey[] = "db/menu/glade_port/homedatacontrol/defaultdisclaimeragree";
constexpr char kGlobalization[] = "DOTNET_SYSTEM_GLOBALIZATION_INVARIANT";
constexpr char kNotify[] =
    "vconf_notify_key_changed(db/menu/glade_port/homedatacontrol/defaultdisclaimeragree)";
constexpr char kIgnore[] =
    "vconf_ignore_key_changed(db/menu/glade_port/homedatacontrol/defaultdisclaimeragree)";

static_assert(std::is_abstract_v<Target> && std::has_virtual_destructor_v<Target>);
static_assert(std::is_base_of_v<Target, GlobalAdapter>);
static_assert(!std::is_polymorphic_v<GlobalManager> && std::is_empty_v<GlobalManager>);

// A fake runtime: the methods that were requested, and the results that it returns.
std::vector<std::string> asked;
int status = 0;
void (*managed)() = nullptr;
int cleared = 0;
int host = 0;

void clearCachedData() {
  ++cleared;
  platform().calls.emplace_back("ClearCachedData()");
}

int createDelegate(void* hostHandle, unsigned int domainId, const char* assembly, const char* type,
                   const char* method, void** delegate) {
  EXPECT_EQ(hostHandle, &host);
  EXPECT_EQ(domainId, 3U);
  EXPECT_EQ(*delegate, nullptr);
  asked.push_back(std::string(assembly) + "/" + type + "/" + method);
  *delegate = reinterpret_cast<void*>(managed);
  return status;
}

std::string disclaimerLine(int value) {
  return std::string("4 ") + kKey + " = " + std::to_string(value);
}

class Globals : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    asked.clear();
    status = 0;
    managed = clearCachedData;
    cleared = 0;
  }
  void TearDown() override { unsetenv(kGlobalization); }

  static void startRuntime() {
    globalAdapter->set_coreclr_info(&host, 3, createDelegate);
    platform().log.clear();
    platform().calls.clear();
  }

  static void expectScope(const std::string& signature) {
    EXPECT_THAT(platform().trace.front(),
                MatchesRegex("begin zq-function-global\\.cc\\([0-9]+\\) .*"));
    EXPECT_EQ(platform().trace.front().substr(platform().trace.front().find(") ") + 2), signature);
    EXPECT_EQ(platform().trace.back(), "end");
  }
};

TEST_F(Globals, TheAdapterIsThereFromTheStart) { ASSERT_NE(globalAdapter, nullptr); }

TEST_F(Globals, InitializeReportsTheGlobalizationSetting) {
  setenv(kGlobalization, "1", 1);
  globalAdapter->initialize();
  const std::string text = "DOTNET_SYSTEM_GLOBALIZATION_INVARIANT :  1";
  EXPECT_THAT(platform().lines(), ElementsAre("3 " + text, "4 " + text));
  EXPECT_THAT(platform().markers, ElementsAre(text));
  EXPECT_EQ(platform().log[1].file(), "zq-function-global.cc");
  EXPECT_EQ(platform().log[1].function(), "initialize");
  EXPECT_STREQ(getenv(kGlobalization), "1");
  expectScope("virtual void GlobalAdapter::initialize()");
}

TEST_F(Globals, AnUnsetVariableIsANullText) {
  unsetenv(kGlobalization);
  globalAdapter->initialize();
  EXPECT_THAT(platform().markers, ElementsAre("DOTNET_SYSTEM_GLOBALIZATION_INVARIANT :  (null)"));
  EXPECT_EQ(getenv(kGlobalization), nullptr);
}

TEST_F(Globals, ALongSettingIsCut) {
  setenv(kGlobalization, std::string(200, 'x').c_str(), 1);
  globalAdapter->initialize();
  const std::string start = "DOTNET_SYSTEM_GLOBALIZATION_INVARIANT :  ";
  EXPECT_THAT(platform().markers, ElementsAre(start + std::string(99 - start.size(), 'x')));
}

template <typename Call>
std::string errorOf(Call call) {
  try {
    call();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

TEST_F(Globals, TheOtherOperationsThrow) {
  EXPECT_EQ(errorOf([] { globalAdapter->set_app_info("x"); }), "NotImplementedException");
  EXPECT_EQ(errorOf([] { globalAdapter->get_dll_path(); }), "NotImplementedException");
  EXPECT_EQ(errorOf([] { globalAdapter->before_execute(); }), "NotImplementedException");
  EXPECT_THAT(platform().trace, Contains("end").Times(3));
  GlobalManager manager;
  EXPECT_EQ(errorOf([&] { manager.set_app_info("x"); }), "NotImplementedException");
  EXPECT_EQ(errorOf([&] { manager.get_dll_path(); }), "NotImplementedException");
  EXPECT_EQ(errorOf([&] { manager.before_execute(); }), "NotImplementedException");
}

TEST_F(Globals, TheRuntimeIsStoredBeforeTheKeyIsWatched) {
  m_hostHandle_global = nullptr;
  globalAdapter->set_coreclr_info(&host, 3, createDelegate);
  EXPECT_EQ(m_hostHandle_global, &host);
  EXPECT_EQ(m_domainId_global, 3U);
  EXPECT_EQ(m_createDelegate_global, createDelegate);
  EXPECT_THAT(platform().calls, ElementsAre(kNotify));
  ASSERT_EQ(platform().watches.size(), 1U);
  EXPECT_EQ(platform().watches[0].callback, ClearTimeZoneCacheDataCB);
  EXPECT_EQ(platform().watches[0].userData, nullptr);
  EXPECT_THAT(platform().lines(), IsEmpty());
  expectScope(
      "virtual void GlobalAdapter::set_coreclr_info(void*, unsigned int, "
      "coreclr_create_delegate_ptr)");
}

TEST_F(Globals, AFailedRegistrationIsIgnored) {
  platform().failures["vconf_notify_key_changed"] = -5;
  globalAdapter->set_coreclr_info(&host, 3, createDelegate);
  EXPECT_THAT(platform().lines(), IsEmpty());
}

TEST_F(Globals, OtherValuesOnlyWriteTwoLines) {
  startRuntime();
  for (const int value : {0, 2, -1}) {
    platform().log.clear();
    EXPECT_EQ(platform().changeKey(kKey, value), 1);
    EXPECT_THAT(platform().lines(),
                ElementsAre("4 ClearTimeZoneCacheDataCB", disclaimerLine(value)));
  }
  EXPECT_THAT(asked, IsEmpty());
  EXPECT_EQ(platform().watches.size(), 1U);
  for (const LogRecord& record : platform().log) {
    EXPECT_EQ(record.function(), "ClearTimeZoneCacheDataCB");
  }
}

TEST_F(Globals, AgreementClearsTheCacheOnce) {
  startRuntime();
  EXPECT_EQ(platform().changeKey(kKey, 1), 1);
  EXPECT_THAT(asked, ElementsAre("System.Runtime/System.TimeZoneInfo/ClearCachedData"));
  const std::vector<std::string> lines = platform().lines();
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_EQ(lines[0], "4 ClearTimeZoneCacheDataCB");
  EXPECT_EQ(lines[1], disclaimerLine(1));
  EXPECT_THAT(lines[2], MatchesRegex("4 \\[quillon-tv-plugin\\] function ptr: \\(0x[0-9a-f]+\\)"));
  EXPECT_EQ(lines[3], "4 [quillon-tv-plugin] start clearCacheFunction");
  EXPECT_EQ(lines[4], "4 [quillon-tv-plugin] end clearCacheFunction");
  EXPECT_THAT(platform().calls,
              ElementsAre("vconf_keynode_get_int()", "ClearCachedData()", kIgnore));
  EXPECT_THAT(platform().watches, IsEmpty());

  EXPECT_EQ(platform().changeKey(kKey, 1), 0);
  EXPECT_EQ(cleared, 1);
}

TEST_F(Globals, AFailedDelegateIsTriedAgainAtTheNextChange) {
  startRuntime();
  status = static_cast<int>(0x80070002);
  platform().changeKey(kKey, 1);
  EXPECT_THAT(platform().lines(),
              ElementsAre("4 ClearTimeZoneCacheDataCB", disclaimerLine(1),
                          "6 Create delegate for System.TimeZoneInfo.ClearCacheData() function is "
                          "fail (0x80070002)"));
  EXPECT_EQ(cleared, 0);
  EXPECT_EQ(platform().watches.size(), 1U);
  status = 0;
  platform().changeKey(kKey, 1);
  EXPECT_EQ(cleared, 1);
  EXPECT_THAT(platform().watches, IsEmpty());
}

TEST_F(Globals, ASmallNegativeCodeHasEightDigits) {
  startRuntime();
  status = -1;
  platform().changeKey(kKey, 1);
  EXPECT_THAT(platform().messages(6).front(), ::testing::EndsWith("is fail (0xffffffff)"));
}

TEST_F(Globals, ANullFunctionStaysRegistered) {
  startRuntime();
  managed = nullptr;
  platform().changeKey(kKey, 1);
  EXPECT_THAT(platform().lines(), ElementsAre("4 ClearTimeZoneCacheDataCB", disclaimerLine(1),
                                              "4 [quillon-tv-plugin] function ptr: ((nil))"));
  EXPECT_EQ(platform().watches.size(), 1U);
  managed = clearCachedData;
  platform().changeKey(kKey, 1);
  EXPECT_EQ(cleared, 1);
}

TEST_F(Globals, AMissingRuntimeIsAFailedDelegate) {
  globalAdapter->set_coreclr_info(nullptr, 0, nullptr);
  platform().changeKey(kKey, 1);
  EXPECT_THAT(platform().messages(6),
              ElementsAre("Create delegate for System.TimeZoneInfo.ClearCacheData() function is "
                          "fail (0x80004003)"));
  EXPECT_EQ(platform().watches.size(), 1U);
}

TEST_F(Globals, ANoticeWithoutANodeIsAnError) {
  startRuntime();
  ClearTimeZoneCacheDataCB(nullptr, nullptr);
  EXPECT_THAT(platform().lines(), ElementsAre("4 ClearTimeZoneCacheDataCB",
                                              "6 ClearTimeZoneCacheDataCB - key is NULL!"));
  EXPECT_THAT(platform().calls, IsEmpty());
}

}  // namespace
}  // namespace quillon::test
