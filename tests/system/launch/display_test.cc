// The line about an X server whose socket the device root hides.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>

#include "quillon/base/descriptor.h"
#include "tests/support/skip.h"
#include "tests/system/launch/sample_device.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

// Listens at an address in the file system, or at an abstract one.
Descriptor listenAt(const std::string& path, bool isAbstract) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path + (isAbstract ? 1 : 0), path.data(), path.size());
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + path.size());
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const bool isBound = bind(socket.get(), reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                       listen(socket.get(), 1) == 0;
  return isBound ? std::move(socket) : Descriptor();
}

class Display : public LaunchTest {
 protected:
  void SetUp() override {
    LaunchTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    std::error_code error;
    fs::create_directory(folder_, error);
    server_ = listenAt(socket_, false);
    if (!server_) {
      QUILLON_SKIP("this user cannot create " << socket_);
    }
    makeDevice("none");
  }
  ~Display() override {
    std::error_code error;
    fs::remove(socket_, error);
    fs::remove(folder_, error);  // fails if it holds sockets of others
  }

  // What a launch reports, which fails for want of a runtime.
  std::string errorsWith(const std::string& display, const std::vector<std::string>& options = {}) {
    std::vector<std::string> words = options;
    words.emplace_back(kClock);
    return launch(words, {"QUILLON_LOG=none", "DISPLAY=" + display}).err;
  }

  const fs::path folder_ = "/tmp/.X11-unix";
  const std::string number_ = std::to_string(100'000 + getpid());
  const std::string socket_ = folder_ / ("X" + number_);
  const std::string hint_ =
      "quillon: the device root hides the socket '" + socket_ + "' of DISPLAY=";

 private:
  Descriptor server_;
};

TEST_F(Display, IsReportedIfTheDeviceHidesItsSocket) {
  EXPECT_THAT(
      errorsWith(":" + number_),
      HasSubstr(hint_ + ":" + number_ +
                "; if the application needs it: quillon launch --writable /tmp/.X11-unix\n"));
  EXPECT_THAT(errorsWith("unix:" + number_ + ".0"), HasSubstr(hint_));
}

TEST_F(Display, IsNotReportedIfItCanBeReached) {
  EXPECT_THAT(errorsWith(":" + number_, {"--writable", folder_}), Not(HasSubstr(hint_)));
  EXPECT_THAT(errorsWith(":" + number_, {"--plan"}), Not(HasSubstr(hint_)));
  EXPECT_THAT(errorsWith("localhost:" + number_), Not(HasSubstr(hint_)));
  const Descriptor abstract = listenAt(socket_, true);
  ASSERT_TRUE(abstract);
  EXPECT_THAT(errorsWith(":" + number_), Not(HasSubstr(hint_)));
}

TEST_F(Display, IsNotReportedIfThereIsNone) {
  EXPECT_THAT(errorsWith(":" + number_ + "1"), Not(HasSubstr("DISPLAY")));
  EXPECT_THAT(errorsWith(""), Not(HasSubstr("DISPLAY")));
}

}  // namespace
}  // namespace quillon::test
