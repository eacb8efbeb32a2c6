// Tests of every way in which a capture can fail to start: the message, the result, and the
// remaining state.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/unit/util/capture/capture_process.h"
#include "tests/unit/util/capture/scripted_calls.h"
#include "util/log/reader_progress.h"
#include "util/log/stream_capture.h"

namespace quillon::test {
namespace {

using ::testing::ElementsAre;

struct Failure {
  const char* call;
  int result;
  std::vector<std::string> messages;  // "operation: message"
  const char* redirected;             // which of "out" and "err" are redirected to the pipes
  std::vector<std::string> readers;
};

void PrintTo(const Failure& failure, std::ostream* out) { *out << failure.call; }

constexpr int kBriefly = 100;
constexpr char kNoManager[] = "tvRunLoggingThread: Failed to initnialize LogManager";

const Failure kFailures[] = {
    {"setvbuf stdout line 0",
     -1,
     {"tvInitializeLogManager: fail to make stdout line-buffered", kNoManager},
     "",
     {}},
    {"setvbuf stderr none 0",
     -1,
     {"tvInitializeLogManager: make stderr unbuffered", kNoManager},
     "",
     {}},
    {"pipe 1",
     -1,
     {"tvInitializeLogManager: fail to create pipe for stdout logging", kNoManager},
     "",
     {}},
    {"pipe 2",
     -1,
     {"tvInitializeLogManager: fail to create pipe for stderr logging", kNoManager},
     "",
     {}},
    {"dup2 1", -1, {"tvRedirectFD: fail to duplicate fd to stdout", kNoManager}, "", {}},
    {"dup2 2", -1, {"tvRedirectFD: fail to duplicate fd to stderr", kNoManager}, "out", {}},
    {"pthread_create 1", -1, {"tvRunLoggingThread: fail to create pthread"}, "out err", {}},
    {"pthread_setname_np Stdout Thread",
     0,
     {"tvRunLoggingThread: fail to set name of pthread"},
     "out err",
     {"Stderr Thread"}},
    {"pthread_detach 1",
     -1,
     {"tvRunLoggingThread: fail to detach pthread"},
     "out err",
     {"Stdout Thread"}},
    {"pthread_create 2",
     -1,
     {"tvRunLoggingThread: fail to create pthread"},
     "out err",
     {"Stdout Thread"}},
    {"pthread_setname_np Stderr Thread",
     0,
     {"tvRunLoggingThread: fail to set name of pthread"},
     "out err",
     {"Stdout Thread"}},
    {"pthread_detach 2",
     -1,
     {"tvRunLoggingThread: fail to detach pthread"},
     "out err",
     {"Stderr Thread", "Stdout Thread"}},
};

std::string redirected() {
  const bool out = pStdOut[1] >= 0 && fileBehind(STDOUT_FILENO) == fileBehind(pStdOut[1]);
  const bool err = pStdErr[1] >= 0 && fileBehind(STDERR_FILENO) == fileBehind(pStdErr[1]);
  return std::string(out ? "out" : "") + (err ? " err" : "");
}

std::string namedReaders() {
  std::string names;
  for (const std::string& name : threadNames()) {
    if (name.rfind("Std", 0) == 0) {
      names += name + ";";
    }
  }
  return names;
}

class CaptureFailure : public ::testing::TestWithParam<Failure> {
 protected:
  // Starts a capture in which one call fails, then writes to both streams.
  Captured start() const {
    return inCaptureProcess([](Notes& notes) {
      calls().active = true;
      calls().failing = GetParam().call;
      notes["result"] = std::to_string(tvRunLoggingThread());
      calls().active = false;
      notes["redirected"] = redirected();
      notes["readers"] = namedReaders();
      put(STDOUT_FILENO, "printed");
      put(STDERR_FILENO, "printed as error");
      waitForStderrReader(kBriefly);
    });
  }
};

INSTANTIATE_TEST_SUITE_P(Calls, CaptureFailure, ::testing::ValuesIn(kFailures),
                         [](const auto& call) {
                           std::string name = call.param.call;
                           std::replace(name.begin(), name.end(), ' ', '_');
                           return name;
                         });

std::string operationOf(const std::string& text) {
  const std::size_t begin = text.find(": ") + 2;
  return text.substr(begin, text.find('(') - begin);
}

// Returns the errors of the start, without those that the readers log, as "operation: message".
std::vector<std::string> errorMessages(const Captured& captured) {
  std::vector<std::string> messages;
  for (size_t i = 0; i < captured.lines.size(); ++i) {
    const bool ofStart = captured.texts[i].find("Redirect(") == std::string::npos;
    if (ofStart && captured.lines[i][0] == '6') {
      messages.push_back(operationOf(captured.texts[i]) + ": " + captured.lines[i].substr(2));
    }
  }
  return messages;
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    text += name + ";";
  }
  return text;
}

TEST_P(CaptureFailure, IsLoggedAndReportedAndLeavesWhatIsDone) {
  const Captured captured = start();
  EXPECT_EQ(captured.ending, "");
  EXPECT_EQ(captured.note("result"), std::to_string(GetParam().result));
  EXPECT_EQ(errorMessages(captured), GetParam().messages);
  EXPECT_EQ(captured.note("redirected"), GetParam().redirected);
  EXPECT_EQ(captured.note("readers"), joined(GetParam().readers));
}

TEST_P(CaptureFailure, NothingAfterItIsTried) {
  const Captured captured = start();
  const std::string failed = GetParam().call;
  if (GetParam().result < 0) {
    EXPECT_EQ(captured.calls.back(), failed);
  } else {
    EXPECT_EQ(captured.calls.back(), "pthread_detach 2");
  }
}

TEST_P(CaptureFailure, ReadersThatRunGoOnReading) {
  const Captured captured = start();
  const std::string failed = GetParam().call;
  const bool hasStdout = failed.starts_with("pthread_") && failed != "pthread_create 1";
  const bool hasStderr = hasStdout && failed != "pthread_detach 1" && failed != "pthread_create 2";
  EXPECT_EQ(captured.output().size(), hasStdout ? 1U : 0U);
  EXPECT_EQ(captured.errors().size(), hasStderr ? 1U : 0U);
}

TEST(ReaderProgress, AReaderThatCannotStartHasEnded) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    calls().active = true;
    calls().failing = "pthread_create 2";
    notes["result"] = std::to_string(tvRunLoggingThread());
    notes["reader"] = stderrProgress.runsConcurrently() ? "runs" : "has ended";
  });
  EXPECT_EQ(captured.notes, (Notes{{"reader", "has ended"}, {"result", "-1"}}));
}

TEST(LogManager, ReturnsMinusOneIfAnyStepFails) {
  for (const char* const step :
       {"setvbuf stdout line 0", "setvbuf stderr none 0", "pipe 1", "pipe 2", "dup2 1", "dup2 2"}) {
    const Captured captured = inCaptureProcess([step](Notes& notes) {
      calls().active = true;
      calls().failing = step;
      notes["result"] = std::to_string(tvInitializeLogManager());
    });
    EXPECT_EQ(captured.note("result"), "-1") << step;
  }
  const Captured captured = inCaptureProcess(
      [](Notes& notes) { notes["result"] = std::to_string(tvInitializeLogManager()); });
  EXPECT_EQ(captured.note("result"), "0");
}

// If descriptors are used up, a pipe keeps the number that it got.
TEST(Redirection, TakesAPipeWithTheNumberZero) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    dup2(open("/dev/null", O_RDWR | O_CLOEXEC), STDIN_FILENO);
    pStdOut[1] = STDIN_FILENO;
    pStdErr[1] = STDIN_FILENO;
    notes["zero"] = std::to_string(tvRedirectFD());
  });
  EXPECT_EQ(captured.notes, (Notes{{"zero", "0"}}));
}

TEST(Redirection, ReturnsMinusOneIfAStreamStays) {
  for (const char* const step : {"dup2 1", "dup2 2"}) {
    const Captured captured = inCaptureProcess([step](Notes& notes) {
      notes["pipes"] = std::to_string(pipe(pStdOut) + pipe(pStdErr));
      calls().active = true;
      calls().failing = step;
      notes["result"] = std::to_string(tvRedirectFD());
    });
    EXPECT_EQ(captured.notes, (Notes{{"pipes", "0"}, {"result", "-1"}})) << step;
  }
}

TEST(Redirection, NeedsBothPipes) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    calls().active = true;
    notes["none"] = std::to_string(tvRedirectFD());
    if (pipe(pStdOut) == 0) {
      notes["one"] = std::to_string(tvRedirectFD());
    }
  });
  EXPECT_EQ(captured.notes, (Notes{{"none", "-1"}, {"one", "-1"}}));
  EXPECT_THAT(captured.lines, ElementsAre("6 fail to create pipe for logging",
                                          "6 fail to create pipe for logging"));
  EXPECT_THAT(captured.calls, ElementsAre("pipe 1"));
}

}  // namespace
}  // namespace quillon::test
