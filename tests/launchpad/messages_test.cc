// What asking commands and the launch pad say to each other.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>

#include "launcher/launchpad/address.h"
#include "launcher/launchpad/environment.h"
#include "launcher/launchpad/limits.h"
#include "launcher/launchpad/packet.h"
#include "launcher/launchpad/process_shape.h"
#include "launcher/launchpad/request.h"
#include "launcher/launchpad/standard_places.h"
#include "launcher/launchpad/text_record.h"

namespace quillon::launchpad {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(TextRecord, ReadsBackWhatWasWritten) {
  const std::string zero("a\0b", 3);
  const std::string bytes =
      RecordWriter().number(7).text(zero).texts({"", "x"}).map({{"k", "v"}}).bytes();
  RecordReader reader(bytes);
  EXPECT_EQ(reader.number(), 7U);
  EXPECT_EQ(reader.text(), zero);
  EXPECT_THAT(reader.texts(), ElementsAre("", "x"));
  EXPECT_EQ(reader.map().at("k"), "v");
  EXPECT_TRUE(reader.atEnd());
  EXPECT_EQ(reader.number(), 0U);
  EXPECT_FALSE(reader.ok());
}

// Every beginning of a record, and a record whose lengths are all wrong.
TEST(TextRecord, TakesAnyBytes) {
  const std::string whole =
      RecordWriter().text("abc").texts({"d", "e"}).pairs({{"f", "g"}}).bytes();
  for (size_t length = 0; length < whole.size(); ++length) {
    RecordReader reader(std::string_view(whole).substr(0, length));
    reader.text();
    reader.texts();
    reader.pairs();
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

TEST(Request, ArrivesWithItsDescriptors) {
  launcher::LaunchOptions options;
  options.appId = "app";
  options.type = "normal";
  options.raw = true;
  options.arguments = {"", "two words"};
  const Request sent = makeRequest(options);
  const Pair pair;
  const Descriptor began(eventfd(0, EFD_CLOEXEC));
  ASSERT_TRUE(sendRequest(pair.one.get(), sent, began.get()));
  Packet packet;
  ASSERT_EQ(receivePacket(pair.other.get(), packet), Received::kPacket);
  EXPECT_EQ(packet.kind, PacketKind::kLaunch);
  auto arrived = openRequest(std::move(packet));
  ASSERT_TRUE(arrived);
  EXPECT_EQ(arrived->request.appId, "app");
  EXPECT_EQ(arrived->request.type, "normal");
  EXPECT_FALSE(arrived->request.exec);
  EXPECT_TRUE(arrived->request.raw);
  EXPECT_THAT(arrived->request.arguments, ElementsAre("", "two words"));
  EXPECT_EQ(arrived->request.environment, sent.environment);
  EXPECT_EQ(firstDifference(arrived->request.shape, sent.shape), "");
  EXPECT_TRUE(canTakeOver(currentLimits(), arrived->request.limits));
  const uint64_t there = RecordReader(arrived->packet.bytes).number();
  const auto taken = takeDescriptors(arrived->packet.descriptors, there);
  EXPECT_FALSE(wasToldBegun(began.get()));
  tellBegun(taken.began.get());
  EXPECT_TRUE(wasToldBegun(began.get()));
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

TEST(Packet, TellsAnEndFromNothingYet) {
  Pair pair;
  Packet packet;
  EXPECT_EQ(receivePacketNow(pair.other.get(), packet), Received::kNothingYet);
  ASSERT_EQ(send(pair.one.get(), "x", 1, 0), 1);
  EXPECT_EQ(receivePacketNow(pair.other.get(), packet), Received::kEnd);
  pair.one.reset();
  EXPECT_EQ(receivePacket(pair.other.get(), packet), Received::kEnd);
  EXPECT_FALSE(sendPacket(pair.other.get(), PacketKind::kStop));
}

size_t openDescriptors() {
  return static_cast<size_t>(
      std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

TEST(Packet, KeepsNoDescriptorsOfAnEmptyOne) {
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
    Packet packet;
    EXPECT_EQ(receivePacket(pair.other.get(), packet), Received::kEnd);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST(ProcessShape, KnowsWhatSignalsAreIgnored) {
  const ProcessShape own = currentShape();
  signal(SIGUSR2, SIG_IGN);
  EXPECT_EQ(firstDifference(own, currentShape()), "its ignored signals");
  signal(SIGUSR2, SIG_DFL);
  EXPECT_EQ(firstDifference(own, currentShape()), "");
}

TEST(ProcessShape, NamesWhatDiffers) {
  const ProcessShape own = currentShape();
  EXPECT_EQ(firstDifference(own, currentShape()), "");
  setenv("DOTNET_OfThisTest", "0", 1);
  setenv("UNRELATED", "1", 1);
  EXPECT_EQ(firstDifference(own, currentShape()), "the environment variable DOTNET_OfThisTest");
  EXPECT_EQ(firstDifference(currentShape(), own), "the environment variable DOTNET_OfThisTest");
  unsetenv("DOTNET_OfThisTest");
  EXPECT_EQ(firstDifference(own, currentShape()), "");
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
TEST(StandardPlaces, LeadDuplicatesToo) {
  const auto child = [] {
    std::array<int, 2> pipe{};
    StandardPlaces places;
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
