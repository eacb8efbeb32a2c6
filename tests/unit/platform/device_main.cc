#include "tests/unit/platform/device_main.h"

#include <unistd.h>

#include <filesystem>

namespace quillon::test {

void InsideDeviceTest::SetUp() {
  if (!whyOutside().empty()) {
    QUILLON_SKIP("no device root: " << whyOutside());
  }
  namespace fs = std::filesystem;
  for (const char* folder : {"/opt/usr/share/quillon", "/opt/usr/apps", "/opt/share"}) {
    // Removes the content only: some of the folders are mount points.
    std::error_code missing;
    for (const auto& entry : fs::directory_iterator(folder, missing)) {
      fs::remove_all(entry);
    }
  }
  fs::remove("/opt/usr/share/quillon");
}

}  // namespace quillon::test

int main(int argc, char** argv) {
  // In memory if possible: the tests sync thousands of files.
  const char* parent = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/var/tmp";
  return quillon::test::runTestsInDevice(argc, argv,
                                         {.parent = parent, .visible = {QUILLON_BUILD_FOLDER}});
}
