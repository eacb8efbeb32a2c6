// Tests of the capture of standard output and standard error.
#include "util/log/stream_capture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/support/recording_platform.h"
#include "tests/support/without_standard_input.h"
#include "tests/unit/util/capture/capture_process.h"
#include "tests/unit/util/capture/scripted_calls.h"
#include "util/log/error_file.h"
#include "util/log/log.h"
#include "util/log/message_end.h"
#include "util/log/private_descriptor.h"
#include "util/log/read_chunk.h"
#include "util/zq_utils/descriptor.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::SizeIs;

constexpr size_t kMaxChunk = 9999;
constexpr int kAMinute = 60'000;

// Writes one chunk to standard error and waits until it is processed.
void putChunk(const std::string& text) {
  put(STDERR_FILENO, text);
  waitForStderrReader(kAMinute);
}

// Uses an error file whose name no other test has.
void useOwnErrorFile() {
  errorLogFile = "/tmp/quillon-error-file-test." + std::to_string(getpid());
}

// Runs `body` while a capture is active.
Captured capture(const std::function<void()>& body) {
  const Captured captured = inCaptureProcess([&](Notes& notes) {
    notes["result"] = std::to_string(tvRunLoggingThread());
    body();
  });
  EXPECT_EQ(captured.ending, "");
  return captured;
}

Captured capturePrinted(const std::string& text) {
  return capture([&] { put(STDOUT_FILENO, text); });
}

TEST(StreamCapture, HasNoPipesBeforeItStarts) {
  for (const int end : {pStdOut[0], pStdOut[1], pStdErr[0], pStdErr[1], int{messageEnd}}) {
    EXPECT_EQ(end, -1);
  }
}

TEST(StreamCapture, StartsInTheOrderOfItsSteps) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    calls().active = true;
    notes["result"] = std::to_string(tvRunLoggingThread());
    calls().active = false;
  });
  EXPECT_EQ(captured.note("result"), "0");
  EXPECT_THAT(captured.lines, ElementsAre("3 Run TV Logging Thread", "3 TV Initialize LogManager"));
  EXPECT_THAT(captured.calls, ElementsAre("setvbuf stdout line 0", "setvbuf stderr none 0",
                                          "pipe 1", "pipe 2", "dup2 1", "dup2 2",
                                          "pthread_create 1", "pthread_setname_np Stdout Thread",
                                          "pthread_detach 1", "pthread_create 2",
                                          "pthread_setname_np Stderr Thread", "pthread_detach 2"));
}

TEST(StreamCapture, TracesItsFunctionsAndThreads) {
  const Captured captured = capture([] { putChunk("x"); });
  std::vector<std::string> names;
  for (const std::string& event : captured.trace) {
    names.push_back(event.substr(event.find(") ") + 2));
  }
  EXPECT_THAT(names, IsSupersetOf({"int tvRunLoggingThread()", "int tvInitializeLogManager()",
                                   "int tvRedirectFD()", "void writeStringTofile(std::string_view)",
                                   "void* stdOutRedirect(void*)", "void* stdErrRedirect(void*)"}));
}

TEST(StreamCapture, PutsItsPipesBehindDescriptorsOneAndTwoAndKeepsTheirEnds) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    tvRunLoggingThread();
    notes["out"] = fileBehind(STDOUT_FILENO) == fileBehind(pStdOut[1]) ? "same" : "other";
    notes["err"] = fileBehind(STDERR_FILENO) == fileBehind(pStdErr[1]) ? "same" : "other";
    notes["messages"] = fileBehind(STDERR_FILENO) == fileBehind(messageEnd) ? "same" : "other";
    notes["apart"] = fileBehind(pStdOut[1]) != fileBehind(pStdErr[1]) ? "yes" : "no";
    notes["blocking"] = (fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK) == 0 ? "yes" : "no";
  });
  EXPECT_EQ(captured.notes, (Notes{{"out", "same"},
                                   {"err", "same"},
                                   {"messages", "same"},
                                   {"apart", "yes"},
                                   {"blocking", "yes"}}));
}

// Programs that the application starts inherit only the streams, not the other descriptors of the
// capture.
TEST(StreamCapture, ItsPipesAreNotInherited) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    tvRunLoggingThread();
    for (const int end : {pStdOut[0], pStdOut[1], pStdErr[0], pStdErr[1]}) {
      notes["own"] += (fcntl(end, F_GETFD) & FD_CLOEXEC) != 0 ? "c" : "i";
    }
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
      notes["streams"] += (fcntl(stream, F_GETFD) & FD_CLOEXEC) != 0 ? "c" : "i";
    }
  });
  EXPECT_EQ(captured.notes, (Notes{{"own", "cccc"}, {"streams", "ii"}}));
}

// Tests every combination of closed standard streams.
TEST(StreamCapture, WorksIfStandardStreamsAreClosed) {
  for (int closed = 1; closed < 8; ++closed) {
    const Captured captured = inCaptureProcess([closed](Notes& notes) {
      for (int stream = 0; stream < 3; ++stream) {
        if ((closed >> stream & 1) != 0) {
          close(stream);
        }
      }
      notes["result"] = std::to_string(tvRunLoggingThread());
      notes["input"] = (closed & 1) != 0 ? fileBehind(STDIN_FILENO) : "";
      put(STDOUT_FILENO, "out");
      putChunk("err");
      sendMessageToDlogError("message");
    });
    EXPECT_EQ(captured.ending, "") << closed;
    EXPECT_EQ(captured.notes, (Notes{{"result", "0"}, {"input", ""}})) << closed;
    EXPECT_THAT(captured.output(), ElementsAre("out")) << closed;
    EXPECT_THAT(captured.errors(), ElementsAre("err", "message")) << closed;
  }
}

// Runs `body` while this process can open no more descriptors, and poll(2) fails.
void withoutDescriptors(const std::function<void()>& body) {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{0, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  body();
  setrlimit(RLIMIT_NOFILE, &before);
}

TEST(PrivateDescriptor, StaysIfItCannotMove) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    const std::string file = fileBehind(STDOUT_FILENO);
    withoutDescriptors([&] { notes["result"] = std::to_string(makePrivate(STDOUT_FILENO)); });
    notes["file"] = fileBehind(STDOUT_FILENO) == file ? "same" : "another";
  });
  EXPECT_EQ(captured.notes, (Notes{{"result", "1"}, {"file", "same"}}));
}

// Then read(2) waits, or says what is wrong.
TEST(ReadChunk, DoesNotWaitIfPollFails) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    int ends[2];
    if (pipe(ends) != 0) {
      return;
    }
    put(ends[1], "text");
    Chunk chunk;
    withoutDescriptors([&] { Chunk::await(ends[0]); });
    notes["read"] = chunk.read(ends[0]) ? chunk.text() : "nothing";
  });
  EXPECT_EQ(captured.ending, "");
  EXPECT_EQ(captured.note("read"), "text");
}

// All signals are blocked in a new thread until it runs.
void awaitReaders() {
  put(STDOUT_FILENO, "out");
  putChunk("err");
  const auto isLogged = [] {
    const auto lines = platform().lines();
    return std::find(lines.begin(), lines.end(), "3 out") != lines.end();
  };
  while (!isLogged()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

TEST(StreamCapture, ReadersLeaveTerminationToOthers) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    tvRunLoggingThread();
    awaitReaders();
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
      std::ifstream status(thread.path() / "status");
      for (std::string line; std::getline(status, line);) {
        if (line.starts_with("SigBlk:")) {
          notes[line.substr(8)] += "x";
        }
      }
    }
  });
  EXPECT_EQ(captured.notes, (Notes{{"0000000000000000", "x"}, {"0000000000004000", "xx"}}));
}

TEST(StreamCapture, NamesTheReaders) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    tvRunLoggingThread();
    for (const std::string& name : threadNames()) {
      notes[name] = "runs";
    }
  });
  EXPECT_THAT(captured.notes, SizeIs(3));
  EXPECT_EQ(captured.notes.count("Stdout Thread"), 1U);
  EXPECT_EQ(captured.notes.count("Stderr Thread"), 1U);
}

TEST(StreamCapture, ReadersEndWhenNobodyCanWriteAndCloseTheirPipes) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    tvRunLoggingThread();
    const int out = pStdOut[0];
    for (const int end : {STDOUT_FILENO, int{pStdOut[1]}}) {
      close(end);
    }
    awaitEndOf("Stdout Thread");
    notes["closed"] = fileBehind(out);
    notes["ends"] = std::to_string(pStdOut[0]) + ", " + std::to_string(pStdOut[1]);
    notes["left"] = threadNames().front() + ", " + threadNames().back();
  });
  EXPECT_EQ(captured.note("closed"), "");
  EXPECT_EQ(captured.note("ends"), "-1, -1");
  EXPECT_THAT(captured.note("left"), HasSubstr("Stderr Thread"));
  EXPECT_THAT(captured.note("left"), Not(HasSubstr("Stdout Thread")));
}

// Its own end for messages keeps the pipe open, so it ends only if it cannot read.
TEST(StreamCapture, TheReaderOfErrorsClosesTheMessageEndToo) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    ::signal(SIGPIPE, SIG_IGN);
    tvRunLoggingThread();
    const Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    dup2(nothing.get(), pStdErr[0]);
    static_cast<void>(!write(STDERR_FILENO, "x", 1));  // if the reader waits in the pipe already
    awaitEndOf("Stderr Thread");
    notes["ends"] = std::to_string(pStdErr[0]) + ", " + std::to_string(pStdErr[1]);
    notes["message end"] = std::to_string(messageEnd);
  });
  EXPECT_EQ(captured.notes, (Notes{{"ends", "-1, -1"}, {"message end", "-1"}}));
}

TEST(StreamCapture, LogsOutputAtDebugLevelAndErrorsAtErrorLevel) {
  const Captured captured = capture([] {
    put(STDOUT_FILENO, "abc\n");
    put(STDERR_FILENO, "def\n");
  });
  EXPECT_THAT(captured.lines, Contains("3 abc"));
  EXPECT_THAT(captured.lines, Contains("6 def"));
  EXPECT_THAT(captured.texts, Contains(MatchesRegex("log.cc: stdOutRedirect\\([0-9]+\\) > "
                                                    "\x1b\\[0mabc\x1b\\[0m\n")));
  EXPECT_THAT(captured.texts, Contains(MatchesRegex("log.cc: stdErrRedirect\\([0-9]+\\) > "
                                                    "\x1b\\[31mdef\x1b\\[0m\n")));
}

TEST(StreamCapture, DropsOneNewlineAtTheEndOfAChunkAndNoOther) {
  EXPECT_THAT(capturePrinted("abc\n\n").output(), ElementsAre("abc\n"));
  EXPECT_THAT(capturePrinted("\nabc").output(), ElementsAre("\nabc"));
  EXPECT_THAT(capturePrinted("a\nb\n").output(), ElementsAre("a\nb"));
  EXPECT_THAT(capturePrinted("\n").output(), ElementsAre(""));
  EXPECT_THAT(capture([] { putChunk("abc\n\n"); }).errors(), ElementsAre("abc\n"));
}

TEST(StreamCapture, CutsALongTextIntoChunks) {
  std::string text;
  for (int i = 0; text.size() < 4 * kMaxChunk; ++i) {
    text += std::to_string(i) + ",";
  }
  for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
    const Captured captured = capture([&] { put(descriptor, text); });
    const auto chunks = descriptor == STDOUT_FILENO ? captured.output() : captured.errors();
    ASSERT_GE(chunks.size(), 4U);
    std::string joined;
    for (const std::string& chunk : chunks) {
      EXPECT_LE(chunk.size(), kMaxChunk);
      joined += chunk;
    }
    EXPECT_EQ(joined, text);
  }
}

// The complete text is in the pipe before the reader reads from it.
TEST(StreamCapture, TakesAsMuchAsItsBufferHolds) {
  const std::string text(kMaxChunk + 6, 'y');
  const Captured captured = capture([&] {
    calls().onTime = [&] { put(STDERR_FILENO, text); };
    putChunk("x");  // its error file gets its name while the text is written
    calls().onTime = {};
  });
  EXPECT_THAT(captured.errors(), ElementsAre("x", text.substr(6), "yyyyyy"));
}

TEST(StreamCapture, NeverTakesTextForAFormat) {
  const std::string text = "%s %n 100% %d \x1b[31m";
  const Captured captured = capture([&] {
    put(STDOUT_FILENO, text);
    putChunk(text);
  });
  EXPECT_THAT(captured.output(), ElementsAre(text));
  EXPECT_THAT(captured.errors(), ElementsAre(text));
  EXPECT_EQ(captured.errorText, text + "\n");
}

TEST(StreamCapture, LogsAChunkUpToANulAndFilesItCompletely) {
  const Captured captured = capture([] { putChunk(std::string("a\0b\n", 4)); });
  EXPECT_THAT(captured.errors(), ElementsAre("a"));
  EXPECT_EQ(captured.errorText, std::string("a\0b\n", 4));
}

TEST(StreamCapture, CapturesTheCLibrarysStreamsAsTheyAreBuffered) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    tvRunLoggingThread();
    std::fputs("unfinished ", stderr);
    waitForStderrReader(kAMinute);
    notes["stderr"] = platform().lines().back();
    std::fputs("a line\n", stdout);
  });
  EXPECT_EQ(captured.note("stderr"), "6 unfinished ");
  EXPECT_THAT(captured.output(), ElementsAre("a line"));
}

TEST(StreamCapture, SurvivesSignalsOnTheReaders) {
  const Captured captured = capture([] {
    struct sigaction quiet {};
    quiet.sa_handler = [](int) {};
    sigaction(SIGUSR1, &quiet, nullptr);  // without SA_RESTART
    for (int i = 0; i < 50; ++i) {
      pthread_kill(loggingThread, SIGUSR1);
      pthread_kill(loggingThread2, SIGUSR1);
      std::this_thread::yield();
    }
    put(STDOUT_FILENO, "out");
    put(STDERR_FILENO, "err");
  });
  EXPECT_THAT(captured.output(), ElementsAre("out"));
  EXPECT_THAT(captured.errors(), ElementsAre("err"));
}

TEST(ErrorFile, HoldsEachChunkWithANewlineAndIsNamedOnce) {
  calls().now = 1000;  // each call of time() returns a second more
  const Captured captured = inCaptureProcess([](Notes& notes) {
    notes["name"] = "/tmp/dotnet_error." + std::to_string(getpid()) + ".1000.log";
    tvRunLoggingThread();
    for (const char* chunk : {"first\n", "second", "\n", "a\nb\n"}) {
      putChunk(chunk);
    }
    notes["asked"] = std::to_string(calls().now);
  });
  calls().now = 0;
  EXPECT_EQ(captured.errorFile, captured.note("name"));
  EXPECT_EQ(captured.errorText, "first\nsecond\n\na\nb\n");
  EXPECT_EQ(captured.note("asked"), "1001");
}

// Returns the position among the platform events of the first one that contains `text`.
size_t placeOf(const std::string& text) {
  const auto& events = platform().events;
  const auto place = std::find_if(events.begin(), events.end(), [&](const std::string& event) {
    return event.find(text) != std::string::npos;
  });
  return static_cast<size_t>(place - events.begin());
}

TEST(ErrorFile, IsWrittenBeforeTheChunkIsLogged) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    tvRunLoggingThread();
    putChunk("the chunk");
    const bool isFirst = placeOf("void writeStringTofile") < placeOf("log the chunk");
    notes["first"] =
        isFirst && placeOf("log the chunk") < platform().events.size() ? "file" : "log";
  });
  EXPECT_EQ(captured.note("first"), "file");
}

TEST(ErrorFile, ExistsOnlyIfSomethingWasWrittenToStandardError) {
  EXPECT_EQ(capturePrinted("fine").errorFile, "");
}

TEST(ErrorFile, HasThePermissionsThatTheUmaskAllows) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    useOwnErrorFile();
    umask(0);
    tvRunLoggingThread();
    putChunk("text");
    struct stat status {};
    notes["made"] = stat(errorLogFile.c_str(), &status) == 0 ? "yes" : "no";
    notes["mode"] = std::to_string(status.st_mode & 07777U);
    unlink(errorLogFile.c_str());
  });
  EXPECT_EQ(captured.note("made"), "yes");
  EXPECT_EQ(captured.note("mode"), std::to_string(0666));
}

TEST(ErrorFile, IsAppendedTo) {
  const Captured captured = capture([] {
    useOwnErrorFile();
    const int file = open(errorLogFile.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    put(file, "earlier\n");
    close(file);
    putChunk("later");
  });
  EXPECT_EQ(captured.errorText, "earlier\nlater\n");
}

TEST(ErrorFile, ThatCannotBeOpenedIsSkippedAndTheChunkLogged) {
  const Captured captured = capture([] {
    errorLogFile = "/proc/no/such/folder";
    putChunk("one");
    putChunk("two");
  });
  EXPECT_THAT(captured.errors(), ElementsAre("one", "two"));
  EXPECT_EQ(captured.errorFile, "/proc/no/such/folder");
  EXPECT_THAT(captured.lines, SizeIs(4));
}

TEST(ErrorFile, ThatTakesNoMoreIsSkippedAndTheChunkLogged) {
  const Captured captured = capture([] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit nothing{0, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &nothing);
    putChunk("one");
    putChunk("two");
  });
  EXPECT_THAT(captured.errors(), ElementsAre("one", "two"));
  EXPECT_EQ(captured.errorText, "");
  EXPECT_THAT(captured.lines, SizeIs(4));
}

// Captures chunks while the name of the error file is already taken by the file that `plant`
// creates.
Captured captureOverPlanted(const std::function<void(const char* name)>& plant) {
  const Captured captured = capture([&] {
    errorLogFile = "/tmp/quillon-planted-test." + std::to_string(getpid());
    plant(errorLogFile.c_str());
    putChunk("one");
    putChunk("two");
    unlink(errorLogFile.c_str());
  });
  EXPECT_THAT(captured.errors(), ElementsAre("one", "two"));
  return captured;
}

TEST(ErrorFile, APipeInItsPlaceHoldsNothingUp) {
  captureOverPlanted([](const char* name) { mkfifo(name, 0600); });
}

// The file is opened as descriptor 0 if the process has no standard input.
TEST(ErrorFile, MayHaveTheNumberZero) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    const WithoutStandardInput without;
    useOwnErrorFile();
    const int reader = [] {
      mkfifo(errorLogFile.c_str(), 0600);
      const Descriptor low(open(errorLogFile.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
      return fcntl(low.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    }();
    writeStringTofile("in a pipe");
    notes["pipe"] = fileBehind(0);
    unlink(errorLogFile.c_str());
    close(reader);
    writeStringTofile("in a file");
    notes["file"] = fileBehind(0);
  });
  EXPECT_EQ(captured.notes, (Notes{{"file", ""}, {"pipe", ""}}));
  EXPECT_EQ(captured.errorText, "in a file\n");
}

// A reader of the other user may wait at the pipe, so that it can be opened.
TEST(ErrorFile, APipeWithAReaderInItsPlaceGetsNothing) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    errorLogFile = "/tmp/quillon-planted-test." + std::to_string(getpid());
    mkfifo(errorLogFile.c_str(), 0600);
    const int reader = open(errorLogFile.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    tvRunLoggingThread();
    putChunk("secret");
    unlink(errorLogFile.c_str());
    std::array<char, 16> buffer{};
    notes["read"] = std::to_string(read(reader, buffer.data(), buffer.size()));
  });
  EXPECT_THAT(captured.errors(), ElementsAre("secret"));
  EXPECT_EQ(captured.note("read"), "0");  // the end of the file: no writer is left
}

TEST(ErrorFile, ALinkInItsPlaceIsNotFollowed) {
  const Captured captured = captureOverPlanted([](const char* name) {
    const std::string victim = std::string(name) + ".victim";
    close(open(victim.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (symlink(victim.c_str(), name) != 0) {
      _exit(1);
    }
  });
  const std::filesystem::path victim = captured.errorFile + ".victim";
  EXPECT_EQ(std::filesystem::file_size(victim), 0U);
  std::filesystem::remove(victim);
}

}  // namespace
}  // namespace quillon::test
