// quillon launch --validate, with quillon validator beside it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

#include "quillon/base/exit_status.h"
#include "tests/launch/sample_device.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

constexpr char kQuillon[] = QUILLON_BUILD_DIRECTORY "/bin/quillon";
constexpr char kBin[] = "/opt/usr/apps/org.velora.sample.clock/bin/";
constexpr char kAllowAll[] = "default = \"allow\"\n";

// Waits until a file holds a text, for half a minute at most.
bool waitFor(const fs::path& file, const std::string& text) {
  for (int look = 0; look < 6000; ++look) {
    if (contentOf(file).find(text) != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

// A validator of a device root that answers from the constructor to the destructor.
class Validator {
 public:
  Validator(const fs::path& device, const fs::path& folder, const std::string& policy)
      : output_(folder / "validator.out") {
    write(folder / "policy.toml", policy);
    write(output_, "");
    const std::string policyFile = folder / "policy.toml";
    process_ = fork();
    if (process_ == 0) {
      const int out = open(output_.c_str(), O_WRONLY | O_APPEND);
      dup2(out, STDOUT_FILENO);
      dup2(out, STDERR_FILENO);
      setenv("QUILLON_LOG", "none", 1);
      execl(kQuillon, kQuillon, "validator", "--device", device.c_str(), policyFile.c_str(),
            nullptr);
      _exit(127);
    }
    EXPECT_TRUE(waitFor(output_, "validator ready\n")) << contentOf(output_);
  }
  ~Validator() { end(SIGINT); }
  Validator(const Validator&) = delete;
  Validator& operator=(const Validator&) = delete;

  std::string output() const { return contentOf(output_); }
  bool says(const std::string& text) const { return waitFor(output_, text); }
  void stop() const { kill(process_, SIGSTOP); }
  void resume() const { kill(process_, SIGCONT); }
  // Its exit status, or 128 + signal.
  int end(int signal) {
    if (process_ < 0) return -1;
    int status = 0;
    kill(process_, signal);
    waitpid(process_, &status, 0);
    process_ = -1;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  }

 private:
  fs::path output_;
  pid_t process_ = -1;
};

class Validation : public RuntimeTest {
 protected:
  void SetUp() override {
    RuntimeTest::SetUp();
    if (!IsSkipped()) makeDevice();
  }

  Ending launchValidated() const { return launch({kClock, "--validate", "--", "--exit", "3"}); }

  // Waits until more bytes than these are unread in the request pipe, for ten seconds at most.
  int requestBytesBeyond(int before) const {
    const int pipe = open(at("/tmp/dotnet_pipe_in").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    int unread = before;
    for (int look = 0; look < 2000 && unread <= before; ++look) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      EXPECT_EQ(ioctl(pipe, FIONREAD, &unread), 0);
    }
    close(pipe);
    return unread;
  }

  static void expectRefusal(const Ending& ending, int status, const std::string& what,
                            const std::string& remedy) {
    EXPECT_EQ(ending.status, status) << ending.out;
    EXPECT_THAT(ending.err, AllOf(StartsWith("quillon: "), HasSubstr(what), HasSubstr(remedy)));
    EXPECT_EQ(std::count(ending.err.begin(), ending.err.end(), '\n'), 1) << ending.err;
    EXPECT_EQ(ending.out, "");
  }
};

TEST_F(Validation, AsksAboutEachAssemblyOfTheApplicationMainOneFirst) {
  Validator validator(root(), fresh("v"), kAllowAll);
  write(at(std::string(kBin) + "Another.dll"), "x");
  const Ending ending = launchValidated();
  EXPECT_EQ(ending.status, 3) << ending.err;
  EXPECT_EQ(ending.err, "");
  const std::string bin = kBin;
  EXPECT_THAT(validator.output(),
              MatchesRegex("validator ready\n"
                           "allowed " +
                           bin +
                           "SampleClock.dll to process [0-9]+: by default\n"
                           "allowed " +
                           bin +
                           "Another.dll to process [0-9]+: by default\n"
                           "allowed " +
                           bin +
                           "de/SampleClock.resources.dll to process [^\n]+\n"
                           "allowed " +
                           bin + "fr/SampleClock.resources.dll to process [^\n]+\n"));
  EXPECT_EQ(validator.end(SIGINT), 0);
  EXPECT_FALSE(fs::exists(at("/tmp/dotnet_pipe_in")));
  EXPECT_FALSE(fs::exists(at("/tmp/dotnet_pipe_out")));
}

TEST_F(Validation, ARefusedAssemblyIsNamedAndNothingRuns) {
  const std::string refused = std::string(kBin) + "fr";
  Validator validator(root(), fresh("v"), kAllowAll + ("deny-paths = [\"" + refused + "\"]\n"));
  expectRefusal(launchValidated(), kLibraryRefused,
                "the validator refused the assembly '" + refused + "/SampleClock.resources.dll'",
                "validator's policy");
}

TEST_F(Validation, ALinkIsRefusedUnasked) {
  Validator validator(root(), fresh("v"), kAllowAll);
  fs::create_symlink("SampleClock.dll", at(std::string(kBin) + "Link.dll"));
  expectRefusal(launchValidated(), kLibraryRefused, "Link.dll' is a symbolic link",
                "put the file itself");
}

// A plan that was not validated may not look as if it was.
TEST_F(Validation, IsNoPartOfAPlan) {
  const Ending ending = launch({kClock, "--validate", "--plan"});
  EXPECT_EQ(ending.status, kUsage);
  EXPECT_THAT(ending.err,
              AllOf(HasSubstr("--plan"), HasSubstr("excludes"), HasSubstr("--validate")));
}

TEST_F(Validation, NeedsAValidator) {
  expectRefusal(launchValidated(), kValidatorState, "none runs in this device root",
                "quillon validator --device DIR POLICY.toml");
  Validator validator(root(), fresh("v"), kAllowAll);
  EXPECT_EQ(validator.end(SIGKILL), 128 + SIGKILL);
  EXPECT_TRUE(fs::exists(at("/tmp/dotnet_pipe_in")));
  expectRefusal(launchValidated(), kValidatorState, "only its pipes are there",
                "quillon validator --device DIR POLICY.toml");
  write(at("/tmp/plain"), "");
  fs::rename(at("/tmp/plain"), at("/tmp/dotnet_pipe_in"));
  expectRefusal(launchValidated(), kValidatorState, "is no pipe", "quillon validator");
}

// The validator was not asked, so it is not the one that refused; and it runs, so a second one
// would not start.
TEST_F(Validation, WhatThePluginCouldNotAskIsNoRefusalOfTheValidators) {
  Validator validator(root(), fresh("v"), kAllowAll);
  fs::remove(at("/tmp/dotnet_pipe_out"));
  expectRefusal(launchValidated(), kValidatorState,
                "cannot ask a validator: open error : /tmp/dotnet_pipe_out",
                "end the validator that runs and start one: quillon validator");
}

TEST_F(Validation, AFolderThatCannotBeListedIsARefusal) {
  Validator validator(root(), fresh("v"), kAllowAll);
  const fs::path library = fs::path(kBin).parent_path().parent_path() / "lib";
  fs::remove_all(at(library));
  fs::create_directory_symlink("lib", at(library));  // a link to itself
  expectRefusal(launchValidated(), kLibraryRefused,
                "cannot list the folder '" + library.string() + "'", "make it readable");
}

// A launch that goes on while the test looks on.
class LaunchUnderWay {
 public:
  LaunchUnderWay(const fs::path& device, const fs::path& errors)
      : errors_(errors), process_(errors.string() + ".process") {
    write(errors_, "");
    write(process_, "");
    const std::string script = "echo $$ >'" + process_.string() + "'; exec " + kQuillon +
                               " launch --device '" + device.string() + "' " + kClock +
                               " --validate -- --exit 3 2>>'" + errors_.string() + "'";
    ending_ = std::async(std::launch::async, [script] {
      return run({"sh", "-c", script}, {"QUILLON_LOG=none"});
    });
  }
  bool says(const std::string& text) const { return waitFor(errors_, text); }
  int status() { return ending_.get().status; }
  void interrupt() {
    kill(std::stoi(contentOf(process_)), SIGKILL);
    ending_.wait();
  }

 private:
  fs::path errors_;
  fs::path process_;
  std::future<Ending> ending_;
};

TEST_F(Validation, DoesNotWaitInSilenceNorForADeadValidator) {
  Validator validator(root(), fresh("v"), kAllowAll);
  validator.stop();
  LaunchUnderWay launch(root(), fresh("errors"));
  const std::string subject = "'" + std::string(kBin) + "SampleClock.dll'; ";
  EXPECT_TRUE(launch.says("quillon: waiting for the validator's answer about " + subject));
  validator.end(SIGKILL);
  EXPECT_EQ(launch.status(), kValidatorState);
  EXPECT_TRUE(launch.says("quillon: the validator ended without an answer about " + subject));
}

// Or the answer to the request that it left behind would go to the next launch, and its last one be
// left over: a refusal that nobody reads.
TEST_F(Validation, AnInterruptedLaunchLeavesNoAnswerToTheNext) {
  const std::string refused = std::string(kBin) + "fr";
  Validator validator(root(), fresh("v"), kAllowAll + ("deny-paths = [\"" + refused + "\"]\n"));
  validator.stop();
  LaunchUnderWay interrupted(root(), fresh("errors-a"));
  const int first = requestBytesBeyond(0);
  interrupted.interrupt();
  LaunchUnderWay next(root(), fresh("errors-b"));
  EXPECT_GT(requestBytesBeyond(first), first);
  validator.resume();
  EXPECT_EQ(next.status(), kLibraryRefused);
  EXPECT_TRUE(next.says(refused + "/SampleClock.resources.dll'"));
  EXPECT_THAT(validator.output(),
              ::testing::ContainsRegex("not answered: process [0-9]+ no longer waits"));
}

// Neither the validator nor its pipes are at fault.
TEST_F(Validation, AnAssemblyThatWentAwayMeanwhileIsNamed) {
  Validator validator(root(), fresh("v"), kAllowAll);
  const std::string another = std::string(kBin) + "Another.dll";
  write(at(another), "x");
  validator.stop();
  LaunchUnderWay launch(root(), fresh("errors"));
  requestBytesBeyond(0);  // the folders were listed before the first question
  fs::remove(at(another));
  validator.resume();
  EXPECT_EQ(launch.status(), kLibraryRefused);
  EXPECT_TRUE(launch.says("quillon: cannot resolve the assembly '" + another +
                          "': No such file or directory; see that it and the folders"));
}

// A launch that takes its turn, asks about one library and never reads the answer.
class StuckLaunch {
 public:
  StuckLaunch(const fs::path& requestPipe, const fs::path& answerPipe, const std::string& library)
      : process_(fork()) {
    if (process_ != 0) return;
    const int requests = open(requestPipe.c_str(), O_WRONLY | O_NONBLOCK);
    const bool isOpen = open(answerPipe.c_str(), O_RDWR) >= 0 && flock(requests, LOCK_EX) == 0;
    const std::string request =
        "RequestForDllValidation:" + std::to_string(getpid()) + ":" + library + "\n";
    if (!isOpen || ::write(requests, request.data(), request.size()) < 0) _exit(1);
    while (true) pause();
  }
  // Not waited for before the end: its id stays taken.
  void kill() const { ::kill(process_, SIGKILL); }
  ~StuckLaunch() {
    kill();
    waitpid(process_, nullptr, 0);
  }
  StuckLaunch(const StuckLaunch&) = delete;
  StuckLaunch& operator=(const StuckLaunch&) = delete;

 private:
  pid_t process_;
};

// Answers carry no name: only one launch at a time may wait for one, and what the one before did
// not read may not be the answer to the next.
TEST_F(Validation, LaunchesTakeTurnsAndNobodyElsesAnswer) {
  Validator validator(root(), fresh("v"), kAllowAll + std::string("deny-paths = [\"/opt/old\"]\n"));
  write(at("/opt/old/a.dll"), "x");
  const StuckLaunch first(at("/tmp/dotnet_pipe_in"), at("/tmp/dotnet_pipe_out"), "/opt/old/a.dll");
  EXPECT_TRUE(validator.says("refused /opt/old/a.dll"));
  LaunchUnderWay second(root(), fresh("errors"));
  EXPECT_TRUE(second.says("another launch, whose turn it is"));
  EXPECT_THAT(validator.output(), Not(HasSubstr("SampleClock.dll")));
  first.kill();
  EXPECT_EQ(second.status(), 3);
  EXPECT_THAT(validator.output(), HasSubstr("discarded: no process read the answer"));
  EXPECT_THAT(validator.output(), HasSubstr("allowed " + std::string(kBin) + "SampleClock.dll"));
}

TEST_F(Validation, WaitsUntilAnAnswerThatIsUnderWayIsGone) {
  Validator validator(root(), fresh("v"), kAllowAll);
  const int answers = open(at("/tmp/dotnet_pipe_out").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(answers, LOCK_EX), 0);
  LaunchUnderWay launch(root(), fresh("errors"));
  EXPECT_TRUE(launch.says("quillon: waiting until the validator takes back an answer"));
  EXPECT_EQ(validator.output(), "validator ready\n");
  close(answers);
  EXPECT_EQ(launch.status(), 3);
}

}  // namespace
}  // namespace quillon::test
