#include "tests/system/launchpad/running_launchpad.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "quillon/base/descriptor.h"
#include "quillon/base/process.h"
#include "quillon/launchpad/protocol/address.h"
#include "quillon/launchpad/protocol/message.h"
#include "tests/support/execute.h"
#include "tests/system/launch/running_zone.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

const std::string kQuillon = std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon";

[[noreturn]] void becomeLaunchpad(const std::vector<std::string>& command, const fs::path& out,
                                  const fs::path& err) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
  dup2(open(out.c_str(), kFlags, 0600), STDOUT_FILENO);
  dup2(open(err.c_str(), kFlags, 0600), STDERR_FILENO);
  putenv(const_cast<char*>(kRuntimeSanitizerOptions));
  setenv("QUILLON_LOG", "none", 1);
  execute(command);
}

int statusOf(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

bool isAlive(pid_t process) {
  const Descriptor pidfd = openPidfd(process);
  return pidfd ? isRunning(pidfd) : errno != ESRCH;
}

void LaunchpadTest::SetUp() {
  RuntimeTest::SetUp();
  if (!IsSkipped()) {
    makeDevice();
  }
}

LaunchpadTest::~LaunchpadTest() {
  if (launchpad_ > 0) {
    killLaunchpad();
  }
}

void LaunchpadTest::start(int size, int ignored, const std::vector<std::string>& more) {
  size_ = size;
  std::vector<std::string> command = {program_,         "launchpad",
                                      "--device",       root(),
                                      "--type",         "none",
                                      "--size",         std::to_string(size),
                                      "--refill-delay", std::to_string(refillDelay_),
                                      "--memory",       std::to_string(memory_)};
  command.insert(command.end(), more.begin(), more.end());
  launchpad_ = fork();
  if (launchpad_ == 0) {
    if (ignored != 0) {
      signal(ignored, SIG_IGN);
    }
    if (!prepareLaunchpadProcess()) {
      _exit(126);
    }
    becomeLaunchpad(command, fresh("launchpad-out"), fresh("launchpad-errors"));
  }
  ASSERT_TRUE(eventually([&] { return control("status").status == 0; })) << errors();
}

void LaunchpadTest::prepareFor(const std::vector<std::string>& launchArguments) {
  const size_t ready = processes("ready").size();
  ASSERT_EQ(launch(launchArguments).status, 0);
  ASSERT_TRUE(awaitProcesses("ready", ready + processesOfALaunch())) << status() << errors();
}

CommandResult LaunchpadTest::control(const std::string& action) const {
  return run({kQuillon, "launchpad", action, "--device", root()});
}

int LaunchpadTest::numberAfter(const std::string& words) const {
  const std::string text = status();
  const size_t at = text.find(words);
  return at == std::string::npos ? -1 : std::atoi(text.c_str() + at + words.size());
}

int LaunchpadTest::served() const { return numberAfter("served: "); }

int LaunchpadTest::servedByOwnProcesses() const { return numberAfter("by own processes: "); }

void LaunchpadTest::expectServed(int count) const {
  EXPECT_EQ(served(), count) << status() << errors();
  if (memory_ > 0) {
    EXPECT_EQ(servedByOwnProcesses(), count) << status() << errors();
  }
}

size_t LaunchpadTest::processesOfALaunch() const {
  return static_cast<size_t>(size_) + (memory_ > 0 ? 1 : 0);
}

bool LaunchpadTest::awaitReady(size_t launches) const {
  return awaitProcesses("ready", launches * processesOfALaunch());
}

std::vector<pid_t> LaunchpadTest::processes(const std::string& stage) const {
  std::istringstream lines(status());
  std::vector<pid_t> found;
  for (std::string line; std::getline(lines, line);) {
    int pid = 0;
    int end = 0;
    if (std::sscanf(line.c_str(), "  process %d: %n", &pid, &end) != 1 || end == 0) {
      continue;
    }
    const std::string rest = line.substr(static_cast<size_t>(end));
    if (rest.substr(0, rest.find(',')) == stage) {
      found.push_back(pid);
    }
  }
  return found;
}

bool LaunchpadTest::awaitProcesses(const std::string& stage, size_t count) const {
  return eventually([&] { return processes(stage).size() == count; });
}

void LaunchpadTest::expectNoAnswerTo(uid_t user) const {
  const std::string address = launchpad::addressOf(root());
  const pid_t stranger = fork();
  if (stranger == 0) {
    if (setresuid(0, 0, 0) != 0 || setuid(user) != 0) {
      _exit(1);
    }
    // connectTo() does not trust a launch pad of another user.
    const auto trusted = launchpad::connectTo(address);
    if (trusted && *trusted) {
      _exit(2);
    }
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    std::memcpy(name.sun_path + 1, address.data(), address.size());
    const int socket = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
    const auto length =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + address.size());
    if (connect(socket, reinterpret_cast<sockaddr*>(&name), length) != 0) {
      _exit(3);
    }
    launchpad::sendMessage(socket, launchpad::MessageKind::kStop);
    launchpad::Message answer;
    _exit(launchpad::receiveMessage(socket, answer) == launchpad::Received::kEnd ? 0 : 4);
  }
  EXPECT_EQ(statusOf(stranger), 0);
}

void LaunchpadTest::expectApplicationInTheZone(const std::vector<std::string>& launchpadOptions) {
  const RunningZone zone(root());
  ASSERT_NE(zone.holder(), "") << zone.started().err;
  start(1, 0, launchpadOptions);
  { RunningProbe direct(root(), "dotnet"); }
  ASSERT_TRUE(awaitReady()) << status() << errors();
  RunningProbe probe(root(), "dotnet");
  const std::string process = probe.ask("process");
  EXPECT_EQ(served(), 1) << probe.errors() << errors();
  EXPECT_EQ(fs::read_symlink("/proc/" + process + "/ns/mnt"),
            fs::read_symlink("/proc/" + zone.holder() + "/ns/mnt"));
  EXPECT_EQ(probe.quit(), 0);
}

void LaunchpadTest::expectNoErrorsInTheLog() const {
  const std::string log = fresh("log").string();
  for (const char* type : {"inhouse", "inhouseapitest", "normal", "dotnet"}) {
    for (const char* option : {"--direct", "--preload"}) {
      fs::remove(log);
      const CommandResult result =
          launch({option, "--type", type, kClock}, {"QUILLON_LOG=json:" + log});
      EXPECT_EQ(result.status, 0);
      EXPECT_EQ(result.err, "");
      EXPECT_NE(contentOf(log).find("plugin_initialize"), std::string::npos);
      EXPECT_EQ(contentOf(log).find("\"priority\":6"), std::string::npos) << contentOf(log);
    }
  }
}

void LaunchpadTest::killLaunchpad() {
  kill(launchpad_, SIGKILL);
  endOfLaunchpad();
}

int LaunchpadTest::endOfLaunchpad() {
  const int status = statusOf(launchpad_);
  launchpad_ = -1;
  return status;
}

RunningLaunch::RunningLaunch(const std::vector<std::string>& command) {
  pid_ = fork();
  if (pid_ != 0) {
    return;
  }
  std::vector<std::string> whole = {kQuillon, "launch"};
  whole.insert(whole.end(), command.begin(), command.end());
  becomeLaunchpad(whole, output_.path() / "out", output_.path() / "err");
}

RunningLaunch::~RunningLaunch() {
  if (pid_ < 0) {
    return;
  }
  kill(pid_, SIGKILL);
  wait();
}

bool RunningLaunch::relaysSignals() const {
  const std::string status = contentOf("/proc/" + std::to_string(pid_) + "/status");
  const size_t at = status.find("SigBlk:\t");
  return at != std::string::npos &&
         (std::stoull(status.substr(at + 8), nullptr, 16) & (1U << (SIGINT - 1))) != 0;
}

CommandResult RunningLaunch::wait() {
  CommandResult ending;
  ending.status = statusOf(pid_);
  pid_ = -1;
  ending.out = contentOf(output_.path() / "out");
  ending.err = contentOf(output_.path() / "err");
  return ending;
}

}  // namespace quillon::test
