// quillon validator with applications that send requests through the built plug-in.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <functional>
#include <thread>

#include "quillon/base/exit_status.h"
#include "tests/system/commands/command_fixture.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

constexpr char kGood[] = "/opt/usr/apps/good/a.dll";
constexpr char kBad[] = "/opt/usr/apps/bad/a.dll";
constexpr char kPolicy[] = "default = \"deny\"\nallow-paths = [\"/opt/usr/apps/good\"]\n";

std::size_t count(const std::string& text, const std::string& part) {
  std::size_t times = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++times;
  }
  return times;
}

// Waits for at most ten seconds.
bool eventually(const std::function<bool()>& condition) {
  for (int look = 0; look < 5000; ++look) {
    if (condition()) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return false;
}

class ValidatorCommand : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    put(kGood);
    put(kBad);
    writeFile(policy(), kPolicy);
  }

  std::string policy() const { return (folder() / "policy.toml").string(); }
  fs::path onMachine(const std::string& path) const { return fs::path(device()) / path.substr(1); }
  void put(const std::string& path) const {
    fs::create_directories(onMachine(path).parent_path());
    writeFile(onMachine(path).string(), path);
  }
  bool hasPipes() const {
    return fs::exists(onMachine("/tmp/dotnet_pipe_in")) ||
           fs::exists(onMachine("/tmp/dotnet_pipe_out"));
  }

  // Waits until a requester that keeps the pipe open has an answer to read. Leaves it there.
  bool awaitAnswerInPipe() const {
    const int pipe =
        open(onMachine("/tmp/dotnet_pipe_out").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    pollfd answer{pipe, POLLIN, 0};
    const bool isThere = poll(&answer, 1, 10'000) == 1 && (answer.revents & POLLIN) != 0;
    close(pipe);
    return isThere;
  }

  std::vector<std::string> validatorCommand() {
    return commandOf({"validator", "--device", device(), policy()});
  }
  // Waits until the validator answers.
  void start(Program& validator) {
    validator.with("QUILLON_LOG", "none").start();
    ASSERT_TRUE(validator.waitForOutput("validator ready\n"));
  }

  // Runs a script inside. $ASK is a command that asks about the path in its last argument.
  Finished script(const std::string& text) {
    const std::string ask = std::string(QUILLON_DRIVER) + " " + QUILLON_PLUGIN + " validate_dll=";
    return run(
        commandOf({"device", "shell", device(), "--", "sh", "-c", "ASK='" + ask + "'; " + text}),
        {{"QUILLON_LOG", "none"}});
  }
  // Returns the answer, 1 or 0; another value on failure.
  int ask(const std::string& path) {
    const Finished asked = script("exec $ASK'" + path + "'");
    if (count(asked.out, "\"result\":1") == 1) {
      return 1;
    }
    if (count(asked.out, "\"result\":0") == 1) {
      return 0;
    }
    ADD_FAILURE() << asked.out << asked.err;
    return -1;
  }
};

TEST_F(ValidatorCommand, AnswersByThePolicyAndPrintsIt) {
  Program validator(validatorCommand());
  start(validator);
  EXPECT_EQ(ask(kGood), 1);
  EXPECT_EQ(ask(kBad), 0);
  validator.terminate();
  const Finished ended = validator.finish();
  EXPECT_THAT(ended.out, AllOf(HasSubstr("allowed /opt/usr/apps/good/a.dll to process "),
                               HasSubstr(": below /opt/usr/apps/good of allow-paths\n"),
                               HasSubstr("refused /opt/usr/apps/bad/a.dll to process "),
                               HasSubstr(": by default; its SHA-256 is ")));
}

TEST_F(ValidatorCommand, EndsCleanlyWithoutPipes) {
  Program validator(validatorCommand());
  start(validator);
  EXPECT_TRUE(hasPipes());
  validator.terminate();
  const Finished ended = validator.finish();
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.err, "");
  EXPECT_FALSE(hasPipes());
}

TEST_F(ValidatorCommand, OnlyOneRunsInADeviceRoot) {
  Program validator(validatorCommand());
  start(validator);
  const Finished second = run(validatorCommand());
  EXPECT_EQ(second.status, kValidatorState);
  EXPECT_THAT(second.err, HasSubstr("a validator runs already"));
  EXPECT_EQ(ask(kGood), 1);
  validator.terminate();
  validator.finish();
}

TEST_F(ValidatorCommand, TakesOverThePipesOfAKilledValidator) {
  ASSERT_EQ(script("mkfifo /tmp/dotnet_pipe_in /tmp/dotnet_pipe_out").status, 0);
  Program validator(validatorCommand());
  start(validator);
  EXPECT_EQ(ask(kGood), 1);
  validator.terminate();
  validator.finish();
}

// Each answer goes to exactly one application.
TEST_F(ValidatorCommand, AnswersFiftyAtOnceOneEach) {
  Program validator(validatorCommand());
  start(validator);
  const Finished asked = script("i=0; while [ $i -lt 25 ]; do $ASK" + std::string(kGood) +
                                " & $ASK" + kBad + " & i=$((i+1)); done; wait");
  EXPECT_EQ(count(asked.out, "\"result\":1"), 25U);
  EXPECT_EQ(count(asked.out, "\"result\":0"), 25U);
  validator.terminate();
  const Finished ended = validator.finish();
  EXPECT_EQ(count(ended.out, "allowed "), 25U);
  EXPECT_EQ(count(ended.out, "refused "), 25U);
  EXPECT_THAT(ended.out, Not(HasSubstr("withdrawn")));
}

// Applications that take turns, as with `quillon launch --validate`, get the answer to their own
// request.
TEST_F(ValidatorCommand, FiftyInTurnsGetTheirOwnAnswersEach) {
  Program validator(validatorCommand());
  start(validator);
  const Finished asked = script(
      "ask() { echo \"$1: \"$(${ASK% *} take_turn validate_dll=$2); }; i=0; "
      "while [ $i -lt 25 ]; do ask good " +
      std::string(kGood) + " & ask bad " + kBad + " & i=$((i+1)); done; wait");
  const std::string turn = "{\"result\":true,\"step\":\"take_turn\"} {\"result\":";
  EXPECT_EQ(count(asked.out, "good: " + turn + "1,"), 25U) << asked.out;
  EXPECT_EQ(count(asked.out, "bad: " + turn + "0,"), 25U) << asked.out;
  validator.terminate();
  EXPECT_THAT(validator.finish().out, Not(HasSubstr("withdrawn")));
}

// The lock of the answer pipe tells launches that an answer to another request may still arrive.
TEST_F(ValidatorCommand, LocksTheAnswerPipeWhileItSendsAnAnswer) {
  Program validator(validatorCommand());
  start(validator);
  const int answers =
      open(onMachine("/tmp/dotnet_pipe_out").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  const auto isLocked = [&] {
    const bool locked = flock(answers, LOCK_SH | LOCK_NB) != 0;
    flock(answers, LOCK_UN);
    return locked;
  };
  EXPECT_FALSE(isLocked());
  std::ofstream(onMachine("/tmp/dotnet_pipe_in")) << "RequestForDllValidation:1:/a\n";
  EXPECT_TRUE(eventually(isLocked));
  std::array<char, 1023> answer{};
  EXPECT_TRUE(eventually([&] { return read(answers, answer.data(), answer.size()) > 0; }));
  EXPECT_TRUE(eventually([&] { return !isLocked(); }));
  close(answers);
  validator.terminate();
  validator.finish();
}

TEST_F(ValidatorCommand, AnswersAPathLongerThanOneRead) {
  std::string path = "/opt/usr/apps/good";
  for (int folder = 0; folder < 10; ++folder) {
    path += "/" + std::string(200, 'a');
  }
  put(path + "/a.dll");
  Program validator(validatorCommand());
  start(validator);
  EXPECT_EQ(ask(path + "/a.dll"), 1);
  EXPECT_EQ(ask(kBad), 0);
  validator.terminate();
  validator.finish();
}

TEST_F(ValidatorCommand, ReportsAndRefusesAMalformedRequest) {
  Program validator(validatorCommand());
  start(validator);
  const Finished asked = script(
      "exec 3<>/tmp/dotnet_pipe_out; printf 'RequestForDllValidation:x:/a\\n' "
      ">/tmp/dotnet_pipe_in; "
      "dd bs=1023 count=1 <&3 2>/dev/null");
  EXPECT_EQ(count(asked.out, "FAIL malformed"), 50U);
  EXPECT_EQ(count(asked.out, "\n"), 10U);
  EXPECT_EQ(ask(kGood), 1);
  validator.terminate();
  EXPECT_THAT(validator.finish().out,
              HasSubstr("malformed request 'RequestForDllValidation:x:/a': has no process id\n"));
}

// No process waits for these answers, so they must not stay in the pipe for the next requester.
TEST_F(ValidatorCommand, SendsNoAnswerIfNoProcessWaits) {
  Program validator(validatorCommand());
  start(validator);
  script("printf 'hello \\033[31m\\n' >/tmp/dotnet_pipe_in");
  EXPECT_EQ(ask(kGood), 1);
  script(
      "dead=$(sh -c 'echo $$'); "
      "printf \"RequestForDllValidation:$dead:" +
      std::string(kGood) + "\\n\" >/tmp/dotnet_pipe_in");
  EXPECT_EQ(ask(kBad), 0);
  validator.terminate();
  const std::string output = validator.finish().out;
  EXPECT_THAT(output, HasSubstr("malformed request 'hello ?[31m': does not begin with "));
  EXPECT_THAT(output, ::testing::ContainsRegex("not answered: process [0-9]+ no longer waits"));
}

TEST_F(ValidatorCommand, DiscardsTheAnswerToARequesterThatEnded) {
  Program validator(validatorCommand());
  start(validator);
  Program requester(
      commandOf({"device", "shell", device(), "--", "sh", "-c",
                 "exec 3<>/tmp/dotnet_pipe_out; "
                 "printf \"RequestForDllValidation:$$:" +
                     std::string(kGood) + "\\n\" >/tmp/dotnet_pipe_in; exec sleep 1000"}));
  requester.start();
  EXPECT_TRUE(validator.waitForOutput("allowed "));  // before it answers
  EXPECT_TRUE(awaitAnswerInPipe());
  requester.terminate();
  requester.finish();
  EXPECT_TRUE(validator.waitForOutput("discarded: no process read "));
  EXPECT_EQ(ask(kBad), 0);
  validator.terminate();
  validator.finish();
}

TEST_F(ValidatorCommand, APolicyWithAMistakeStartsNothing) {
  writeFile(policy(), "default = \"no\"\n");
  const Finished ended = run(validatorCommand());
  EXPECT_EQ(ended.status, kServiceFailed);
  EXPECT_THAT(ended.err, MatchesRegex("quillon: .*policy.toml:1: key 'default' .*; write .*\n"));
  EXPECT_FALSE(hasPipes());
}

// The paths of libraries are canonical, so such an entry would deny nothing.
TEST_F(ValidatorCommand, ADeniedPathThroughALinkStartsNothing) {
  fs::create_directory_symlink("good", onMachine("/opt/usr/apps/link"));
  writeFile(policy(), "default = \"allow\"\ndeny-paths = [\"/opt/usr/apps/link/a.dll\"]\n");
  const Finished ended = run(validatorCommand());
  EXPECT_EQ(ended.status, kServiceFailed);
  EXPECT_THAT(ended.err, HasSubstr("'/opt/usr/apps/link/a.dll' of deny-paths is "
                                   "'/opt/usr/apps/good/a.dll' by a symbolic link"));
  EXPECT_FALSE(hasPipes());
}

TEST_F(ValidatorCommand, AMissingPluginIsNamed) {
  std::vector<std::string> command = validatorCommand();
  command.insert(command.end(), {"--plugin", "/no/plugin.so"});
  const Finished ended = run(command);
  EXPECT_EQ(ended.status, kNoPlugin);
  EXPECT_THAT(ended.err, HasSubstr("/no/plugin.so"));
}

TEST_F(ValidatorCommand, ReportsWhyItCannotServe) {
  put("/tmp/dotnet_pipe_in/file");
  const Finished ended = run(validatorCommand(), {{"QUILLON_LOG", "none"}});
  EXPECT_EQ(ended.status, kServiceFailed);
  EXPECT_THAT(ended.err, HasSubstr("open error : /tmp/dotnet_pipe_in"));
  fs::remove_all(onMachine("/tmp/dotnet_pipe_in"));
  put("/tmp/dotnet_pipe_out/file");
  const Finished unanswering = run(validatorCommand(), {{"QUILLON_LOG", "none"}});
  EXPECT_EQ(unanswering.status, kServiceFailed);
  EXPECT_EQ(
      unanswering.err,
      "quillon: the plug-in's server could not create '/tmp/dotnet_pipe_out'; it logged: mkfifo "
      "failed; move the file of that name in the device root away\n");
  EXPECT_FALSE(fs::exists(onMachine("/tmp/dotnet_pipe_in")));
}

}  // namespace
}  // namespace quillon::test
