// If any process dies, each launch still runs exactly once and no process or file remains.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>

#include "quillon/base/descriptor.h"
#include "quillon/base/exit_status.h"
#include "quillon/host/application/options.h"
#include "quillon/launchpad/protocol/address.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/state/inspection_proof.h"
#include "tests/support/sanitized.h"
#include "tests/support/skip.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class Pool : public LaunchpadTest {
 protected:
  std::vector<std::string> clock(const std::string& word) const {
    return {"--device", root(), "--raw", kClock, "--", word};
  }
  void awaitEnd(const std::vector<pid_t>& processes) const {
    for (const pid_t process : processes) {
      EXPECT_TRUE(eventually([&] { return !isAlive(process); })) << process;
    }
  }
};

size_t occurrences(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

TEST_F(Pool, OnlyOneServesADeviceRootAndOnlyItsUser) {
  start(1);
  const CommandResult second =
      run({std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon", "launchpad", "--device", root()});
  EXPECT_EQ(second.status, kLaunchPadState);
  EXPECT_THAT(second.err, HasSubstr("serves the device root"));
  if (geteuid() != 0) {
    QUILLON_SKIP("only root can become another user");
  }
  expectNoAnswerTo(65534);
  EXPECT_THAT(status(), HasSubstr("serving"));
}

TEST_F(Pool, AKilledProcessIsReplaced) {
  start(2);
  prepareFor({"--raw", kClock});
  const auto before = processes("ready");
  kill(before[0], SIGKILL);
  ASSERT_TRUE(eventually([&] {
    const auto now = processes("ready");
    return now.size() == 2 && now != before;
  }));
  EXPECT_THAT(errors(), HasSubstr("ended unexpectedly; the next one starts in 1 s"));
}

TEST_F(Pool, ALaunchIsTriedOnceMoreIfItsProcessIsKilled) {
  start(2);
  prepareFor({"--raw", kClock});
  const pid_t first = processes("ready").at(0);
  kill(first, SIGSTOP);
  RunningLaunch again(clock("again"));
  ASSERT_TRUE(awaitProcesses("assigned", 1));
  kill(first, SIGKILL);
  const CommandResult ending = again.wait();
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_EQ(occurrences(ending.out, "arguments: again\n"), 1U);
  EXPECT_EQ(served(), 1);
}

TEST_F(Pool, ALaunchIsDirectIfBothItsProcessesAreKilled) {
  start(2);
  prepareFor({"--raw", kClock});
  const auto ready = processes("ready");
  for (const pid_t process : ready) {
    kill(process, SIGSTOP);
  }
  RunningLaunch direct(clock("direct"));
  for (const pid_t process : ready) {
    ASSERT_TRUE(eventually([&] {
      const auto assigned = processes("assigned");
      return assigned.size() == 1 && assigned[0] == process;
    })) << status();
    kill(process, SIGKILL);
  }
  const CommandResult ending = direct.wait();
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_EQ(occurrences(ending.out, "arguments: direct\n"), 1U);
  EXPECT_EQ(served(), 0);
}

// SIGTERM ends the process with status 0, because the plug-in does not know an application yet.
TEST_F(Pool, ALaunchIsTriedOnceMoreIfItsProcessExits) {
  start(2);
  prepareFor({"--raw", kClock});
  const pid_t first = processes("ready").at(0);
  kill(first, SIGSTOP);
  RunningLaunch again(clock("again"));
  ASSERT_TRUE(awaitProcesses("assigned", 1));
  kill(first, SIGTERM);
  kill(first, SIGCONT);
  const CommandResult ending = again.wait();
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_EQ(occurrences(ending.out, "arguments: again\n"), 1U);
  EXPECT_EQ(served(), 1);
}

TEST_F(Pool, ALaunchIsDirectIfTheLaunchPadDoesNotAnswer) {
  start(1);
  prepareFor({"--raw", kClock});
  kill(launchpad(), SIGSTOP);
  const CommandResult direct = launch({"--raw", "--verbose", kClock, "--", "--exit", "3"});
  EXPECT_EQ(direct.status, 3);
  EXPECT_THAT(direct.err, HasSubstr("the launch pad does not answer"));
  RunningLaunch asked(clock("asked"));
  ASSERT_TRUE(eventually([&] { return asked.relaysSignals(); }));
  asked.signal(SIGINT);
  EXPECT_EQ(asked.wait().status, 128 + SIGINT);
  kill(launchpad(), SIGCONT);
  // Neither of the two runs there later.
  ASSERT_TRUE(awaitProcesses("ready", 1));
  EXPECT_EQ(served(), 0);
}

TEST_F(Pool, ALaunchThatHasNotStartedOutlivesTheLaunchPad) {
  start(1);
  prepareFor({"--raw", kClock});
  kill(processes("ready").at(0), SIGSTOP);
  RunningLaunch launch(clock("later"));
  ASSERT_TRUE(awaitProcesses("assigned", 1));
  killLaunchpad();
  const CommandResult ending = launch.wait();
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_EQ(occurrences(ending.out, "arguments: later\n"), 1U);
}

TEST_F(Pool, IdleClientsDoNotPreventALaunch) {
  start(1);
  prepareFor({"--raw", kClock});
  const rlimit few{128, 128};
  ASSERT_EQ(prlimit(launchpad(), RLIMIT_NOFILE, &few, nullptr), 0);
  std::vector<Descriptor> silent;
  for (int i = 0; i < 150; ++i) {
    auto client = launchpad::connectTo(launchpad::addressOf(root()));
    ASSERT_TRUE(client);
    silent.push_back(std::move(*client));
  }
  EXPECT_EQ(served(), 0);  // it answers
  const CommandResult ending = launch({"--raw", "--verbose", kClock});
  EXPECT_EQ(ending.status, 0);
  EXPECT_EQ(served(), 1) << ending.err << errors();
}

// The number that the next descriptor of a process gets.
rlim_t nextDescriptorOf(pid_t process) {
  rlim_t number = 0;
  const fs::path folder = "/proc/" + std::to_string(process) + "/fd";
  while (fs::is_symlink(fs::symlink_status(folder / std::to_string(number)))) {
    ++number;
  }
  return number;
}

// A client gets its connection to a prepared process with its request if many clients have sent
// none yet.
TEST_F(Pool, ALaunchForWhichNoDescriptorIsLeftSaysSo) {
  putenv(const_cast<char*>(kRuntimeSanitizerOptions));  // as the launch pad has it
  start(1);
  prepareFor({"--raw", kClock});
  std::vector<Descriptor> clients;
  for (int i = 0; i < 65; ++i) {
    auto client = launchpad::connectTo(launchpad::addressOf(root()));
    ASSERT_TRUE(client);
    clients.push_back(std::move(*client));
  }
  EXPECT_EQ(served(), 0);  // it has accepted them
  const rlim_t used = nextDescriptorOf(launchpad());
  const rlimit none{used, used};
  ASSERT_EQ(prlimit(launchpad(), RLIMIT_NOFILE, &none, nullptr), 0);
  host::LaunchOptions options;
  options.appId = kClock;
  options.raw = true;
  launchpad::Request request = launchpad::makeRequest(options, launchpad::ProcSelf(),
                                                      QUILLON_BUILD_DIRECTORY "/libexec/quillon");
  request.processState += launchpad::inspectionProofOf(launchpad());
  ASSERT_TRUE(launchpad::sendRequest(clients.back().get(), request));
  launchpad::Message answer;
  ASSERT_TRUE(eventually([&] {
    return launchpad::receiveMessageNow(clients.back().get(), answer) ==
           launchpad::Received::kMessage;
  }));
  ASSERT_EQ(answer.kind, launchpad::MessageKind::kDeclined);
  EXPECT_EQ(launchpad::parseDecline(answer).value().reason,
            "the launch pad has no descriptors left for it");
}

// With an inherited SIG_IGN for SIGCHLD, waitid(2) would report no child.
TEST_F(Pool, IgnoredSignalsAreNotInherited) {
  start(1, SIGCHLD);
  EXPECT_EQ(launch({"--raw", kClock, "--", "--exit", "5"}).status, 5);
  ASSERT_TRUE(awaitProcesses("ready", 1)) << status() << errors();
  const CommandResult prepared = launch({"--raw", "--verbose", kClock, "--", "--exit", "5"});
  EXPECT_EQ(prepared.status, 5) << prepared.err << errors();
  EXPECT_EQ(served(), 1);
  const std::string ignored = "SigIgn:\t0000000000000000";
  EXPECT_THAT(contentOf("/proc/" + std::to_string(launchpad()) + "/status"), HasSubstr(ignored));
}

// A shell script ignores SIGINT in a program that it starts in the background.
TEST_F(Pool, IgnoredSignalsAreIgnoredByTheLaunchPadItself) {
  start(1, SIGINT);
  prepareFor({"--raw", kClock});
  kill(launchpad(), SIGINT);
  EXPECT_EQ(launch({"--raw", kClock}).status, 0);
  EXPECT_EQ(served(), 1);
  kill(launchpad(), SIGTERM);
  EXPECT_EQ(endOfLaunchpad(), 0);
}

// A launch detects every change that happened before its request.
TEST_F(Pool, AProcessIsReplacedIfAFolderOfTheListsChanges) {
  start(1);
  prepareFor({"--raw", kClock});
  const std::vector<std::function<void()>> changes = {
      [&] { write(at("/usr/share/dotnet.velora/tvappapi/Another.dll"), ""); },
      [&] { fs::remove(at("/usr/share/dotnet.velora/tvappapi/Another.dll")); },
      [&] { fs::create_directory(at("/usr/share/dotnet.velora/another")); },
      [&] { write(at("/usr/share/dotnet.velora/another/a"), ""); }};
  for (const auto& change : changes) {
    change();
    EXPECT_THAT(launch({"--raw", "--verbose", kClock}).err, HasSubstr("no process is ready"));
    ASSERT_TRUE(awaitProcesses("ready", 1));
  }
  EXPECT_EQ(served(), 0);
  EXPECT_EQ(launch({"--raw", kClock}).status, 0);
  EXPECT_EQ(served(), 1);
}

TEST_F(Pool, AProcessIsReplacedIfTheCertificatesChange) {
  start(1);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 1));
  write(at("/opt/data/cert/zqca.pem"), "");
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 1));
  RunningProbe probe(root(), "inhouse");
  EXPECT_EQ(served(), 1);
  EXPECT_EQ(probe.ask("variable SSL_CERT_FILE"), "/opt/data/cert/zqca.pem");
}

TEST_F(Pool, TheApplicationEndsWithItsClient) {
  start(1);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 1));
  pid_t application = 0;
  {
    RunningProbe probe(root(), "inhouse");
    application = std::stoi(probe.ask("process"));
    EXPECT_EQ(served(), 1);
  }  // killed
  awaitEnd({application});
}

TEST_F(Pool, AnAssignedProcessEndsWithItsClient) {
  start(1);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 1));
  const auto ready = processes("ready");
  kill(ready[0], SIGSTOP);
  {
    RunningLaunch launch({"--device", root(), kProbe});
    ASSERT_TRUE(awaitProcesses("assigned", 1));
  }
  awaitEnd(ready);
  EXPECT_TRUE(awaitProcesses("ready", 1));
}

TEST_F(Pool, NothingOutlivesAKilledLaunchPad) {
  start(2);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 2));
  RunningProbe probe(root(), "inhouse");
  auto all = processes("ready");
  all.push_back(std::stoi(probe.ask("process")));
  ASSERT_EQ(served(), 1);
  killLaunchpad();
  EXPECT_EQ(probe.quit(), kLaunchPadState);
  EXPECT_THAT(probe.errors(), HasSubstr("quillon: the launch pad ended, and the application with"));
  awaitEnd(all);
  EXPECT_EQ(launch({kClock}).status, 0);
  start(1);  // its address is free again
  EXPECT_THAT(status(), HasSubstr("serving"));
}

TEST_F(Pool, StopAndReloadKeepRunningApplications) {
  start(1);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 1));
  auto probe = std::make_unique<RunningProbe>(root(), "inhouse");
  ASSERT_EQ(served(), 1);
  ASSERT_TRUE(awaitProcesses("ready", 1));
  const auto before = processes("ready");
  EXPECT_EQ(control("reload").status, 0);
  awaitEnd(before);
  ASSERT_TRUE(awaitProcesses("ready", 1));
  EXPECT_EQ(probe->ask("variable QUILLON_APP_ID"), kProbe);
  kill(launchpad(), SIGTERM);
  ASSERT_TRUE(eventually([&] { return status().starts_with("stopping"); }));
  EXPECT_TRUE(awaitProcesses("ready", 0));
  const CommandResult late = launch({"--raw", "--verbose", kClock, "--", "--exit", "3"});
  EXPECT_EQ(late.status, 3);
  EXPECT_THAT(late.err, HasSubstr("the launch pad is about to stop"));
  EXPECT_EQ(probe->ask("variable QUILLON_APP_ID"), kProbe);
  // A second stop does not wait for applications.
  EXPECT_EQ(control("stop").status, 0);
  EXPECT_EQ(endOfLaunchpad(), 0);
  EXPECT_EQ(probe->quit(), 128 + SIGKILL);
  EXPECT_EQ(control("status").status, kLaunchPadState);
}

// The number of debugger files of a process in the device's temporary folder.
size_t debuggerFiles(const fs::path& folder, pid_t process) {
  const std::string number = "-" + std::to_string(process) + "-";
  size_t count = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename();
    count += occurrences(name, "clr-debug-pipe" + number) +
             occurrences(name, "dotnet-diagnostic" + number);
  }
  return count;
}

TEST_F(Pool, AnEndedProcessLeavesNoDebuggerFiles) {
  start(1);
  prepareFor({"--raw", kClock});
  const pid_t idle = processes("ready").at(0);
  const auto left = [&](pid_t process) { return debuggerFiles(at("/tmp"), process); };
  ASSERT_GT(left(idle), 0U);
  // Files of another process id with the same prefix, of a running process, and of another program.
  const std::string number = std::to_string(idle);
  const fs::path longer = at("/tmp/clr-debug-pipe-" + number + "0-1-in");
  const fs::path ofTest = at("/tmp/dotnet-diagnostic-" + std::to_string(getpid()) + "-1-socket");
  const fs::path others = at("/tmp/other-" + number + "-1-in");
  for (const fs::path& file : {longer, ofTest, others}) {
    write(file, "");
  }
  EXPECT_EQ(control("reload").status, 0);
  awaitEnd({idle});
  ASSERT_TRUE(awaitProcesses("ready", 1));
  EXPECT_EQ(left(idle), 0U);
  for (const fs::path& file : {longer, ofTest, others}) {
    EXPECT_TRUE(fs::exists(file)) << file;
  }
  // The next launch pad removes what a killed one leaves.
  const pid_t orphan = processes("ready").at(0);
  killLaunchpad();
  awaitEnd({orphan});
  EXPECT_GT(left(orphan), 0U);
  start(1);
  EXPECT_EQ(left(orphan), 0U);
  for (const fs::path& file : {ofTest, others}) {
    EXPECT_TRUE(fs::exists(file)) << file;
  }
}

size_t descriptorsOf(pid_t process) {
  const fs::path folder = "/proc/" + std::to_string(process) + "/fd";
  return static_cast<size_t>(std::distance(fs::directory_iterator(folder), {}));
}

long memoryOf(pid_t process) {
  const std::string text = contentOf("/proc/" + std::to_string(process) + "/status");
  return std::atol(text.c_str() + text.find("VmRSS:") + 6);
}

// The number of mounts in the view of a process.
size_t mountsOf(pid_t process) {
  return occurrences(contentOf("/proc/" + std::to_string(process) + "/mountinfo"), "\n");
}

// The numbers of launches one after the other and at once. The environment variable asks for more
// than the default ("ROW,AT_ONCE").
std::pair<int, int> stormSize() {
  int row = 20;
  int atOnce = 10;
  if (const char* const asked = std::getenv("QUILLON_LAUNCHPAD_STORM")) {
    std::sscanf(asked, "%d,%d", &row, &atOnce);
  }
  return {row, atOnce};
}

// Resources that must not grow with the number of launches.
struct Resources {
  size_t descriptors;
  size_t mounts;
  size_t children;  // including zombies
  long memory;      // resident, in kB
};

Resources resourcesOf(pid_t process) {
  const std::string number = std::to_string(process);
  return {descriptorsOf(process), mountsOf(process),
          occurrences(contentOf("/proc/" + number + "/task/" + number + "/children"), " "),
          memoryOf(process)};
}

TEST_F(Pool, ManyLaunchesEachRunOnceAndLeakNothing) {
  const auto [row, atOnce] = stormSize();
  allowOwnProcesses();
  start(atOnce);
  prepareFor({"--raw", kClock});
  const Resources before = resourcesOf(launchpad());
  ASSERT_GT(before.mounts, 0U);
  ASSERT_EQ(before.children, static_cast<size_t>(atOnce) + 2);  // and the inspector
  const auto expectOneRun = [](RunningLaunch& launch, const std::string& word) {
    const CommandResult ending = launch.wait();
    EXPECT_EQ(ending.status, 0) << ending.err;
    EXPECT_EQ(occurrences(ending.out, "arguments: " + word + "\n"), 1U);
  };
  for (int i = 0; i < row; ++i) {
    ASSERT_TRUE(eventually([&] { return !processes("ready").empty(); }));
    const std::string word = "row" + std::to_string(i);
    RunningLaunch launch(clock(word));
    expectOneRun(launch, word);
  }
  EXPECT_EQ(served(), row);
  ASSERT_TRUE(awaitReady());
  std::vector<std::unique_ptr<RunningLaunch>> launches;
  for (int i = 0; i < atOnce; ++i) {
    launches.push_back(std::make_unique<RunningLaunch>(clock("once" + std::to_string(i))));
  }
  for (int i = 0; i < atOnce; ++i) {
    expectOneRun(*launches[static_cast<size_t>(i)], "once" + std::to_string(i));
  }
  EXPECT_EQ(served(), row + atOnce);
  EXPECT_GT(servedByOwnProcesses(), 0);
  EXPECT_LT(servedByOwnProcesses(), row + atOnce);
  ASSERT_TRUE(awaitReady());
  const Resources after = resourcesOf(launchpad());
  EXPECT_EQ(after.descriptors, before.descriptors);
  EXPECT_EQ(after.mounts, before.mounts);
  EXPECT_EQ(after.children, before.children);
  constexpr long kSlackKb = 1024;
  // A sanitizer keeps freed memory for a while.
  if (!isSanitized()) {
    EXPECT_LE(after.memory, before.memory + kSlackKb);
  }
  std::printf("served %d; mounts %zu; descriptors %zu, then %zu; resident kB %ld, then %ld\n",
              served(), after.mounts, before.descriptors, after.descriptors, before.memory,
              after.memory);
  EXPECT_EQ(control("stop").status, 0);
  EXPECT_EQ(endOfLaunchpad(), 0);
}

}  // namespace
}  // namespace quillon::test
