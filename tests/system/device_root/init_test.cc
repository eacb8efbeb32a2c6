#include <gmock/gmock.h>
#include <sys/stat.h>

#include "quillon/device/record.h"
#include "tests/system/device_root/inside.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class Init : public ::testing::Test {
 protected:
  Init() : root_(fs::temp_directory_path() / ("quillon-init-" + std::to_string(::getpid()))) {}
  ~Init() override { fs::remove_all(root_); }

  fs::path root_;
};

TEST_F(Init, MakesEveryFolderOfADevice) {
  ASSERT_TRUE(device::init(root_, {}));
  for (const char* folder :
       {"usr/share/dotnet.velora/netcoreapp", "usr/share/dotnet.velora/framework/ref",
        "usr/share/dotnet.velora/lib", "usr/share/dotnet.velora/tvappapi",
        "usr/share/dotnet.velora/d.pc", "usr/apps", "usr/share/cert",
        "opt/usr/home/owner/share/gctracer", "opt/usr/home/owner/share/ObjectTracker",
        "opt/usr/apps", "opt/usr/home/owner/share/dotnet", "opt/usr/share/quillon", "opt/etc",
        "opt/data", "opt/share", "etc"}) {
    EXPECT_TRUE(fs::is_directory(root_ / folder)) << folder;
  }
  EXPECT_FALSE(fs::exists(root_ / "zone"));
  for (const char* folder : {"tmp", "opt/usr/home"}) {
    struct stat status {};
    ASSERT_EQ(::stat((root_ / folder).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 01777U) << folder;
  }
}

TEST_F(Init, GivesBothFlagFilesTheSameContent) {
  ASSERT_TRUE(device::init(root_, {}));
  EXPECT_FALSE(read(root_ / "etc/dotnet_flag.ini").empty());
  EXPECT_EQ(read(root_ / "etc/dotnet_flag.ini"), read(root_ / "opt/etc/dotnet_flag.ini"));
}

TEST_F(Init, CopiesAMissingFlagFileFromTheOther) {
  write(root_ / "opt/etc/dotnet_flag.ini", "writable");
  ASSERT_TRUE(device::init(root_, {}));
  EXPECT_EQ(read(root_ / "etc/dotnet_flag.ini"), "writable");
  fs::remove(root_ / "opt/etc/dotnet_flag.ini");
  write(root_ / "etc/dotnet_flag.ini", "read-only");
  ASSERT_TRUE(device::init(root_, {}));
  EXPECT_EQ(read(root_ / "opt/etc/dotnet_flag.ini"), "read-only");
}

TEST_F(Init, LeavesExistingFilesAlone) {
  write(root_ / "etc/dotnet_flag.ini", "one");
  write(root_ / "opt/etc/dotnet_flag.ini", "other");
  write(root_ / "opt/usr/apps/clock/bin/clock.dll", "clock");
  ASSERT_TRUE(device::init(root_, {}));
  ASSERT_TRUE(device::init(root_, {}));
  EXPECT_EQ(read(root_ / "etc/dotnet_flag.ini"), "one");
  EXPECT_EQ(read(root_ / "opt/etc/dotnet_flag.ini"), "other");
  EXPECT_EQ(read(root_ / "opt/usr/apps/clock/bin/clock.dll"), "clock");
}

TEST_F(Init, RecordsTheFrameworkAndUpdatesTheRecord) {
  const fs::path framework = root_.string() + "-framework with \"quotes\"";
  fs::create_directories(framework);
  ASSERT_TRUE(device::init(root_, {framework}));
  EXPECT_EQ(device::readRecord(root_)->framework, framework);
  ASSERT_TRUE(device::init(root_, {}));
  EXPECT_EQ(device::readRecord(root_)->framework, std::nullopt);
  fs::remove_all(framework);
}

TEST_F(Init, CopiesThePreloadAssemblyAndTheCertificatesIfTheyAreMissing) {
  const fs::path preload = root_.string() + "-preload";
  const fs::path certificates = root_.string() + "-certificates";
  write(preload, "preload");
  write(certificates, "certificates");
  write(root_ / "usr/share/cert/zqca.pem", "own");
  const device::InitOptions options{std::nullopt, preload, certificates};
  ASSERT_TRUE(device::init(root_, options));
  EXPECT_EQ(read(root_ / "usr/share/dotnet.velora/framework/Preload.dll"), "preload");
  EXPECT_EQ(read(root_ / "usr/share/cert/zqca.pem"), "own");
  fs::remove(root_ / "usr/share/cert/zqca.pem");
  ASSERT_TRUE(device::init(root_, options));
  EXPECT_EQ(read(root_ / "usr/share/cert/zqca.pem"), "certificates");
  fs::remove(preload);
  fs::remove(certificates);
  EXPECT_TRUE(device::init(root_, options));
  fs::remove(root_ / "usr/share/cert/zqca.pem");
  EXPECT_FALSE(device::init(root_, options));
}

// Such a device root cannot be entered.
TEST_F(Init, NamesALinkInThePlaceOfAFolder) {
  for (const char* folder : {"opt/data", "usr/apps", "opt"}) {
    fs::remove_all(root_);
    ASSERT_TRUE(device::init(root_, {}));
    fs::remove_all(root_ / folder);
    fs::create_directory_symlink("/var", root_ / folder);
    const auto made = device::init(root_, {});
    ASSERT_FALSE(made) << folder;
    const std::string link = (root_ / folder).string();
    EXPECT_EQ(made.error().what, "'" + link + "' is a symbolic link, and must be a folder");
    EXPECT_EQ(made.error().remedy, "remove it, then repeat this: rm " + link);
    fs::remove(link);
    EXPECT_TRUE(device::init(root_, {}));
  }
}

TEST_F(Init, RefusesAMissingFramework) {
  const auto made = device::init(root_, {"/no/such/framework"});
  ASSERT_FALSE(made);
  EXPECT_THAT(made.error().what, HasSubstr("'/no/such/framework'"));
  EXPECT_FALSE(fs::exists(root_));
}

TEST_F(Init, RefusesTheRootOfTheMachine) {
  const auto made = device::init("/", {});
  ASSERT_FALSE(made);
  EXPECT_THAT(made.error().what,
              HasSubstr("'/' cannot be a device root, since it holds this machine's files"));
  EXPECT_FALSE(fs::exists("/.quillon"));
}

TEST_F(Init, ReportsAFileInPlaceOfAFolder) {
  write(root_ / "opt/usr", "a file");
  const auto made = device::init(root_, {});
  ASSERT_FALSE(made);
  EXPECT_THAT(made.error().what, HasSubstr((root_ / "opt/usr").string()));
}

TEST_F(Init, ReportsARecordThatCannotBeRead) {
  ASSERT_TRUE(device::init(root_, {}));
  write(root_ / ".quillon/device.toml", "format = 2\n");
  EXPECT_THAT(device::readRecord(root_).error().what, HasSubstr("format"));
  write(root_ / ".quillon/device.toml", "format = \n");
  EXPECT_THAT(device::readRecord(root_).error().what, HasSubstr("cannot read"));
  fs::remove(root_ / ".quillon/device.toml");
  EXPECT_THAT(device::readRecord(root_).error().what, HasSubstr("is not a device root"));
}

}  // namespace
}  // namespace quillon::test
