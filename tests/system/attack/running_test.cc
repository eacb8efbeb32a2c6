// A process that can write to a device root can forge the record of a running application there.
// The commands do not act outside because of such a record, or because of a planted log.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "quillon/base/exit_status.h"
#include "tests/system/commands/command_fixture.h"
#include "workstation/zone_state.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class RunningAttack : public CommandTest {
 protected:
  [[nodiscard]] fs::path inData(const std::string& name) const {
    return device() + "/opt/usr/share/quillon/" + name;
  }
  void forge(pid_t process, unsigned long long start) const {
    fs::create_directories(inData("processes"));
    const fs::path record = inData("processes") / std::to_string(process);
    fs::remove(record);
    fs::create_symlink(std::to_string(start) + ":package/application", record);
  }
};

TEST_F(RunningAttack, AForgedRecordOfAForeignProcessEndsNothing) {
  const pid_t victim = fork();
  if (victim == 0) {
    pause();
    _exit(0);
  }
  forge(victim, workstation::startTimeOf(victim));
  EXPECT_EQ(quillon({"ps"}).out, "");
  EXPECT_EQ(quillon({"stop", "application"}).status, kNotInstalled);
  EXPECT_EQ(waitpid(victim, nullptr, WNOHANG), 0);
  kill(victim, SIGKILL);
  waitpid(victim, nullptr, 0);
}

// A process inside the device root. Otherwise the test before proves nothing.
TEST_F(RunningAttack, ARecordOfAnEarlierProcessEndsNothing) {
  Program shell({QUILLON_COMMAND, "device", "shell", device(), "--", "/bin/sh", "-c",
                 "echo $$ > /tmp/process; echo ready; exec sleep 1000"});
  shell.start();
  ASSERT_TRUE(shell.waitForOutput("ready\n"));
  const pid_t inside = std::stoi(contentsOf(device() + "/tmp/process"));
  const auto start = workstation::startTimeOf(inside);
  forge(inside, start);
  EXPECT_THAT(quillon({"ps"}).out, HasSubstr("application of package"));
  forge(inside, start - 1);
  EXPECT_EQ(quillon({"ps"}).out, "");
  EXPECT_EQ(quillon({"stop", "application"}).status, kNotInstalled);
  forge(inside, start);
  EXPECT_EQ(quillon({"stop", "application"}).status, 0);
  EXPECT_EQ(shell.finish().status, 128 + SIGTERM);
}

TEST_F(RunningAttack, ALogIsNotWrittenThroughALink) {
  const fs::path victim = folder() / "victim";
  writeFile(victim.string(), "precious");
  fs::create_directories(inData("logs"));
  fs::create_symlink(victim, inData("logs/application.log"));
  const Finished launched = quillon({"launch", "--detach", "application"});
  EXPECT_EQ(launched.status, kServiceFailed);
  EXPECT_THAT(launched.err, HasSubstr("cannot open '"));
  EXPECT_EQ(quillon({"logs", "application"}).out, "");
  EXPECT_EQ(contentsOf(victim.string()), "precious");
}

}  // namespace
}  // namespace quillon::test
