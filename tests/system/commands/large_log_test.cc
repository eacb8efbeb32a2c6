// A log that is larger than the memory of the command.
#include <filesystem>

#include "tests/system/commands/command_fixture.h"

namespace quillon::test {
namespace {

class LargeLogTest : public CommandTest {};

TEST_F(LargeLogTest, IsPrintedInParts) {
  const std::string log = device() + "/opt/usr/share/quillon/logs/clock.log";
  writeFile(log, "begin");
  std::filesystem::resize_file(log, std::uintmax_t{4} << 30);
  const Finished printed =
      run({"/bin/sh", "-c", "ulimit -v 2000000; " QUILLON_COMMAND " logs clock | head -c 5"},
          {{"QUILLON_DEVICE", device()}});
  EXPECT_EQ(printed.out, "begin");
  EXPECT_EQ(printed.err, "");
}

}  // namespace
}  // namespace quillon::test
