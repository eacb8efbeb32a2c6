// Files and links that another user puts at names in "/tmp" that the plug-in uses: the validator's
// pipes and the runtime's debugger pipes. The test's own process acts as the attacker, at the worst
// moment: inside the system calls of the code under test.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <functional>

#include "plugin/src/dotnet-policy-checker/dll_validation.h"
#include "plugin/src/quillon-tv-plugin/launch_services.h"
#include "tests/support/next_call.h"
#include "tests/system/validation/pipe_test.h"

namespace {

// What the attacker does. Empty functions do nothing.
struct Attacker {
  std::function<void(const char* path)> atMkfifo;    // instead of the call, which fails
  std::function<void(const char* path)> afterLstat;  // after the call
  std::function<void(const char* path)> afterOpen;
  uid_t uidOffset = 0;  // added to the result of geteuid
};
Attacker attacker;

// Runs the action, unless it is called by the action itself.
void run(const std::function<void(const char* path)>& action, const char* path) {
  static bool isRunning = false;
  if (action && !isRunning) {
    isRunning = true;
    const int error = errno;
    action(path);
    errno = error;
    isRunning = false;
  }
}

}  // namespace

extern "C" int mkfifo(const char* path, mode_t mode) noexcept {
  if (attacker.atMkfifo) {
    run(attacker.atMkfifo, path);
    errno = EEXIST;
    return -1;
  }
  return quillon::test::next<decltype(&mkfifo)>("mkfifo")(path, mode);
}

extern "C" int lstat(const char* path, struct stat* status) noexcept {
  const int result = quillon::test::next<decltype(&lstat)>("lstat")(path, status);
  run(attacker.afterLstat, path);
  return result;
}

extern "C" int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  using Open = int (*)(const char*, int, mode_t);
  const int result = quillon::test::next<Open>("open")(path, flags, mode);
  run(attacker.afterOpen, path);
  return result;
}

extern "C" uid_t geteuid() noexcept {
  return quillon::test::next<decltype(&geteuid)>("geteuid")() + attacker.uidOffset;
}

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned kDeadline = 60;  // seconds; a server that waits ends the test program
constexpr char kVictim[] = "/tmp/victim";

class SharedNames : public PipeTest {
 protected:
  void SetUp() override {
    PipeTest::SetUp();
    alarm(kDeadline);
    if (!IsSkipped()) {
      makeFile(kVictim, "precious\n");
      chmod(kVictim, 0600);
    }
  }
  void TearDown() override {
    attacker = {};
    alarm(0);
    unlink(kVictim);
    PipeTest::TearDown();
  }

  static void putLink(const char* path) {
    unlink(path);
    EXPECT_EQ(symlink(kVictim, path), 0) << path;
  }

  // Returns an action that replaces `path` by a link to the victim when the code under test has
  // just examined or opened it.
  static std::function<void(const char*)> swapOf(const char* path) {
    return [path](const char* used) {
      if (std::string(used) == path && fs::is_fifo(fs::symlink_status(path))) {
        putLink(path);
      }
    };
  }

  static mode_t modeOf(const char* path) {
    struct stat status {};
    EXPECT_EQ(stat(path, &status), 0) << path;
    return status.st_mode & 07777;
  }

  static void expectVictimUntouched() {
    EXPECT_EQ(modeOf(kVictim), 0600U);
    EXPECT_EQ(fs::file_size(kVictim), 9U);
  }
};

std::vector<std::string> received;
void receive(const char* text, void*) { received.emplace_back(text); }

TEST_F(SharedNames, TheServerChangesNoFileThatALinkInThePipesPlaceLeadsTo) {
  for (const bool early : {true, false}) {
    SCOPED_TRACE(early);
    platform().reset();
    attacker = {};
    attacker.atMkfifo = [](const char* path) { makePipe(path); };
    (early ? attacker.afterLstat : attacker.afterOpen) = [](const char* path) {
      swapOf(kRequestPipe)(path);
      swapOf(kAnswerPipe)(path);
    };
    received.clear();
    create_pipe_server(receive);
    expectVictimUntouched();
    EXPECT_THAT(received, IsEmpty());
    EXPECT_EQ(platform().messages(6).front(), "mkfifo failed");
  }
}

TEST_F(SharedNames, TheServerSetsNoLabelThroughALink) {
  attacker.atMkfifo = putLink;
  create_pipe_server(receive);
  expectVictimUntouched();
  EXPECT_THAT(platform().calls, IsEmpty());
}

// A hard link, on a machine that allows them to files of other users.
TEST_F(SharedNames, TheServerChangesNoFileThatHasASecondName) {
  attacker.atMkfifo = [](const char* path) { fs::create_hard_link(kVictim, path); };
  create_pipe_server(receive);
  expectVictimUntouched();
  EXPECT_THAT(platform().calls, IsEmpty());
}

TEST_F(SharedNames, TheServerChangesNoFileOfAnotherUser) {
  attacker.uidOffset = 1;
  attacker.atMkfifo = [](const char* path) {
    makeFile(path);
    chmod(path, 0600);
  };
  create_pipe_server(receive);
  EXPECT_EQ(modeOf(kRequestPipe), 0600U);
  EXPECT_EQ(modeOf(kAnswerPipe), 0600U);
  EXPECT_THAT(platform().calls, IsEmpty());
}

TEST_F(SharedNames, TheServerReadsNoFileThatALinkLeadsTo) {
  attacker.afterLstat = swapOf(kRequestPipe);
  received.clear();
  create_pipe_server(receive);
  EXPECT_THAT(received, IsEmpty());
  EXPECT_THAT(platform().messages(6), ElementsAre("open error : /tmp/dotnet_pipe_in"));
}

TEST_F(SharedNames, ARequestIsNotWrittenThroughALink) {
  makePipes();
  const OpenPipe answers(kAnswerPipe);
  answers.write("OK\n");
  attacker.afterLstat = swapOf(kRequestPipe);
  EXPECT_EQ(plugin_validate_dll(1, kVictim), 0);
  expectVictimUntouched();
  EXPECT_THAT(platform().linesOfOperations(),
              ::testing::Contains("6 plugin_validate_dll: pipe open error"));
}

TEST_F(SharedNames, AnAnswerIsNotReadThroughALink) {
  makePipes();
  attacker.afterLstat = swapOf(kAnswerPipe);
  EXPECT_EQ(plugin_validate_dll(1, kVictim), 0);
  EXPECT_THAT(platform().messages(6), ElementsAre("open error : /tmp/dotnet_pipe_out"));
}

TEST_F(SharedNames, AnAnswerIsNotWrittenThroughALink) {
  makePipes();
  attacker.afterLstat = swapOf(kAnswerPipe);
  create_pipe_client("OK");
  expectVictimUntouched();
  EXPECT_THAT(platform().messages(6), ElementsAre("Fail to open pipe"));
}

class DebuggerPipes : public SharedNames {
 protected:
  void TearDown() override {
    unlink(path().c_str());
    SharedNames::TearDown();
  }
  static std::string path() { return "/tmp/clr-debug-pipe-" + std::to_string(getpid()) + "-1-in"; }
  static void expectNoLabel() {
    handleDebugPipe();
    EXPECT_THAT(platform().calls, IsEmpty());
    EXPECT_THAT(platform().linesOfOperations(),
                ElementsAre("3 handleDebugPipe: handleDebugPipe called!!",
                            "6 handleDebugPipe: Fail to setxattr (" + path() + ")"));
  }
};

TEST_F(DebuggerPipes, NoLabelIsSetThroughALink) {
  fs::create_symlink(kVictim, path());
  expectNoLabel();
}

TEST_F(DebuggerPipes, NoLabelIsSetOnAFileWithASecondName) {
  fs::create_hard_link(kVictim, path());
  expectNoLabel();
}

TEST_F(DebuggerPipes, NoLabelIsSetOnAFileOfAnotherUser) {
  makePipe(path().c_str());
  attacker.uidOffset = 1;
  expectNoLabel();
}

TEST_F(DebuggerPipes, ALabelIsSetOnAFileOfOurOwn) {
  makePipe(path().c_str());
  handleDebugPipe();
  EXPECT_THAT(platform().labels, ElementsAre(::testing::Pair(path(), "*")));
}

TEST_F(DebuggerPipes, ALabelIsSetOnADirectoryOfOurOwn) {
  fs::create_directories(path() + "/folder");
  handleDebugPipe();
  EXPECT_THAT(platform().labels, ElementsAre(::testing::Pair(path(), "*")));
  fs::remove_all(path());
}

}  // namespace
}  // namespace quillon::test
