// A temporary device root with the sample packages, and launches in it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/temporary_directory.h"

namespace quillon::test {

inline constexpr char kClock[] = "org.velora.sample.clock";

// For every process with a runtime, which handles SIGSEGV itself and never frees memory that it
// uses until the process ends.
inline constexpr char kRuntimeSanitizerOptions[] =
    "ASAN_OPTIONS=handle_segv=0:handle_sigfpe=0:handle_abort=0:detect_leaks=0:use_sigaltstack=0:"
    "allow_user_segv_handler=1";

// The result of a process that has ended.
struct CommandResult {
  int status = -1;  // exit status, or 128 + signal
  std::string out;
  std::string err;
};

// Runs a program to its end. Adds `environment` ("NAME=VALUE") to this process's environment.
CommandResult run(const std::vector<std::string>& command,
                  const std::vector<std::string>& environment = {});

std::string contentOf(const std::filesystem::path& file);
void write(const std::filesystem::path& file, const std::string& content);

// Unsets the environment variables that change a launch: the settings of the runtime and of the
// launcher, the language and the temporary folder. Keeps the location of the runtime.
void unsetLaunchVariables();

// Skips if no device root can be entered. Makes launches independent of the settings of the person
// who runs the tests: see unsetLaunchVariables().
class LaunchTest : public ::testing::Test {
 protected:
  void SetUp() override;

  // Makes the device root. `framework` is a folder, "none", or empty for the machine's own.
  void makeDevice(const std::string& framework = {});

  // Runs quillon launch --device ROOT --raw MORE.... The result contains the application's output.
  CommandResult launch(const std::vector<std::string>& more,
                       const std::vector<std::string>& environment = {"QUILLON_LOG=none"}) const;

  // Runs quillon launch --device ROOT MORE.... The application's output goes to the log.
  CommandResult launchCaptured(const std::vector<std::string>& more,
                               const std::vector<std::string>& environment = {
                                   "QUILLON_LOG=none"}) const;

  // The path of a device path for this process.
  std::filesystem::path at(const std::string& devicePath) const;

  // Installs a package with this manifest and the files of the sample clock.
  void installClock(const std::string& manifest);

  std::filesystem::path fresh(const std::string& name) const { return directory_.path() / name; }
  const std::filesystem::path& root() const { return root_; }

 private:
  TemporaryDirectory directory_;
  std::filesystem::path root_ = directory_.path() / "device";
};

// The assembly of a sample package in the build folder, such as "SampleClock.dll".
std::filesystem::path sampleAssembly(const std::string& package, const std::string& name);

// The command line that runs an assembly with the machine's dotnet, without any part of this
// project.
std::vector<std::string> dotnetCommand(const std::filesystem::path& assembly,
                                       const std::vector<std::string>& arguments);

// For launches of applications. Skips if there is no .NET runtime or the samples are not built.
class RuntimeTest : public LaunchTest {
 protected:
  void SetUp() override;

  // Returns a folder of links to the files of the machine's framework, without one file.
  std::filesystem::path frameworkWithout(const std::string& file) const;
};

}  // namespace quillon::test
