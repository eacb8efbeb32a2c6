// Making a device root in a folder in which another user has planted symbolic links.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "quillon/device/record.h"
#include "tests/support/temporary_directory.h"
#include "tests/system/device_root/inside.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class PlantedLinks : public ::testing::Test {
 protected:
  // Plants a link to the victim's folder.
  void plant(const fs::path& name) const {
    fs::create_directories((root() / name).parent_path());
    fs::create_symlink(victim(), root() / name);
  }
  [[nodiscard]] fs::path root() const { return folder_.path() / "device"; }
  [[nodiscard]] fs::path victim() const { return folder_.path() / "victim"; }

  void SetUp() override {
    fs::create_directories(victim());
    fs::permissions(victim(), fs::perms::owner_all);
  }

  void expectVictimUnchanged() const {
    EXPECT_TRUE(fs::is_empty(victim()));
    EXPECT_EQ(fs::status(victim()).permissions(), fs::perms::owner_all);
  }

 private:
  TemporaryDirectory folder_;
};

TEST_F(PlantedLinks, DoNotOpenAFolderToEveryone) {
  for (const char* name : {"tmp", "opt/usr/home"}) {
    fs::remove_all(root());
    plant(name);
    EXPECT_FALSE(device::init(root(), {})) << name;
    expectVictimUnchanged();
  }
}

TEST_F(PlantedLinks, DoNotGetFlagFiles) {
  for (const char* name : {"etc", "opt/etc"}) {
    fs::remove_all(root());
    plant(name);
    EXPECT_FALSE(device::init(root(), {})) << name;
    expectVictimUnchanged();
  }
}

TEST_F(PlantedLinks, DoNotGetTheFoldersOfADevice) {
  for (const char* name : {"usr", "opt", "opt/usr"}) {
    fs::remove_all(root());
    plant(name);
    EXPECT_FALSE(device::init(root(), {})) << name;
    expectVictimUnchanged();
  }
}

TEST_F(PlantedLinks, DoNotGetTheCopiedFiles) {
  write(root().parent_path() / "file", "copied");
  const device::InitOptions options{std::nullopt, root().parent_path() / "file",
                                    root().parent_path() / "file"};
  for (const char* name : {"usr/share/cert", "usr/share/cert/zqca.pem",
                           "usr/share/dotnet.velora/framework/Preload.dll"}) {
    fs::remove_all(root());
    plant(name);
    EXPECT_TRUE(device::init(root(), options)) << name;
    expectVictimUnchanged();
  }
}

TEST_F(PlantedLinks, DoNotGetTheRecord) {
  plant(".quillon");
  EXPECT_FALSE(device::init(root(), {}));
  expectVictimUnchanged();
}

TEST_F(PlantedLinks, AreNotReadAsFlagFiles) {
  write(victim() / "secret", "secret");
  fs::create_directories(root() / "opt/etc");
  fs::create_symlink(victim() / "secret", root() / "opt/etc/dotnet_flag.ini");
  [[maybe_unused]] const auto made = device::init(root(), {});
  EXPECT_THAT(read(root() / "etc/dotnet_flag.ini"), ::testing::Not(HasSubstr("secret")));
}

TEST_F(PlantedLinks, ToFoldersStay) {
  fs::create_directories(root() / "usr/share/dotnet.velora");
  plant("usr/share/dotnet.velora/netcoreapp");
  ASSERT_TRUE(device::init(root(), {}));
  EXPECT_EQ(fs::read_symlink(root() / "usr/share/dotnet.velora/netcoreapp"), victim());
  expectVictimUnchanged();
}

// The device root's owner may have replaced the record by something else.
TEST_F(PlantedLinks, AFifoOrADeviceIsNoRecord) {
  ASSERT_TRUE(device::init(root(), {}));
  const fs::path record = root() / ".quillon/device.toml";
  fs::remove(record);
  ASSERT_EQ(mkfifo(record.c_str(), 0666), 0);
  EXPECT_FALSE(device::readRecord(root()));
  fs::remove(record);
  fs::create_symlink("/dev/zero", record);
  EXPECT_FALSE(device::readRecord(root()));
  ASSERT_TRUE(device::init(root(), {}));
  EXPECT_TRUE(device::readRecord(root()));
}

}  // namespace
}  // namespace quillon::test
