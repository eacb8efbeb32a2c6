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
#include "tests/system/launch/sample_device.h"

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
    if (contentOf(file).find(text) != std::string::npos) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

// A validator of a device root. It answers requests from the constructor to the destructor.
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
  bool prints(const std::string& text) const { return waitFor(output_, text); }
  void stop() const { kill(process_, SIGSTOP); }
  void resume() const { kill(process_, SIGCONT); }
  // Sends the signal and returns the exit status, or 128 + signal.
  int end(int signal) {
    if (process_ < 0) {
      return -1;
    }
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
    if (!IsSkipped()) {
      makeDevice();
    }
  }

  CommandResult launchValidated() const {
    return launch({kClock, "--validate", "--", "--exit", "3"});
  }

  // Waits until the request pipe contains more than `before` bytes, for ten seconds at most.
  // Returns the number of bytes.
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

  static void expectRefusal(const CommandResult& result, int status, const std::string& what,
                            const std::string& remedy) {
    EXPECT_EQ(result.status, status) << result.out;
    EXPECT_THAT(result.err, AllOf(StartsWith("quillon: "), HasSubstr(what), HasSubstr(remedy)));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_EQ(result.out, "");
  }
};

TEST_F(Validation, RequestsEachAssemblyOfTheApplicationTheExecutedOneFirst) {
  Validator validator(root(), fresh("v"), kAllowAll);
  write(at(std::string(kBin) + "Another.dll"), "x");
  const CommandResult result = launchValidated();
  EXPECT_EQ(result.status, 3) << result.err;
  EXPECT_EQ(result.err, "");
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

TEST_F(Validation, ALinkIsRefusedWithoutARequest) {
  Validator validator(root(), fresh("v"), kAllowAll);
  fs::create_symlink("SampleClock.dll", at(std::string(kBin) + "Link.dll"));
  expectRefusal(launchValidated(), kLibraryRefused, "Link.dll' is a symbolic link",
                "put the file itself");
}

// Otherwise a plan would look validated.
TEST_F(Validation, ExcludesAPlan) {
  const CommandResult result = launch({kClock, "--validate", "--plan"});
  EXPECT_EQ(result.status, kUsage);
  EXPECT_THAT(result.err,
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

// The validator received no request, so it did not refuse. It runs, so a second one would not
// start.
TEST_F(Validation, AFailureToSendARequestIsNotARefusal) {
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

// A launch that runs beside the test.
class BackgroundLaunch {
 public:
  BackgroundLaunch(const fs::path& device, const fs::path& errors)
      : errors_(errors), process_(errors.string() + ".process") {
    write(errors_, "");
    write(process_, "");
    const std::string script = "echo $$ >'" + process_.string() + "'; exec " + kQuillon +
                               " launch --device '" + device.string() + "' " + kClock +
                               " --validate -- --exit 3 2>>'" + errors_.string() + "'";
    result_ = std::async(std::launch::async, [script] {
      return run({"sh", "-c", script}, {"QUILLON_LOG=none"});
    });
  }
  bool prints(const std::string& text) const { return waitFor(errors_, text); }
  int status() { return result_.get().status; }
  void interrupt() {
    kill(std::stoi(contentOf(process_)), SIGKILL);
    result_.wait();
  }

 private:
  fs::path errors_;
  fs::path process_;
  std::future<CommandResult> result_;
};

TEST_F(Validation, ReportsItsWaitAndEndsIfTheValidatorEnds) {
  Validator validator(root(), fresh("v"), kAllowAll);
  validator.stop();
  BackgroundLaunch launch(root(), fresh("errors"));
  const std::string subject = "'" + std::string(kBin) + "SampleClock.dll'; ";
  EXPECT_TRUE(launch.prints("quillon: waiting for the validator's answer about " + subject));
  validator.end(SIGKILL);
  EXPECT_EQ(launch.status(), kValidatorState);
  EXPECT_TRUE(launch.prints("quillon: the validator ended without an answer about " + subject));
}

// Otherwise the next launch would read the answer to the request of the interrupted one, and its
// own last answer, a refusal, would remain unread.
TEST_F(Validation, AnInterruptedLaunchLeavesNoAnswerForTheNext) {
  const std::string refused = std::string(kBin) + "fr";
  Validator validator(root(), fresh("v"), kAllowAll + ("deny-paths = [\"" + refused + "\"]\n"));
  validator.stop();
  BackgroundLaunch interrupted(root(), fresh("errors-a"));
  const int first = requestBytesBeyond(0);
  interrupted.interrupt();
  BackgroundLaunch next(root(), fresh("errors-b"));
  EXPECT_GT(requestBytesBeyond(first), first);
  validator.resume();
  EXPECT_EQ(next.status(), kLibraryRefused);
  EXPECT_TRUE(next.prints(refused + "/SampleClock.resources.dll'"));
  EXPECT_THAT(validator.output(),
              ::testing::ContainsRegex("not answered: process [0-9]+ no longer waits"));
}

// The failure must not blame the validator or its pipes.
TEST_F(Validation, TheFailureNamesAnAssemblyThatWasRemovedMeanwhile) {
  Validator validator(root(), fresh("v"), kAllowAll);
  const std::string another = std::string(kBin) + "Another.dll";
  write(at(another), "x");
  validator.stop();
  BackgroundLaunch launch(root(), fresh("errors"));
  requestBytesBeyond(0);  // the folders were listed before the first question
  fs::remove(at(another));
  validator.resume();
  EXPECT_EQ(launch.status(), kLibraryRefused);
  EXPECT_TRUE(launch.prints("quillon: cannot resolve the assembly '" + another +
                            "': No such file or directory; see that it and the folders"));
}

// A launch that locks the request pipe, sends one request and never reads the answer.
class StuckLaunch {
 public:
  StuckLaunch(const fs::path& requestPipe, const fs::path& answerPipe, const std::string& library)
      : process_(fork()) {
    if (process_ != 0) {
      return;
    }
    const int requests = open(requestPipe.c_str(), O_WRONLY | O_NONBLOCK);
    const bool isOpen = open(answerPipe.c_str(), O_RDWR) >= 0 && flock(requests, LOCK_EX) == 0;
    const std::string request =
        "RequestForDllValidation:" + std::to_string(getpid()) + ":" + library + "\n";
    if (!isOpen || ::write(requests, request.data(), request.size()) < 0) {
      _exit(1);
    }
    while (true) {
      pause();
    }
  }
  // Does not wait for the process, so its id remains in use.
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

// Answers do not name their request: only one launch at a time may wait for one, and a launch must
// not read an answer to an earlier launch.
TEST_F(Validation, LaunchesTakeTurnsAndReadOnlyTheirOwnAnswers) {
  Validator validator(root(), fresh("v"), kAllowAll + std::string("deny-paths = [\"/opt/old\"]\n"));
  write(at("/opt/old/a.dll"), "x");
  const StuckLaunch first(at("/tmp/dotnet_pipe_in"), at("/tmp/dotnet_pipe_out"), "/opt/old/a.dll");
  EXPECT_TRUE(validator.prints("refused /opt/old/a.dll"));
  BackgroundLaunch second(root(), fresh("errors"));
  EXPECT_TRUE(second.prints("another launch, whose turn it is"));
  EXPECT_THAT(validator.output(), Not(HasSubstr("SampleClock.dll")));
  first.kill();
  EXPECT_EQ(second.status(), 3);
  EXPECT_THAT(validator.output(), HasSubstr("discarded: no process read the answer"));
  EXPECT_THAT(validator.output(), HasSubstr("allowed " + std::string(kBin) + "SampleClock.dll"));
}

TEST_F(Validation, WaitsUntilAnEarlierAnswerIsWithdrawn) {
  Validator validator(root(), fresh("v"), kAllowAll);
  const int answers = open(at("/tmp/dotnet_pipe_out").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(answers, LOCK_EX), 0);
  BackgroundLaunch launch(root(), fresh("errors"));
  EXPECT_TRUE(launch.prints("quillon: waiting until the validator takes back an answer"));
  EXPECT_EQ(validator.output(), "validator ready\n");
  close(answers);
  EXPECT_EQ(launch.status(), 3);
}

}  // namespace
}  // namespace quillon::test
