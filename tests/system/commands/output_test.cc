// What commands print: to a full disk, and from records and logs of others.
#include <gmock/gmock.h>

#include <filesystem>

#include "quillon/base/exit_status.h"
#include "tests/system/commands/command_fixture.h"

namespace quillon::test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

class OutputTest : public CommandTest {
 protected:
  // Runs a line of shell, in which Q is the program.
  Finished shell(const std::string& line) {
    return run({"/bin/sh", "-c", line}, {{"QUILLON_DEVICE", device()}, {"Q", QUILLON_COMMAND}});
  }
  std::string log(const std::string& id) {
    return device() + "/opt/usr/share/quillon/logs/" + id + ".log";
  }
};

TEST_F(OutputTest, ThatCannotBeWrittenIsAFailure) {
  writeFile(log("clock"), "text\n");
  for (const std::string command : {"package list", "package list --json", "config list --json",
                                    "logs", "logs clock", "--help", "launch --help", "--version"}) {
    const Finished full = shell("$Q " + command + " >/dev/full");
    EXPECT_EQ(full.status, kServiceFailed) << command;
    EXPECT_THAT(full.err, HasSubstr("quillon: the standard output cannot be written; ")) << command;
  }
}

// Another user may have written the record.
TEST_F(OutputTest, OfPsKeepsRecordsOnOneLine) {
  const Finished listed = shell(
      "exec $Q device shell $QUILLON_DEVICE -- sh -c '"
      "mkdir -p /opt/usr/share/quillon/processes; "
      "ln -s \"$(cut -d\" \" -f22 /proc/$$/stat):$(printf \"package\\n1  x\\033[31m\")\" "
      "/opt/usr/share/quillon/processes/$$; exec $Q ps'");
  EXPECT_EQ(listed.status, 0) << listed.err;
  EXPECT_THAT(listed.out, EndsWith("  package package 1  x [31m\n"));
  EXPECT_EQ(linesOf(listed.out).size(), 1U) << listed.out;
}

TEST_F(OutputTest, OfLogsHasColoursOnATerminalOnly) {
  // A block of the printer ends in the second sequence.
  const std::string text(65530, 'x');
  writeFile(log("clock"),
            "\x1b[0m" + text.substr(5) + "\x1b[1;31mred\x1b[0m \x1b[2K\x1b[\x1b[32mend\n");
  EXPECT_EQ(quillon({"logs", "clock"}).out, text.substr(5) + "red \x1b[2K\x1b[end\n");
}

TEST_F(OutputTest, OfLogsRefusesWhatIsNoId) {
  const Finished refused = quillon({"logs", "../x"});
  EXPECT_EQ(refused.status, kNotInstalled);
  EXPECT_EQ(refused.err, "quillon: '../x' is not an application id; list the logs: quillon logs\n");
}

TEST_F(OutputTest, OfZoneStopAdvisesNoStart) {
  const Finished refused = quillon({"zone", "stop", "appzone"});
  EXPECT_EQ(refused.status, kZoneState);
  EXPECT_THAT(refused.err, HasSubstr("; list the zones: quillon zone list --device " + device()));
}

}  // namespace
}  // namespace quillon::test
