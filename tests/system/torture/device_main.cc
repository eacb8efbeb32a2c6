#include "tests/system/torture/device_main.h"

#include <filesystem>

namespace quillon::torture {

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
  namespace fs = std::filesystem;
  // The flag file's two copies are equal, so that launches keep the caches.
  return quillon::test::runTestsInDevice(
      argc, argv,
      {.files = {{"etc/dotnet_flag.ini", "1\n"}, {"opt/etc/dotnet_flag.ini", "1\n"}},
       .visible = {fs::path(QUILLON_PLUGIN_PATH).parent_path().parent_path()}});
}
