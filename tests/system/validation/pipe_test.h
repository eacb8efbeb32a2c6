// Tests with the two pipes of library validation, inside a device root. The test plays the other
// side.
#pragma once

#include <future>
#include <string>

#include "quillon_tv_plugin.h"
#include "tests/system/strategies/device_test.h"

namespace quillon::test {

inline constexpr char kRequestPipe[] = QUILLON_DLL_REQUEST_PIPE;
inline constexpr char kAnswerPipe[] = QUILLON_DLL_ANSWER_PIPE;

// A named pipe that is open for reading and writing during the lifetime of the object.
class OpenPipe {
 public:
  explicit OpenPipe(const char* path);  // opens the existing pipe
  ~OpenPipe();
  OpenPipe(const OpenPipe&) = delete;
  OpenPipe& operator=(const OpenPipe&) = delete;

  void write(const std::string& bytes) const;
  // Performs one read. Waits until data arrives.
  [[nodiscard]] std::string read() const;
  // Returns the number of unread bytes in the pipe.
  [[nodiscard]] int unread() const;

 private:
  int descriptor_;
};

class PipeTest : public DeviceTest {
 protected:
  // Starts without any file at the two paths.
  void SetUp() override;
  void TearDown() override;

  static void makePipe(const char* path);
  static void makePipes();

  // Calls plugin_validate_dll in a separate thread.
  static std::future<int> ask(const std::string& path, int type = 1);
};

}  // namespace quillon::test
