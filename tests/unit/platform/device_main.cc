#include "tests/unit/platform/device_main.h"

#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "quillon/device/device_root.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

std::string reason;

int runInside(const fs::path& root) {
  if (const auto made = device::init(root, {}); !made) {
    reason = made.error().what;
  } else if (const auto entered = device::enter(root, {{QUILLON_BUILD_FOLDER}, {}}); !entered) {
    reason = entered.error().what;
  }
  return RUN_ALL_TESTS();
}

// In memory where the machine has such a folder: the tests force thousands of files to the disk.
std::string temporaryRoot() {
  const char* memory = "/dev/shm";
  return std::string(access(memory, W_OK) == 0 ? memory : "/var/tmp") + "/quillon-XXXXXX";
}

int runWithDevice() {
  std::string root = temporaryRoot();
  if (mkdtemp(root.data()) == nullptr) {
    perror(root.c_str());
    return 1;
  }
  const int status = inChild([&] { return runInside(root); });
  fs::remove_all(root);
  return status;
}

}  // namespace

const std::string& whyOutside() { return reason; }

void InsideDeviceTest::SetUp() {
  if (!whyOutside().empty()) QUILLON_SKIP("no device root: " << whyOutside());
  for (const char* folder : {"/opt/usr/share/quillon", "/opt/usr/apps", "/opt/share"}) {
    // What is in it: some are mount points.
    std::error_code missing;
    for (const auto& entry : fs::directory_iterator(folder, missing)) fs::remove_all(entry);
  }
  fs::remove("/opt/usr/share/quillon");
}

int inChild(const std::function<int()>& body) {
  const auto threads = fs::directory_iterator("/proc/self/task");
  const bool hasOneThread = std::distance(threads, fs::directory_iterator()) == 1;
  const pid_t child = fork();
  if (child == 0) {
    const int status = body();
    // The sanitizers report at the end; but a lock of theirs that another thread held at the fork
    // stays held.
    if (!hasOneThread) _exit(status);
    exit(status);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace quillon::test

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
  return quillon::test::runWithDevice();
}
