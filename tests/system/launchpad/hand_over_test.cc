// What the launch pad checks and prepares while a worker takes a launch over.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/exit_status.h"
#include "tests/support/skip.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kEnding[] = "org.velora.sample.ending";

class HandOver : public LaunchpadTest {
 protected:
  fs::path boostSocket() const { return at("/tmp/kestsock"); }
  bool hasBoostSocket() const { return fs::is_socket(fs::symlink_status(boostSocket())); }

  // Replaces the socket as a daemon does when it starts.
  Descriptor startDaemon() const {
    fs::remove(boostSocket());
    Descriptor daemon(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    boostSocket().string().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(daemon.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(daemon.get(), 4), 0);
    return daemon;
  }

  // The process that reads /proc for the launch pad: its first child.
  pid_t inspector() const {
    const std::string number = std::to_string(launchpad());
    return std::stoi(contentOf("/proc/" + number + "/task/" + number + "/children"));
  }
};

// Whether the child that this process has started last waits for an event.
bool lastChildWaits() {
  const std::string own = std::to_string(getpid());
  std::istringstream children(contentOf("/proc/self/task/" + own + "/children"));
  std::string last;
  while (children >> last) {
  }
  return contentOf("/proc/" + last + "/stat").find(") S ") != std::string::npos;
}

// Traces a process, and stops it before a system call.
class TracedServer {
 public:
  explicit TracedServer(pid_t process)
      : process_(process),
        isTraced_(ptrace(PTRACE_SEIZE, process, nullptr, PTRACE_O_TRACESYSGOOD) == 0) {}
  ~TracedServer() { release(); }
  TracedServer(const TracedServer&) = delete;
  TracedServer& operator=(const TracedServer&) = delete;

  [[nodiscard]] bool isTraced() const { return isTraced_; }

  // Lets the process run up to the call with that number. Returns false if it does not get there.
  bool runTo(uint64_t number) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    ptrace(PTRACE_INTERRUPT, process_, nullptr, nullptr);
    while (std::chrono::steady_clock::now() < end) {
      int status = 0;
      if (waitpid(process_, &status, WNOHANG) != process_) {
        std::this_thread::yield();  // there are hundreds of calls before
        continue;
      }
      if (!WIFSTOPPED(status)) {
        return false;
      }
      if (isBefore(number, WSTOPSIG(status))) {
        return true;
      }
      ptrace(PTRACE_SYSCALL, process_, nullptr, nullptr);
    }
    return false;
  }

  void release() {
    if (isTraced_) {
      ptrace(PTRACE_DETACH, process_, nullptr, nullptr);
      isTraced_ = false;
    }
  }

 private:
  [[nodiscard]] bool isBefore(uint64_t number, int signal) const {
    __ptrace_syscall_info call{};
    return signal == (SIGTRAP | 0x80) &&
           ptrace(PTRACE_GET_SYSCALL_INFO, process_, sizeof call, &call) > 0 &&
           call.op == PTRACE_SYSCALL_INFO_ENTRY && call.entry.nr == number;
  }

  const pid_t process_;
  bool isTraced_;
};

#ifdef SYS_symlink
constexpr uint64_t kSymlink = SYS_symlink;
#else
constexpr uint64_t kSymlink = SYS_symlinkat;
#endif

// Whether a process has a working directory and waits for a message.
bool awaitsMessage(pid_t process, const fs::path& directory) {
  const fs::path folder = "/proc/" + std::to_string(process);
  std::error_code error;
  return fs::read_symlink(folder / "cwd", error) == directory &&
         contentOf(folder / "syscall").starts_with(std::to_string(SYS_recvmsg) + " ");
}

std::string noticeTo(const Descriptor& daemon) {
  const Descriptor connection(accept4(daemon.get(), nullptr, nullptr, SOCK_CLOEXEC));
  char bytes[256] = {};
  EXPECT_GT(read(connection.get(), bytes, sizeof bytes - 1), 0);
  return bytes;
}

// Otherwise an application would start with files that are not installed any more.
TEST_F(HandOver, AnInstallationDuringTheRequestIsNoticed) {
  start(1);
  prepareFor({"--raw", kClock});
  const pid_t stale = processes("ready").at(0);
  kill(inspector(), SIGSTOP);
  RunningLaunch launch({"--device", root(), "--raw", "--verbose", kClock});
  ASSERT_TRUE(eventually([&] { return hasBoostSocket(); }));  // the request has arrived
  installClock(
      "[package]\nid = \"org.velora.sample.clock\"\nversion = \"2\"\n"
      "files = \"org.velora.sample.clock\"\n"
      "privileges = [\"/privilege/internal/default/platform\"]\n"
      "[[application]]\nid = \"org.velora.sample.clock\"\nexec = \"bin/SampleClock.dll\"\n");
  kill(inspector(), SIGCONT);
  const CommandResult ending = launch.wait();
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_THAT(ending.err, HasSubstr("launched directly, not by the launch pad"));
  EXPECT_EQ(served(), 0);
  EXPECT_TRUE(eventually([&] { return !isAlive(stale); }));
}

// The plug-in asks for the note, so the launch pad is stopped before it writes the note, while the
// process takes the launch over.
TEST_F(HandOver, TheApplicationWaitsUntilItsPackageIsNoted) {
  start(1);
  prepareFor({"--raw", kEnding});
  const pid_t worker = processes("ready").at(0);
  TracedServer server(launchpad());
  if (!server.isTraced()) {
    QUILLON_SKIP("the machine does not allow ptrace(2)");
  }
  const fs::path before = fs::current_path();
  fs::current_path("/usr");
  RunningLaunch launch({"--device", root(), "--raw", kEnding, "--", "wait"});
  fs::current_path(before);
  const auto hasStarted = [&] { return !launch.output().empty(); };
  ASSERT_TRUE(server.runTo(kSymlink));
  ASSERT_TRUE(eventually(
      [&] { return awaitsMessage(worker, "/usr") || !isAlive(worker) || hasStarted(); }));
  EXPECT_TRUE(isAlive(worker));
  EXPECT_FALSE(hasStarted());
  server.release();
  EXPECT_TRUE(eventually(hasStarted)) << launch.output();
  expectServed(1);
}

// The plug-in would find no package for the process, and refuse the launch without a reason.
TEST_F(HandOver, ALaunchWhosePackageCannotBeNotedFailsAsADirectOneDoes) {
  start(1);
  prepareFor({"--raw", kClock});
  const fs::path notes = at("/opt/usr/share/quillon/processes");
  fs::remove_all(notes);
  write(notes, "");
  const CommandResult direct = launch({"--direct", "--raw", kClock});
  const CommandResult prepared = launch({"--raw", kClock});
  for (const CommandResult& ending : {direct, prepared}) {
    EXPECT_EQ(ending.status, kServiceFailed);
    EXPECT_EQ(ending.out, "");
    EXPECT_THAT(ending.err, HasSubstr("cannot register a process in"));
  }
  EXPECT_EQ(served(), 0);
  fs::remove(notes);
  ASSERT_TRUE(awaitReady());
  EXPECT_EQ(launch({"--raw", kClock}).status, 0);
  expectServed(1);
}

TEST_F(HandOver, TheBoostNoticeIsReceivedAtOnceAndTheSocketRemoved) {
  const fs::path trace = fresh("trace.json");
  setenv("QUILLON_TRACE", trace.c_str(), 1);
  start(1);
  prepareFor({"--raw", kClock});
  const size_t before = contentOf(trace).size();
  EXPECT_EQ(launch({"--raw", kClock}).status, 0);
  unsetenv("QUILLON_TRACE");
  EXPECT_EQ(served(), 1);
  EXPECT_THAT(contentOf(trace).substr(before),
              AllOf(HasSubstr(std::string("APPSTART:") + kClock), Not(HasSubstr("connect error"))));
  EXPECT_TRUE(eventually([&] { return !hasBoostSocket(); }));
}

// The launch pad starts another process meanwhile, which inherits its sockets.
TEST_F(HandOver, ABoostDaemonThatStartsMeanwhileGetsTheNoticeAndKeepsItsSocket) {
  start(1);
  prepareFor({"--raw", kClock});
  const pid_t worker = processes("ready").at(0);
  kill(worker, SIGSTOP);
  RunningLaunch launch({"--device", root(), "--raw", kClock});
  ASSERT_TRUE(awaitProcesses("assigned", 1));
  ASSERT_TRUE(eventually(lastChildWaits));  // it has handed the launch over
  launch.signal(SIGSTOP);                   // so that it does not give up
  ASSERT_TRUE(awaitProcesses("ready", 1)) << status() << errors();
  EXPECT_TRUE(hasBoostSocket());
  const Descriptor daemon = startDaemon();
  kill(worker, SIGCONT);
  ASSERT_TRUE(eventually([&] { return served() == 1; })) << status() << errors();
  launch.signal(SIGCONT);
  EXPECT_EQ(launch.wait().status, 0);
  EXPECT_THAT(noticeTo(daemon), HasSubstr(std::string("APPSTART:") + kClock));
  EXPECT_EQ(control("stop").status, 0);
  EXPECT_EQ(endOfLaunchpad(), 0);
  EXPECT_TRUE(hasBoostSocket());
}

}  // namespace
}  // namespace quillon::test
