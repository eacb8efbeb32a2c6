// Processes that know their application before it is requested.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <tuple>

#include "quillon/base/descriptor.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

constexpr char kOrder[] = "org.velora.sample.order";
constexpr char kOrderAssembly[] = "/opt/usr/apps/org.velora.sample.order/order/SampleOrder.dll";
constexpr char kOrderLibrary[] = "/opt/usr/apps/org.velora.sample.order/order/SamplePlain.dll";

class OwnProcess : public LaunchpadTest {
 protected:
  void SetUp() override {
    allowOwnProcesses();
    LaunchpadTest::SetUp();
  }

  // What the sample has noted since the last call.
  std::string takeNotes() const {
    const fs::path file = at("/tmp/order");
    std::string notes = contentOf(file);
    fs::remove(file);
    return notes;
  }

  // Prepares a process for an application that notes its order, and returns the notes of its direct
  // launch.
  std::string prepareOrder(const std::string& application) {
    prepareFor({application});
    return takeNotes();
  }
};

// "first" as .NET stores texts of programs.
std::string utf16(const std::string& text) {
  std::string wide;
  for (const char c : text) {
    wide += c;
    wide += '\0';
  }
  return wide;
}

// An assembly of the sample, with "other" in the place of its text "first".
std::string otherVersion(const fs::path& assembly) {
  std::string bytes = contentOf(assembly);
  const size_t at = bytes.find(utf16("first"));
  EXPECT_NE(at, std::string::npos);
  return bytes.replace(at, utf16("first").size(), utf16("other"));
}

// By renaming, so that nobody reads a file that is only partly written.
void replaceBy(const fs::path& file, const std::string& content) {
  const fs::path next = file.string() + ".next";
  write(next, content);
  fs::rename(next, file);
}

void replaceFile(const fs::path& file) { replaceBy(file, otherVersion(file)); }

// Keeps the file's inode, size and modification time.
void overwriteFile(const fs::path& file) {
  struct stat before {};
  ASSERT_EQ(stat(file.c_str(), &before), 0);
  write(file, otherVersion(file));
  const timespec times[] = {before.st_atim, before.st_mtim};
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
}

class OwnProcessOrder : public OwnProcess,
                        public ::testing::WithParamInterface<std::tuple<std::string, bool>> {};

INSTANTIATE_TEST_SUITE_P(Of, OwnProcessOrder,
                         ::testing::Combine(::testing::Values("org.velora.sample.order",
                                                              "org.velora.sample.initializer",
                                                              "org.velora.sample.early"),
                                            ::testing::Bool()));

// The second parameter: without tiered compilation, the runtime compiles with optimisations, which
// depend on what has been initialised.
TEST_P(OwnProcessOrder, RunsNoCodeOfTheApplicationEarly) {
  const auto [application, tiered] = GetParam();
  setenv("DOTNET_TieredCompilation", tiered ? "1" : "0", 1);
  start(1);
  const std::string direct = prepareOrder(application);
  EXPECT_THAT(direct, HasSubstr("Main\n"));
  EXPECT_EQ(takeNotes(), "");
  EXPECT_EQ(launch({application}).out, "version: first\n");
  unsetenv("DOTNET_TieredCompilation");
  expectServed(1);
  EXPECT_EQ(takeNotes(), direct);
}

TEST_F(OwnProcess, IsNotUsedForAnUpdatedApplication) {
  start(1);
  for (const char* file : {kOrderAssembly, kOrderLibrary}) {
    for (const auto update : {replaceFile, overwriteFile}) {
      const fs::path path = at(file);
      const std::string first = contentOf(path);
      ASSERT_EQ(launch({kOrder}).status, 0);
      ASSERT_TRUE(awaitReady()) << status() << errors();
      takeNotes();
      const int before = servedByOwnProcesses();
      update(path);
      const CommandResult updated = launch({kOrder});
      EXPECT_THAT(takeNotes() + updated.out, HasSubstr("other")) << file;
      EXPECT_EQ(updated.err, "");
      EXPECT_EQ(servedByOwnProcesses(), before);
      ASSERT_TRUE(awaitReady()) << status() << errors();
      const CommandResult again = launch({kOrder});
      EXPECT_THAT(takeNotes() + again.out, HasSubstr("other")) << file;
      EXPECT_EQ(servedByOwnProcesses(), before + 1);
      replaceBy(path, first);
    }
  }
}

// Makes each process that opens a file wait until this one allows it (fanotify(7)).
class OpenGate {
 public:
  explicit OpenGate(const fs::path& file)
      : events_(fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC, O_RDONLY | O_CLOEXEC)) {
    works_ = fanotify_mark(events_.get(), FAN_MARK_ADD, FAN_OPEN_PERM, AT_FDCWD, file.c_str()) == 0;
  }
  bool works() const { return works_; }

  // Waits for a process that opens the file, runs `meanwhile`, and then allows the opening.
  bool awaitOpen(const std::function<void()>& meanwhile) const {
    fanotify_event_metadata event{};
    pollfd readable{events_.get(), POLLIN, 0};
    if (poll(&readable, 1, 30000) != 1 ||
        read(events_.get(), &event, sizeof(event)) != ssize_t{sizeof(event)}) {
      return false;
    }
    meanwhile();
    const Descriptor opened(event.fd);
    const fanotify_response response{event.fd, FAN_ALLOW};
    return write(events_.get(), &response, sizeof(response)) == ssize_t{sizeof(response)};
  }

 private:
  Descriptor events_;  // closing it allows all openings that wait
  bool works_ = false;
};

TEST_F(OwnProcess, IsPreparedAgainIfTheApplicationIsUpdatedMeanwhile) {
  start(1);
  prepareOrder(kOrder);
  const fs::path library = at(kOrderLibrary);
  const std::string updated = otherVersion(library);
  {
    const OpenGate gate(library);
    if (!gate.works()) {
      GTEST_SKIP() << "only root may hold back the opening of a file (CAP_SYS_ADMIN)";
    }
    ASSERT_EQ(control("reload").status, 0);
    ASSERT_TRUE(gate.awaitOpen([&] { replaceBy(library, updated); })) << status() << errors();
  }
  ASSERT_TRUE(eventually([&] {
    return errors().find("changed while a process was prepared for it") != std::string::npos;
  })) << status()
      << errors();
  ASSERT_TRUE(awaitReady()) << status() << errors();
  takeNotes();
  const CommandResult result = launch({kOrder});
  EXPECT_THAT(takeNotes() + result.out, HasSubstr("other"));
  EXPECT_EQ(servedByOwnProcesses(), 1);
}

// The update comes after the launch pad has chosen the process.
TEST_F(OwnProcess, IsNotUsedIfTheApplicationIsUpdatedDuringItsLaunch) {
  start(1);
  prepareOrder(kOrder);
  for (const pid_t process : processes("ready")) {
    kill(process, SIGSTOP);
  }
  RunningLaunch running({"--device", root(), "--raw", kOrder});
  ASSERT_TRUE(awaitProcesses("assigned", 1));
  replaceFile(at(kOrderAssembly));
  const pid_t assigned = processes("assigned").at(0);
  for (const pid_t process : processes("ready")) {
    kill(process, SIGCONT);
  }
  kill(assigned, SIGCONT);
  const CommandResult ending = running.wait();
  EXPECT_EQ(ending.out, "version: other\n") << ending.err;
  EXPECT_EQ(servedByOwnProcesses(), 0);
  EXPECT_EQ(served(), 1);  // by the other process
}

TEST_F(OwnProcess, EndsWithItsPackage) {
  start(1);
  prepareOrder(kOrder);
  const auto before = processes("ready");
  const std::string quillon = QUILLON_BUILD_DIRECTORY "/bin/quillon";
  ASSERT_EQ(run({quillon, "package", "remove", "--device", root(), kOrder}).status, 0);
  EXPECT_THAT(launch({kOrder}).err, HasSubstr("no application '" + std::string(kOrder) + "'"));
  ASSERT_EQ(launch({kClock}).status, 0);
  EXPECT_TRUE(eventually([&] {
    return status().find(", for " + std::string(kOrder)) == std::string::npos;
  })) << status();
  for (const pid_t process : before) {
    EXPECT_TRUE(eventually([&] { return !isAlive(process); }));
  }
}

// Main uses an assembly that only a handler in the application can find. The runtime remembers
// which assemblies it has not found.
TEST_F(OwnProcess, DoesNotExistIfMainNeedsAnAssemblyFromElsewhere) {
  start(1);
  fs::rename(at(kOrderLibrary), at("/tmp/SamplePlain.dll"));
  EXPECT_NE(launch({kOrder}).status, 0);
  ASSERT_TRUE(eventually([&] {
    return errors().find("no process of its own is prepared for '" + std::string(kOrder) + "'") !=
           std::string::npos;
  })) << status()
      << errors();
  fs::rename(at("/tmp/SamplePlain.dll"), at(kOrderLibrary));
  ASSERT_TRUE(awaitProcesses("ready", 1)) << status();
  EXPECT_THAT(launch({kOrder}).out, HasSubstr("version: first"));
  EXPECT_EQ(served(), 1);
  EXPECT_EQ(servedByOwnProcesses(), 0);
  ASSERT_EQ(control("reload").status, 0);
  ASSERT_TRUE(awaitReady()) << status() << errors();
}

using OwnMemory = LaunchpadTest;

// The memory that the status states for the processes of applications, in MiB.
int memoryOfOwnProcesses(const std::string& status) {
  int sum = 0;
  for (size_t at = status.find(", for "); at != std::string::npos;
       at = status.find(", for ", at + 1)) {
    const size_t process = status.find("ready, ", at);
    const size_t next = status.find("pool ", at);
    if (process < next) {
      sum += std::atoi(status.c_str() + process + 7);
    }
  }
  return sum;
}

TEST_F(OwnMemory, IsLimited) {
  constexpr int kMiB = 48;
  allowOwnProcesses(kMiB);
  start(1);
  for (const char* type : {"inhouse", "inhouseapitest", "normal", "dotnet"}) {
    ASSERT_EQ(launch({"--type", type, kClock}).status, 0);
    ASSERT_TRUE(eventually([&] { return memoryOfOwnProcesses(status()) > 0; })) << status();
  }
  ASSERT_TRUE(eventually([&] { return processes("in preparation").empty(); }));
  EXPECT_THAT(status(), HasSubstr("those that wait may need 48 MiB"));
  EXPECT_LE(memoryOfOwnProcesses(status()), kMiB) << status();
  EXPECT_EQ(launch({"--type", "dotnet", kClock}).status, 0);
  EXPECT_EQ(servedByOwnProcesses(), 1) << status();
}

}  // namespace
}  // namespace quillon::test
