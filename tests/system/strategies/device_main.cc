#include "tests/support/device_main.h"

#include "tests/system/strategies/device_test.h"

// Nobody can write to the flag's read-only copy inside, so it must exist before.
int main(int argc, char** argv) {
  return quillon::test::runTestsInDevice(
      argc, argv, {.files = {{"etc/dotnet_flag.ini", quillon::test::kDotnetFlag}}});
}
