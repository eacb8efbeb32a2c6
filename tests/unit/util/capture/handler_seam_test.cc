// Tests of the functions that signal handlers use during a capture: the wait for the reader, and
// messages that never block.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <utility>

#include "plugin/src/dotnet-signal-handler/signal_handler.h"
#include "plugin/src/dotnet-signal-handler/thread_state.h"
#include "tests/support/precedence.h"
#include "tests/support/recording_platform.h"
#include "tests/support/shared_memory.h"
#include "tests/support/without_standard_input.h"
#include "tests/unit/util/capture/capture_process.h"
#include "tests/unit/util/capture/scripted_calls.h"
#include "util/log/crash_keywords.h"
#include "util/log/log.h"
#include "util/log/message_end.h"
#include "util/log/read_chunk.h"
#include "util/log/reader_progress.h"
#include "util/log/stream_capture.h"

// The handler of a sanitizer would write to the full pipe before the process ends.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "handle_segv=0:handle_abort=0"; }

namespace quillon::test {
namespace {

// Longer than the time limit of inCaptureProcess: if a wait does not end early, the process is
// killed.
constexpr int kForEver = 600'000;

// Sets the state as if another thread were the reader of a pipe that contains data.
void makePipeWithSomethingIn() {
  if (pipe(pStdErr) == 0) {
    put(pStdErr[1], "something");
  }
}

// Fills a pipe completely.
void fillUp(int end) {
  const std::string path = "/proc/self/fd/" + std::to_string(end);
  const int own = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  const std::string block(4096, '.');
  while (write(own, block.data(), block.size()) > 0) {
  }
  close(own);
}

int unreadBytes(int end) {
  int count = -1;
  ioctl(end, FIONREAD, &count);
  return count;
}

// Makes a pipe for messages that is full and whose reader is about to begin. Returns false on
// failure.
bool makeFullPipe() {
  if (pipe(pStdErr) != 0) {
    return false;
  }
  openMessageEnd(pStdErr[1]);
  fillUp(pStdErr[1]);
  stderrProgress.starting();
  return true;
}

TEST(MessageEnd, DoesNotBlockAndIsNotInherited) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    notes["pipe"] = std::to_string(pipe(pStdErr));
    openMessageEnd(pStdErr[1]);
    notes["blocks"] = (fcntl(messageEnd, F_GETFL) & O_NONBLOCK) != 0 ? "no" : "yes";
    notes["inherited"] = (fcntl(messageEnd, F_GETFD) & FD_CLOEXEC) != 0 ? "no" : "yes";
  });
  EXPECT_EQ(captured.notes, (Notes{{"pipe", "0"}, {"blocks", "no"}, {"inherited", "no"}}));
}

TEST(ReaderProgress, ThereIsAReaderFromItsStartToItsEnd) {
  ReaderProgress progress;
  EXPECT_FALSE(progress.runsConcurrently());
  progress.starting();
  EXPECT_TRUE(progress.runsConcurrently());
  EXPECT_TRUE(progress.runsConcurrentlyInThisProcess());
  progress.ended();
  EXPECT_FALSE(progress.runsConcurrently());
  EXPECT_FALSE(progress.runsConcurrentlyInThisProcess());
}

TEST(WaitForReader, EndsImmediatelyIfThereIsNone) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    errno = EDOM;
    waitForStderrReader(kForEver);
    notes["errno"] = errno == EDOM ? "kept" : "changed";
    makePipeWithSomethingIn();
    waitForStderrReader(kForEver);
    stderrProgress.starting();
    stderrProgress.ended();
    waitForStderrReader(kForEver);
  });
  EXPECT_EQ(captured.ending, "");
  EXPECT_EQ(captured.note("errno"), "kept");
}

TEST(WaitForReader, EndsAtOnceWithoutAPipe) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    stderrProgress.starting();
    notes["done"] = waitForStderrReader(kForEver) ? "yes" : "no";
  });
  EXPECT_EQ(captured.note("done"), "yes");
}

// A reader that has ended while it was about to read leaves nothing for the next one.
TEST(WaitForReader, DoesNotWaitForAReaderThatHasEnded) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    notes["pipe"] = std::to_string(pipe(pStdErr));
    stderrProgress.starting();
    stderrProgress.taking();
    stderrProgress.ended();
    stderrProgress.starting();
    waitForStderrReader(kForEver);
  });
  EXPECT_EQ(captured.ending, "");
  EXPECT_EQ(captured.note("pipe"), "0");
}

TEST(WaitForReader, EndsAtOnceOnTheReaderItself) {
  const Captured captured = inCaptureProcess([](Notes&) {
    makePipeWithSomethingIn();
    stderrProgress.starting();
    stderrProgress.running();
    stderrProgress.taking();
    waitForStderrReader(kForEver);
  });
  EXPECT_EQ(captured.ending, "");
}

TEST(WaitForReader, EndsAtOnceInAForkedChild) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    makePipeWithSomethingIn();
    stderrProgress.starting();
    const pid_t child = fork();
    if (child == 0) {
      alarm(30);
      waitForStderrReader(kForEver);
      _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    notes["child"] = std::to_string(status);
  });
  EXPECT_EQ(captured.note("child"), "0");
}

TEST(WaitForReader, EndsAtOnceIfNothingWasWritten) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    notes["pipe"] = std::to_string(pipe(pStdErr));
    stderrProgress.starting();
    notes["done"] = waitForStderrReader(kForEver) ? "yes" : "no";
  });
  EXPECT_EQ(captured.notes, (Notes{{"pipe", "0"}, {"done", "yes"}}));
}

TEST(WaitForReader, EndsWhenItsTimeIsOver) {
  const Captured captured = inCaptureProcess([](Notes&) {
    makePipeWithSomethingIn();
    stderrProgress.starting();
    waitForStderrReader(100);
    waitForStderrReader(0);
  });
  EXPECT_EQ(captured.ending, "");
}

// The pipe is already empty while the reader processes a chunk; the flags are set later.
TEST(WaitForReader, LastsUntilTheReaderHasProcessedItsChunk) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    if (pipe(pStdErr) != 0) {
      return;
    }
    stderrProgress.starting();
    stderrProgress.taking();
    std::atomic<bool> dealtWith{false};
    std::thread reader([&] {
      stderrProgress.running();
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      dealtWith = true;
      stderrProgress.done(1);
    });
    waitForStderrReader(kForEver);
    notes["dealt with"] = dealtWith ? "yes" : "no";
    reader.join();
  });
  EXPECT_EQ(captured.note("dealt with"), "yes");
}

TEST(WaitForReader, LastsUntilAllThatWasInThePipeIsProcessed) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    if (pipe(pStdErr) != 0) {
      return;
    }
    put(pStdErr[1], std::string(60'000, 'x'));
    stderrProgress.starting();
    std::atomic<int> left{60'000};
    std::thread reader([&] {
      stderrProgress.running();
      for (std::array<char, 1000> buffer{}; left > 0;) {
        stderrProgress.taking();
        const ssize_t got = read(pStdErr[0], buffer.data(), buffer.size());
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        left -= static_cast<int>(got);
        stderrProgress.done(static_cast<std::size_t>(got));
      }
    });
    waitForStderrReader(kForEver);
    notes["left"] = std::to_string(left);
    reader.join();
  });
  EXPECT_EQ(captured.note("left"), "0");
}

// Other threads write continuously, so the pipe is never empty.
TEST(WaitForReader, EndsWhenTheEarlierOutputIsProcessedAlthoughMoreArrives) {
  const Captured captured = inCaptureProcess([](Notes&) {
    makePipeWithSomethingIn();
    stderrProgress.starting();
    std::atomic<bool> over{false};
    std::thread reader([&] {
      stderrProgress.running();
      while (!over) {
        stderrProgress.done(100);
        std::this_thread::yield();
      }
    });
    waitForStderrReader(kForEver);
    over = true;
    reader.join();
  });
  EXPECT_EQ(captured.ending, "");
}

// What was in the pipe, and the chunk that the reader had in its hands then.
TEST(WaitForReader, EndsWithTheLastByteOfTheEarlierOutput) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    makePipeWithSomethingIn();
    stderrProgress.starting();
    std::atomic<bool> isWaiting{false};
    std::atomic<bool> isLast{false};
    std::thread reader([&, unread = unreadBytes(pStdErr[0])] {
      stderrProgress.running();
      while (!isWaiting || isReadyToRun(getpid())) {
        std::this_thread::yield();
      }
      stderrProgress.done(static_cast<std::size_t>(unread) + kMaxChunk - 1);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      isLast = true;
      stderrProgress.done(1);
    });
    isWaiting = true;
    waitForStderrReader(kForEver);
    notes["end"] = isLast ? "last byte" : "too early";
    reader.join();
  });
  EXPECT_EQ(captured.notes, (Notes{{"end", "last byte"}}));
}

TEST(WaitForReader, FlagsTellOfEverythingWrittenBefore) {
  for (int i = 0; i < 30; ++i) {
    const Captured captured = inCaptureProcess([](Notes& notes) {
      tvRunLoggingThread();
      put(STDERR_FILENO, "double free or corruption");
      waitForStderrReader(kForEver);
      notes["flag"] = memoryIssueOccurred ? "set" : "not set";
    });
    ASSERT_EQ(captured.note("flag"), "set");
  }
}

TEST(WaitForReader, AnAbortFindsTheFlagsThatItsTextSets) {
  const Precedence precedence;
  for (int i = 0; i < 20; ++i) {
    const Captured captured = inCaptureProcess([](Notes&) {
      registerSignalHandler();
      tvRunLoggingThread();
      put(STDERR_FILENO, "Unhandled exception in App.dll");
      std::abort();
    });
    ASSERT_EQ(captured.ending, "");  // status 0: no dump
  }
}

// The reader's thread exists, but has not run yet when the process aborts.
TEST(WaitForReader, AnAbortWaitsForAReaderThatHasNotBegun) {
  const Captured captured = inCaptureProcess([](Notes&) {
    makePipeWithSomethingIn();
    registerSignalHandler();
    stderrProgress.starting();
    std::thread reader([] {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      stderrProgress.running();
      stderrProgress.taking();
      std::array<char, 100> buffer{};
      while (read(pStdErr[0], buffer.data(), buffer.size()) > 0) {
        scanForCrashKeywords("Unhandled exception in App.dll");
        stderrProgress.done(1);
      }
    });
    std::abort();
  });
  EXPECT_EQ(captured.ending, "");  // status 0: no dump
}

// Keeps this thread busy.
void work(std::chrono::milliseconds duration) {
  const auto end = std::chrono::steady_clock::now() + duration;
  while (std::chrono::steady_clock::now() < end) {
  }
}

// A single look at a reader that works may find it asleep, for example in the log.
TEST(WaitForReader, AnAbortWaitsForAReaderThatSleepsNowAndThen) {
  for (int i = 0; i < 3; ++i) {
    const Captured captured = inCaptureProcess([](Notes&) {
      constexpr int kTurns = 28;
      makePipeWithSomethingIn();
      registerSignalHandler();
      stderrProgress.starting();
      std::thread reader([=] {
        stderrProgress.running();
        stderrProgress.taking();
        for (int turn = 0; turn < kTurns; ++turn) {
          for (const int duration : {6, 9}) {
            work(std::chrono::milliseconds(duration));
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
          }
        }
        scanForCrashKeywords("Unhandled exception in App.dll");
        std::array<char, 100> buffer{};
        while (read(pStdErr[0], buffer.data(), buffer.size()) > 0) {
          stderrProgress.done(1);
        }
      });
      std::abort();
    });
    ASSERT_EQ(captured.ending, "");  // status 0: no dump
  }
}

TEST(WaitForReader, EndsAlthoughTheReaderNeverBegins) {
  const Captured captured = inCaptureProcess([](Notes&) {
    makePipeWithSomethingIn();
    registerSignalHandler();
    stderrProgress.starting();
    raise(SIGTERM);
  });
  EXPECT_EQ(captured.ending, "");
}

// The handler of SIGTERM has sent its message, and waits for the reader.
TEST(WaitForReader, AnAbortOfAnotherThreadMeanwhileIsQuiet) {
  const Captured captured = inCaptureProcess([](Notes&) {
    makePipeWithSomethingIn();
    registerSignalHandler();
    ::signal(SIGUSR1, [](int) { pause(); });
    stderrProgress.starting();
    std::thread aborting([waiting = pthread_self(), before = unreadBytes(pStdErr[0])] {
      while (unreadBytes(pStdErr[0]) == before) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      pthread_kill(waiting, SIGUSR1);  // stops it, so that only the abort can end the process
      std::abort();
    });
    raise(SIGTERM);
  });
  EXPECT_EQ(captured.ending, "");
}

// The reader calls time() for the first text, here the message, before it logs it.
TEST(WaitForReader, AnAbortWaitsForItsOwnMessage) {
  auto& isRead = makeSharedMemory<std::atomic<bool>>();
  const Captured captured = inCaptureProcess([&](Notes&) {
    registerSignalHandler();
    tvRunLoggingThread();
    calls().onTime = [&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      isRead = true;
    };
    std::abort();
  });
  EXPECT_EQ(captured.ending, "signal " + std::to_string(SIGABRT));
  EXPECT_TRUE(isRead);
}

// Nobody reads the message, so the handler waits until the other thread says that the reader has
// ended.
TEST(WaitForReader, AnAbortRestoresThePreviousActionBeforeItWaitsAndAfterwards) {
  auto& isRestored = makeSharedMemory<std::atomic<bool>>();
  const Captured captured = inCaptureProcess([&](Notes&) {
    if (pipe(pStdErr) != 0) {
      return;
    }
    registerSignalHandler();
    stderrProgress.starting();
    std::atomic<bool> isRunning{false};
    std::thread other([&] {
      isRunning = true;
      struct sigaction action = {};
      do {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        sigaction(SIGABRT, nullptr, &action);
      } while (action.sa_handler != SIG_DFL);
      isRestored = true;
      ::signal(SIGABRT, SIG_IGN);
      stderrProgress.ended();
    });
    other.detach();
    while (!isRunning) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    raise(SIGABRT);
  });
  EXPECT_TRUE(isRestored);
  EXPECT_EQ(captured.ending, "signal " + std::to_string(SIGABRT));
}

TEST(HandlerMessage, GoesThroughTheCapturedStream) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    tvRunLoggingThread();
    notes["written"] = std::to_string(sendMessageToDlogError("as %s is"));
  });
  EXPECT_EQ(captured.note("written"), "8");
  EXPECT_THAT(captured.errors(), ::testing::ElementsAre("as %s is"));
}

TEST(HandlerMessage, IsGivenUpIfThePipeIsFullAndNobodyReads) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    if (pipe(pStdErr) != 0) {
      return;
    }
    for (const bool own : {false, true}) {  // through pStdErr, and through the message end
      if (own) {
        openMessageEnd(pStdErr[1]);
      }
      fillUp(pStdErr[1]);
      errno = 0;
      const ssize_t written = sendMessageToDlogError("lost");
      notes[own ? "own" : "shared"] =
          std::to_string(written) + (errno == EAGAIN ? " again" : " other");
    }
  });
  EXPECT_EQ(captured.ending, "");
  EXPECT_EQ(captured.notes, (Notes{{"own", "-1 again"}, {"shared", "-1 again"}}));
}

TEST(HandlerMessage, WaitsForRoomWhileTheReaderReads) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    if (!makeFullPipe()) {
      return;
    }
    std::thread reader([&] {
      stderrProgress.running();
      std::array<char, 65536> buffer;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      notes["read"] = read(pStdErr[0], buffer.data(), buffer.size()) > 0 ? "yes" : "no";
    });
    const ssize_t written = sendMessageToDlogError("kept");
    reader.join();
    notes["written"] = std::to_string(written);
  });
  EXPECT_EQ(captured.note("written"), "4");
}

// Sends a message. Signals interrupt the first waits for room.
Captured messageWithInterruptions(int interruptions, bool hasReader) {
  return inCaptureProcess([=](Notes& notes) {
    if (pipe(pStdErr) != 0) {
      return;
    }
    if (hasReader) {
      stderrProgress.starting();
    }
    calls().interruptions = interruptions;
    ScriptedCalls::active = true;
    notes["written"] = std::to_string(sendMessageToDlogError("kept"));
    ScriptedCalls::active = false;
    notes["waits"] = std::to_string(calls().polls);
  });
}

TEST(HandlerMessage, WaitsForRoomAsOftenAsItIsInterrupted) {
  EXPECT_EQ(messageWithInterruptions(0, true).notes, (Notes{{"waits", "1"}, {"written", "4"}}));
  EXPECT_EQ(messageWithInterruptions(3, true).notes, (Notes{{"waits", "4"}, {"written", "4"}}));
  EXPECT_EQ(messageWithInterruptions(3, false).notes, (Notes{{"waits", "1"}, {"written", "-1"}}));
}

TEST(HandlerMessage, GoesToAPipeWithTheNumberZero) {
  for (const bool own : {false, true}) {
    const Captured captured = inCaptureProcess([own](Notes& notes) {
      if (pipe(pStdErr) != 0) {
        return;
      }
      dup2(std::exchange(pStdErr[1], own ? -1 : STDIN_FILENO), STDIN_FILENO);
      messageEnd = own ? STDIN_FILENO : -1;
      notes["written"] = std::to_string(sendMessageToDlogError("kept"));
      fillUp(STDIN_FILENO);
      notes["full"] = std::to_string(sendMessageToDlogError("lost"));
    });
    EXPECT_EQ(captured.notes, (Notes{{"full", "-1"}, {"written", "4"}})) << own;
  }
}

TEST(MessageEnd, WithTheNumberZeroIsClosedToo) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    messageEnd = STDIN_FILENO;
    closeMessageEnd();
    notes["end"] = std::to_string(messageEnd);
    notes["flags"] = std::to_string(fcntl(STDIN_FILENO, F_GETFD));
  });
  EXPECT_EQ(captured.notes, (Notes{{"end", "-1"}, {"flags", "-1"}}));
}

TEST(MessageEnd, TakesNoNumberOfAStandardStream) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    notes["pipe"] = std::to_string(pipe(pStdErr));
    const WithoutStandardInput without;
    openMessageEnd(pStdErr[1]);
    notes["moved"] = messageEnd > STDERR_FILENO ? "yes" : "no";
  });
  EXPECT_EQ(captured.notes, (Notes{{"moved", "yes"}, {"pipe", "0"}}));
}

// Another thread may fill the pipe between poll(2) and write(2). Sends a message to which this
// happens twice.
Captured messageAfterLostRaces(bool hasReader) {
  return inCaptureProcess([hasReader](Notes& notes) {
    if (pipe(pStdErr) != 0) {
      return;
    }
    if (hasReader) {
      stderrProgress.starting();
    }
    calls().lostRaces = 2;
    ScriptedCalls::active = true;
    notes["written"] = std::to_string(sendMessageToDlogError("kept"));
    ScriptedCalls::active = false;
    notes["unread"] = std::to_string(unreadBytes(pStdErr[0]));
  });
}

TEST(HandlerMessage, IsSentAgainIfAnotherWriterTakesTheRoom) {
  EXPECT_EQ(messageAfterLostRaces(true).notes, (Notes{{"unread", "4"}, {"written", "4"}}));
}

TEST(HandlerMessage, IsGivenUpIfAnotherWriterTakesTheRoomAndNobodyReads) {
  EXPECT_EQ(messageAfterLostRaces(false).notes, (Notes{{"unread", "0"}, {"written", "-1"}}));
}

// Interrupts system calls of another thread that sleeps in one, several times.
void interrupt(pthread_t thread, pid_t id) {
  static std::atomic<int> count;
  struct sigaction action = {};
  action.sa_handler = [](int) { ++count; };
  sigaction(SIGUSR1, &action, nullptr);
  for (int wanted = count + 3; count < wanted;) {
    while (isReadyToRun(id)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    pthread_kill(thread, SIGUSR1);
  }
}

TEST(HandlerMessage, WaitsOnAfterASignal) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    if (!makeFullPipe()) {
      return;
    }
    std::thread reader([sender = pthread_self(), id = gettid()] {
      stderrProgress.running();
      interrupt(sender, id);
      std::array<char, 65536> buffer;
      if (read(pStdErr[0], buffer.data(), buffer.size()) < 0) {
        _exit(1);
      }
    });
    notes["written"] = std::to_string(sendMessageToDlogError("kept"));
    reader.join();
  });
  EXPECT_EQ(captured.note("written"), "4");
}

TEST(HandlerMessage, HasNoMessageEndIfItCannotBeOpened) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    if (pipe(pStdErr) != 0) {
      return;
    }
    openMessageEnd(-1);
    notes["written"] = std::to_string(sendMessageToDlogError("x"));
    std::array<char, 4> buffer{};
    notes["read"] = std::to_string(read(pStdErr[0], buffer.data(), buffer.size()));
  });
  EXPECT_EQ(captured.notes, (Notes{{"written", "1"}, {"read", "1"}}));
}

TEST(HandlerMessage, IsGivenUpIfTheReadEndIsClosed) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    if (pipe(pStdErr) != 0) {
      return;
    }
    openMessageEnd(pStdErr[1]);
    close(pStdErr[0]);
    notes["written"] = std::to_string(sendMessageToDlogError("lost"));
  });
  EXPECT_EQ(captured.ending, "");  // no SIGPIPE
  EXPECT_EQ(captured.note("written"), "-1");
}

// No write end of standard error is open any more: the reader has ended, but the handlers are still
// active.
TEST(HandlerMessage, IsGivenUpAfterTheReadersEndAndHandlersAct) {
  const auto after = [](int signal) {
    return inCaptureProcess([signal](Notes& notes) {
      registerSignalHandler();
      tvRunLoggingThread();
      closeMessageEnd();
      for (const int end : {STDERR_FILENO, int{pStdErr[1]}}) {
        close(end);
      }
      awaitEndOf("Stderr Thread");
      notes["written"] = std::to_string(sendMessageToDlogError("lost"));
      if (signal != 0) {
        raise(signal);
      }
    });
  };
  EXPECT_EQ(after(0).note("written"), "-1");
  EXPECT_EQ(after(SIGTERM).ending, "");  // status 0
  EXPECT_EQ(after(SIGABRT).ending, "signal " + std::to_string(SIGABRT));
}

// The reader calls time() when it creates the name of the error file.
Captured faultOnTheReader(int signal) {
  return inCaptureProcess([=](Notes&) {
    registerSignalHandler();
    tvRunLoggingThread();
    calls().onTime = [=] {
      fillUp(pStdErr[1]);
      raise(signal);
    };
    put(STDERR_FILENO, "x");
    pause();
  });
}

TEST(HandlerMessage, AFaultOnTheReaderWithAFullPipeEndsTheProcess) {
  EXPECT_EQ(faultOnTheReader(SIGABRT).ending, "signal " + std::to_string(SIGABRT));
  EXPECT_EQ(faultOnTheReader(SIGSEGV).ending, "signal " + std::to_string(SIGSEGV));
}

}  // namespace
}  // namespace quillon::test
