// What asking commands and the launch pad say to each other.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>

#include "quillon/base/directory_entries.h"
#include "quillon/base/record.h"
#include "quillon/launchpad/protocol/address.h"
#include "quillon/launchpad/protocol/assignment.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/server/prefault.h"
#include "quillon/launchpad/state/limits.h"
#include "quillon/launchpad/state/proc_self.h"
#include "quillon/launchpad/state/process_state.h"
#include "quillon/launchpad/worker/environment.h"
#include "quillon/launchpad/worker/stdio.h"
#include "tests/support/sanitized.h"
#include "tests/support/skip.h"
#include "tests/support/temporary_directory.h"

namespace quillon::launchpad {
namespace {

using test::TemporaryDirectory;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(TextRecord, ReadsBackWhatWasWritten) {
  const std::string zero("a\0b", 3);
  const std::string bytes =
      RecordWriter().number(7).text(zero).texts({"", "x"}).append("yz").bytes();
  RecordReader reader(bytes);
  EXPECT_EQ(reader.number(), 7U);
  EXPECT_EQ(reader.text(), zero);
  EXPECT_THAT(reader.texts(), ElementsAre("", "x"));
  EXPECT_EQ(reader.rest(), "yz");
  EXPECT_TRUE(reader.atEnd());
  EXPECT_EQ(reader.number(), 0U);
  EXPECT_FALSE(reader.ok());
}

// Every beginning of a record, and a record whose lengths are all wrong.
TEST(TextRecord, TakesAnyBytes) {
  const std::string whole = RecordWriter().text("abc").texts({"d", "e"}).number(7).bytes();
  for (size_t length = 0; length < whole.size(); ++length) {
    RecordReader reader(std::string_view(whole).substr(0, length));
    reader.text();
    reader.texts();
    reader.number();
    EXPECT_FALSE(reader.atEnd()) << length;
  }
  const std::string wrong(64, '\xff');
  RecordReader reader(wrong);
  EXPECT_THAT(reader.texts(), IsEmpty());
  EXPECT_FALSE(reader.ok());
  EXPECT_FALSE(decodeRequest(wrong));
  EXPECT_FALSE(decodeRequest(""));
}

struct Pair {
  Pair() {
    std::array<int, 2> ends{};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
    one = Descriptor(ends[0]);
    other = Descriptor(ends[1]);
  }
  Descriptor one;
  Descriptor other;
};

// A request of this process's that has come to the other end of a socket.
std::optional<ArrivedRequest> arrive(const Request& sent, const Descriptor& began) {
  const Pair pair;
  Message packet;
  EXPECT_TRUE(sendRequest(pair.one.get(), sent, began.get()));
  EXPECT_EQ(receiveMessage(pair.other.get(), packet), Received::kMessage);
  EXPECT_EQ(packet.kind, MessageKind::kLaunch);
  return openRequest(std::move(packet));
}

// What a prepared process is told of it.
std::optional<Assignment> assign(const ArrivedRequest& arrived, Message& packet) {
  host::LaunchTarget target;
  target.assembly = "/a/b.dll";
  const Pair pair;
  EXPECT_TRUE(sendAssignment(pair.one.get(), target, arrived.packet));
  EXPECT_EQ(receiveMessage(pair.other.get(), packet), Received::kMessage);
  EXPECT_EQ(packet.kind, MessageKind::kAssign);
  return readAssignment(packet);
}

std::vector<std::string> ownEnvironment() {
  std::vector<std::string> all;
  for (char** entry = environ; *entry != nullptr; ++entry) all.emplace_back(*entry);
  return all;
}

// Short ones are in the message, long ones in a memory file beside it.
class RequestOfLength : public ::testing::TestWithParam<size_t> {};

TEST_P(RequestOfLength, ArrivesWithItsDescriptors) {
  host::LaunchOptions options;
  options.appId = "app";
  options.type = "normal";
  options.raw = true;
  options.arguments = {"", "two words", std::string(GetParam(), 'x')};
  const Request sent = makeRequest(options, ProcSelf());
  const Descriptor began(eventfd(0, EFD_CLOEXEC));
  const auto arrived = arrive(sent, began);
  ASSERT_TRUE(arrived);
  EXPECT_EQ(arrived->request.appId, "app");
  EXPECT_EQ(arrived->request.type, "normal");
  EXPECT_FALSE(arrived->request.exec);
  EXPECT_TRUE(arrived->request.raw);
  EXPECT_EQ(firstDifference(arrived->request.shape, sent.shape), "");
  EXPECT_TRUE(canTakeOver(currentLimits(), arrived->request.limits));
  Message packet;
  const auto assigned = assign(*arrived, packet);
  ASSERT_TRUE(assigned);
  EXPECT_EQ(assigned->target.assembly, "/a/b.dll");
  EXPECT_EQ(assigned->request.arguments, options.arguments);
  EXPECT_EQ(assigned->request.environment, ownEnvironment());
  EXPECT_EQ(assigned->request.workingDirectory, std::filesystem::current_path());
  const auto taken = takeDescriptors(packet.descriptors, assigned->there);
  EXPECT_FALSE(wasStarted(began.get()));
  signalStarted(taken.began.get());
  EXPECT_TRUE(wasStarted(began.get()));
}

INSTANTIATE_TEST_SUITE_P(Request, RequestOfLength, ::testing::Values(0, 40'000, 200'000));

TEST(Request, TellsTheUmask) {
  const mode_t before = umask(0127);
  EXPECT_EQ(makeRequest({}, ProcSelf()).umask, 0127U);
  umask(before);
}

// A launch pad that is told of more or fewer descriptors than came would mix them up.
TEST(Request, ComesWithTheDescriptorsThatItSays) {
  const Request sent = makeRequest({}, ProcSelf());
  const Descriptor began(eventfd(0, EFD_CLOEXEC));
  auto arrived = arrive(sent, began);
  ASSERT_TRUE(arrived);
  arrived->packet.descriptors.pop_back();
  EXPECT_FALSE(openRequest(std::move(arrived->packet)));
  EXPECT_FALSE(openRequest({MessageKind::kLaunch, "", {}}));
  const std::string inNoFile = RecordWriter().number(1U << 4).bytes();
  EXPECT_FALSE(openRequest({MessageKind::kLaunch, inNoFile, {}}));
}

// A file that its owner can still cut would make the reader wait or fail later.
TEST(Request, IsTakenFromSealedMemoryOnly) {
  const Descriptor open(memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  ASSERT_EQ(write(open.get(), "text", 4), 4);
  EXPECT_EQ(textOf(open.get()), "");
  ASSERT_EQ(
      fcntl(open.get(), F_ADD_SEALS, F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE), 0);
  EXPECT_EQ(textOf(open.get()), "text");
  const Descriptor device(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(textOf(device.get()), "");
}

TEST(Message, TellsAnEndFromNothingYet) {
  Pair pair;
  Message packet;
  EXPECT_EQ(receiveMessageNow(pair.other.get(), packet), Received::kNothingYet);
  ASSERT_EQ(send(pair.one.get(), "x", 1, 0), 1);
  EXPECT_EQ(receiveMessageNow(pair.other.get(), packet), Received::kEnd);
  pair.one.reset();
  EXPECT_EQ(receiveMessage(pair.other.get(), packet), Received::kEnd);
  EXPECT_FALSE(sendMessage(pair.other.get(), MessageKind::kStop));
}

size_t openDescriptors() {
  return static_cast<size_t>(
      std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

TEST(Message, KeepsNoDescriptorsOfAnEmptyOne) {
  const Pair pair;
  union {
    cmsghdr header;
    char bytes[CMSG_SPACE(sizeof(int))];
  } control{};
  msghdr message{};
  message.msg_control = control.bytes;
  message.msg_controllen = sizeof control.bytes;
  control.header = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
  const int sent = STDIN_FILENO;
  std::memcpy(CMSG_DATA(&control.header), &sent, sizeof sent);
  const size_t before = openDescriptors();
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(sendmsg(pair.one.get(), &message, 0), 0);
    Message packet;
    EXPECT_EQ(receiveMessage(pair.other.get(), packet), Received::kEnd);
  }
  EXPECT_EQ(openDescriptors(), before);
}

ProcessState ownShape() { return processStateOf(ProcSelf()); }

TEST(ProcessState, KnowsWhatSignalsAreIgnored) {
  const ProcessState own = ownShape();
  signal(SIGUSR2, SIG_IGN);
  EXPECT_EQ(firstDifference(own, ownShape()), "its ignored signals");
  const sigset_t ignored = ProcSelf().ignoredSignals();
  EXPECT_EQ(sigismember(&ignored, SIGUSR2), 1);
  EXPECT_EQ(sigismember(&ignored, SIGUSR1), 0);
  signal(SIGUSR2, SIG_DFL);
  EXPECT_EQ(firstDifference(own, ownShape()), "");
}

// As posix_spawn(3) leaves them in what it starts.
TEST(ProcessState, LeavesTheSignalsOfTheCLibraryOut) {
  struct {
    void (*handler)(int);
    unsigned long flags = 0;
    void (*restorer)() = nullptr;
    unsigned long mask = 0;
  } ignored{SIG_IGN}, before{SIG_DFL};
  constexpr int kCancel = 32;
  const ProcessState own = ownShape();
  ASSERT_EQ(syscall(SYS_rt_sigaction, kCancel, &ignored, &before, sizeof ignored.mask), 0);
  EXPECT_EQ(firstDifference(own, ownShape()), "");
  syscall(SYS_rt_sigaction, kCancel, &before, nullptr, sizeof before.mask);
}

TEST(ProcessState, NamesWhatDiffers) {
  const ProcessState own = ownShape();
  EXPECT_EQ(firstDifference(own, ownShape()), "");
  setenv("DOTNET_OfThisTest", "0", 1);
  setenv("UNRELATED", "1", 1);
  EXPECT_EQ(firstDifference(own, ownShape()), "the environment variable DOTNET_OfThisTest");
  EXPECT_EQ(firstDifference(ownShape(), own), "the environment variable DOTNET_OfThisTest");
  unsetenv("DOTNET_OfThisTest");
  EXPECT_EQ(firstDifference(own, ownShape()), "");
}

TEST(ProcessState, TellsWhatItsProcessWillHandDown) {
  const ProcessState own = ownShape();
  sigset_t some;
  sigset_t before;
  sigemptyset(&some);
  sigaddset(&some, SIGUSR1);
  sigprocmask(SIG_BLOCK, &some, &before);
  EXPECT_EQ(firstDifference(own, ownShape()), "its blocked signals");
  sigprocmask(SIG_SETMASK, &before, nullptr);
  const int slack = prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0);
  prctl(PR_SET_TIMERSLACK, slack + 1, 0, 0, 0);
  EXPECT_EQ(firstDifference(own, ownShape()), "its scheduling");
  prctl(PR_SET_TIMERSLACK, slack, 0, 0, 0);
  const rlimit stack = currentLimits()[RLIMIT_STACK];
  const rlimit other{stack.rlim_cur - 1, stack.rlim_max};
  setrlimit(RLIMIT_STACK, &other);
  EXPECT_EQ(firstDifference(own, ownShape()), "its memory limits");
  setrlimit(RLIMIT_STACK, &stack);
  const int personal = personality(0xffffffff);
  personality(static_cast<unsigned>(personal ^ PER_LINUX32));
  EXPECT_EQ(firstDifference(own, ownShape()), "its confinement");
  personality(static_cast<unsigned>(personal));
  EXPECT_EQ(firstDifference(own, ownShape()), "");
}

// The same variables in another order are the same; what is no shape at all is not.
TEST(ProcessState, IsComparedByItsParts) {
  const std::string one = RecordWriter().text("a").text("1").text("b").text("2").bytes();
  const std::string other = RecordWriter().text("b").text("2").text("a").text("1").bytes();
  EXPECT_EQ(firstDifference(one, other), "");
  EXPECT_EQ(firstDifference(one, one.substr(1)), "a");
  EXPECT_EQ(firstDifference(one, ""), "a");
}

// Two processes about which nothing is known would look the same.
TEST(ProcessState, IsNoneWhereTheKernelDoesNotTell) {
  if (geteuid() != 0) QUILLON_SKIP("only root can change its root folder");
  const TemporaryDirectory empty;
  const auto child = [&] {
    _exit(chroot(empty.path().c_str()) == 0 && ownShape().empty() ? 0 : 1);
  };
  EXPECT_EXIT(child(), ::testing::ExitedWithCode(0), "");
}

TEST(ProcSelf, KnowsWhatAProgramThatItBecameWouldFind) {
  const Descriptor own(dup(STDOUT_FILENO));
  const Descriptor closed(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
  const auto inherited = ProcSelf().inheritedDescriptors();
  EXPECT_EQ(std::count(inherited.begin(), inherited.end(), own.get()), 1);
  EXPECT_EQ(std::count(inherited.begin(), inherited.end(), closed.get()), 0);
  EXPECT_EQ(std::count(inherited.begin(), inherited.end(), STDOUT_FILENO), 0);
}

TEST(FolderEntries, AreAllNamedHoweverMany) {
  const TemporaryDirectory folder;
  constexpr size_t kMany = 300;
  for (size_t i = 0; i < kMany; ++i) {
    std::filesystem::create_directory(folder.path() / std::to_string(i));
  }
  const Descriptor opened(open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const auto names = directoryEntries(opened.get());
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), kMany);
  EXPECT_EQ(names.size(), kMany);
  EXPECT_THAT(directoryEntries(-1), IsEmpty());
}

long faults() {
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  return used.ru_minflt;
}

// How often a process that has forked waits for a copy of its own heap.
long faultsAfterFork(const std::function<void()>& first) {
  constexpr size_t kPage = 4096;
  std::vector<std::unique_ptr<char[]>> heap;
  for (int i = 0; i < 100; ++i) heap.push_back(std::make_unique<char[]>(kPage));
  const pid_t child = fork();
  if (child == 0) {
    pause();
    _exit(0);
  }
  first();
  const long before = faults();
  for (const auto& page : heap) page[0] = 1;
  const long after = faults();
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  return after - before;
}

TEST(OwnMemory, IsNoCopyToWaitFor) {
  if (isSanitized()) return;  // with a heap of the sanitizer's
  if (madvise(nullptr, 0, 23 /* MADV_POPULATE_WRITE */) != 0) {
    QUILLON_SKIP("this kernel cannot copy ahead");
  }
  const auto child = [] {
    const long without = faultsAfterFork([] {});
    _exit(faultsAfterFork(ownMemory) < without / 4 ? 0 : 1);
  };
  EXPECT_EXIT(child(), ::testing::ExitedWithCode(0), "");
}

TEST(Limits, CanOnlyBeLowered) {
  Limits own = currentLimits();
  Limits wanted = own;
  EXPECT_TRUE(canTakeOver(own, wanted));
  own[RLIMIT_CORE] = {0, 0};
  wanted[RLIMIT_CORE] = {0, 1};
  EXPECT_FALSE(canTakeOver(own, wanted));
  wanted.pop_back();
  EXPECT_FALSE(canTakeOver(own, wanted));
}

// Puts the environment back for the tests after.
class Environment : public ::testing::Test {
 protected:
  ~Environment() override {
    std::vector<std::string> all;
    for (const auto& [name, value] : before_) all.push_back(name + "=" + value);
    replaceEnvironment(all, {});
  }

 private:
  const Variables before_ = currentVariables();
};

TEST_F(Environment, IsReplacedButForWhatThePreparationChanged) {
  const auto changes =
      changesBetween({{"KEPT", "1"}, {"GONE", "1"}, {"NEW", "1"}}, {{"KEPT", "1"}, {"NEW", "2"}});
  EXPECT_EQ(changes.size(), 2U);
  replaceEnvironment({"GONE=3", "KEPT=4", "OWN=5", "PATH=/bin"}, changes);
  const Variables now = currentVariables();
  EXPECT_EQ(now, (Variables{{"KEPT", "4"}, {"OWN", "5"}, {"NEW", "2"}, {"PATH", "/bin"}}));
}

TEST_F(Environment, ChangesByBeingSetToWhatItIs) {
  replaceEnvironment({"SAME=1", "OTHER=1", "GONE=1"}, {});
  const EnvironmentEntries before = currentEntries();
  setenv("SAME", "1", 1);
  unsetenv("GONE");
  EXPECT_EQ(changesSince(before), (EnvironmentChanges{{"SAME", "1"}, {"GONE", std::nullopt}}));
}

TEST_F(Environment, HasNoVariablesWithoutName) {
  replaceEnvironment({"=a=b", "A=1"}, {});
  EXPECT_EQ(currentVariables(), (Variables{{"A", "1"}}));
}

// In a child, since the test's own output is at stake.
TEST(StdioPlaceholders, LeadDuplicatesToo) {
  const auto child = [] {
    std::array<int, 2> pipe{};
    StdioPlaceholders places;
    if (pipe2(pipe.data(), O_CLOEXEC) != 0 || !places.open()) _exit(1);
    const int duplicate = dup(STDOUT_FILENO);
    places.findDuplicates();
    places.lead(STDOUT_FILENO, pipe[1]);
    places.lead(STDIN_FILENO, -1);
    if (write(duplicate, "a", 1) != 1 || write(STDOUT_FILENO, "b", 1) != 1) _exit(2);
    char bytes[2] = {};
    if (read(pipe[0], bytes, 2) != 2 || bytes[0] != 'a' || bytes[1] != 'b') _exit(3);
    _exit(fcntl(STDIN_FILENO, F_GETFD) < 0 ? 0 : 4);
  };
  EXPECT_EXIT(child(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace quillon::launchpad
