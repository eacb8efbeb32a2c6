// What a client does if the server or a worker is silent or ends, with a server and workers that
// follow a script.
#include "quillon/launchpad/client/pending_launch.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "quillon/base/exit_status.h"
#include "quillon/base/process.h"
#include "quillon/base/record.h"
#include "quillon/launchpad/protocol/exit_state.h"
#include "quillon/launchpad/protocol/hand_over.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/protocol/request.h"

namespace quillon::launchpad {
namespace {

using namespace std::chrono_literals;
using ::testing::Optional;

constexpr std::chrono::milliseconds kShort = 200ms;
// For a step that a busy machine must be able to take in this time.
constexpr std::chrono::milliseconds kEnough = 2s;
constexpr std::chrono::milliseconds kLong = 20s;  // against a hang of the test

// What a worker does with the socket to its client. It exits with status 0 afterwards.
using WorkerMain = std::function<void(int client)>;

void takeOver(int client) {
  Message handOver;
  if (receiveMessage(client, handOver) != Received::kMessage ||
      !parseHandOver(std::move(handOver)) || !sendMessage(client, MessageKind::kTakenOver)) {
    _exit(1);
  }
}

void start(int client) {
  takeOver(client);
  if (!sendMessage(client, MessageKind::kStarted)) {
    _exit(1);
  }
}

void hang(int /*client*/) { pause(); }

// Offers the client a connection. Returns the worker's end.
Descriptor connectClient(int socket) {
  auto [clientEnd, workerEnd] = makeSocketPair();
  Connection connection{std::move(clientEnd), std::move(workerEnd)};
  sendConnection(socket, connection);
  return std::move(connection.worker);
}

// Runs a worker in a child of the server and reports its end.
void serveWith(const WorkerMain& worker, int socket) {
  Descriptor connection = connectClient(socket);
  const pid_t pid = fork();
  if (pid == 0) {
    close(socket);
    worker(connection.get());
    _exit(0);
  }
  connection.reset();
  const Descriptor pidfd = openPidfd(pid);
  sendTaken(socket, pid, pidfd.get());
  int status = 0;
  waitpid(pid, &status, 0);
  const ExitState state = WIFSIGNALED(status) ? ExitState{true, WTERMSIG(status)}
                                              : ExitState{false, WEXITSTATUS(status)};
  sendMessage(socket, MessageKind::kEnded, encode(state));
}

// Waits for the outcome of a launch that the server at the other end of the socket gets.
LaunchOutcome awaitOutcome(const Descriptor& socket, const Timeouts& timeouts,
                           const std::vector<int>& inherited = {}) {
  const ProcSelf self;
  const Request request = makeRequest({}, self);
  EXPECT_TRUE(sendRequest(socket.get(), request));
  const EncodedHandOver handOver({}, self, {}, inherited);
  return PendingLaunch(socket, request, handOver, self.ignoredSignals(), false, timeouts)
      .awaitOutcome();
}

// Blocks a signal as long as the object lives. The process gets it, and it stays pending.
class PendingSignal {
 public:
  explicit PendingSignal(int signal) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, signal);
    sigprocmask(SIG_BLOCK, &signals, &before_);
    raise(signal);
  }
  ~PendingSignal() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  PendingSignal(const PendingSignal&) = delete;
  PendingSignal& operator=(const PendingSignal&) = delete;

 private:
  sigset_t before_{};
};

class PendingLaunchTest : public ::testing::Test {
 protected:
  ~PendingLaunchTest() override {
    if (server_ > 0) {
      kill(server_, SIGKILL);
      waitpid(server_, nullptr, 0);
    }
  }

  // Launches with a server that has these workers, then ends if `ends`, else is silent.
  LaunchOutcome launch(const std::vector<WorkerMain>& workers,
                       const Timeouts& timeouts = {kLong, kLong, kLong}, bool ends = false,
                       const std::vector<int>& inherited = {}) {
    auto [socket, other] = makeSocketPair();
    std::array<int, 2> life{};
    EXPECT_EQ(pipe2(life.data(), O_CLOEXEC), 0);
    server_ = fork();
    if (server_ == 0) {
      socket.reset();
      for (const int descriptor : inherited) {
        close(descriptor);  // only the client has it
      }
      for (const WorkerMain& worker : workers) {
        Message request;
        receiveMessage(other.get(), request);
        serveWith(worker, other.get());
      }
      if (workers.empty()) {
        const Descriptor connection = offers_ ? connectClient(other.get()) : Descriptor();
        Message request;
        receiveMessage(other.get(), request);
      }
      ends ? _exit(0) : static_cast<void>(pause());
    }
    other.reset();
    close(life[1]);
    life_ = Descriptor(life[0]);
    return awaitOutcome(socket, timeouts, inherited);
  }

  // Lets a server without workers offer a connection.
  void offerConnection() { offers_ = true; }

  // Launches with a server that has sent all its messages before the client reads one: its worker
  // has started the application and ended. The server ends later.
  LaunchOutcome launchEnded(const ExitState& state) {
    auto [socket, other] = makeSocketPair();
    const pid_t worker = fork();
    if (worker == 0) {
      _exit(0);
    }
    const Descriptor connection = connectClient(other.get());
    const Descriptor pidfd = openPidfd(worker);
    EXPECT_TRUE(sendTaken(other.get(), worker, pidfd.get()));
    EXPECT_TRUE(sendMessage(connection.get(), MessageKind::kTakenOver));
    EXPECT_TRUE(sendMessage(connection.get(), MessageKind::kStarted));
    EXPECT_TRUE(sendMessage(other.get(), MessageKind::kEnded, encode(state)));
    server_ = fork();
    if (server_ == 0) {
      socket.reset();
      std::this_thread::sleep_for(kLong);
      _exit(0);
    }
    other.reset();
    const LaunchOutcome outcome = awaitOutcome(socket, {kLong, kLong, kLong});
    waitpid(worker, nullptr, 0);
    return outcome;
  }

  // Whether the workers have ended, if the server has.
  bool haveEnded() {
    kill(server_, SIGKILL);
    pollfd ended{life_.get(), POLLIN, 0};
    return poll(&ended, 1, static_cast<int>(kLong.count())) == 1;
  }

 private:
  bool offers_ = false;
  pid_t server_ = -1;
  Descriptor life_;  // readable when no process has the other end
};

TEST_F(PendingLaunchTest, IsDirectIfTheServerIsSilent) {
  const LaunchOutcome outcome = launch({}, {kShort, kLong, kLong});
  EXPECT_FALSE(outcome.status);
  EXPECT_EQ(outcome.whyNot, "the launch pad does not answer");
}

TEST(PendingLaunch, IsDirectIfTheServerSendsAMalformedMessage) {
  const std::pair<MessageKind, std::string> kMalformed[] = {
      {MessageKind::kEnded, RecordWriter().number(0).number(256).take()},
      {MessageKind::kEnded, RecordWriter().number(1).number(0x7fffffff).take()},
      {MessageKind::kEnded, ""},
      {MessageKind::kDeclined, "reason"},
  };
  for (const auto& [kind, bytes] : kMalformed) {
    const auto [socket, other] = makeSocketPair();
    ASSERT_TRUE(sendMessage(other.get(), kind, bytes));
    const LaunchOutcome outcome = awaitOutcome(socket, {kShort, kLong, kLong});
    EXPECT_FALSE(outcome.status);
    EXPECT_EQ(outcome.whyNot, "the launch pad closed the connection");
  }
}

// Otherwise a reader of a pipe would wait for the stopped server.
TEST_F(PendingLaunchTest, TakesItsDescriptorsBackFromASilentServer) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(pipe2(pipe.data(), O_CLOEXEC), 0);
  const Descriptor reader(pipe[0]);
  offerConnection();
  const LaunchOutcome outcome = launch({}, {kEnough, kLong, kLong}, false, {pipe[1]});
  EXPECT_FALSE(outcome.status);
  EXPECT_EQ(outcome.whyNot, "the launch pad does not answer");
  close(pipe[1]);
  pollfd ended{reader.get(), POLLIN, 0};
  EXPECT_EQ(poll(&ended, 1, 0), 1);
}

TEST_F(PendingLaunchTest, IsDirectIfTheWorkerDoesNotTakeOver) {
  const LaunchOutcome outcome = launch({hang}, {kLong, kShort, kLong});
  EXPECT_FALSE(outcome.status);
  EXPECT_EQ(outcome.whyNot, "its prepared process does not take the launch over");
  EXPECT_TRUE(haveEnded());
}

TEST_F(PendingLaunchTest, IsDirectIfTheWorkerDoesNotStart) {
  const LaunchOutcome outcome = launch({[](int client) {
                                         takeOver(client);
                                         pause();
                                       }},
                                       {kLong, kEnough, kShort});
  EXPECT_FALSE(outcome.status);
  EXPECT_EQ(outcome.whyNot, "its prepared process does not start the application");
  EXPECT_TRUE(haveEnded());
}

// The application may run as long as it likes.
TEST_F(PendingLaunchTest, WaitsForAnApplicationThatHasStarted) {
  const LaunchOutcome outcome = launch({[](int client) {
                                         start(client);
                                         std::this_thread::sleep_for(kEnough + 2 * kShort);
                                         _exit(7);
                                       }},
                                       {kLong, kEnough, kShort});
  EXPECT_THAT(outcome.status, Optional(7));
}

TEST_F(PendingLaunchTest, HasTheStatusOfAWorkerThatTookOver) {
  const LaunchOutcome outcome = launch({[](int client) {
    takeOver(client);
    _exit(7);
  }});
  EXPECT_THAT(outcome.status, Optional(7));
}

TEST_F(PendingLaunchTest, TriesASecondWorker) {
  const LaunchOutcome outcome = launch({[](int) { _exit(1); },
                                        [](int client) {
                                          start(client);
                                          _exit(7);
                                        }});
  EXPECT_THAT(outcome.status, Optional(7));
}

TEST_F(PendingLaunchTest, TriesASecondWorkerIfTheFirstIsKilledBeforeTheStart) {
  const LaunchOutcome outcome = launch({[](int client) {
                                          takeOver(client);
                                          raise(SIGKILL);
                                        },
                                        [](int client) {
                                          start(client);
                                          _exit(7);
                                        }});
  EXPECT_THAT(outcome.status, Optional(7));
}

TEST_F(PendingLaunchTest, IsDirectAfterTwoWorkers) {
  const LaunchOutcome outcome = launch({[](int) { _exit(1); }, [](int) { _exit(1); }});
  EXPECT_FALSE(outcome.status);
  EXPECT_EQ(outcome.whyNot, "the prepared process died before the application began");
}

// For example because too many descriptors are on their way (unix(7), ETOOMANYREFS).
TEST_F(PendingLaunchTest, IsDirectAtOnceIfTheLaunchCannotBeSent) {
  constexpr int kNotOpen = 999;
  const LaunchOutcome outcome = launch({hang, hang}, {kLong, kLong, kLong}, false, {kNotOpen});
  EXPECT_FALSE(outcome.status);
  EXPECT_EQ(outcome.whyNot, "the prepared process died before the application began");
  EXPECT_TRUE(haveEnded());
}

// A worker that has changed its credentials does not end with the server by itself.
TEST_F(PendingLaunchTest, EndsAStartedApplicationIfTheServerEnds) {
  const LaunchOutcome outcome = launch({[](int client) {
    start(client);
    kill(getppid(), SIGKILL);
    pause();
  }});
  EXPECT_THAT(outcome.status, Optional(static_cast<int>(kLaunchPadState)));
  EXPECT_TRUE(haveEnded());
}

// A signal that is pending ends the launch if no worker has it.
TEST_F(PendingLaunchTest, HasTheStatusOfAnApplicationThatEndedBeforeTheSignalWasRead) {
  const PendingSignal signal(SIGTERM);
  const LaunchOutcome outcome = launchEnded({false, 7});
  EXPECT_THAT(outcome.status, Optional(7));
}

// The client waits for a silent server. In a direct launch the signals have this effect.
[[noreturn]] void launchWithPending(int number) {
  const auto [socket, other] = makeSocketPair();
  const PendingSignal signal(number);
  awaitOutcome(socket, {kShort, kLong, kLong});
  _exit(7);
}

TEST(PendingLaunchSignals, EndTheClientIfNoWorkerHasTheLaunch) {
  for (const int signal : {SIGTERM, SIGUSR1, SIGALRM, SIGRTMIN, SIGRTMAX}) {
    EXPECT_EXIT(launchWithPending(signal), ::testing::KilledBySignal(signal), "");
  }
  for (const int signal : {SIGCONT, SIGURG, SIGWINCH}) {
    EXPECT_EXIT(launchWithPending(signal), ::testing::ExitedWithCode(7), "");
  }
}

TEST_F(PendingLaunchTest, IsDirectIfTheServerEnds) {
  const LaunchOutcome outcome = launch({}, {kLong, kLong, kLong}, true);
  EXPECT_FALSE(outcome.status);
  EXPECT_EQ(outcome.whyNot, "the launch pad closed the connection");
}

}  // namespace
}  // namespace quillon::launchpad
