// Tests at the two pipes of library validation, inside a device root: the test plays the side that
// is not under test.
#pragma once

#include <quillon_tv_plugin.h>

#include <future>
#include <string>

#include "tests/strategies/device_test.h"

namespace quillon::test {

inline constexpr char kRequestPipe[] = QUILLON_DLL_REQUEST_PIPE;
inline constexpr char kAnswerPipe[] = QUILLON_DLL_ANSWER_PIPE;

// A pipe of the file system, open in both directions as long as the object lives.
class OpenPipe {
 public:
  explicit OpenPipe(const char* path);  // opens what is there
  ~OpenPipe();
  OpenPipe(const OpenPipe&) = delete;
  OpenPipe& operator=(const OpenPipe&) = delete;

  void write(const std::string& bytes) const;
  // One read; waits until something is there.
  [[nodiscard]] std::string read() const;
  // Bytes in the pipe, unread.
  [[nodiscard]] int unread() const;

 private:
  int descriptor_;
};

class PipeTest : public DeviceTest {
 protected:
  // Begins without anything at the two paths.
  void SetUp() override;
  void TearDown() override;

  static void makePipe(const char* path);
  static void makePipes();

  // How many descriptors this process has open.
  static std::size_t openDescriptors();

  // plugin_validate_dll on a thread of its own.
  static std::future<int> ask(const std::string& path, int type = 1);
};

}  // namespace quillon::test
