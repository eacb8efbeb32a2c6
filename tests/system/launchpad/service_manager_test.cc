// A launch pad that a service manager such as systemd has started: see sd_notify(3).
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <string>

#include "quillon/base/descriptor.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

// The socket of a service manager: a path, or a name that begins with '@'.
class ServiceManagerTest : public LaunchpadTest, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    LaunchpadTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    address_.copy(name.sun_path, sizeof name.sun_path - 1);
    if (address_.front() == '@') {
      name.sun_path[0] = '\0';
    }
    const size_t length = offsetof(sockaddr_un, sun_path) + address_.size();
    ASSERT_EQ(bind(socket_.get(), reinterpret_cast<sockaddr*>(&name), length), 0);
    const timeval patience{20, 0};
    setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }

  bool prepareLaunchpadProcess() const override {
    return setenv("NOTIFY_SOCKET", address_.c_str(), 1) == 0 &&
           setenv("WATCHDOG_USEC", "100000", 1) == 0;
  }

  std::string next() const {
    std::string message(4096, '\0');
    const ssize_t length = recv(socket_.get(), message.data(), message.size(), 0);
    message.resize(length < 0 ? 0 : static_cast<size_t>(length));
    return message;
  }
  // The next message that is none of the watchdog's.
  std::string nextState() const {
    std::string message = next();
    while (message == "WATCHDOG=1") {
      message = next();
    }
    return message;
  }

 private:
  std::string address_ = (GetParam() ? "@" : "") + fresh("notify").string();
  Descriptor socket_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

TEST_P(ServiceManagerTest, HearsWhenTheLaunchPadServesLivesAndStops) {
  start(1);
  EXPECT_EQ(next(), "READY=1");
  EXPECT_EQ(next(), "WATCHDOG=1");
  EXPECT_EQ(next(), "WATCHDOG=1");
  EXPECT_EQ(control("stop").status, 0);
  EXPECT_EQ(nextState(), "STOPPING=1");
}

INSTANTIATE_TEST_SUITE_P(Addresses, ServiceManagerTest, ::testing::Bool(),
                         [](const auto& chosen) { return chosen.param ? "Abstract" : "Path"; });

}  // namespace
}  // namespace quillon::test
