// The launch-boost notice of a launch, in a device root that usually has no daemon.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "tests/system/launch/sample_device.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

// Returns a listening stream socket. Its path remains when it is closed.
int listenAt(const fs::path& path) {
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.string().copy(address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(listen(listener, 4), 0);
  return listener;
}

class BoostNotice : public RuntimeTest {
 protected:
  void SetUp() override {
    RuntimeTest::SetUp();
    if (!IsSkipped()) {
      makeDevice();
    }
  }
  // Returns the launch's trace, in which the plug-in reports whether the notice was sent.
  std::string launchTraced() {
    const fs::path file = fresh("trace.json");
    fs::remove(file);
    EXPECT_EQ(launch({kClock}, {"QUILLON_LOG=none", "QUILLON_TRACE=" + file.string()}).status, 0);
    return contentOf(file);
  }
  fs::path socketPath() const { return at("/tmp/kestsock"); }
};

auto IsReceivedAtOnce() {
  return AllOf(HasSubstr(std::string("APPSTART:") + kClock), Not(HasSubstr("connect error")));
}

TEST_F(BoostNotice, IsReceivedByTheLauncherIfThereIsNoDaemon) {
  EXPECT_THAT(launchTraced(), IsReceivedAtOnce());
  EXPECT_FALSE(fs::exists(fs::symlink_status(socketPath())));
}

TEST_F(BoostNotice, IsReceivedByTheLauncherInPlaceOfAStaleSocket) {
  close(listenAt(socketPath()));
  EXPECT_THAT(launchTraced(), IsReceivedAtOnce());
  EXPECT_FALSE(fs::exists(fs::symlink_status(socketPath())));
}

TEST_F(BoostNotice, IsReceivedByTheDaemonIfThereIsOne) {
  const int daemon = listenAt(socketPath());
  EXPECT_THAT(launchTraced(), IsReceivedAtOnce());
  const int connection = accept4(daemon, nullptr, nullptr, SOCK_CLOEXEC);
  char bytes[256] = {};
  EXPECT_GT(read(connection, bytes, sizeof bytes - 1), 0);
  EXPECT_THAT(std::string(bytes), HasSubstr(std::string("APPSTART:") + kClock));
  EXPECT_TRUE(fs::is_socket(socketPath()));
  close(connection);
  close(daemon);
}

TEST_F(BoostNotice, DoesNotReplaceAFileThatIsNotASocket) {
  write(socketPath(), "kept");
  EXPECT_THAT(launchTraced(), HasSubstr("connect error"));
  EXPECT_EQ(contentOf(socketPath()), "kept");
}

}  // namespace
}  // namespace quillon::test
