// Tests of the validator's side, create_pipe_server and create_pipe_client. The test is the client.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <fstream>
#include <mutex>
#include <thread>

#include "plugin/src/dotnet-policy-checker/dll_validation.h"
#include "tests/support/open_descriptors.h"
#include "tests/system/validation/pipe_test.h"

namespace {

// Replacements for mkfifo(3) and chmod(2). By default both are forwarded.
int (*pipeMaker)(const char*) = nullptr;
bool modeChangesFail = false;

}  // namespace

extern "C" int mkfifo(const char* path, mode_t mode) noexcept {
  if (pipeMaker != nullptr) {
    return pipeMaker(path);
  }
  return static_cast<int>(syscall(SYS_mknodat, AT_FDCWD, path, S_IFIFO | mode, 0));
}

extern "C" int chmod(const char* path, mode_t mode) noexcept {
  if (modeChangesFail) {
    return -1;
  }
  return static_cast<int>(syscall(SYS_fchmodat, AT_FDCWD, path, mode));
}

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;

struct Stop {};
constexpr char kStop[] = "stop";

// The texts that the server passed to the callback, in order.
class Received {
 public:
  void add(const char* text) {
    const std::lock_guard lock(mutex_);
    texts_.emplace_back(text);
    changed_.notify_all();
  }
  std::vector<std::string> waitFor(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return texts_.size() >= count; });
    return texts_;
  }
  void clear() { texts_.clear(); }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> texts_;
};

Received received;
bool userDataWasNull = true;

void onText(const char* text, void* userData) {
  userDataWasNull = userDataWasNull && userData == nullptr;
  if (std::string(text) == kStop) {
    throw Stop();
  }
  received.add(text);
}

// Runs create_pipe_server in a separate thread until the text "stop" arrives.
class Server {
 public:
  Server()
      : thread_([] {
          try {
            create_pipe_server(onText);
          } catch (const Stop&) {
          }
        }) {
    while (!isOpen()) {
      std::this_thread::yield();
    }
  }
  ~Server() {
    {
      const OpenPipe requests(kRequestPipe);
      requests.write(kStop);
      thread_.join();
    }
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

 private:
  // Returns true if a process reads the pipe, which means that the server has set up everything.
  static bool isOpen() {
    const int writer = open(kRequestPipe, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat status {};
    const bool isPipe = fstat(writer, &status) == 0 && S_ISFIFO(status.st_mode);
    if (writer >= 0) {
      close(writer);
    }
    return isPipe;
  }

  std::thread thread_;
};

class PipeServer : public PipeTest {
 protected:
  void SetUp() override {
    PipeTest::SetUp();
    received.clear();
    userDataWasNull = true;
    g_callback = nullptr;
  }
  void TearDown() override {
    pipeMaker = nullptr;
    modeChangesFail = false;
    PipeTest::TearDown();
  }
};

struct stat statusOf(const char* path) {
  struct stat status {};
  EXPECT_EQ(lstat(path, &status), 0) << path;
  return status;
}

TEST_F(PipeServer, MakesBothPipesForEveryUserAndLabel) {
  const mode_t before = umask(077);
  {
    const Server server;
    for (const char* path : {kRequestPipe, kAnswerPipe}) {
      EXPECT_TRUE(S_ISFIFO(statusOf(path).st_mode)) << path;
      EXPECT_EQ(statusOf(path).st_mode & 07777, 0666U) << path;
      EXPECT_EQ(platform().labels[path], "*") << path;
    }
  }
  umask(before);
  EXPECT_THAT(platform().calls, ElementsAre("smack_setlabel(/tmp/dotnet_pipe_in, *, 0)",
                                            "smack_setlabel(/tmp/dotnet_pipe_out, *, 0)"));
  EXPECT_EQ(g_callback, &onText);
}

// Returns the descriptors of this process that are open for a file and that programs inherit.
std::vector<std::string> inheritedDescriptorsOf(const std::string& path) {
  std::vector<std::string> inherited;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const int number = std::stoi(entry.path().filename());
    if (fs::read_symlink(entry, gone) == path && (fcntl(number, F_GETFD) & FD_CLOEXEC) == 0) {
      inherited.push_back(entry.path());
    }
  }
  return inherited;
}

TEST_F(PipeServer, ProgramsDoNotInheritItsPipe) {
  const Server server;
  EXPECT_THAT(inheritedDescriptorsOf(kRequestPipe), IsEmpty());
}

TEST_F(PipeServer, HandsOutWhatItReadsWithoutTheLastLineEnd) {
  {
    const Server server;
    const OpenPipe requests(kRequestPipe);
    requests.write("one\n");
    EXPECT_THAT(received.waitFor(1), ElementsAre("one"));
    requests.write("two\nthree\n\n");
    EXPECT_THAT(received.waitFor(2), ElementsAre("one", "two\nthree\n"));
    requests.write("no end");
    received.waitFor(3);
  }
  EXPECT_THAT(received.waitFor(3), ElementsAre("one", "two\nthree\n", "no end"));
  EXPECT_TRUE(userDataWasNull);
  EXPECT_THAT(platform().messages(4),
              ElementsAre("Message To DllValidator : one", "Message To DllValidator : two\nthree\n",
                          "Message To DllValidator : no end", "Message To DllValidator : stop"));
  EXPECT_THAT(platform().linesOfOperations(),
              Contains("4 create_pipe_server: Message To DllValidator : one"));
  EXPECT_THAT(platform().trace, Contains(HasSubstr("void create_pipe_server(")));
  EXPECT_THAT(platform().messages(6), IsEmpty());
}

TEST_F(PipeServer, GoesOnWhenAClientClosesItsEnd) {
  const Server server;
  for (const char* text : {"one\n", "two\n"}) {
    const std::size_t before = received.waitFor(0).size();
    const int writer = open(kRequestPipe, O_WRONLY);
    EXPECT_EQ(write(writer, text, 4), 4);
    close(writer);
    EXPECT_EQ(received.waitFor(before + 1).size(), before + 1);
  }
}

TEST_F(PipeServer, ReadsAtMost1023BytesAtOnce) {
  const Server server;
  const OpenPipe requests(kRequestPipe);
  requests.write(std::string(1023, 'a') + std::string(1022, 'b') + "\n" + "c");
  EXPECT_THAT(received.waitFor(3),
              ElementsAre(std::string(1023, 'a'), std::string(1022, 'b'), "c"));
}

TEST_F(PipeServer, ReplacesAnyExistingFile) {
  makeFile("/opt/usr/target", "kept");
  fs::create_symlink("/opt/usr/target", kRequestPipe);
  makeFile(kAnswerPipe, "old");
  const Server server;
  EXPECT_TRUE(S_ISFIFO(statusOf(kRequestPipe).st_mode));
  EXPECT_TRUE(S_ISFIFO(statusOf(kAnswerPipe).st_mode));
  EXPECT_EQ(fs::file_size("/opt/usr/target"), 4U);
}

TEST_F(PipeServer, GoesOnWhenTheModeCannotBeChanged) {
  modeChangesFail = true;
  { const Server server; }
  EXPECT_THAT(platform().messages(6), ElementsAre("chmod failed.", "chmod failed."));
  EXPECT_EQ(statusOf(kAnswerPipe).st_mode & 07777, 0644U & ~022U);
}

TEST_F(PipeServer, GoesOnWhenTheLabelCannotBeSet) {
  platform().failures["smack_setlabel"] = -1;
  { const Server server; }
  EXPECT_THAT(platform().messages(6),
              ElementsAre("Fail to set smack label\n : /tmp/dotnet_pipe_in : *",
                          "Fail to set smack label\n : /tmp/dotnet_pipe_out : *"));
  EXPECT_EQ(statusOf(kRequestPipe).st_mode & 07777, 0666U);
}

TEST_F(PipeServer, GivesUpIfThereIsNoRequestPipe) {
  pipeMaker = [](const char*) { return -1; };
  modeChangesFail = true;
  create_pipe_server(onText);
  EXPECT_THAT(platform().messages(6),
              ElementsAre("mkfifo failed", "chmod failed.", "mkfifo failed", "chmod failed.",
                          "open error : /tmp/dotnet_pipe_in"));
  EXPECT_THAT(
      platform().linesOfOperations(),
      IsSupersetOf({"6 create_pipe_server: mkfifo failed", "6 create_pipe_server: chmod failed."}));
  EXPECT_EQ(platform().calls.size(), 2U);
  EXPECT_EQ(g_callback, &onText);
}

TEST_F(PipeServer, ContinuesIfItCannotReplaceADirectory) {
  makeFile(std::string(kAnswerPipe) + "/folder/file");
  chmod(kAnswerPipe, 0700);
  { const Server server; }
  EXPECT_THAT(platform().messages(6), ElementsAre("mkfifo failed"));
  EXPECT_EQ(statusOf(kAnswerPipe).st_mode & 07777, 0666U);
  EXPECT_EQ(platform().labels[kAnswerPipe], "*");
}

// Another process can put a file into the pipe's place when the server has found none.
TEST_F(PipeServer, ChangesNothingByTheNameOfAPipeThatIsNotThere) {
  pipeMaker = [](const char*) { return -1; };
  create_pipe_server(onText);
  EXPECT_THAT(platform().calls, Each(Not(HasSubstr("/tmp/dotnet_pipe"))));
}

TEST_F(PipeServer, LeavesALinkThatTookThePipesPlaceAlone) {
  makePipe("/opt/usr/pipe");
  pipeMaker = [](const char* path) { return symlink("/opt/usr/pipe", path); };
  create_pipe_server(onText);
  EXPECT_THAT(platform().messages(6),
              ElementsAre("Symbolic link is detected : /tmp/dotnet_pipe_in"));
  EXPECT_EQ(statusOf("/opt/usr/pipe").st_mode & 07777, 0600U);
  EXPECT_THAT(platform().calls, IsEmpty());
}

TEST_F(PipeServer, EndsWhenAReadGivesNothing) {
  pipeMaker = [](const char* path) {
    std::ofstream(path) << (std::string(path) == kRequestPipe ? "last\n" : "");
    return 0;
  };
  const auto before = openDescriptors();
  create_pipe_server(onText);
  EXPECT_THAT(received.waitFor(1), ElementsAre("last"));
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(PipeServer, WithoutACallbackItOnlyLogs) {
  pipeMaker = [](const char* path) {
    std::ofstream(path) << "text\n";
    return 0;
  };
  create_pipe_server(nullptr);
  EXPECT_THAT(platform().messages(4), ElementsAre("Message To DllValidator : text"));
}

class PipeClient : public PipeTest {};

TEST_F(PipeClient, SendsTenLinesOfFiveRepetitions) {
  makePipe(kAnswerPipe);
  const OpenPipe answers(kAnswerPipe);
  const auto before = openDescriptors();
  create_pipe_client("OK %s");
  EXPECT_EQ(openDescriptors(), before);
  std::string expected;
  for (int line = 0; line < 10; ++line) {
    expected += "OK %sOK %sOK %sOK %sOK %s\n";
  }
  EXPECT_EQ(answers.read(), expected);
  EXPECT_THAT(platform().lines(), ElementsAre("4 Send message : OK %s"));
  EXPECT_THAT(platform().trace, Contains(HasSubstr("void create_pipe_client(")));
}

TEST_F(PipeClient, AnEmptyMessageIsTenLineEnds) {
  makePipe(kAnswerPipe);
  const OpenPipe answers(kAnswerPipe);
  create_pipe_client("");
  EXPECT_EQ(answers.read(), "\n\n\n\n\n\n\n\n\n\n");
  create_pipe_client(nullptr);
  EXPECT_EQ(answers.read(), "\n\n\n\n\n\n\n\n\n\n");
}

// The client itself holds the read end open, so no other process would make room in the pipe.
TEST_F(PipeClient, AnAnswerLargerThanThePipeIsTruncated) {
  makePipe(kAnswerPipe);
  const OpenPipe answers(kAnswerPipe);
  const std::string message(2000, 'x');
  create_pipe_client(message.c_str());
  const std::string sent = answers.read();
  EXPECT_GE(sent.size(), 1023U);
  EXPECT_EQ(sent.find_first_not_of("x\n"), std::string::npos);
  EXPECT_THAT(platform().lines(), ElementsAre("4 Send message : " + message));
}

TEST_F(PipeClient, AMissingPipeIsAnError) {
  create_pipe_client("OK");
  EXPECT_THAT(platform().messages(6), ElementsAre("Fail to open pipe"));
  EXPECT_THAT(platform().messages(4), IsEmpty());
  EXPECT_FALSE(fs::exists(kAnswerPipe));
}

TEST_F(PipeClient, APlainFileIsWrittenAndAFolderIsAnError) {
  makeFile(kAnswerPipe);
  create_pipe_client("OK");
  EXPECT_EQ(fs::file_size(kAnswerPipe), 110U);
  platform().reset();
  fs::remove(kAnswerPipe);
  fs::create_directory(kAnswerPipe);
  create_pipe_client("OK");
  EXPECT_THAT(platform().messages(6), ElementsAre("Fail to open pipe"));
  EXPECT_THAT(platform().messages(4), IsEmpty());
}

TEST_F(PipeClient, APipeThatIsALinkIsLeftAlone) {
  makeFile("/opt/usr/target");
  fs::create_symlink("/opt/usr/target", kAnswerPipe);
  create_pipe_client("OK");
  EXPECT_THAT(platform().lines(),
              ElementsAre("6 Symbolic link is detected : /tmp/dotnet_pipe_out"));
  EXPECT_EQ(fs::file_size("/opt/usr/target"), 0U);
}

}  // namespace
}  // namespace quillon::test
