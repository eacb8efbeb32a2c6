// Tests of what an interrupted or failed installation leaves in the device root.
#pragma once

#include <string>

#include "tests/unit/platform/device_main.h"
#include "tests/unit/platform/sample_package.h"

namespace quillon::test {

// A version of the package "p", whose files contain the version.
class VersionOfP : public SamplePackage {
 public:
  explicit VersionOfP(const std::string& version, const std::string& line = "")
      : SamplePackage("p", version) {
    add(line).file("version", version).file("other", version);
    add("[[application]]\nid = 'p.main'\nexec = 'version'");
  }
};

class LeftPackagesTest : public InsideDeviceTest {
 protected:
  // A launch reads the registry before anything cleans up.
  static void expectReadable() {
    for (const char* application : {"p.main", "none"}) {
      const auto found = workstation::findPackageOfApplication(application);
      EXPECT_TRUE(found) << found.error().what;
    }
    const auto list = workstation::listPackages();
    EXPECT_TRUE(list) << list.error().what;
  }

  // The next installation cleans up. Then files and registry match and no other files are left.
  static void expectComplete() {
    ASSERT_TRUE(SamplePackage("other").install());
    const auto packages = workstation::listPackages().value();
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
      for (const auto& entry : std::filesystem::directory_iterator(parent, error)) {
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
    const auto packages = workstation::listPackages().value();
    ASSERT_EQ(packages.size(), 2U);
    EXPECT_EQ(packages[1].id, "p");
  }
};

}  // namespace quillon::test
