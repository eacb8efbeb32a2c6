// What one process reads of another, and the inspector that does it for the server.
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/mempolicy.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <functional>
#include <string>
#include <thread>

#include "quillon/launchpad/server/inspector.h"
#include "quillon/launchpad/state/inspection_proof.h"
#include "quillon/launchpad/state/peer.h"
#include "tests/system/launch/running_probe.h"
#include "tests/system/launch/sample_device.h"

namespace quillon::launchpad {
namespace {

using test::eventually;

ProcessState observedStateOfSelf() { return observedStateOf(ProcSelf(), currentLimits()); }

// A child that calls a function and then waits to be killed.
class Child {
 public:
  explicit Child(const std::function<void()>& prepare) {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe(ends.data()), 0);
    pid_ = fork();
    if (pid_ == 0) {
      prepare();
      close(ends[1]);
      pause();
      _exit(0);
    }
    close(ends[1]);
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), 0);  // the child has called the function
    close(ends[0]);
  }
  ~Child() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }
  [[nodiscard]] ProcessState state() const {
    return observedStateOf(ProcProcess(pid_), limitsOf(pid_));
  }

 private:
  pid_t pid_ = -1;
};

TEST(ObservedState, OfAnotherProcessHasTheSameForm) {
  const Child equal([] {});
  EXPECT_EQ(firstDifference(observedStateOfSelf(), equal.state()), "");
  EXPECT_FALSE(equal.state().empty());
  const Child confined([] { prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0); });
  EXPECT_EQ(firstDifference(observedStateOfSelf(), confined.state()), "its confinement");
  const Child slower([] { setpriority(PRIO_PROCESS, 0, getpriority(PRIO_PROCESS, 0) + 1); });
  EXPECT_EQ(firstDifference(observedStateOfSelf(), slower.state()), "its scheduling");
  const Child limited([] {
    const rlimit some{1 << 20, 1 << 30};
    setrlimit(RLIMIT_STACK, &some);
  });
  EXPECT_EQ(firstDifference(observedStateOfSelf(), limited.state()), "its memory limits");
}

// The numbers are those of sched_setattr(2) for a process of the default policy: keep the policy
// and the parameters, and set the upper limit of the utilisation.
bool limitUtilisation() {
  struct {
    uint32_t size;
    uint32_t policy;
    uint64_t flags;
    uint64_t ignored[4];
    uint32_t utilisationMin;
    uint32_t utilisationMax;
  } attributes = {sizeof attributes, 0, 0x58, {}, 0, 512};
  return syscall(SYS_sched_setattr, 0, &attributes, 0) == 0;
}

// A kernel without such limits refuses to set one.
TEST(ObservedState, ContainsTheLimitsOfTheUtilisation) {
  const Child limited([] { limitUtilisation(); });
  bool isSupported = false;
  std::thread([&] { isSupported = limitUtilisation(); }).join();
  EXPECT_EQ(firstDifference(observedStateOfSelf(), limited.state()),
            isSupported ? "its scheduling" : "");
}

TEST(ObservedState, ContainsTheSchedulingPolicy) {
  const Child idle([] {
    const sched_param none{};
    sched_setscheduler(0, SCHED_BATCH, &none);
  });
  EXPECT_EQ(firstDifference(observedStateOfSelf(), idle.state()), "its scheduling");
}

TEST(DeclaredState, ContainsTheMemoryPolicy) {
  const ProcessState before = declaredStateOf(ProcSelf());
  const unsigned long first = 1;
  const bool isSupported = syscall(SYS_set_mempolicy, MPOL_PREFERRED, &first, CHAR_BIT) == 0;
  const std::string difference = firstDifference(before, declaredStateOf(ProcSelf()));
  syscall(SYS_set_mempolicy, MPOL_DEFAULT, nullptr, 0);
  EXPECT_EQ(difference, isSupported ? "its memory policy" : "");
}

// For root, every process is readable.
void becomeOrdinaryUser() {
  constexpr uid_t kUser = 54321;
  if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setresgid(kUser, kUser, kUser) != 0 ||
                         setresuid(kUser, kUser, kUser) != 0)) {
    _exit(2);
  }
  prctl(PR_SET_DUMPABLE, 1, 0, 0, 0);
}

TEST(ObservedState, IsEmptyForAProcessThatIsNotDumpable) {
  const auto check = [] {
    becomeOrdinaryUser();
    const Child dumpable([] {});
    const Child hidden([] { prctl(PR_SET_DUMPABLE, 0, 0, 0, 0); });
    const bool isRight = !dumpable.state().empty() && hidden.state().empty();
    kill(dumpable.pid(), SIGKILL);
    kill(hidden.pid(), SIGKILL);
    _exit(isRight ? 0 : 1);
  };
  EXPECT_EXIT(check(), ::testing::ExitedWithCode(0), "");
}

TEST(InspectionProof, IsReadByProcessesThatMayInspectTheServer) {
  const Descriptor file = openInspectionProof();
  ASSERT_TRUE(file);
  const ProcessState own = inspectionProofOf(getpid());
  EXPECT_FALSE(own.empty());
  EXPECT_EQ(inspectionProofOf(getpid()), own);
  const Child other([] {});
  EXPECT_NE(inspectionProofOf(other.pid()), "");  // inherited
  const Child without([&] { close(file.get()); });
  EXPECT_EQ(inspectionProofOf(without.pid()), "");
}

// The letter of proc(5), such as S for a process that waits.
char stateOf(pid_t process) {
  const std::string text = test::contentOf("/proc/" + std::to_string(process) + "/stat");
  return text.at(text.rfind(')') + 2);
}

// A server with an inspector, and clients.
class InspectorTest : public ::testing::Test {
 protected:
  InspectorTest() : inspector_(Inspector::start(observedStateOfSelf())) {
    listener_ = Descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const sockaddr_un any{AF_UNIX, {}};
    bind(listener_.get(), reinterpret_cast<const sockaddr*>(&any), sizeof any.sun_family);
    listen(listener_.get(), 1);
    getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&name_), &length_);
  }

  void connectTo() const {
    const int client = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    connect(client, reinterpret_cast<const sockaddr*>(&name_), length_);
  }
  Descriptor accept() const { return Descriptor(::accept(listener_.get(), nullptr, nullptr)); }

  std::optional<Finding> await() {
    std::optional<Finding> finding;
    eventually([&] { return (finding = inspector_->next()).has_value(); });
    return finding;
  }

  Expected<Inspector> inspector_;
  Descriptor listener_;
  sockaddr_un name_{};
  socklen_t length_ = sizeof name_;
};

TEST_F(InspectorTest, ComparesTheProcessThatConnected) {
  ASSERT_TRUE(inspector_);
  const Child equal([&] { connectTo(); });
  const Descriptor first = accept();
  ASSERT_TRUE(inspector_->inspect(1, first.get()));
  auto finding = await();
  ASSERT_TRUE(finding);
  EXPECT_EQ(finding->client, 1U);
  EXPECT_TRUE(finding->wasRead);
  EXPECT_EQ(finding->difference, "");
  EXPECT_TRUE(canAdopt(finding->limits, currentLimits()));
  const Child confined([&] {
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    connectTo();
  });
  const Descriptor second = accept();
  ASSERT_TRUE(inspector_->inspect(2, second.get()));
  finding = await();
  ASSERT_TRUE(finding);
  EXPECT_EQ(finding->client, 2U);
  EXPECT_EQ(finding->difference, "its confinement");
  EXPECT_FALSE(inspector_->next());
}

// Its process id may belong to another process by now.
TEST_F(InspectorTest, ReadsNothingOfAProcessThatHasEnded) {
  ASSERT_TRUE(inspector_);
  Descriptor before;
  Descriptor meanwhile;
  {
    const Child ended([&] { connectTo(); });
    before = accept();
  }
  {
    const Child ending([&] { connectTo(); });
    meanwhile = accept();
    ASSERT_TRUE(inspector_->inspect(1, meanwhile.get()));
  }
  const auto finding = await();
  ASSERT_TRUE(finding);
  EXPECT_FALSE(finding->wasRead);
  EXPECT_FALSE(inspector_->inspect(2, before.get()) && await()->wasRead);
}

// More than the kernel queues for a socket.
TEST_F(InspectorTest, AnswersEachQuestionAlthoughNobodyReadsTheAnswers) {
  ASSERT_TRUE(inspector_);
  const Child client([&] { connectTo(); });
  const Descriptor socket = accept();
  constexpr uint64_t kQuestions = 400;
  uint64_t asked = 0;
  for (uint64_t number = 1; number <= kQuestions; ++number) {
    if (inspector_->inspect(number, socket.get())) {
      ++asked;
    } else {
      usleep(1000);
    }
  }
  ASSERT_GT(asked, kQuestions / 4);
  const auto waits = [&] { return stateOf(inspector_->process()) == 'S'; };
  ASSERT_TRUE(eventually([&] {
    bool isIdle = true;
    for (int i = 0; i < 20 && isIdle; ++i) {
      isIdle = waits();
      usleep(1000);
    }
    return isIdle;
  }));
  for (uint64_t answered = 0; answered < asked; ++answered) {
    const auto finding = await();
    ASSERT_TRUE(finding) << answered << " of " << asked;
    EXPECT_TRUE(finding->wasRead);
  }
}

TEST_F(InspectorTest, EndsItsInspectionsIfItsProcessEnds) {
  ASSERT_TRUE(inspector_);
  const Child client([&] { connectTo(); });
  const Descriptor socket = accept();
  const pid_t child = inspector_->process();
  kill(child, SIGSTOP);
  ASSERT_TRUE(inspector_->inspect(1, socket.get()));
  EXPECT_FALSE(inspector_->next());
  kill(child, SIGKILL);
  const auto finding = await();
  ASSERT_TRUE(finding);
  EXPECT_EQ(finding->client, 1U);
  EXPECT_FALSE(finding->wasRead);
  EXPECT_FALSE(inspector_->next());
  EXPECT_EQ(inspector_->descriptor(), -1);
  EXPECT_FALSE(inspector_->inspect(2, socket.get()));
}

}  // namespace
}  // namespace quillon::launchpad
