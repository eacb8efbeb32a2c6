// The main program of tests that run inside a device root. It creates the device root, runs the
// tests in a child process that has entered it, and removes it.
#include "tests/torture/device_main.h"

#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "quillon/device/device_root.h"

namespace quillon::torture {
namespace {

namespace fs = std::filesystem;

std::string reason;

// Both copies of the flag file are equal, so that launches keep the caches.
void makeDevice(const fs::path& root) {
  if (const auto made = device::init(root, {}); !made) {
    reason = made.error().what;
    return;
  }
  for (const char* flag : {"etc/dotnet_flag.ini", "opt/etc/dotnet_flag.ini"}) {
    fs::create_directories((root / flag).parent_path());
    writeFile(root / flag, "1\n");
  }
}

void enterDevice(const fs::path& root) {
  const fs::path build = fs::path(QUILLON_PLUGIN_PATH).parent_path().parent_path();
  if (const auto entered = device::enter(root, {.visible = {build}, .writable = {}}); !entered) {
    reason = entered.error().what;
  }
}

int runInside(const fs::path& root) {
  makeDevice(root);
  if (reason.empty()) {
    enterDevice(root);
  }
  return RUN_ALL_TESTS();
}

int runWithDevice() {
  std::string root = (fs::temp_directory_path() / "quillon-torture-XXXXXX").string();
  if (mkdtemp(root.data()) == nullptr) {
    perror(root.c_str());
    return 1;
  }
  const pid_t child = fork();
  if (child == 0) {
    exit(runInside(root));
  }
  int status = 0;
  waitpid(child, &status, 0);
  fs::remove_all(root);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

}  // namespace

const std::string& whyOutside() { return reason; }

void DeviceTest::SetUp() {
  if (!whyOutside().empty()) {
    QUILLON_SKIP("no device root: " << whyOutside());
  }
  static const bool prepared = [] {
    setenv("QUILLON_LOG", "none", 1);
    makeAssemblies();
    loadPlugin();
    return true;
  }();
  ASSERT_TRUE(prepared);
  waitForDisk(false);
  clearCaches();
  expected = expectedList();
}

}  // namespace quillon::torture

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) {
    return RUN_ALL_TESTS();
  }
  return quillon::torture::runWithDevice();
}
