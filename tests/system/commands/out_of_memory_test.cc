// Commands that run out of memory.
#include <filesystem>

#include "tests/system/commands/command_fixture.h"

namespace quillon::test {
namespace {

class OutOfMemoryTest : public CommandTest {};

// A registry of the largest size that is read, and a limit that has no room for it.
TEST_F(OutOfMemoryTest, EndsWithAMessage) {
  const std::string registry = device() + "/opt/usr/share/quillon/packages.db";
  std::filesystem::create_directories(std::filesystem::path(registry).parent_path());
  writeFile(registry, "");
  std::filesystem::resize_file(registry, std::uintmax_t{64} << 20);
  for (const std::string command : {"package list", "package remove clock", "launch clock"}) {
    const Finished ended = run({"/bin/sh", "-c", "ulimit -v 60000; " QUILLON_COMMAND " " + command},
                               {{"QUILLON_DEVICE", device()}});
    EXPECT_EQ(ended.err, "quillon: out of memory; end other programs or raise the memory limit\n");
    EXPECT_EQ(ended.status, 112) << command;
  }
}

}  // namespace
}  // namespace quillon::test
