// The front of the program executes the full program of its own installation, whatever the caller's
// environment says, with what the caller gave it and nothing else.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>

#include "quillon/base/files.h"
#include "quillon/launchpad/protocol/address.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/state/inspection_proof.h"
#include "tests/support/program.h"
#include "tests/support/temporary_directory.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

// A launch pad that declines every launch. `onRequest` is called before with the client's id.
class DecliningLaunchpad {
 public:
  explicit DecliningLaunchpad(
      const fs::path& device, std::function<void(pid_t)> onRequest = [](pid_t) {})
      : onRequest_(std::move(onRequest)) {
    proof_ = launchpad::openInspectionProof();
    auto listener = launchpad::listenAt(launchpad::addressOf(device), device);
    listener_ = listener ? *std::move(listener) : Descriptor();
    thread_ = std::thread([this] { serve(); });
  }
  ~DecliningLaunchpad() { end(); }
  DecliningLaunchpad(const DecliningLaunchpad&) = delete;
  DecliningLaunchpad& operator=(const DecliningLaunchpad&) = delete;

  // Returns the number of requests.
  int end() {
    isEnding_ = true;
    if (thread_.joinable()) {
      thread_.join();
    }
    listener_.reset();
    return requests_;
  }

 private:
  void serve() {
    while (!isEnding_) {
      pollfd waiting{listener_.get(), POLLIN, 0};
      ::poll(&waiting, 1, 20);
      const Descriptor client = launchpad::acceptFrom(listener_.get());
      if (client) {
        decline(client);
      }
    }
  }
  void decline(const Descriptor& client) {
    pollfd readable{client.get(), POLLIN, 0};
    ::poll(&readable, 1, 10'000);
    launchpad::Message message;
    if (launchpad::receiveMessageNow(client.get(), message) == launchpad::Received::kMessage &&
        message.kind == launchpad::MessageKind::kLaunch) {
      ++requests_;
      onRequest_(launchpad::processOfPeer(client.get()));
      launchpad::sendDecline(client.get(), {"declined", "", true});
    }
  }

  std::function<void(pid_t)> onRequest_;
  Descriptor proof_;
  Descriptor listener_;
  std::atomic<bool> isEnding_ = false;
  std::atomic<int> requests_ = 0;
  std::thread thread_;
};

// An installation with the real front. Its full program prints what it inherits.
class Front : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(front_.parent_path());
    fs::create_directories(full_.parent_path());
    fs::create_directories(device());
    fs::copy_file(QUILLON_COMMAND, front_);
    fs::copy_file(QUILLON_PRINTS_STATE, full_);
  }

  [[nodiscard]] fs::path device() const { return folder_.path() / "device"; }
  [[nodiscard]] std::vector<std::string> launch() const {
    return {"launch", "--device", device().string(), "clock", "--", "a b", ""};
  }

  // Runs a program with argv[0] of the caller's choice, after `prepare` in its process.
  Finished runAs(
      const fs::path& program, const std::string& name, const std::vector<std::string>& arguments,
      const std::function<void()>& prepare = [] {}) {
    const fs::path out = folder_.path() / "out";
    const pid_t child = fork();
    if (child == 0) {
      dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
      dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600), STDOUT_FILENO);
      dup2(STDOUT_FILENO, STDERR_FILENO);
      // What the caller of the test has open would be inherited, too.
      close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
      prepare();
      std::vector<char*> words = {const_cast<char*>(name.c_str())};
      for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
      }
      words.push_back(nullptr);
      execv(program.c_str(), words.data());
      _exit(126);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status),
            contentsOf(out.string()), ""};
  }

  TemporaryDirectory folder_;
  const fs::path front_ = folder_.path() / "tree/bin/quillon";
  const fs::path full_ = folder_.path() / "tree/libexec/quillon";
};

// What an unusual caller hands down.
void becomeUnusualCaller() {
  umask(027);
  signal(SIGHUP, SIG_IGN);
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  sigprocmask(SIG_BLOCK, &blocked, nullptr);
  setenv("DOTNET_TieredPGO", "0", 1);
  dup2(STDIN_FILENO, 90);
}

TEST_F(Front, HandsDownWhatItGotAndNothingElse) {
  DecliningLaunchpad launchpad(device());
  const Finished expected = runAs(full_, "its own name", launch(), becomeUnusualCaller);
  ASSERT_EQ(expected.status, 0) << expected.out;
  ASSERT_THAT(expected.out, HasSubstr("argument 0: its own name\n"));
  const Finished declined = runAs(front_, "its own name", launch(), becomeUnusualCaller);
  EXPECT_EQ(declined.out, expected.out);
  EXPECT_EQ(launchpad.end(), 1);
  const Finished alone = runAs(front_, "its own name", launch(), becomeUnusualCaller);
  EXPECT_EQ(alone.out, expected.out);
  const std::vector<std::string> other = {"ps", "--json"};
  EXPECT_EQ(runAs(front_, "q", other).out, runAs(full_, "q", other).out);
}

TEST_F(Front, ExecutesTheFullProgramOfItsOwnFolderOnly) {
  const fs::path hostile = folder_.path() / "hostile";
  fs::create_directories(hostile / "bin");
  fs::create_directories(hostile / "libexec");
  writeFile((hostile / "libexec/quillon").string(), "#!/bin/sh\necho hostile\n");
  fs::permissions(hostile / "libexec/quillon", fs::perms::owner_all);
  fs::create_symlink(front_, hostile / "bin/quillon");
  const auto enter = [&] {
    setenv("PATH", (hostile / "libexec").c_str(), 1);
    setenv("LD_LIBRARY_PATH", (hostile / "libexec").c_str(), 1);
    EXPECT_EQ(chdir((hostile / "bin").c_str()), 0);
  };
  for (const fs::path& program : {front_, hostile / "bin/quillon"}) {
    const Finished launched = runAs(program, (hostile / "bin/quillon").string(), launch(), enter);
    EXPECT_THAT(launched.out, HasSubstr("file: " + full_.string() + "\n"));
    EXPECT_THAT(launched.out, Not(HasSubstr("hostile\n")));
  }
}

TEST_F(Front, EndsByASignalThatComesWhileItAsks) {
  DecliningLaunchpad launchpad(device(), [](pid_t client) { kill(client, SIGTERM); });
  const Finished interrupted = runAs(front_, "quillon", launch());
  EXPECT_EQ(interrupted.status, 128 + SIGTERM);
  EXPECT_EQ(interrupted.out, "");
  EXPECT_EQ(launchpad.end(), 1);
}

TEST_F(Front, ReportsAMissingFullProgram) {
  fs::remove(full_);
  const Finished failed = runAs(front_, "quillon", launch());
  constexpr int kServiceFailed = 112;
  EXPECT_EQ(failed.status, kServiceFailed);
  EXPECT_EQ(failed.out, "quillon: cannot execute '" + full_.string() +
                            "': No such file or directory; install quillon again\n");
}

// The full program does not ask a second time. The folder is no device root, which only it says.
TEST_F(Front, AsksOnce) {
  DecliningLaunchpad launchpad(device());
  const Finished failed = runAs(QUILLON_COMMAND, "quillon", launch());
  constexpr int kNoDeviceRoot = 101;
  EXPECT_EQ(failed.status, kNoDeviceRoot) << failed.out;
  EXPECT_EQ(launchpad.end(), 1);
}

}  // namespace
}  // namespace quillon::test
