// The main program of tests that run inside a device root. It creates the device root, runs the
// tests in a child process that has entered it, and removes it.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/strategies/device_test.h"
#include "tests/support/temporary_directory.h"
#include "quillon/device/device_root.h"

namespace quillon::test {
namespace {

std::string reason;

// The read-only copy of the flag file is one of the device's own files, which no process inside can
// write.
Expected<void> makeDevice(const std::filesystem::path& root) {
  auto made = device::init(root, {});
  std::filesystem::create_directories(root / "etc");
  std::ofstream(root / "etc/dotnet_flag.ini") << kDotnetFlag;
  return made;
}

int runInside(const std::filesystem::path& root) {
  if (const auto made = makeDevice(root); !made) {
    reason = made.error().what;
  } else if (const auto entered = device::enter(root, {}); !entered) {
    reason = entered.error().what;
  }
  return RUN_ALL_TESTS();
}

int runWithDevice() {
  const TemporaryDirectory directory;
  const pid_t child = fork();
  if (child == 0) {
    exit(runInside(directory.path()));
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

}  // namespace

const std::string& whyOutside() { return reason; }

}  // namespace quillon::test

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  return testing::GTEST_FLAG(list_tests) ? RUN_ALL_TESTS() : quillon::test::runWithDevice();
}
