#include "tests/system/validation/pipe_test.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillon::test {

namespace fs = std::filesystem;

OpenPipe::OpenPipe(const char* path) : descriptor_(open(path, O_RDWR | O_CLOEXEC)) {
  EXPECT_GE(descriptor_, 0) << path;
}

OpenPipe::~OpenPipe() { close(descriptor_); }

void OpenPipe::write(const std::string& bytes) const {
  EXPECT_EQ(::write(descriptor_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

std::string OpenPipe::read() const {
  std::string bytes(65536, '\0');
  const ssize_t length = ::read(descriptor_, bytes.data(), bytes.size());
  bytes.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return bytes;
}

int OpenPipe::unread() const {
  int bytes = -1;
  EXPECT_EQ(ioctl(descriptor_, FIONREAD, &bytes), 0);
  return bytes;
}

void PipeTest::SetUp() {
  DeviceTest::SetUp();
  if (!IsSkipped()) {
    fs::remove_all(kRequestPipe);
    fs::remove_all(kAnswerPipe);
  }
}

void PipeTest::TearDown() {
  if (!IsSkipped()) {
    fs::remove_all(kRequestPipe);
    fs::remove_all(kAnswerPipe);
  }
}

void PipeTest::makePipe(const char* path) { ASSERT_EQ(mknod(path, S_IFIFO | 0600, 0), 0) << path; }

void PipeTest::makePipes() {
  makePipe(kRequestPipe);
  makePipe(kAnswerPipe);
}

std::future<int> PipeTest::ask(const std::string& path, int type) {
  return std::async(std::launch::async, [=] { return plugin_validate_dll(type, path.c_str()); });
}

}  // namespace quillon::test
