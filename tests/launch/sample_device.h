// A device root of a test's own with the sample packages in it, and launches in it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/temporary_directory.h"

namespace quillon::test {

inline constexpr char kClock[] = "org.velora.sample.clock";

// For every process that runs the runtime: it handles SIGSEGV itself and leaks what lives as long
// as the process.
inline constexpr char kRuntimeSanitizerOptions[] =
    "ASAN_OPTIONS=handle_segv=0:handle_sigfpe=0:handle_abort=0:detect_leaks=0:use_sigaltstack=0:"
    "allow_user_segv_handler=1";

struct Ending {
  int status = -1;  // exit status; 128 + signal
  std::string out;
  std::string err;
};

// Runs a program to its end, with `environment` ("NAME=VALUE") added to this process's.
Ending run(const std::vector<std::string>& command,
           const std::vector<std::string>& environment = {});

std::string contentOf(const std::filesystem::path& file);
void write(const std::filesystem::path& file, const std::string& content);

// Unsets what is set for whoever runs the tests and would change a launch: the runtime's and the
// launcher's settings, the language and the temporary folder. Where the runtime is stays as told.
void forgetCallersSettings();

// Skips where no device root can be entered. Launches are not the caller's of the tests: see
// forgetCallersSettings().
class LaunchTest : public ::testing::Test {
 protected:
  void SetUp() override;

  // Makes the device root. framework: a folder, "none", or empty for the machine's own.
  void makeDevice(const std::string& framework = {});

  // quillon launch --device ROOT --raw MORE..., so that the ending tells what the application
  // wrote.
  Ending launch(const std::vector<std::string>& more,
                const std::vector<std::string>& environment = {"QUILLON_LOG=none"}) const;

  // quillon launch --device ROOT MORE...: what the application wrote goes to the log.
  Ending launchCaptured(const std::vector<std::string>& more,
                        const std::vector<std::string>& environment = {"QUILLON_LOG=none"}) const;

  // A device path as this process sees it.
  std::filesystem::path at(const std::string& devicePath) const;

  // Installs a package of one application over the sample clock's files.
  void installClock(const std::string& manifest);

  std::filesystem::path fresh(const std::string& name) const { return directory_.path() / name; }
  const std::filesystem::path& root() const { return root_; }

 private:
  TemporaryDirectory directory_;
  std::filesystem::path root_ = directory_.path() / "device";
};

// Launches to the end: skips where there is no .NET runtime or the samples are not built.
class RuntimeTest : public LaunchTest {
 protected:
  void SetUp() override;

  // A copy, made of links, of the machine's framework without one file.
  std::filesystem::path frameworkWithout(const std::string& file) const;
};

}  // namespace quillon::test
