// Tests of the application's side, plugin_validate_dll. The test is the validator.
#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>

#include "tests/support/open_descriptors.h"
#include "tests/system/validation/pipe_test.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;

constexpr char kLibrary[] = "/opt/usr/lib/a.dll";

class DllValidation : public PipeTest {
 protected:
  void SetUp() override {
    PipeTest::SetUp();
    if (!IsSkipped()) {
      makeFile(kLibrary);
    }
  }

  static std::string requestFor(const std::string& path) {
    return "RequestForDllValidation:" + std::to_string(getpid()) + ":" + path + "\n";
  }

  // Returns the result of plugin_validate_dll for an answer.
  static int resultOf(const std::string& answer) {
    const OpenPipe requests(kRequestPipe);
    const OpenPipe answers(kAnswerPipe);
    std::future<int> result = ask(kLibrary);
    EXPECT_EQ(requests.read(), requestFor(kLibrary));
    answers.write(answer);
    return result.get();
  }

  // Expects a refusal and no data in either pipe.
  static void expectNoTraffic(const char* path) {
    const OpenPipe requests(kRequestPipe);
    const OpenPipe answers(kAnswerPipe);
    EXPECT_EQ(plugin_validate_dll(1, path), 0);
    EXPECT_EQ(requests.unread(), 0);
    EXPECT_EQ(answers.unread(), 0);
  }
};

TEST_F(DllValidation, OneRequestLineAndOneAnswer) {
  makePipes();
  const auto before = openDescriptors();
  EXPECT_EQ(resultOf("OK\n"), 1);
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_THAT(platform().trace, Contains(HasSubstr("plugin_validate_dll(")));
  const std::string send = "RequestForDllValidation:" + std::to_string(getpid()) + ":" + kLibrary;
  EXPECT_THAT(platform().linesOfOperations(),
              IsSupersetOf({"4 plugin_validate_dll: Type 1 : " + std::string(kLibrary),
                            "4 plugin_validate_dll: Send " + send,
                            std::string("4 plugin_validate_dll: "
                                        "RequestForDllValidation Result : OK")}));
  EXPECT_THAT(platform().messages(4),
              ElementsAre("Type 1 : " + std::string(kLibrary), "Send " + send,
                          "RequestForDllValidation Result : OK"));
  EXPECT_THAT(platform().messages(6), IsEmpty());
}

TEST_F(DllValidation, LogLinesCarryTheRoomsName) {
  EXPECT_EQ(plugin_validate_dll(1, kLibrary), 0);
  ASSERT_FALSE(platform().log.empty());
  EXPECT_EQ(platform().log.back().file(), "log.h");
  bool found = false;
  for (const LogRecord& record : platform().log) {
    if (record.message() != "Type 1 : " + std::string(kLibrary)) {
      continue;
    }
    EXPECT_EQ(record.file(), "dotnet-policy-checker.cc");
    EXPECT_EQ(record.function(), "plugin_validate_dll");
    found = true;
  }
  EXPECT_TRUE(found);
}

TEST_F(DllValidation, OnlyFailInCapitalsIsARefusal) {
  makePipes();
  EXPECT_EQ(resultOf("FAIL\n"), 0);
  EXPECT_EQ(resultOf("a FAILure\n"), 0);
  EXPECT_EQ(resultOf("OK\nOK\nFAIL"), 0);
  EXPECT_EQ(resultOf(std::string("OK\0FAIL\n", 8)), 0);
  EXPECT_EQ(resultOf("fail\n"), 1);
  EXPECT_EQ(resultOf("FAI L\n"), 1);
  EXPECT_EQ(resultOf("\n"), 1);
}

TEST_F(DllValidation, OneLineEndIsDroppedFromTheAnswer) {
  makePipes();
  EXPECT_EQ(resultOf("OK\n\n"), 1);
  EXPECT_THAT(platform().messages(4), Contains("RequestForDllValidation Result : OK\n"));
  EXPECT_EQ(resultOf("no end"), 1);
  EXPECT_THAT(platform().messages(4), Contains("RequestForDllValidation Result : no end"));
}

TEST_F(DllValidation, TheAnswerIsTheFirst1023Bytes) {
  makePipes();
  EXPECT_EQ(resultOf(std::string(1019, 'x') + "FAIL"), 0);
  const OpenPipe answers(kAnswerPipe);
  EXPECT_EQ(resultOf(std::string(1020, 'x') + "FAIL"), 1);
  EXPECT_EQ(answers.read(), "L");
}

TEST_F(DllValidation, TheRequestNamesTheCanonicalPath) {
  makePipes();
  const OpenPipe requests(kRequestPipe);
  const OpenPipe answers(kAnswerPipe);
  fs::create_symlink("/opt/usr/lib", "/opt/usr/link");
  std::future<int> result = ask("/opt/usr/./link/../lib/a.dll", -7);
  EXPECT_EQ(requests.read(), requestFor(kLibrary));
  answers.write("OK\n");
  EXPECT_EQ(result.get(), 1);
  EXPECT_THAT(platform().messages(4), Contains("Type -7 : /opt/usr/./link/../lib/a.dll"));
}

TEST_F(DllValidation, ASymbolicLinkIsRefusedWithoutTraffic) {
  makePipes();
  fs::create_symlink(kLibrary, "/opt/usr/link.dll");
  fs::create_symlink("/opt/usr/none.dll", "/opt/usr/dangling.dll");
  expectNoTraffic("/opt/usr/link.dll");
  EXPECT_THAT(platform().messages(6), ElementsAre("Symbolic link is detected : /opt/usr/link.dll"));
  expectNoTraffic("/opt/usr/dangling.dll");
}

TEST_F(DllValidation, APathThatCannotBeResolvedIsRefusedWithoutTraffic) {
  makePipes();
  expectNoTraffic("/opt/usr/none.dll");
  EXPECT_THAT(platform().messages(4), ElementsAre("Type 1 : /opt/usr/none.dll"));
  EXPECT_THAT(platform().messages(6), ElementsAre("Path is empty"));
  expectNoTraffic("");
  expectNoTraffic(nullptr);
}

TEST_F(DllValidation, AMissingAnswerPipeIsNamed) {
  makePipe(kRequestPipe);
  const OpenPipe requests(kRequestPipe);
  EXPECT_EQ(plugin_validate_dll(1, kLibrary), 0);
  EXPECT_EQ(requests.unread(), 0);
  EXPECT_THAT(platform().messages(6), ElementsAre("open error : /tmp/dotnet_pipe_out"));
}

TEST_F(DllValidation, AMissingRequestPipeIsAnError) {
  makePipe(kAnswerPipe);
  const auto before = openDescriptors();
  EXPECT_EQ(plugin_validate_dll(1, kLibrary), 0);
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_THAT(platform().messages(6), ElementsAre("pipe open error"));
  EXPECT_THAT(platform().linesOfOperations(), Contains("6 plugin_validate_dll: pipe open error"));
  EXPECT_THAT(platform().messages(4), ElementsAre("Type 1 : " + std::string(kLibrary)));
}

TEST_F(DllValidation, PipesThatAreLinksAreRefusedAnswerPipeFirst) {
  makePipe("/opt/usr/pipe");
  fs::create_symlink("/opt/usr/pipe", kRequestPipe);
  fs::create_symlink("/opt/usr/pipe", kAnswerPipe);
  const OpenPipe pipe("/opt/usr/pipe");
  EXPECT_EQ(plugin_validate_dll(1, kLibrary), 0);
  EXPECT_THAT(platform().messages(6),
              ElementsAre("Symbolic link is detected : /tmp/dotnet_pipe_out"));
  fs::remove(kAnswerPipe);
  makePipe(kAnswerPipe);
  platform().reset();
  EXPECT_EQ(plugin_validate_dll(1, kLibrary), 0);
  EXPECT_THAT(platform().messages(6),
              ElementsAre("Symbolic link is detected : /tmp/dotnet_pipe_in"));
  EXPECT_EQ(pipe.unread(), 0);
}

TEST_F(DllValidation, PlainFilesAreReadAndWrittenAsPipesAre) {
  makeFile(kRequestPipe);
  makeFile(kAnswerPipe, "FAIL\n");
  EXPECT_EQ(plugin_validate_dll(1, kLibrary), 0);
  std::ifstream requests(kRequestPipe);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(requests), {}), requestFor(kLibrary));
  makeFile(kAnswerPipe, "OK\n");
  EXPECT_EQ(plugin_validate_dll(1, kLibrary), 1);
}

// No answer would arrive, so the call must not wait.
TEST_F(DllValidation, ARequestThatCannotBeWrittenIsARefusalWithOneErrorLine) {
  makeFile(kRequestPipe);
  makePipe(kAnswerPipe);
  const OpenPipe answers(kAnswerPipe);
  answers.write("OK\n");
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit nothing{0, before.rlim_max};
  const auto action = signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &nothing), 0);
  const int result = plugin_validate_dll(1, kLibrary);
  setrlimit(RLIMIT_FSIZE, &before);
  signal(SIGXFSZ, action);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(answers.unread(), 3);
  EXPECT_THAT(platform().messages(6), ElementsAre("write error : /tmp/dotnet_pipe_in"));
  EXPECT_EQ(platform().linesOfOperations().back(),
            "6 plugin_validate_dll: write error : /tmp/dotnet_pipe_in");
}

// Longer than the buffer of a stream. Requests of other processes must not arrive in between.
TEST_F(DllValidation, ALongRequestIsOneWrite) {
  makePipes();
  std::string path = "/opt/usr";
  while (path.size() < 3900) {
    path += "/" + std::string(200, 'a');
  }
  path += "/" + std::string(4090 - path.size() - 1, 'b');
  makeFile(path);
  const OpenPipe requests(kRequestPipe);
  const OpenPipe answers(kAnswerPipe);
  std::future<int> result = ask(path);
  EXPECT_EQ(requests.read(), requestFor(path));
  answers.write("OK\n");
  EXPECT_EQ(result.get(), 1);
}

TEST_F(DllValidation, AnAnswerOfNoBytesIsARefusal) {
  makeFile(kRequestPipe);
  makeFile(kAnswerPipe);
  EXPECT_EQ(plugin_validate_dll(1, kLibrary), 0);
  EXPECT_THAT(platform().messages(4), Not(Contains(HasSubstr("Result"))));
}

TEST_F(DllValidation, FoldersInPlaceOfPipesAreRefused) {
  fs::create_directory(kAnswerPipe);
  makePipe(kRequestPipe);
  EXPECT_EQ(plugin_validate_dll(1, kLibrary), 0);
  fs::remove(kAnswerPipe);
  fs::remove(kRequestPipe);
  makePipe(kAnswerPipe);
  fs::create_directory(kRequestPipe);
  EXPECT_EQ(plugin_validate_dll(1, kLibrary), 0);
  EXPECT_THAT(platform().messages(6),
              ElementsAre("open error : /tmp/dotnet_pipe_out", "pipe open error"));
}

// open(2) does not wait for the other end of either pipe. The wait for the answer has no time
// limit.
TEST_F(DllValidation, WaitsForALateAnswerAtPipesThatADeadValidatorLeft) {
  makePipes();
  std::future<int> result = ask(kLibrary);
  EXPECT_EQ(result.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
  const OpenPipe requests(kRequestPipe);
  const OpenPipe answers(kAnswerPipe);
  answers.write("OK\n");
  EXPECT_EQ(result.get(), 1);
}

TEST_F(DllValidation, WaitsOnWhenTheValidatorDiesAfterTheRequest) {
  makePipes();
  // Also open here, because a pipe that no process has open loses its content.
  const OpenPipe requests(kRequestPipe);
  const OpenPipe answers(kAnswerPipe);
  const pid_t validator = fork();
  if (validator == 0) {
    _exit(requests.read().empty() ? 1 : 0);
  }
  std::future<int> result = ask(kLibrary);
  int status = -1;
  waitpid(validator, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(result.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
  answers.write("FAIL\n");
  EXPECT_EQ(result.get(), 0);
}

TEST_F(DllValidation, ASignalThatDoesNotRestartEndsTheWaitAsARefusal) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  struct sigaction before {};
  sigaction(SIGUSR1, &action, &before);
  makePipes();
  const OpenPipe requests(kRequestPipe);
  int result = -1;
  std::atomic<bool> ended = false;
  std::thread asker([&] {
    result = plugin_validate_dll(1, kLibrary);
    ended = true;
  });
  EXPECT_EQ(requests.read(), requestFor(kLibrary));
  while (!ended) {
    pthread_kill(asker.native_handle(), SIGUSR1);
    std::this_thread::yield();
  }
  asker.join();
  sigaction(SIGUSR1, &before, nullptr);
  EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace quillon::test
