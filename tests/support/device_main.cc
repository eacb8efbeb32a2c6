#include "tests/support/device_main.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>

#include "quillon/device/device_root.h"
#include "tests/support/temporary_directory.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

std::string reason;

Expected<void> makeAndEnter(const fs::path& root, const TestDevice& device) {
  RETURN_IF_FAILED(device::init(root, {}));
  for (const auto& [path, content] : device.files) {
    fs::create_directories((root / path).parent_path());
    std::ofstream(root / path, std::ios::binary) << content;
  }
  RETURN_IF_FAILED(device::enter(root, {.visible = device.visible, .writable = {}}));
  return {};
}

int runInside(const fs::path& root, const TestDevice& device) {
  if (const auto entered = makeAndEnter(root, device); !entered) {
    reason = entered.error().what;
    if (entered.error().status != kNoNamespace) {
      std::cerr << reason << '\n';
      return 1;
    }
  }
  return RUN_ALL_TESTS();
}

}  // namespace

const std::string& whyOutside() { return reason; }

int inChild(const std::function<int()>& body) {
  const auto threads = fs::directory_iterator("/proc/self/task");
  const bool hasOneThread = std::distance(threads, fs::directory_iterator()) == 1;
  const pid_t child = fork();
  if (child == 0) {
    const int status = body();
    // The sanitizers report in exit(3). If another thread held one of their locks at the fork,
    // exit(3) would wait for that lock forever.
    if (!hasOneThread) {
      _exit(status);
    }
    exit(status);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

int runTestsInDevice(int argc, char** argv, const TestDevice& device) {
  testing::InitGoogleMock(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) {
    return RUN_ALL_TESTS();
  }
  const TemporaryDirectory root(device.parent);
  return inChild([&] { return runInside(root.path(), device); });
}

}  // namespace quillon::test
