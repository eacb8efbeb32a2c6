// An application on a terminal: with plain dotnet, in a direct launch and in prepared ones.
#include "tests/support/terminal.h"

#include <gmock/gmock.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

using Words = std::vector<std::string>;

// What the sample application found out, and what the terminal showed.
struct Session {
  int status = -1;
  Words answers;
  std::string shown;
  bool isCooked = false;  // the terminal, at the end
};

// What the terminal echoes, and when, depends on whether the application reads at that moment.
std::string withoutEcho(std::string shown) {
  for (const std::string typed :
       {"console\r\n", "key\r\n", "colour red\r\n", "error wrong\r\n", "clear\r\n", "handlers\r\n",
        "quit\r\n", "^[[A", "\x1b[?1h\x1b="}) {
    for (size_t at = shown.find(typed); at != shown.npos; at = shown.find(typed)) {
      shown.erase(at, typed.size());
    }
  }
  return shown;
}

constexpr char kQuillon[] = QUILLON_BUILD_DIRECTORY "/bin/quillon";

class TerminalTest : public LaunchpadTest {
 protected:
  void SetUp() override {
    LaunchpadTest::SetUp();
    if (!IsSkipped() && !HasFatalFailure()) {
      allowOwnProcesses();
      allowNoRefill();
      start(1);
    }
  }

  // Asks the sample application about its console. It writes its answers to `answers`, which is
  // `visible` to this process.
  Session converse(Words command, const std::string& answers,
                   const std::filesystem::path& visible) const {
    std::filesystem::remove(visible);
    command.insert(command.end(), {"--answers", answers});
    Terminal terminal(command, {"QUILLON_LOG=none", "TERM=xterm", kRuntimeSanitizerOptions});
    Session session;
    const auto awaitAnswers = [&](size_t count) {
      return eventually([&] { return (session.answers = linesOf(visible)).size() >= count; });
    };
    size_t expected = 1;  // "ready"
    for (const char* question :
         {"console\r", "key\r", "colour red\r", "error wrong\r", "clear\r", "handlers\r"}) {
      EXPECT_TRUE(awaitAnswers(expected++)) << terminal.output();
      terminal.type(question);
      if (question == std::string("key\r")) {
        EXPECT_TRUE(terminal.waitForOutput("key\r\n"));
        terminal.type("\x1b[A");
      }
    }
    EXPECT_TRUE(awaitAnswers(expected)) << terminal.output();
    terminal.type("quit\r");
    session.status = terminal.finish();
    session.shown = withoutEcho(terminal.output());
    session.isCooked = terminal.isCooked();
    return session;
  }

  // The same in a launch with `options`.
  Session converseInLaunch(const Words& options) const {
    Words command = {kQuillon, "launch", "--device", root()};
    command.insert(command.end(), options.begin(), options.end());
    command.insert(command.end(), {kProbe, "--"});
    return converse(command, "/tmp/answers", at("/tmp/answers"));
  }

 private:
  static Words linesOf(const std::filesystem::path& file) {
    std::ifstream stream(file);
    Words lines;
    for (std::string line; std::getline(stream, line) && !stream.eof();) {
      lines.push_back(line);
    }
    return lines;
  }
};

// A direct launch beside a launch pad says so on a terminal, in its first line.
std::string afterNotice(const std::string& shown) {
  EXPECT_THAT(shown, ::testing::StartsWith("quillon: launched directly, not by the launch pad: "));
  return shown.substr(shown.find('\n') + 1);
}

TEST_F(TerminalTest, LooksTheSame) {
  const std::string answers = fresh("answers");
  const Session plain =
      converse(dotnetCommand(sampleAssembly(kProbe, "SampleProbe.dll"), {}), answers, answers);
  EXPECT_EQ(plain.status, 0);
  EXPECT_THAT(plain.answers,
              ElementsAre("ready", "redirected: input False, output False, error False; width 80",
                          "UpArrow 0 None", "red", "wrong", "cleared", "1"));
  EXPECT_THAT(plain.shown, HasSubstr("\x1b[31mred"));
  for (const int prepared : {0, 1, 2}) {  // directly, by its own process, by a shared one
    const Session launched = converseInLaunch({"--raw"});
    EXPECT_EQ(served(), prepared);
    EXPECT_EQ(launched.status, plain.status) << prepared;
    EXPECT_EQ(launched.answers, plain.answers) << prepared;
    EXPECT_TRUE(launched.isCooked) << prepared;
    EXPECT_EQ(prepared > 0 ? launched.shown : afterNotice(launched.shown), plain.shown);
    ASSERT_TRUE(prepared > 0 || awaitReady());
  }
}

// The terminal sends SIGINT to the command in its foreground.
TEST_F(TerminalTest, CtrlCEndsTheApplicationTheSame) {
  const auto interrupt = [](const Words& command) {
    Terminal terminal(command, {"QUILLON_LOG=none", "TERM=xterm", kRuntimeSanitizerOptions});
    EXPECT_TRUE(terminal.waitForOutput("ready")) << terminal.output();
    terminal.type("\x03");
    return terminal.finish();
  };
  const Words launch = {kQuillon, "launch", "--device", root(), "--raw", kProbe};
  const int plain = interrupt(dotnetCommand(sampleAssembly(kProbe, "SampleProbe.dll"), {}));
  for (const int prepared : {0, 1, 2}) {
    EXPECT_EQ(interrupt(launch), plain);
    EXPECT_EQ(served(), prepared);
    ASSERT_TRUE(prepared > 0 || awaitReady());
  }
}

TEST_F(TerminalTest, CtrlCReachesTheHandlerOfTheApplication) {
  const auto interrupt = [](const Words& command) {
    Terminal terminal(command, {"QUILLON_LOG=none", "TERM=xterm", kRuntimeSanitizerOptions});
    EXPECT_TRUE(terminal.waitForOutput("ready")) << terminal.output();
    terminal.type("interrupt\r");
    EXPECT_TRUE(terminal.waitForOutput("waiting for an interrupt")) << terminal.output();
    terminal.type("\x03");
    EXPECT_TRUE(terminal.waitForOutput("interrupted")) << terminal.output();
    terminal.type("quit\r");
    return terminal.finish();
  };
  const Words launch = {kQuillon, "launch", "--device", root(), "--raw", kProbe};
  EXPECT_EQ(interrupt(dotnetCommand(sampleAssembly(kProbe, "SampleProbe.dll"), {})), 0);
  for (const int prepared : {0, 1, 2}) {
    EXPECT_EQ(interrupt(launch), 0);
    EXPECT_EQ(served(), prepared);
    ASSERT_TRUE(prepared > 0 || awaitReady());
  }
}

// The signals that a process handles, and the names of the runtime's threads for them.
std::string signalHandling(const std::string& process) {
  const std::filesystem::path folder = "/proc/" + process;
  const std::string status = contentOf(folder / "status");
  const size_t caught = status.find("SigCgt:");
  std::string all = status.substr(caught, status.find('\n', caught) - caught);
  for (const auto& thread : std::filesystem::directory_iterator(folder / "task")) {
    const std::string name = contentOf(thread.path() / "comm");
    all += name.starts_with(".NET Sig") ? " " + name : "";
  }
  return all;
}

// Before an application uses the console, its signals are not handled for it.
TEST_F(TerminalTest, SignalsAreHandledFromTheFirstUseOfTheConsole) {
  std::string direct;
  {
    RunningProbe probe(root(), "inhouse");
    direct = signalHandling(probe.ask("process"));
  }
  EXPECT_THAT(direct, HasSubstr(".NET SigHandler"));
  ASSERT_TRUE(awaitReady());
  for (const pid_t idle : processes("ready")) {
    EXPECT_THAT(signalHandling(std::to_string(idle)), Not(HasSubstr(".NET SigHandler")));
  }
  for (const int prepared : {1, 2}) {
    RunningProbe probe(root(), "inhouse");
    EXPECT_EQ(signalHandling(probe.ask("process")), direct);
    EXPECT_EQ(served(), prepared);
  }
}

// Its input is the terminal, its output goes to the log.
TEST_F(TerminalTest, LooksTheSameToACapturedApplication) {
  const Session direct = converseInLaunch({});
  EXPECT_THAT(direct.answers, ::testing::Contains(HasSubstr("input False, output True")));
  ASSERT_TRUE(awaitReady());
  for (const int prepared : {1, 2}) {
    const Session launched = converseInLaunch({});
    EXPECT_EQ(launched.answers, direct.answers);
    EXPECT_EQ(launched.shown, afterNotice(direct.shown));
    EXPECT_EQ(launched.status, 0);
    EXPECT_EQ(served(), prepared);
  }
}

}  // namespace
}  // namespace quillon::test
