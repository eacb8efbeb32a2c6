// The messages between client, server and worker, and the process state that they transfer.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
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
#include <fstream>
#include <set>

#include "quillon/base/directory_entries.h"
#include "quillon/base/record.h"
#include "quillon/launchpad/protocol/address.h"
#include "quillon/launchpad/protocol/exit_state.h"
#include "quillon/launchpad/protocol/hand_over.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/protocol/sealed_memory.h"
#include "quillon/launchpad/protocol/status.h"
#include "quillon/launchpad/state/limits.h"
#include "quillon/launchpad/state/proc_self.h"
#include "quillon/launchpad/state/process_state.h"
#include "quillon/launchpad/worker/environment.h"
#include "quillon/launchpad/worker/stdio.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/sanitized.h"
#include "tests/support/skip.h"
#include "tests/support/temporary_directory.h"

namespace quillon::launchpad {
namespace {

using test::TemporaryDirectory;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;

Message messageOf(MessageKind kind, std::string_view bytes) { return {kind, bytes, {}}; }

TEST(Record, ReadsBackWhatWasWritten) {
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

// Every prefix of a record, and a record with wrong lengths only.
TEST(Record, RejectsTruncatedAndMalformedBytes) {
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
}

Message assignmentOf(const std::string& bytes) {
  Message message = messageOf(MessageKind::kAssign, bytes);
  message.descriptors.emplace_back(dup(STDIN_FILENO));
  return message;
}

TEST(Request, IsRejectedIfMalformed) {
  const std::string wrong(64, '\xff');
  for (const std::string& encoded : {std::string(), wrong}) {
    EXPECT_FALSE(parseRequest(messageOf(MessageKind::kLaunch, encoded)));
    EXPECT_FALSE(parseAssignment(assignmentOf(encoded)));
    const std::string asHandOver = RecordWriter().number(0).append(encoded).take();
    EXPECT_FALSE(parseHandOver(messageOf(MessageKind::kHandOver, asHandOver)));
  }
}

// A request whose fields "type" and "raw" are as given.
std::string requestWith(const std::vector<std::string>& types, uint64_t raw) {
  return RecordWriter().text("a").texts(types).texts({}).number(raw).text("").take();
}

TEST(Request, IsRejectedIfAFieldHasNoSuchValue) {
  EXPECT_TRUE(parseRequest(messageOf(MessageKind::kLaunch, requestWith({"dotnet"}, 1))));
  EXPECT_FALSE(parseRequest(messageOf(MessageKind::kLaunch, requestWith({"dotnet"}, 2))));
  EXPECT_FALSE(parseRequest(messageOf(MessageKind::kLaunch, requestWith({"dotnet", "x"}, 1))));
}

TEST(Assignment, IsRejectedWithoutALimitForEachResource) {
  for (const size_t size : {size_t{0}, size_t{1}, (RLIM_NLIMITS - 1) * sizeof(rlimit)}) {
    RecordWriter fields;
    for (int i = 0; i < 6; ++i) {
      fields.text("a");
    }
    EXPECT_FALSE(parseAssignment(assignmentOf(fields.text(std::string(size, 'x')).take())));
  }
}

TEST(TakenReply, HasNoDescriptorIfMalformed) {
  Message message = assignmentOf("four");
  const TakenReply reply = parseTaken(std::move(message));
  EXPECT_FALSE(reply.pidfd);
}

TEST(ExitState, IsRejectedIfNoProcessCanEndSo) {
  for (const ExitState& state : {ExitState{false, 255}, ExitState{true, SIGKILL}}) {
    const auto decoded = decodeExitState(encode(state));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->bySignal, state.bySignal);
    EXPECT_EQ(decoded->number, state.number);
  }
  const std::pair<uint64_t, uint64_t> kImpossible[] = {
      {0, 256}, {1, 0}, {1, NSIG}, {2, 0}, {1, 0x7fffffff}, {0, uint64_t(-128)}};
  for (const auto& [bySignal, number] : kImpossible) {
    EXPECT_FALSE(decodeExitState(RecordWriter().number(bySignal).number(number).bytes()));
  }
  EXPECT_FALSE(decodeExitState(encode(ExitState{false, 0}) + "x"));
}

TEST(StatusMessage, IsRejectedIfAListIsTooLong) {
  Status status;
  std::string bytes = encode(status);
  EXPECT_TRUE(decodeStatus(bytes));
  // The lists are empty numbers at the end. The first gets an impossible length.
  const std::string number = RecordWriter().number(10'000).take();
  bytes.replace(bytes.size() - 4 * number.size(), number.size(), number);
  EXPECT_FALSE(decodeStatus(bytes));
}

struct SocketPair {
  SocketPair() : SocketPair(makeSocketPair()) {}
  explicit SocketPair(std::pair<Descriptor, Descriptor> ends)
      : one(std::move(ends.first)), other(std::move(ends.second)) {
    EXPECT_TRUE(one && other);
  }
  Descriptor one;
  Descriptor other;
};

// Sends a message with `send` and receives it as the peer does.
template <typename Send>
Message transfer(MessageKind kind, const Send& send) {
  const SocketPair pair;
  Message message;
  EXPECT_TRUE(send(pair.one.get()));
  EXPECT_EQ(receiveMessage(pair.other.get(), message), Received::kMessage);
  EXPECT_EQ(message.kind, kind);
  return message;
}

Message transfer(const Request& request) {
  return transfer(MessageKind::kLaunch, [&](int socket) { return sendRequest(socket, request); });
}

Message transfer(const EncodedHandOver& handOver) {
  return transfer(MessageKind::kHandOver, [&](int socket) { return handOver.send(socket); });
}

std::vector<std::string> ownEnvironment() {
  std::vector<std::string> all;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    all.emplace_back(*entry);
  }
  return all;
}

bool isSameFile(int one, int other) {
  struct stat first {};
  struct stat second {};
  return fstat(one, &first) == 0 && fstat(other, &second) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

TEST(Request, ArrivesWithoutDescriptors) {
  host::LaunchOptions options;
  options.appId = "app";
  options.type = "normal";
  options.raw = true;
  const Request sent = makeRequest(options, ProcSelf());
  const Message message = transfer(sent);
  EXPECT_THAT(message.descriptors, IsEmpty());
  const auto received = parseRequest(message);
  ASSERT_TRUE(received);
  EXPECT_EQ(received->appId, "app");
  EXPECT_EQ(received->type, "normal");
  EXPECT_FALSE(received->exec);
  EXPECT_TRUE(received->raw);
  EXPECT_EQ(firstDifference(received->processState, sent.processState), "");
}

// The server's memory is the memory of later workers.
TEST(Request, ContainsNeitherArgumentsNorEnvironment) {
  host::LaunchOptions options;
  options.arguments = {"secret argument"};
  setenv("OF_THIS_TEST", "secret value", 1);
  const Message message = transfer(makeRequest(options, ProcSelf()));
  unsetenv("OF_THIS_TEST");
  EXPECT_THAT(std::string(message.bytes.view()), Not(HasSubstr("secret")));
}

TEST(TakenReply, CarriesTheProcess) {
  TakenReply reply = parseTaken(transfer(
      MessageKind::kTaken, [&](int socket) { return sendTaken(socket, 5, STDIN_FILENO); }));
  EXPECT_EQ(reply.worker, 5);
  EXPECT_TRUE(isSameFile(reply.pidfd.get(), STDIN_FILENO));
}

TEST(Connection, CarriesBothEnds) {
  SocketPair pair;
  const Connection sent{std::move(pair.one), std::move(pair.other)};
  const Connection received = parseConnection(
      transfer(MessageKind::kConnection, [&](int socket) { return sendConnection(socket, sent); }));
  EXPECT_TRUE(isSameFile(received.client.get(), sent.client.get()));
  EXPECT_TRUE(isSameFile(received.worker.get(), sent.worker.get()));
  EXPECT_FALSE(parseConnection(messageOf(MessageKind::kConnection, {})).client);
}

TEST(Assignment, CarriesTheTargetAndTheConnection) {
  const SocketPair connection;
  host::LaunchTarget target;
  target.assembly = "/a/b.dll";
  const auto received = parseAssignment(transfer(MessageKind::kAssign, [&](int socket) {
    return sendAssignment(socket, target, currentLimits(), connection.one.get());
  }));
  ASSERT_TRUE(received);
  EXPECT_EQ(received->target.assembly, "/a/b.dll");
  EXPECT_TRUE(canAdopt(currentLimits(), received->limits));
  EXPECT_TRUE(isSameFile(received->connection.get(), connection.one.get()));
}

// Short ones are in the message, long ones in a memory file.
class HandOverOfLength : public ::testing::TestWithParam<size_t> {};

TEST_P(HandOverOfLength, ArrivesWithItsDescriptors) {
  const std::vector<std::string> arguments = {"", "two words", std::string(GetParam(), 'x')};
  const Descriptor further(dup(STDOUT_FILENO));
  const EncodedHandOver encoded(arguments, ProcSelf(), workstation::currentLog(), {further.get()});
  for (int worker = 0; worker < 2; ++worker) {
    const auto received = parseHandOver(transfer(encoded));
    ASSERT_TRUE(received);
    EXPECT_EQ(received->arguments, arguments);
    EXPECT_EQ(received->environment, ownEnvironment());
    EXPECT_EQ(received->workingDirectory.path, std::filesystem::current_path());
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
      EXPECT_TRUE(isSameFile(received->standard.at(static_cast<size_t>(fd)).get(), fd));
    }
    EXPECT_THAT(received->inheritedDescriptors, ElementsAre(further.get()));
    ASSERT_EQ(received->inherited.size(), 1U);
    EXPECT_TRUE(isSameFile(received->inherited[0].get(), further.get()));
  }
}

INSTANTIATE_TEST_SUITE_P(HandOver, HandOverOfLength, ::testing::Values(0, 40'000, 200'000));

TEST(HandOver, ContainsTheUmask) {
  const mode_t before = umask(0127);
  const auto received =
      parseHandOver(transfer(EncodedHandOver({}, ProcSelf(), workstation::currentLog(), {})));
  umask(before);
  ASSERT_TRUE(received);
  EXPECT_EQ(received->umask, 0127U);
}

TEST(HandOver, IsRejectedIfADescriptorIsMissing) {
  const EncodedHandOver sent({}, ProcSelf(), workstation::currentLog(), {});
  ASSERT_TRUE(parseHandOver(transfer(sent)));
  Message message = transfer(sent);
  message.descriptors.pop_back();
  EXPECT_FALSE(parseHandOver(std::move(message)));
  EXPECT_FALSE(parseHandOver(messageOf(MessageKind::kHandOver, "")));
  const std::string withoutItsFile = RecordWriter().number(1U << 4).take();
  EXPECT_FALSE(parseHandOver(messageOf(MessageKind::kHandOver, withoutItsFile)));
}

TEST(HandOver, IsRejectedIfADescriptorIsTooMany) {
  Message message = transfer(EncodedHandOver({}, ProcSelf(), workstation::currentLog(), {}));
  message.descriptors.emplace_back(dup(STDIN_FILENO));
  EXPECT_FALSE(parseHandOver(std::move(message)));
}

// A byte of a secret that this program never holds as a whole, except in the messages of the test.
char secretByte(size_t index) { return static_cast<char>('A' + (index * index + 5 * index) % 23); }
constexpr size_t kSecretSize = 48;

bool containsSecret(std::string_view bytes) {
  for (size_t at = 0; at + kSecretSize <= bytes.size(); ++at) {
    size_t same = 0;
    while (same < kSecretSize && bytes[at + same] == secretByte(same)) {
      ++same;
    }
    if (same == kSecretSize) {
      return true;
    }
  }
  return false;
}

// Searches the writable memory of this process, also what is free.
bool memoryContainsSecret() {
  std::ifstream maps("/proc/self/maps");
  const Descriptor memory(open("/proc/self/mem", O_RDONLY | O_CLOEXEC));
  for (std::string line; std::getline(maps, line);) {
    unsigned long first = 0;
    unsigned long end = 0;
    char access[5] = {};
    std::sscanf(line.c_str(), "%lx-%lx %4s", &first, &end, access);
    if (std::string_view(access) != "rw-p") {
      continue;
    }
    std::vector<char> bytes(end - first);
    const ssize_t length =
        pread(memory.get(), bytes.data(), bytes.size(), static_cast<off_t>(first));
    if (length > 0 && containsSecret({bytes.data(), static_cast<size_t>(length)})) {
      return true;
    }
  }
  return false;
}

// The process that forks workers must not keep what one application got.
TEST(Message, LeavesNothingInMemoryAfterItsEnd) {
  if (isSanitized()) {
    return;  // which maps too much memory
  }
  const SocketPair pair;
  const pid_t sender = fork();
  if (sender == 0) {
    std::string secret(4 * kSecretSize, '\0');
    for (size_t i = 0; i < secret.size(); ++i) {
      secret[i] = secretByte(i % kSecretSize);
    }
    _exit(sendMessage(pair.one.get(), MessageKind::kLaunch, secret) ? 0 : 1);
  }
  {
    Message received;
    ASSERT_EQ(receiveMessage(pair.other.get(), received), Received::kMessage);
    const Message message = std::move(received);
    EXPECT_TRUE(containsSecret(message.bytes.view()));
    EXPECT_TRUE(memoryContainsSecret());
  }
  EXPECT_FALSE(memoryContainsSecret());
  waitpid(sender, nullptr, 0);
}

TEST(SealedMemory, IsReadOnlyIfItIsSealed) {
  const Descriptor open(memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  ASSERT_EQ(write(open.get(), "text", 4), 4);
  EXPECT_EQ(readSealedMemory(open.get()).view(), "");
  ASSERT_EQ(
      fcntl(open.get(), F_ADD_SEALS, F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE), 0);
  EXPECT_EQ(readSealedMemory(open.get()).view(), "text");
  const Descriptor device(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(readSealedMemory(device.get()).view(), "");
}

TEST(Message, DistinguishesAnEndFromNothingYet) {
  SocketPair pair;
  Message message;
  EXPECT_EQ(receiveMessageNow(pair.other.get(), message), Received::kNothingYet);
  ASSERT_EQ(send(pair.one.get(), "x", 1, 0), 1);
  EXPECT_EQ(receiveMessageNow(pair.other.get(), message), Received::kEnd);
  pair.one.reset();
  EXPECT_EQ(receiveMessage(pair.other.get(), message), Received::kEnd);
  EXPECT_FALSE(sendMessage(pair.other.get(), MessageKind::kStop));
}

// The server holds no file of a client.
TEST(Message, IsMalformedWithDescriptorsIfTheReaderTakesNone) {
  const SocketPair pair;
  ASSERT_TRUE(sendMessage(pair.one.get(), MessageKind::kLaunch, "x", {STDIN_FILENO}));
  Message message;
  EXPECT_EQ(receiveBytesNow(pair.other.get(), message), Received::kEnd);
  EXPECT_THAT(message.descriptors, IsEmpty());
  ASSERT_TRUE(sendMessage(pair.one.get(), MessageKind::kLaunch, "x"));
  EXPECT_EQ(receiveBytesNow(pair.other.get(), message), Received::kMessage);
}

// So a client that gives up knows that its worker cannot report a start afterwards.
TEST(Message, IsNotSentToAPeerThatHasStoppedReading) {
  const SocketPair pair;
  ASSERT_TRUE(sendMessage(pair.one.get(), MessageKind::kTakenOver));
  shutdown(pair.other.get(), SHUT_RD);
  EXPECT_FALSE(sendMessage(pair.one.get(), MessageKind::kStarted));
  Message message;
  EXPECT_EQ(receiveBytesNow(pair.other.get(), message), Received::kMessage);
  EXPECT_EQ(message.kind, MessageKind::kTakenOver);
  EXPECT_EQ(receiveBytesNow(pair.other.get(), message), Received::kEnd);
}

// A stopped peer must not hold the sender.
TEST(Message, IsNotSentIfTheSocketIsFull) {
  const SocketPair pair;
  const std::string large(kMaxMessageSize / 2, 'x');
  int sent = 0;
  while (sent < 1000 && sendMessage(pair.one.get(), MessageKind::kLaunch, large)) {
    ++sent;
  }
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, 1000);
}

TEST(Message, ClosesTheDescriptorsOfAMalformedMessage) {
  const SocketPair pair;
  union {
    cmsghdr header;
    char bytes[CMSG_SPACE(sizeof(int))];
  } control{};
  msghdr header{};
  header.msg_control = control.bytes;
  header.msg_controllen = sizeof control.bytes;
  control.header = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
  const int sent = STDIN_FILENO;
  std::memcpy(CMSG_DATA(&control.header), &sent, sizeof sent);
  const auto before = test::openDescriptors();
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(sendmsg(pair.one.get(), &header, 0), 0);
    Message message;
    EXPECT_EQ(receiveMessage(pair.other.get(), message), Received::kEnd);
  }
  EXPECT_EQ(test::openDescriptors(), before);
}

ProcessState ownState() {
  const ProcSelf self;
  return declaredStateOf(self) + observedStateOf(self, currentLimits());
}

constexpr char kSettings[] = "its prctl(2) settings";

// A worker takes them over.
TEST(ProcessState, DoesNotContainTheIgnoredSignals) {
  const ProcessState own = ownState();
  signal(SIGUSR2, SIG_IGN);
  EXPECT_EQ(firstDifference(own, ownState()), "");
  const sigset_t ignored = ProcSelf().ignoredSignals();
  EXPECT_EQ(sigismember(&ignored, SIGUSR2), 1);
  EXPECT_EQ(sigismember(&ignored, SIGUSR1), 0);
  signal(SIGUSR2, SIG_DFL);
}

// posix_spawn(3) leaves them ignored in its children.
TEST(ProcessState, ExcludesTheSignalsOfTheCLibrary) {
  struct {
    void (*handler)(int);
    unsigned long flags = 0;
    void (*restorer)() = nullptr;
    unsigned long mask = 0;
  } ignored{SIG_IGN}, before{SIG_DFL};
  constexpr int kCancel = 32;
  const ProcessState own = ownState();
  ASSERT_EQ(syscall(SYS_rt_sigaction, kCancel, &ignored, &before, sizeof ignored.mask), 0);
  EXPECT_EQ(firstDifference(own, ownState()), "");
  syscall(SYS_rt_sigaction, kCancel, &before, nullptr, sizeof before.mask);
}

TEST(ProcessState, NamesTheEnvironmentVariableThatDiffers) {
  const ProcessState own = ownState();
  EXPECT_EQ(firstDifference(own, ownState()), "");
  setenv("DOTNET_OfThisTest", "0", 1);
  setenv("UNRELATED", "1", 1);
  EXPECT_EQ(firstDifference(own, ownState()), "the environment variable DOTNET_OfThisTest");
  EXPECT_EQ(firstDifference(ownState(), own), "the environment variable DOTNET_OfThisTest");
  unsetenv("DOTNET_OfThisTest");
  EXPECT_EQ(firstDifference(own, ownState()), "");
}

TEST(ProcessState, ContainsTheBlockedSignals) {
  const ProcessState own = ownState();
  sigset_t some;
  sigset_t before;
  sigemptyset(&some);
  sigaddset(&some, SIGUSR1);
  sigprocmask(SIG_BLOCK, &some, &before);
  EXPECT_EQ(firstDifference(own, ownState()), "its blocked signals");
  sigprocmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(firstDifference(own, ownState()), "");
}

TEST(ProcessState, ContainsTheTimerSlack) {
  const ProcessState own = ownState();
  const int slack = prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0);
  prctl(PR_SET_TIMERSLACK, slack + 1, 0, 0, 0);
  EXPECT_EQ(firstDifference(own, ownState()), kSettings);
  prctl(PR_SET_TIMERSLACK, slack, 0, 0, 0);
  EXPECT_EQ(firstDifference(own, ownState()), "");
}

TEST(ProcessState, ContainsTheStackLimit) {
  const ProcessState own = ownState();
  const rlimit stack = currentLimits()[RLIMIT_STACK];
  const rlimit other{stack.rlim_cur - 1, stack.rlim_max};
  setrlimit(RLIMIT_STACK, &other);
  EXPECT_EQ(firstDifference(own, ownState()), "its memory limits");
  setrlimit(RLIMIT_STACK, &stack);
  EXPECT_EQ(firstDifference(own, ownState()), "");
}

TEST(ProcessState, ContainsThePersonality) {
  const ProcessState own = ownState();
  const int personal = personality(0xffffffff);
  personality(static_cast<unsigned>(personal ^ PER_LINUX32));
  EXPECT_EQ(firstDifference(own, ownState()), kSettings);
  personality(static_cast<unsigned>(personal));
  EXPECT_EQ(firstDifference(own, ownState()), "");
}

TEST(ProcessState, ContainsWhetherHugePagesAreDisabled) {
  const ProcessState own = ownState();
  const int disabled = prctl(PR_GET_THP_DISABLE, 0, 0, 0, 0);
  prctl(PR_SET_THP_DISABLE, disabled == 0 ? 1 : 0, 0, 0, 0);
  EXPECT_EQ(firstDifference(own, ownState()), kSettings);
  prctl(PR_SET_THP_DISABLE, disabled, 0, 0, 0);
  EXPECT_EQ(firstDifference(own, ownState()), "");
}

TEST(ProcessState, ContainsWhetherTheProcessAdoptsOrphans) {
  const ProcessState own = ownState();
  prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
  EXPECT_EQ(firstDifference(own, ownState()), kSettings);
  prctl(PR_SET_CHILD_SUBREAPER, 0, 0, 0, 0);
  EXPECT_EQ(firstDifference(own, ownState()), "");
}

TEST(ProcessState, ContainsTheCoreDumpFilter) {
  const ProcessState own = ownState();
  constexpr char kFile[] = "/proc/self/coredump_filter";
  const std::string before = ProcSelf().contentOf("coredump_filter");
  std::ofstream(kFile) << "0x1";
  EXPECT_EQ(firstDifference(own, ownState()), "its core dump filter");
  std::ofstream(kFile) << "0x" << before;
  EXPECT_EQ(firstDifference(own, ownState()), "");
}

TEST(ProcessState, IsEqualInAnotherOrder) {
  const std::string one = RecordWriter().text("a").text("1").text("b").text("2").bytes();
  const std::string other = RecordWriter().text("b").text("2").text("a").text("1").bytes();
  EXPECT_EQ(firstDifference(one, other), "");
}

// The name of the difference would be empty, as if there were none.
TEST(ProcessState, IsMalformedWithAnEmptyName) {
  const std::string one = RecordWriter().text("a").text("1").bytes();
  EXPECT_EQ(firstDifference(one, one + RecordWriter().text("").text("2").bytes()), "a");
}

TEST(ProcessState, DiffersFromAMalformedState) {
  const std::string one = RecordWriter().text("a").text("1").text("b").text("2").bytes();
  EXPECT_EQ(firstDifference(one, one.substr(1)), "a");
  EXPECT_EQ(firstDifference(one, ""), "a");
}

// Otherwise two states without any value would be equal.
TEST(ProcessState, IsEmptyWithoutProc) {
  if (geteuid() != 0) {
    QUILLON_SKIP("only root can change its root folder");
  }
  const TemporaryDirectory empty;
  const auto child = [&] {
    _exit(chroot(empty.path().c_str()) == 0 && ownState().empty() ? 0 : 1);
  };
  EXPECT_EXIT(child(), ::testing::ExitedWithCode(0), "");
}

TEST(ProcSelf, ListsTheDescriptorsThatExecKeeps) {
  const Descriptor own(dup(STDOUT_FILENO));
  const Descriptor closed(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
  const auto inherited = ProcSelf().inheritedDescriptors();
  EXPECT_EQ(std::count(inherited.begin(), inherited.end(), own.get()), 1);
  EXPECT_EQ(std::count(inherited.begin(), inherited.end(), closed.get()), 0);
  EXPECT_EQ(std::count(inherited.begin(), inherited.end(), STDOUT_FILENO), 0);
}

TEST(DirectoryEntries, AreCompleteInALargeFolder) {
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

TEST(Limits, CanOnlyBeLowered) {
  Limits own = currentLimits();
  Limits wanted = own;
  EXPECT_TRUE(canAdopt(own, wanted));
  own[RLIMIT_CORE] = {0, 0};
  wanted[RLIMIT_CORE] = {0, 1};
  EXPECT_FALSE(canAdopt(own, wanted));
  wanted.pop_back();
  EXPECT_FALSE(canAdopt(own, wanted));
}

// Restores the environment after each test.
class Environment : public ::testing::Test {
 protected:
  ~Environment() override {
    std::vector<std::string> all;
    for (const auto& [name, value] : before_) {
      all.push_back(name + "=" + value);
    }
    replaceEnvironment(all, {});
  }

 private:
  const Variables before_ = currentVariables();
};

TEST_F(Environment, IsReplacedExceptForTheChanges) {
  const EnvironmentChanges changes = {{"GONE", std::nullopt}, {"NEW", "2"}};
  replaceEnvironment({"GONE=3", "KEPT=4", "OWN=5", "PATH=/bin"}, changes);
  const Variables now = currentVariables();
  EXPECT_EQ(now, (Variables{{"KEPT", "4"}, {"OWN", "5"}, {"NEW", "2"}, {"PATH", "/bin"}}));
}

TEST_F(Environment, CountsASetVariableAsChangedEvenIfItsValueIsTheSame) {
  replaceEnvironment({"SAME=1", "OTHER=1", "GONE=1"}, {});
  const EnvironmentEntries before = currentEntries();
  setenv("SAME", "1", 1);
  unsetenv("GONE");
  EXPECT_EQ(changesSince(before), (EnvironmentChanges{{"SAME", "1"}, {"GONE", std::nullopt}}));
}

// The runtime may have copied a variable at either moment, so a variable that differs between the
// moments is a change even if it has one of the values now.
TEST_F(Environment, OfTheRuntimeIsUpdatedWhereItMayDiffer) {
  CopiedEnvironment copied;
  replaceEnvironment({"SAME=1", "CHANGED=1", "EARLY=1", "GONE=1", "SET=1"}, {});
  copied.record();
  replaceEnvironment({"SAME=1", "CHANGED=2", "GONE=1", "LATE=1", "SET=1"}, {});
  copied.record();
  EXPECT_THAT(copied.changes(),
              ElementsAre(Pair("CHANGED", "2"), Pair("EARLY", std::nullopt), Pair("LATE", "1")));
  replaceEnvironment({"SET=2", "NEW=", "SAME=1", "CHANGED=1", "LATE=1", "NEW=second"}, {});
  EXPECT_THAT(copied.changes(), ElementsAre(Pair("CHANGED", "1"), Pair("EARLY", std::nullopt),
                                            Pair("GONE", std::nullopt), Pair("LATE", "1"),
                                            Pair("NEW", ""), Pair("SET", "2")));
}

TEST_F(Environment, IgnoresEntriesWithoutAName) {
  replaceEnvironment({"=a=b", "A=1"}, {});
  EXPECT_EQ(currentVariables(), (Variables{{"A", "1"}}));
}

// In a child, because it redirects standard descriptors.
TEST(StdioPlaceholders, RedirectDuplicatesToo) {
  const auto child = [] {
    std::array<int, 2> pipe{};
    StdioPlaceholders placeholders;
    if (pipe2(pipe.data(), O_CLOEXEC) != 0 || !placeholders.open()) {
      _exit(1);
    }
    const int duplicate = dup(STDOUT_FILENO);
    placeholders.findDuplicates();
    placeholders.redirect(STDOUT_FILENO, pipe[1]);
    placeholders.redirect(STDIN_FILENO, -1);
    if (write(duplicate, "a", 1) != 1 || write(STDOUT_FILENO, "b", 1) != 1) {
      _exit(2);
    }
    char bytes[2] = {};
    if (read(pipe[0], bytes, 2) != 2 || bytes[0] != 'a' || bytes[1] != 'b') {
      _exit(3);
    }
    _exit(fcntl(STDIN_FILENO, F_GETFD) < 0 ? 0 : 4);
  };
  EXPECT_EXIT(child(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace quillon::launchpad
