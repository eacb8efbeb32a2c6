// The C interface of the package services.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/app_info.h"
#include "platform/package_info.h"
#include "platform/pkgmgr_info.h"
#include "tests/unit/platform/device_main.h"
#include "tests/unit/platform/sample_package.h"
#include "workstation/process_registration.h"

namespace quillon::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Texts = std::vector<std::string>;

constexpr char kProcesses[] = "/opt/usr/share/quillon/processes";

class ServicesTest : public InsideDeviceTest {
 protected:
  void SetUp() override {
    InsideDeviceTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    SamplePackage clock("clock");
    clock.add("privileges = ['/one', '/two']");
    clock.add("[[application]]\nid='clock.ui'\nexec='c.dll'\nmetadata={'/k'='v', '/l'='w'}");
    clock.add(
        "[[application]]\nid='clock.service'\nexec='s.dll'\ncomponent='service'\n"
        "metadata={'/k'='other'}");
    ASSERT_TRUE(clock.install());
    ASSERT_TRUE(SamplePackage("moon").add("root='/opt/share/moon'").install());
  }
};

bool collectPair(const char* key, const char* value, void* texts) {
  static_cast<Texts*>(texts)->push_back(std::string(key) + "=" + value);
  return true;
}

bool collectApp(app_info_h app, void* texts) {
  char* package = nullptr;
  EXPECT_EQ(app_info_get_package(app, &package), 0);
  Texts metadata;
  app_info_foreach_metadata(app, collectPair, &metadata);
  static_cast<Texts*>(texts)->push_back(std::string(package) + ":" + metadata.at(0));
  std::free(package);
  return true;
}

bool collectComponent(package_info_app_component_type_e type, const char* id, void* texts) {
  static_cast<Texts*>(texts)->push_back(std::to_string(type) + id);
  return true;
}

bool collectPrivilege(const char* privilege, void* texts) {
  static_cast<Texts*>(texts)->push_back(privilege);
  return true;
}

TEST_F(ServicesTest, ApplicationInformation) {
  app_info_h app = nullptr;
  ASSERT_EQ(app_info_create("clock.ui", &app), 0);
  char* package = nullptr;
  EXPECT_EQ(app_info_get_package(app, &package), 0);
  EXPECT_STREQ(package, "clock");
  std::free(package);
  Texts metadata;
  EXPECT_EQ(app_info_foreach_metadata(app, collectPair, &metadata), 0);
  EXPECT_THAT(metadata, ElementsAre("http://korvane.example/k=v", "http://korvane.example/l=w"));
  EXPECT_EQ(app_info_destroy(app), 0);
}

TEST_F(ServicesTest, AHandleOutlivesItsPackage) {
  app_info_h app = nullptr;
  ASSERT_EQ(app_info_create("clock.ui", &app), 0);
  ASSERT_TRUE(workstation::removePackage("clock").value());
  char* package = nullptr;
  EXPECT_EQ(app_info_get_package(app, &package), 0);
  EXPECT_STREQ(package, "clock");
  std::free(package);
  app_info_destroy(app);
}

TEST_F(ServicesTest, AnUnknownIdDoesNotChangeTheHandle) {
  app_info_h app = nullptr;
  package_info_h package = nullptr;
  pkgmgrinfo_pkginfo_h record = nullptr;
  for (const char* id : {"", "unknown", "clock.ui.x"}) {
    EXPECT_LT(app_info_create(id, &app), 0);
    EXPECT_LT(package_info_create(id, &package), 0);
    EXPECT_LT(pkgmgrinfo_pkginfo_get_pkginfo(id, &record), 0);
    EXPECT_LT(pkgmgrinfo_appinfo_get_appinfo(id, &record), 0);
  }
  EXPECT_EQ(app, nullptr);
  EXPECT_EQ(package, nullptr);
  EXPECT_EQ(record, nullptr);
}

TEST_F(ServicesTest, MetadataFilter) {
  const auto matching = [](std::vector<std::pair<const char*, const char*>> conditions) {
    app_info_metadata_filter_h filter = nullptr;
    EXPECT_EQ(app_info_metadata_filter_create(&filter), 0);
    for (const auto& [key, value] : conditions) {
      EXPECT_EQ(app_info_metadata_filter_add(filter, key, value), 0);
    }
    Texts found;
    EXPECT_EQ(app_info_metadata_filter_foreach(filter, collectApp, &found), 0);
    EXPECT_EQ(app_info_metadata_filter_destroy(filter), 0);
    return found;
  };
  const char* k = "http://korvane.example/k";
  const char* l = "http://korvane.example/l";
  EXPECT_THAT(matching({{k, "v"}}), ElementsAre("clock:http://korvane.example/k=v"));
  EXPECT_THAT(matching({{k, nullptr}}), ElementsAre("clock:http://korvane.example/k=v",
                                                    "clock:http://korvane.example/k=other"));
  EXPECT_THAT(matching({{k, nullptr}, {l, "w"}}), ElementsAre("clock:http://korvane.example/k=v"));
  EXPECT_THAT(matching({{k, "none"}}), IsEmpty());
}

TEST_F(ServicesTest, StopsWhenTheCallbackReturnsFalse) {
  const auto stopMetadata = [](const char*, const char*, void* count) {
    return ++*static_cast<int*>(count) < 1;
  };
  const auto stopApp = [](app_info_h, void* count) { return ++*static_cast<int*>(count) < 1; };
  const auto stopComponent = [](package_info_app_component_type_e, const char*, void* count) {
    return ++*static_cast<int*>(count) < 1;
  };
  const auto stopPrivilege = [](const char*, void* count) {
    return ++*static_cast<int*>(count) < 1;
  };
  app_info_h app = nullptr;
  package_info_h package = nullptr;
  app_info_metadata_filter_h filter = nullptr;
  ASSERT_EQ(app_info_create("clock.ui", &app), 0);
  ASSERT_EQ(package_info_create("clock", &package), 0);
  ASSERT_EQ(app_info_metadata_filter_create(&filter), 0);
  app_info_metadata_filter_add(filter, "http://korvane.example/k", nullptr);
  std::array<int, 4> counts{};
  EXPECT_EQ(app_info_foreach_metadata(app, stopMetadata, &counts[0]), 0);
  EXPECT_EQ(app_info_metadata_filter_foreach(filter, stopApp, &counts[1]), 0);
  EXPECT_EQ(package_info_foreach_app_from_package(package, PACKAGE_INFO_APP_COMPONENT_TYPE_ALL,
                                                  stopComponent, &counts[2]),
            0);
  EXPECT_EQ(package_info_foreach_privilege_info(package, stopPrivilege, &counts[3]), 0);
  EXPECT_THAT(counts, ElementsAre(1, 1, 1, 1));
  app_info_destroy(app);
  package_info_destroy(package);
  app_info_metadata_filter_destroy(filter);
}

TEST_F(ServicesTest, PackageInformation) {
  package_info_h package = nullptr;
  ASSERT_EQ(package_info_create("clock", &package), 0);
  const auto components = [&](package_info_app_component_type_e type) {
    Texts found;
    EXPECT_EQ(package_info_foreach_app_from_package(package, type, collectComponent, &found), 0);
    return found;
  };
  EXPECT_THAT(components(PACKAGE_INFO_APP_COMPONENT_TYPE_ALL),
              ElementsAre("1clock.ui", "2clock.service"));
  EXPECT_THAT(components(PACKAGE_INFO_APP_COMPONENT_TYPE_UI), ElementsAre("1clock.ui"));
  EXPECT_THAT(components(PACKAGE_INFO_APP_COMPONENT_TYPE_SERVICE), ElementsAre("2clock.service"));
  Texts privileges;
  EXPECT_EQ(package_info_foreach_privilege_info(package, collectPrivilege, &privileges), 0);
  EXPECT_THAT(privileges, ElementsAre("http://velora.example/one", "http://velora.example/two"));
  package_info_destroy(package);
}

TEST_F(ServicesTest, PackageManager) {
  pkgmgrinfo_pkginfo_h package = nullptr;
  char* text = nullptr;
  ASSERT_EQ(pkgmgrinfo_pkginfo_get_usr_pkginfo("clock", 1234, &package), 0);
  EXPECT_EQ(pkgmgrinfo_pkginfo_get_mainappid(package, &text), 0);
  EXPECT_STREQ(text, "clock.ui");
  EXPECT_EQ(pkgmgrinfo_pkginfo_get_root_path(package, &text), 0);
  EXPECT_STREQ(text, "/opt/usr/apps/clock");
  EXPECT_EQ(pkgmgrinfo_pkginfo_destroy_pkginfo(package), 0);
  ASSERT_EQ(pkgmgrinfo_pkginfo_get_pkginfo("moon", &package), 0);
  EXPECT_LT(pkgmgrinfo_pkginfo_get_mainappid(package, &text), 0);
  pkgmgrinfo_pkginfo_destroy_pkginfo(package);

  pkgmgrinfo_appinfo_h app = nullptr;
  ASSERT_EQ(pkgmgrinfo_appinfo_get_appinfo("clock.service", &app), 0);
  EXPECT_EQ(pkgmgrinfo_appinfo_get_exec(app, &text), 0);
  EXPECT_STREQ(text, "/opt/usr/apps/clock/s.dll");
  EXPECT_EQ(pkgmgrinfo_appinfo_get_metadata_value(app, "http://korvane.example/k", &text), 0);
  EXPECT_STREQ(text, "other");
  EXPECT_LT(pkgmgrinfo_appinfo_get_metadata_value(app, "http://korvane.example/l", &text), 0);
  EXPECT_EQ(pkgmgrinfo_appinfo_destroy_appinfo(app), 0);
}

TEST_F(ServicesTest, UsersPackagesComeBeforePackagesForAll) {
  constexpr uid_t kUser = 1234;
  ASSERT_TRUE(SamplePackage("moon").add("root='/opt/share/own'").install(kUser));
  const auto root = [](uid_t user) {
    pkgmgrinfo_pkginfo_h package = nullptr;
    char* text = nullptr;
    EXPECT_EQ(pkgmgrinfo_pkginfo_get_usr_pkginfo("moon", user, &package), 0);
    EXPECT_EQ(pkgmgrinfo_pkginfo_get_root_path(package, &text), 0);
    const std::string result = text;
    pkgmgrinfo_pkginfo_destroy_pkginfo(package);
    return result;
  };
  EXPECT_EQ(root(kUser), "/opt/share/own");
  EXPECT_EQ(root(kUser + 1), "/opt/share/moon");
  EXPECT_EQ(root(0), "/opt/share/moon");
}

TEST_F(ServicesTest, TargetUserIsTheCaller) {
  uid_t user = 99;
  EXPECT_EQ(pkgmgr_installer_info_get_target_uid(&user), 0);
  EXPECT_EQ(user, geteuid());
}

TEST_F(ServicesTest, AProcessIsKnownUntilItEnds) {
  int gate[2];
  ASSERT_EQ(pipe(gate), 0);
  const pid_t child = fork();
  if (child == 0) {
    char byte;
    _exit(static_cast<int>(read(gate[0], &byte, 1)));
  }
  const auto packageOf = [](pid_t process) {
    char buffer[1024] = "untouched";
    const int result = aul_app_get_pkgid_bypid(process, buffer, sizeof buffer);
    return result == 0 ? std::string(buffer) : std::string("unknown, ") + buffer;
  };
  EXPECT_EQ(packageOf(child), "unknown, untouched");
  ASSERT_TRUE(workstation::registerProcess(child, "clock"));
  EXPECT_EQ(packageOf(child), "clock");
  ASSERT_TRUE(workstation::registerProcess(child, "moon"));
  EXPECT_EQ(packageOf(child), "moon");
  EXPECT_EQ(packageOf(getpid()), "unknown, untouched");
  char tooShort[4] = "abc";
  EXPECT_LT(aul_app_get_pkgid_bypid(child, tooShort, sizeof tooShort), 0);
  EXPECT_STREQ(tooShort, "abc");
  char exact[5] = "";
  EXPECT_EQ(aul_app_get_pkgid_bypid(child, exact, sizeof exact), 0);
  EXPECT_STREQ(exact, "moon");
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_EQ(packageOf(child), "unknown, untouched");
  EXPECT_FALSE(workstation::registerProcess(child, "clock"));
}

TEST_F(ServicesTest, AForkedChildIsAProcessOfItsOwn) {
  const auto isIn = [](pid_t process, const std::string& expected) {
    char package[1024] = "";
    return aul_app_get_pkgid_bypid(process, package, sizeof package) == 0 && package == expected;
  };
  ASSERT_TRUE(workstation::registerProcess(getpid(), "clock"));
  ASSERT_TRUE(isIn(getpid(), "clock"));
  const pid_t child = fork();
  if (child == 0) {
    const bool isNew = !isIn(getpid(), "clock");
    const bool isKnown = workstation::registerProcess(getpid(), "moon").has_value();
    _exit(isNew && isKnown && isIn(getpid(), "moon") && isIn(getppid(), "clock") ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST_F(ServicesTest, LaunchersRegisterAProcessThroughTheCInterface) {
  ASSERT_EQ(quillon_register_process(getpid(), "clock"), 0);
  char package[1024] = "";
  ASSERT_EQ(aul_app_get_pkgid_bypid(getpid(), package, sizeof package), 0);
  EXPECT_STREQ(package, "clock");
  EXPECT_EQ(quillon_register_process(0, "clock"), -1);
  EXPECT_EQ(quillon_register_process(getpid(), nullptr), -1);
}

// Changes the record of a process to that of a process that started one tick earlier.
void age(const std::filesystem::path& link) {
  const std::string text = std::filesystem::read_symlink(link).string();
  const size_t end = text.find(':');
  std::filesystem::remove(link);
  std::filesystem::create_symlink(std::to_string(std::stoull(text) - 1) + text.substr(end), link);
}

TEST_F(ServicesTest, ARecordDoesNotApplyToALaterProcessWithTheSameId) {
  ASSERT_TRUE(workstation::registerProcess(getpid(), "clock"));
  char package[1024] = "";
  ASSERT_EQ(aul_app_get_pkgid_bypid(getpid(), package, sizeof package), 0);
  age(std::filesystem::path(kProcesses) / std::to_string(getpid()));
  EXPECT_LT(aul_app_get_pkgid_bypid(getpid(), package, sizeof package), 0);
  // Registering again replaces the earlier record.
  ASSERT_TRUE(workstation::registerProcess(getpid(), "moon"));
  ASSERT_EQ(aul_app_get_pkgid_bypid(getpid(), package, sizeof package), 0);
  EXPECT_STREQ(package, "moon");
}

// Records a child that runs "clock", and waits until it has ended without reaping it.
pid_t recordEnded() {
  const pid_t child = fork();
  if (child == 0) {
    _exit(workstation::registerProcess(getpid(), "clock") ? 0 : 1);
  }
  siginfo_t info{};
  EXPECT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(info.si_status, 0);
  return child;
}

TEST_F(ServicesTest, RecordsOfEndedProcessesAreRemoved) {
  ASSERT_TRUE(workstation::registerProcess(getppid(), "moon"));
  for (const bool isReaped : {true, false}) {
    const pid_t child = recordEnded();
    const auto link = std::filesystem::path(kProcesses) / std::to_string(child);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    if (isReaped) {
      waitpid(child, nullptr, 0);
    }
    EXPECT_THAT(workstation::processesOfPackage("clock"), ::testing::IsEmpty());
    workstation::forgetEndedProcesses();
    EXPECT_FALSE(std::filesystem::is_symlink(link));
    if (!isReaped) {
      waitpid(child, nullptr, 0);
    }
  }
  EXPECT_TRUE(
      std::filesystem::is_symlink(std::filesystem::path(kProcesses) / std::to_string(getppid())));
}

TEST_F(ServicesTest, AFailedRegistrationReportsItsCause) {
  std::filesystem::create_directories("/opt/usr/share/quillon");
  std::filesystem::remove_all(kProcesses);
  std::ofstream(kProcesses) << "a file";
  const auto registered = workstation::registerProcess(getpid(), "clock");
  ASSERT_FALSE(registered);
  EXPECT_THAT(registered.error().what, ::testing::HasSubstr("Not a directory"));
  std::filesystem::remove(kProcesses);
}

TEST_F(ServicesTest, NullIsAFailureEverywhere) {
  app_info_h app = nullptr;
  package_info_h package = nullptr;
  app_info_metadata_filter_h filter = nullptr;
  char* text = nullptr;
  ASSERT_EQ(app_info_create("clock.ui", &app), 0);
  ASSERT_EQ(package_info_create("clock", &package), 0);
  ASSERT_EQ(app_info_metadata_filter_create(&filter), 0);
  EXPECT_LT(app_info_create(nullptr, &app), 0);
  EXPECT_LT(app_info_create("clock.ui", nullptr), 0);
  EXPECT_LT(app_info_destroy(nullptr), 0);
  EXPECT_LT(app_info_get_package(nullptr, &text), 0);
  EXPECT_LT(app_info_get_package(app, nullptr), 0);
  EXPECT_LT(app_info_foreach_metadata(nullptr, collectPair, nullptr), 0);
  EXPECT_LT(app_info_foreach_metadata(app, nullptr, nullptr), 0);
  EXPECT_LT(app_info_metadata_filter_create(nullptr), 0);
  EXPECT_LT(app_info_metadata_filter_destroy(nullptr), 0);
  EXPECT_LT(app_info_metadata_filter_add(nullptr, "k", "v"), 0);
  EXPECT_LT(app_info_metadata_filter_add(filter, nullptr, "v"), 0);
  EXPECT_LT(app_info_metadata_filter_foreach(nullptr, collectApp, nullptr), 0);
  EXPECT_LT(app_info_metadata_filter_foreach(filter, nullptr, nullptr), 0);
  EXPECT_LT(package_info_create(nullptr, &package), 0);
  EXPECT_LT(package_info_create("clock", nullptr), 0);
  EXPECT_LT(package_info_destroy(nullptr), 0);
  const auto all = PACKAGE_INFO_APP_COMPONENT_TYPE_ALL;
  EXPECT_LT(package_info_foreach_app_from_package(nullptr, all, collectComponent, nullptr), 0);
  EXPECT_LT(package_info_foreach_app_from_package(package, all, nullptr, nullptr), 0);
  EXPECT_LT(package_info_foreach_privilege_info(nullptr, collectPrivilege, nullptr), 0);
  EXPECT_LT(package_info_foreach_privilege_info(package, nullptr, nullptr), 0);
  EXPECT_LT(pkgmgrinfo_pkginfo_get_pkginfo(nullptr, nullptr), 0);
  EXPECT_LT(pkgmgrinfo_pkginfo_get_mainappid(nullptr, &text), 0);
  EXPECT_LT(pkgmgrinfo_pkginfo_get_root_path(nullptr, &text), 0);
  EXPECT_LT(pkgmgrinfo_pkginfo_destroy_pkginfo(nullptr), 0);
  EXPECT_LT(pkgmgrinfo_appinfo_get_appinfo("clock.ui", nullptr), 0);
  EXPECT_LT(pkgmgrinfo_appinfo_get_exec(nullptr, &text), 0);
  EXPECT_LT(pkgmgrinfo_appinfo_get_metadata_value(nullptr, "k", &text), 0);
  EXPECT_LT(pkgmgrinfo_appinfo_destroy_appinfo(nullptr), 0);
  EXPECT_LT(pkgmgr_installer_info_get_target_uid(nullptr), 0);
  EXPECT_LT(aul_app_get_pkgid_bypid(getpid(), nullptr, 10), 0);
  EXPECT_LT(aul_app_get_pkgid_bypid(0, text, 0), 0);
  app_info_destroy(app);
  package_info_destroy(package);
  app_info_metadata_filter_destroy(filter);
}

}  // namespace
}  // namespace quillon::test
