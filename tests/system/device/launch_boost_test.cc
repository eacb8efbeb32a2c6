// Sends the notice to a real daemon on the device's socket.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "tests/system/device/device_fixture.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::Not;

constexpr char kApp[] = "org.example.clock";
constexpr char kExec[] = "/opt/usr/apps/org.example.clock/bin/A.dll";

class LaunchBoostNotice : public DeviceLaunch {
 protected:
  void SetUp() override {
    DeviceLaunch::SetUp();
    if (IsSkipped()) {
      return;
    }
    makeApplication(kApp);
  }
  DriverRun launch(int times = 1) {
    std::vector<std::string> steps = {"initialize=inhouse", "status=Pid"};
    steps.insert(steps.end(), static_cast<std::size_t>(times),
                 std::string("set_app_info=") + kApp + "," + kExec);
    return run(steps, kApp);
  }
};

// Returns all bytes of the next connection.
std::string receive(int listener) {
  pollfd waiting{listener, POLLIN, 0};
  if (poll(&waiting, 1, 5000) != 1) {
    return "nobody came";
  }
  const int connection = accept(listener, nullptr, nullptr);
  std::string bytes;
  char buffer[256];
  for (ssize_t got; (got = ::read(connection, buffer, sizeof(buffer))) > 0;) {
    bytes.append(buffer, static_cast<std::size_t>(got));
  }
  close(connection);
  return bytes;
}

TEST_F(LaunchBoostNotice, ReachesTheDaemon) {
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  onMachine("/tmp/kestsock").string().copy(address.sun_path, sizeof(address.sun_path) - 1);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  ASSERT_EQ(listen(listener, 4), 0);
  const DriverRun launched = launch();
  const std::string text =
      std::string("APPSTART:") + kApp + ":" + launched.result("status").get<std::string>();
  EXPECT_EQ(receive(listener), text + '\0');
  EXPECT_THAT(launched.markers, Contains(text));
  EXPECT_THAT(launched.lines(), Not(Contains("4 " + text)));
  close(listener);
}

TEST_F(LaunchBoostNotice, WithoutADaemonIsTriedInFiveLaunchesOnly) {
  const DriverRun launched = launch(6);
  EXPECT_EQ(launched.status, 0);
  EXPECT_THAT(launched.markers, Contains("kest Client:connect error").Times(20));
  EXPECT_THAT(launched.markers, Contains("kest Client:connect error count out").Times(5));
  EXPECT_THAT(launched.markers, Contains("kest Client:try connect kestrel").Times(5));
}

}  // namespace
}  // namespace quillon::test
