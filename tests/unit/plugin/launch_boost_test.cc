#include "plugin/src/plugin-util/launch_boost.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "tests/support/recording_platform.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/without_standard_input.h"
#include "tests/unit/plugin/scripted_sockets.h"

namespace quillon::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A daemon that accepts a connection and reads one notice.
class Daemon {
 public:
  explicit Daemon(const std::string& path) : listener_(::socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener_, 8) != 0) {
      ADD_FAILURE() << "cannot listen on " << path;
    }
  }
  ~Daemon() { close(listener_); }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  // Accepts the next connection and returns all of its bytes.
  [[nodiscard]] std::string receive() const {
    const int connection = accept(listener_, nullptr, nullptr);
    std::string bytes;
    char buffer[256];
    for (ssize_t got; (got = read(connection, buffer, sizeof(buffer))) > 0;) {
      bytes.append(buffer, static_cast<std::size_t>(got));
    }
    close(connection);
    return bytes;
  }

 private:
  int listener_;
};

class LaunchBoost : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    sockets().reset();
    KestrelScok = -1;
    KestrelConnectionTryCnt = 5;
    sockets().daemon = (folder_.path() / "daemon").string();
    sockets().active = true;
  }
  void TearDown() override { sockets().reset(); }

  // Starts the daemon while the scripted calls are inactive.
  void startDaemon() {
    sockets().active = false;
    daemon_.emplace(sockets().daemon);
    sockets().active = true;
  }

  TemporaryDirectory folder_;
  std::optional<Daemon> daemon_;
};

bool isOpen(int descriptor) {
  sockets().active = false;
  return fcntl(descriptor, F_GETFD) >= 0;
}

TEST_F(LaunchBoost, TheDaemonReceivesTheTextWithItsTerminator) {
  startDaemon();
  notifyLaunchBoost("org.example.clock", 4321);
  const std::string text = "APPSTART:org.example.clock:4321";
  EXPECT_EQ(daemon_->receive(), text + '\0');
  EXPECT_THAT(platform().markers, ElementsAre(text));
  EXPECT_EQ(sockets().askedFor, "/tmp/kestsock");
  EXPECT_EQ(sockets().askedLength, 110U);
  EXPECT_EQ(sockets().sendFlags, MSG_NOSIGNAL);
  EXPECT_EQ(KestrelScok, -1);
  EXPECT_EQ(KestrelConnectionTryCnt, 5);
  EXPECT_THAT(platform().log, IsEmpty());
  EXPECT_FALSE(isOpen(sockets().lastSocket));
}

TEST_F(LaunchBoost, EachNoticeHasAConnectionOfItsOwn) {
  startDaemon();
  notifyLaunchBoost("a", 1);
  notifyLaunchBoost("b", 2);
  EXPECT_EQ(daemon_->receive(), std::string("APPSTART:a:1\0", 13));
  EXPECT_EQ(daemon_->receive(), std::string("APPSTART:b:2\0", 13));
}

TEST_F(LaunchBoost, ALongIdIsCutToSixtyThreeCharacters) {
  startDaemon();
  const std::string id(60, 'x');
  notifyLaunchBoost(id, 4321);
  const std::string text = ("APPSTART:" + id + ":4321").substr(0, 63);
  EXPECT_EQ(daemon_->receive(), text + '\0');
  EXPECT_THAT(platform().markers, ElementsAre(text));
}

TEST_F(LaunchBoost, AnEmptyIdSendsNothingAndUsesUpNoTry) {
  notifyLaunchBoost("", 4321);
  EXPECT_THAT(platform().markers, IsEmpty());
  EXPECT_THAT(sockets().pauses, IsEmpty());
  EXPECT_EQ(KestrelConnectionTryCnt, 5);
}

TEST_F(LaunchBoost, WithoutADaemonItTriesFiveTimesWithPauses) {
  notifyLaunchBoost("a", 1);
  EXPECT_THAT(
      platform().markers,
      ElementsAre("kest Client:connect error", "kest Client:connect error",
                  "kest Client:connect error", "kest Client:connect error",
                  "kest Client:connect error count out", "kest Client:try connect kestrel"));
  EXPECT_THAT(sockets().pauses,
              ElementsAre("connect", "usleep(10000)", "connect", "usleep(10000)", "connect",
                          "usleep(10000)", "connect", "usleep(10000)", "connect"));
  EXPECT_EQ(KestrelConnectionTryCnt, 4);
  EXPECT_EQ(KestrelScok, -1);
  EXPECT_FALSE(isOpen(sockets().lastSocket));
}

TEST_F(LaunchBoost, AfterFiveFailedLaunchesItStaysSilent) {
  for (int launch = 0; launch < 5; ++launch) {
    notifyLaunchBoost("a", 1);
  }
  EXPECT_EQ(KestrelConnectionTryCnt, 0);
  platform().reset();
  sockets().pauses.clear();
  notifyLaunchBoost("a", 1);
  EXPECT_THAT(platform().markers, IsEmpty());
  EXPECT_THAT(sockets().pauses, IsEmpty());
  EXPECT_EQ(KestrelConnectionTryCnt, 0);
}

TEST_F(LaunchBoost, GoesOnWhenALaterAttemptSucceeds) {
  startDaemon();
  sockets().connectErrors = {EAGAIN, ECONNREFUSED};
  notifyLaunchBoost("a", 1);
  EXPECT_THAT(platform().markers, ElementsAre("kest Client:connect error",
                                              "kest Client:connect error", "APPSTART:a:1"));
  EXPECT_EQ(KestrelConnectionTryCnt, 5);
}

struct Failure {
  std::function<void(ScriptedSockets&)> cause;
  const char* message;
};

TEST_F(LaunchBoost, AFailureOnTheWayCostsOneTryAndTheSocket) {
  startDaemon();
  const std::vector<Failure> failures = {
      {[](auto& s) { s.socketError = EMFILE; }, "kest Client: No socket created:"},
      {[](auto& s) { s.getFlagsError = EBADF; }, "kest Client:socket fcntl get fail:"},
      {[](auto& s) { s.setFlagsError = EBADF; }, "kest Client:socket fcntl fail:"},
      {[](auto& s) { s.connectErrors = {EINPROGRESS}, s.selectResult = 0; },
       "kest Client:connect timeout"},
      {[](auto& s) { s.connectErrors = {EINPROGRESS}, s.selectResult = -1; },
       "kest Client:connect timeout"},
      {[](auto& s) { s.connectErrors = {EINPROGRESS}, s.pendingError = ECONNREFUSED; },
       "kest Client:connect delayed error"},
      {[](auto& s) { s.connectErrors = {EINPROGRESS}, s.getOptionError = ENOBUFS; },
       "kest Client:connect delayed error"},
  };
  for (const Failure& failure : failures) {
    const std::string daemon = sockets().daemon;
    platform().reset();
    sockets().reset();
    sockets().daemon = daemon;
    sockets().active = true;
    KestrelConnectionTryCnt = 5;
    failure.cause(sockets());
    notifyLaunchBoost("a", 1);
    EXPECT_THAT(platform().markers,
                ElementsAre(failure.message, "kest Client:try connect kestrel"));
    EXPECT_EQ(KestrelConnectionTryCnt, 4) << failure.message;
    EXPECT_EQ(KestrelScok, -1) << failure.message;
    EXPECT_TRUE(sockets().lastSocket == -1 || !isOpen(sockets().lastSocket)) << failure.message;
  }
}

TEST_F(LaunchBoost, WaitsASecondAtMostForASlowDaemon) {
  sockets().connectErrors = {EINPROGRESS};
  sockets().selectResult = 0;
  notifyLaunchBoost("a", 1);
  EXPECT_EQ(sockets().selectCalls, 1);
  EXPECT_EQ(sockets().selectTimeout.tv_sec, 1);
  EXPECT_EQ(sockets().selectTimeout.tv_usec, 0);
  EXPECT_THAT(sockets().watched, ElementsAre(sockets().lastSocket));
}

TEST_F(LaunchBoost, ADelayedConnectionIsUsed) {
  sockets().connectErrors = {EINPROGRESS};
  notifyLaunchBoost("a", 1);  // the socket is ready but not connected, so the send fails
  EXPECT_THAT(platform().markers,
              ElementsAre("kest Client:connect delayed", "kest Client:cannot send_msg_to_bstr"));
}

TEST_F(LaunchBoost, ADelayedConnectionCarriesTheNoticeAndUsesUpNoTry) {
  startDaemon();
  sockets().delays = true;
  notifyLaunchBoost("a", 1);
  EXPECT_THAT(platform().markers, ElementsAre("kest Client:connect delayed", "APPSTART:a:1"));
  EXPECT_EQ(daemon_->receive(), std::string("APPSTART:a:1\0", 13));
  EXPECT_EQ(KestrelConnectionTryCnt, 5);
  EXPECT_EQ(KestrelScok, -1);
}

TEST_F(LaunchBoost, TheSocketIsALocalStreamThatDoesNotBlock) {
  startDaemon();
  notifyLaunchBoost("a", 1);
  EXPECT_THAT(sockets().socketArguments, ElementsAre(AF_UNIX, SOCK_STREAM, 0));
  EXPECT_EQ(sockets().askedFamily, AF_UNIX);
  EXPECT_EQ(sockets().setFlags, O_RDWR | O_NONBLOCK);
}

TEST_F(LaunchBoost, AFailedSendCostsOneTryAndTheSocket) {
  startDaemon();
  sockets().sendError = EPIPE;
  notifyLaunchBoost("a", 1);
  EXPECT_THAT(platform().markers, ElementsAre("kest Client:cannot send_msg_to_bstr"));
  EXPECT_EQ(KestrelConnectionTryCnt, 4);
  EXPECT_EQ(KestrelScok, -1);
  EXPECT_FALSE(isOpen(sockets().lastSocket));
}

TEST_F(LaunchBoost, ASocketThatIsHeldIsUsedWithoutConnecting) {
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  KestrelScok = pair[0];
  notifyLaunchBoost("a", 1);
  char bytes[64];
  EXPECT_EQ(read(pair[1], bytes, sizeof(bytes)), 13);
  EXPECT_EQ(read(pair[1], bytes, sizeof(bytes)), 0);
  EXPECT_THAT(sockets().pauses, IsEmpty());
  EXPECT_EQ(KestrelScok, -1);
  close(pair[1]);
}

TEST_F(LaunchBoost, DescriptorZeroCountsAsNoSocket) {
  KestrelScok = 0;
  notifyLaunchBoost("a", 1);
  EXPECT_THAT(platform().markers, ElementsAre("kest Client:try connect kestrel"));
  EXPECT_EQ(KestrelConnectionTryCnt, 4);
  EXPECT_EQ(KestrelScok, 0);
}

TEST_F(LaunchBoost, ASocketWithTheNumberZeroStaysConnectedWithoutANotice) {
  startDaemon();
  const WithoutStandardInput without;
  notifyLaunchBoost("a", 1);
  EXPECT_THAT(platform().markers, ElementsAre("kest Client:try connect kestrel"));
  EXPECT_EQ(KestrelScok, 0);
}

TEST_F(LaunchBoost, ASocketWithTheNumberOneIsUsed) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const int output = dup(STDOUT_FILENO);
  dup2(ends[0], STDOUT_FILENO);
  KestrelScok = STDOUT_FILENO;
  notifyLaunchBoost("a", 1);
  dup2(output, STDOUT_FILENO);
  close(output);
  EXPECT_THAT(platform().markers, ElementsAre("APPSTART:a:1"));
  close(ends[0]);
  close(ends[1]);
}

TEST_F(LaunchBoost, WaitsForASocketPastTheEndOfAnFdSet) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_max <= FD_SETSIZE + 1) {
    GTEST_SKIP() << "the machine allows no descriptor past FD_SETSIZE";
  }
  const rlimit before = limit;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  std::vector<int> filler;
  while (filler.empty() || filler.back() < FD_SETSIZE) {
    filler.push_back(dup(2));
  }
  sockets().connectErrors = {EINPROGRESS};
  notifyLaunchBoost("a", 1);
  EXPECT_GT(sockets().lastSocket, FD_SETSIZE);
  EXPECT_EQ(sockets().selectCount, sockets().lastSocket + 1);
  EXPECT_EQ(platform().markers.front(), "kest Client:connect delayed");
  for (const int descriptor : filler) {
    close(descriptor);
  }
  setrlimit(RLIMIT_NOFILE, &before);
}

}  // namespace
}  // namespace quillon::test
