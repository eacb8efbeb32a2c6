// A confined client does not get an application that is less confined, whatever its request says.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <fstream>

#include "quillon/base/directory_entries.h"
#include "quillon/base/exit_status.h"
#include "quillon/launchpad/protocol/address.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/state/inspection_proof.h"
#include "tests/support/skip.h"
#include "tests/system/attack/confined.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;

const std::string kQuillon = std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon";
const std::string kFullProgram = std::string(QUILLON_BUILD_DIRECTORY) + "/libexec/quillon";
const std::string kDiffers = " differs from the launch pad's";
const std::string kDiffer = " differ from the launch pad's";

// In a user namespace the address cannot be computed, since it contains the user's id.
Descriptor connectToAddress(const std::string& address) {
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  std::memcpy(name.sun_path + 1, address.data(), address.size());
  Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + address.size());
  connect(socket.get(), reinterpret_cast<const sockaddr*>(&name), length);
  return socket;
}

std::string answerOf(const Descriptor& socket) {
  launchpad::Message answer;
  do {
    if (launchpad::receiveMessage(socket.get(), answer) != launchpad::Received::kMessage) {
      return "no answer";
    }
  } while (answer.kind == launchpad::MessageKind::kConnection);  // each client gets it
  return answer.kind == launchpad::MessageKind::kDeclined
             ? launchpad::parseDecline(answer).value().reason
             : "served";
}

class Confinement : public LaunchpadTest {
 protected:
  // Prepares a process for the launches of this test.
  void SetUp() override {
    LaunchpadTest::SetUp();
    if (!IsSkipped()) {
      putenv(const_cast<char*>(kRuntimeSanitizerOptions));  // as the launch pad has it
      start(1);
      prepareFor({"--raw", kClock});
      options_.appId = kClock;
      options_.raw = true;
    }
  }

  bool prepareLaunchpadProcess() const override { return launchpadConfine_(); }

  // Starts the launch pad again, in a process that is confined.
  void restartConfined(const Confine& confine) {
    killLaunchpad();
    launchpadConfine_ = confine;
    start(1);
  }

  // Runs `quillon launch` in a confined process.
  CommandResult launchConfined(const Confine& confine) const {
    return runConfined(confine, {kQuillon, "launch", "--device", root(), "--raw", "--verbose",
                                 kClock, "--", "--exit", "5"});
  }

  // A request whose words are those of an unconfined client.
  launchpad::Request forgedRequest() const {
    launchpad::Request request =
        launchpad::makeRequest(options_, launchpad::ProcSelf(), kFullProgram);
    request.processState += launchpad::inspectionProofOf(launchpad());
    return request;
  }

  // Sends the request from a process that confines itself before it connects. Returns "served", or
  // the reason why it is not served.
  std::string answerTo(const launchpad::Request& request, const Confine& confine) const {
    const std::string address = launchpad::addressOf(root());
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const pid_t client = fork();
    if (client == 0) {
      std::string text = "not confined";
      if (confine()) {
        const Descriptor socket = connectToAddress(address);
        launchpad::sendRequest(socket.get(), request);
        text = answerOf(socket);
      }
      _exit(::write(ends[1], text.data(), text.size()) > 0 ? 0 : 1);
    }
    close(ends[1]);
    std::array<char, 256> text{};
    const ssize_t length = read(ends[0], text.data(), text.size());
    close(ends[0]);
    waitpid(client, nullptr, 0);
    return {text.data(), static_cast<size_t>(std::max<ssize_t>(length, 0))};
  }

  // The answer to a forged request.
  std::string answerToForger(const Confine& confine) const {
    return answerTo(forgedRequest(), confine);
  }

 private:
  host::LaunchOptions options_;
  Confine launchpadConfine_ = [] { return true; };
};

TEST_F(Confinement, AForgingClientIsJudgedByItsRealState) {
  EXPECT_EQ(answerToForger(noNewPrivileges), "its confinement" + kDiffers);
  EXPECT_EQ(answerToForger([] { return filterSystemCall(SYS_uname); }),
            "its confinement" + kDiffers);
  // A new user namespace gives its first process all capabilities, which are compared first.
  const std::string first = geteuid() == 0 ? "its namespaces" : "its capabilities";
  EXPECT_EQ(answerToForger(enterOwnNamespaces), first + kDiffer);
  EXPECT_EQ(answerToForger(
                [] { return setpriority(PRIO_PROCESS, 0, getpriority(PRIO_PROCESS, 0) + 1) == 0; }),
            "its scheduling" + kDiffers);
  EXPECT_EQ(answerToForger([] {
              std::ofstream file("/proc/self/oom_score_adj");
              return static_cast<bool>(file << 500 << std::flush);
            }),
            "its place in line when memory runs out" + kDiffers);
  EXPECT_EQ(served(), 0);
  EXPECT_EQ(answerToForger([] { return true; }), "served");  // the request is right otherwise
}

TEST_F(Confinement, AForgingClientWithoutCapabilitiesIsDeclined) {
  if (geteuid() != 0) {
    QUILLON_SKIP("without root, no process has capabilities to drop");
  }
  EXPECT_EQ(answerToForger(dropAllCapabilities), "its capabilities" + kDiffer);
}

// They are those that the kernel shows, and no part of the request.
TEST_F(Confinement, AnApplicationHasTheLimitsOfItsClient) {
  allowOwnProcesses();
  allowNoRefill();
  restartConfined([] { return true; });
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitReady());
  rlimit before{};
  getrlimit(RLIMIT_MSGQUEUE, &before);
  const rlimit some{4321, before.rlim_max};
  for (const int prepared : {1, 2}) {  // by its own process, then by a shared one
    setrlimit(RLIMIT_MSGQUEUE, &some);
    RunningProbe probe(root(), "inhouse");
    setrlimit(RLIMIT_MSGQUEUE, &before);
    EXPECT_THAT(contentOf("/proc/" + probe.ask("process") + "/limits"),
                ContainsRegex("Max msgqueue size +4321 "));
    EXPECT_EQ(served(), prepared);
    EXPECT_EQ(servedByOwnProcesses(), 1);
  }
}

TEST_F(Confinement, AForgingClientWithoutTheProofIsDeclined) {
  launchpad::Request request = forgedRequest();
  const std::string proof = launchpad::inspectionProofOf(launchpad());
  request.processState.resize(request.processState.size() - proof.size());
  EXPECT_EQ(answerTo(request, [] { return true; }),
            "its right to inspect the launch pad" + kDiffers);
  request.processState += proof.substr(0, proof.size() - 20) + std::string(20, '7');
  EXPECT_EQ(answerTo(request, [] { return true; }),
            "its right to inspect the launch pad" + kDiffers);
}

TEST_F(Confinement, AClientUnderLandlockLaunchesDirectly) {
  if (!hasLandlock()) {
    QUILLON_SKIP("the kernel lacks Landlock with network rules (Linux 6.7)");
  }
  const CommandResult direct = launchConfined(enterLandlock);
  EXPECT_EQ(direct.status, 5) << direct.err;
  EXPECT_THAT(direct.err, HasSubstr("this process may not inspect the launch pad"));
  EXPECT_EQ(served(), 0);
  // Nor can a client that forges its request have the proof.
  const auto hasNoProof = [&] {
    return enterLandlock() && launchpad::inspectionProofOf(launchpad()).empty();
  };
  EXPECT_NE(answerToForger(hasNoProof), "not confined");
}

TEST_F(Confinement, ALaunchPadUnderLandlockDeclinesClientsOutside) {
  if (!hasLandlock()) {
    QUILLON_SKIP("the kernel lacks Landlock with network rules (Linux 6.7)");
  }
  restartConfined(enterLandlock);
  const CommandResult direct = launchConfined([] { return true; });
  EXPECT_EQ(direct.status, 5) << direct.err;
  EXPECT_THAT(direct.err, HasSubstr("by the launch pad: the launch pad may not inspect"));
  EXPECT_EQ(served(), 0);
}

TEST_F(Confinement, AClientUnderASeccompFilterLaunchesDirectly) {
  const CommandResult direct = launchConfined([] { return filterSystemCall(SYS_uname); });
  EXPECT_EQ(direct.status, 5) << direct.err;
  EXPECT_THAT(direct.err, HasSubstr("launched directly, not by the launch pad: its confinement"));
  EXPECT_EQ(served(), 0);
}

// Its filter could be another one than a client's, which the kernel does not show.
TEST_F(Confinement, ALaunchPadUnderASeccompFilterDoesNotServe) {
  killLaunchpad();
  const CommandResult refused = runConfined([] { return filterSystemCall(SYS_sethostname); },
                                            {kQuillon, "launchpad", "--device", root()});
  EXPECT_EQ(refused.status, kServiceFailed);
  EXPECT_THAT(refused.err, HasSubstr("quillon: a seccomp filter confines this process"));
}

TEST_F(Confinement, SettingsThatAWorkerCannotAdoptLaunchDirectly) {
  const CommandResult pages =
      launchConfined([] { return prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0) == 0; });
  EXPECT_EQ(pages.status, 5);
  EXPECT_THAT(pages.err, HasSubstr("by the launch pad: its prctl(2) settings" + kDiffer));
  const CommandResult dumps = launchConfined([] {
    std::ofstream file("/proc/self/coredump_filter");
    return static_cast<bool>(file << "0x1" << std::flush);
  });
  EXPECT_EQ(dumps.status, 5);
  EXPECT_THAT(dumps.err, HasSubstr("by the launch pad: its core dump filter" + kDiffers));
  EXPECT_EQ(served(), 0);
}

// The parent of a process; 0 if it has ended.
pid_t parentOf(const std::string& process) {
  const std::string status = contentOf("/proc/" + process + "/status");
  const size_t at = status.find("\nPPid:\t");
  return at == std::string::npos ? 0 : std::stoi(status.substr(at + 7));
}

// The launch pad has one child besides its prepared processes.
TEST_F(Confinement, WithoutItsInspectorTheLaunchPadDeclines) {
  const auto prepared = processes("ready");
  const Descriptor proc(open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (const std::string& name : directoryEntries(proc.get())) {
    if (parentOf(name) == launchpad() && std::stoi(name) != prepared.at(0)) {
      kill(std::stoi(name), SIGKILL);
    }
  }
  ASSERT_TRUE(eventually([&] { return answerToForger([] { return true; }) != "served"; }));
  const CommandResult direct = launchConfined([] { return true; });
  EXPECT_EQ(direct.status, 5);
  EXPECT_THAT(direct.err, HasSubstr("by the launch pad: the launch pad may not inspect"));
}

}  // namespace
}  // namespace quillon::test
