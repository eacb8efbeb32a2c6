// Several processes in one device root, and unprivileged users.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <iostream>

#include "quillon/base/exit_status.h"
#include "tests/support/skip.h"
#include "tests/system/device_root/inside.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

using Processes = DeviceRootTest;

// A process that stays inside `root` until it is stopped.
class ProcessInside {
 public:
  explicit ProcessInside(const fs::path& root) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
      return;
    }
    child_ = ::fork();
    if (child_ == 0) {
      const bool entered = device::enter(root, {}).has_value();
      [[maybe_unused]] const ssize_t told = ::write(ends[1], entered ? "y" : "n", 1);
      ::pause();
      ::_exit(0);
    }
    char answer = 'n';
    entered_ = ::read(ends[0], &answer, 1) == 1 && answer == 'y';
    ::close(ends[0]);
    ::close(ends[1]);
  }
  ProcessInside(const ProcessInside&) = delete;
  ProcessInside& operator=(const ProcessInside&) = delete;
  ~ProcessInside() {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }

  [[nodiscard]] bool entered() const { return entered_; }
  // Returns the path by which this process reaches a file of that process.
  [[nodiscard]] fs::path see(const std::string& path) const {
    return "/proc/" + std::to_string(child_) + "/root" + path;
  }

 private:
  pid_t child_ = -1;
  bool entered_ = false;
};

TEST_F(Processes, SeeEachOthersWritesAtOnce) {
  const ProcessInside one(root_);
  const ProcessInside other(root_);
  ASSERT_TRUE(one.entered());
  ASSERT_TRUE(other.entered());
  write(one.see("/opt/usr/apps/file"), "first");
  EXPECT_EQ(read(other.see("/opt/usr/apps/file")), "first");
  write(other.see("/opt/usr/apps/file"), "second");
  EXPECT_EQ(read(one.see("/opt/usr/apps/file")), "second");
  EXPECT_EQ(read(root_ / "opt/usr/apps/file"), "second");
  write(root_ / "tmp/file", "from outside");
  EXPECT_EQ(read(one.see("/tmp/file")), "from outside");
  fs::remove(one.see("/tmp/file"));
  EXPECT_FALSE(fs::exists(other.see("/tmp/file")));
}

// Diagnostic tools outside connect to a runtime inside this way.
TEST_F(Processes, ASocketInsideIsReachedThroughTheDeviceRoot) {
  const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const Outcome listening = inChild([&] {
    sockaddr_un address{AF_UNIX, "/tmp/diagnostic"};
    if (!device::enter(root_, {})) {
      return 1;
    }
    return ::bind(server, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                   ::listen(server, 1) == 0
               ? 0
               : 2;
  });
  ASSERT_EQ(listening.status, 0);
  sockaddr_un address{AF_UNIX, ""};
  const std::string path = (root_ / "tmp/diagnostic").string();
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int client = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::close(client);
  ::close(server);
}

TEST_F(Processes, AnOrdinaryUserEntersThroughAUserNamespace) {
  if (::geteuid() != 0) {
    QUILLON_SKIP("every test of this run is this one already: it is not run by root");
  }
  constexpr uid_t kNobody = 65534;
  const fs::path root = fresh("/var/tmp");
  ASSERT_EQ(::chown(root.c_str(), kNobody, kNobody), 0);
  const Outcome outcome = inChild([&] {
    // After a change of user, only a dumpable process may write its own id maps.
    if (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0 ||
        ::prctl(PR_SET_DUMPABLE, 1) != 0 || !device::init(root, {})) {
      return 1;
    }
    const Outcome result =
        inside(root,
               "id -u; id -g; echo x > /opt/usr/written; touch /var/tmp/written; "
               "cmp /etc/dotnet_flag.ini /opt/etc/dotnet_flag.ini && echo same");
    std::cout << result.output;
    return result.status;
  });
  if (outcome.output.find("user namespaces are not available") != std::string::npos) {
    QUILLON_SKIP(outcome.output);
  }
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, HasSubstr("65534\n65534\n"));
  EXPECT_THAT(outcome.output, HasSubstr("'/var/tmp/written': Read-only file system"));
  EXPECT_THAT(outcome.output, HasSubstr("same\n"));
  EXPECT_EQ(read(root / "opt/usr/written"), "x\n");
}

// Sets a limit for this process only, in a new user namespace.
bool limitTo0(const char* setting) {
  return ::unshare(CLONE_NEWUSER) == 0 && (write(setting, "0"), read(setting) == "0\n");
}

bool dropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  const std::array<__user_cap_data_struct, 2> none{};
  return ::syscall(SYS_capset, &header, none.data()) == 0;
}

// Enters and returns the exit status; prints the failure.
int enterAndPrint(const fs::path& root) {
  const Outcome outcome = inside(root, "true");
  std::cout << outcome.output;
  return outcome.status;
}

TEST_F(Processes, ReportsToAnOrdinaryUserWhatToEnable) {
  const Outcome outcome = inChild([&] {
    return limitTo0("/proc/sys/user/max_user_namespaces") && dropCapabilities()
               ? enterAndPrint(root_)
               : 1;
  });
  EXPECT_EQ(outcome.status, kNoNamespace);
  EXPECT_THAT(outcome.output, HasSubstr("user namespaces are not available"));
  EXPECT_THAT(outcome.output, HasSubstr("sysctl user.max_user_namespaces="));
}

TEST_F(Processes, ReportsAReachedLimit) {
  const Outcome outcome = inChild(
      [&] { return limitTo0("/proc/sys/user/max_mnt_namespaces") ? enterAndPrint(root_) : 1; });
  EXPECT_EQ(outcome.status, kNoNamespace);
  EXPECT_THAT(outcome.output, HasSubstr("sysctl user.max_mnt_namespaces"));
}

}  // namespace
}  // namespace quillon::test
