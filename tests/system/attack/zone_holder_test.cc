// A process that a zone's state file names, but that does not hold the zone.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <iostream>
#include <string>

#include "tests/system/zone/zone_fixture.h"
#include "workstation/zone_state.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

// A process that does nothing, and was started by somebody else than `quillon zone`.
class Victim {
 public:
  // Locks all of `file`, if it is not empty.
  explicit Victim(const fs::path& file = {}) {
    std::array<int, 2> ready{};
    EXPECT_EQ(pipe(ready.data()), 0);
    pid_ = fork();
    if (pid_ == 0) {
      struct flock whole {};
      whole.l_type = F_WRLCK;
      const int locked = file.empty() ? -1 : open(file.c_str(), O_RDWR);
      const bool failed = !file.empty() && fcntl(locked, F_SETLK, &whole) != 0;
      [[maybe_unused]] const ssize_t written = ::write(ready[1], failed ? "f" : "r", 1);
      pause();
      _exit(0);
    }
    close(ready[1]);
    char byte = 0;
    EXPECT_EQ(::read(ready[0], &byte, 1), 1);
    EXPECT_EQ(byte, 'r');
    close(ready[0]);
  }
  ~Victim() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Victim(const Victim&) = delete;
  Victim& operator=(const Victim&) = delete;

  [[nodiscard]] bool isAlive() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }
  [[nodiscard]] std::string state() const {
    return std::to_string(pid_) + " " + std::to_string(workstation::startTimeOf(pid_)) + "\n";
  }

 private:
  pid_t pid_ = -1;
};

class ForeignHolder : public ZoneTest {
 protected:
  // Makes a zone look as if it ran.
  fs::path forge(const std::string& state) {
    const fs::path file = root_ / "opt/usr/share/quillon/zones/appzone";
    fs::create_directories(file.parent_path());
    fs::create_directories(root_ / "zone/appzone");
    write(file, state);
    return file;
  }
};

TEST_F(ForeignHolder, IsNotEndedByAStop) {
  const Victim victim;
  forge(victim.state());
  const Outcome stopped = zone("stop appzone");
  EXPECT_EQ(stopped.status, 0);
  EXPECT_EQ(stopped.output, "zone appzone: had ended already; removed its files\n");
  EXPECT_TRUE(victim.isAlive());
}

// For example a program whose own file was linked to the state's name.
TEST_F(ForeignHolder, ThatLocksTheWholeFileIsNotEndedByAStop) {
  const fs::path file = forge("");
  const Victim victim(file);
  write(file, victim.state());
  EXPECT_EQ(zone("stop appzone").output, "zone appzone: had ended already; removed its files\n");
  EXPECT_TRUE(victim.isAlive());
}

TEST_F(ForeignHolder, IsNotListed) {
  const Victim victim;
  forge(victim.state());
  EXPECT_EQ(zone("list").output,
            "zone appzone: not running; its holder ended without being stopped\n");
}

TEST_F(ForeignHolder, IsNotJoinedByALaunch) {
  start();  // installs the zone library
  EXPECT_EQ(zone("stop appzone").status, 0);
  const Victim victim;
  forge(victim.state());
  const Outcome outcome = inDevice([] {
    const ZoneLibrary library;
    std::cout << (library.getContext("appzone") == nullptr) << " " << platform().log.at(0).text;
    return 0;
  });
  EXPECT_THAT(outcome.output, HasSubstr("1 the zone 'appzone' is not running: its holder"));
}

TEST_F(ForeignHolder, DoesNotPreventAStart) {
  const Victim victim;
  forge(victim.state());
  start();
  EXPECT_EQ(zone("stop appzone").output, "zone appzone: stopped\n");
  EXPECT_TRUE(victim.isAlive());
}

// Any process that may open a folder can lock it.
TEST_F(ForeignHolder, OfALockOnTheFolderDelaysNoCommand) {
  const fs::path file = forge("");
  const int folder = open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(flock(folder, LOCK_EX), 0);
  start();
  EXPECT_EQ(zone("stop appzone").output, "zone appzone: stopped\n");
  close(folder);
  EXPECT_EQ(fs::status(root_ / "opt/usr/share/quillon/zones.lock").permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
}

// The holder's state is changed while the zone runs.
TEST_F(ForeignHolder, IsNotEndedInPlaceOfTheRealOne) {
  start();
  const pid_t real = holder();
  const Victim victim;
  forge(victim.state());
  EXPECT_EQ(zone("stop appzone").output, "zone appzone: stopped\n");
  EXPECT_TRUE(ends(real));
  EXPECT_TRUE(victim.isAlive());
}

}  // namespace
}  // namespace quillon::test
