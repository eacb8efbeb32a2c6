#include "tests/system/launch/sample_device.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string_view>

#include "quillon/device/device_root.h"
#include "quillon/dotnet/runtime_lookup.h"
#include "tests/support/execute.h"
#include "tests/support/skip.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

const fs::path kBuild = QUILLON_BUILD_DIRECTORY;
const fs::path kQuillon = kBuild / "bin/quillon";
const fs::path kMakeDevice = fs::path(QUILLON_SOURCE_DIRECTORY) / "scripts/make-sample-device";

constexpr std::array<std::string_view, 5> kVariablePrefixes = {"DOTNET_", "COMPlus_", "CORECLR_",
                                                               "LC_", "QUILLON_"};
constexpr std::array<std::string_view, 4> kVariables = {"LANG", "LANGUAGE", "TMPDIR", "TZ"};
constexpr std::array<std::string_view, 4> kKeptVariables = {
    "DOTNET_ROOT", "QUILLON_DOTNET_ROOT", "QUILLON_LAUNCHPAD_STORM", "QUILLON_TESTS_MAY_NOT_SKIP"};

template <typename Names>
bool isOneOf(const Names& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool changesLaunches(std::string_view name) {
  if (isOneOf(kKeptVariables, name)) {
    return false;
  }
  return isOneOf(kVariables, name) ||
         std::any_of(kVariablePrefixes.begin(), kVariablePrefixes.end(),
                     [&](std::string_view prefix) { return name.starts_with(prefix); });
}

[[noreturn]] void become(const std::vector<std::string>& command,
                         const std::vector<std::string>& environment, const fs::path& output) {
  const int out = open((output / "out").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const int err = open((output / "err").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  close(out);
  close(err);
  putenv(const_cast<char*>(kRuntimeSanitizerOptions));
  for (const std::string& variable : environment) {
    putenv(const_cast<char*>(variable.c_str()));
  }
  execute(command);
}

int statusOf(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// The reason why no device root can be entered here; empty if one can.
std::string deviceError(const fs::path& root) {
  const CommandResult made = run({kQuillon, "device", "init", "--framework", "none", root});
  if (made.status != 0) {
    return made.err;
  }
  const CommandResult entered = run({kQuillon, "device", "shell", root, "--", "true"});
  return entered.status == 0 ? "" : entered.err;
}

}  // namespace

CommandResult run(const std::vector<std::string>& command,
                  const std::vector<std::string>& environment) {
  const TemporaryDirectory output;
  const pid_t child = fork();
  if (child == 0) {
    become(command, environment, output.path());
  }
  CommandResult result;
  result.status = statusOf(child);
  result.out = contentOf(output.path() / "out");
  result.err = contentOf(output.path() / "err");
  return result;
}

std::string contentOf(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void write(const fs::path& file, const std::string& content) {
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << content;
}

void unsetLaunchVariables() {
  std::vector<std::string> names;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view text = *variable;
    const std::string_view name = text.substr(0, text.find('='));
    if (changesLaunches(name)) {
      names.emplace_back(name);
    }
  }
  for (const std::string& name : names) {
    unsetenv(name.c_str());
  }
}

// Resets other inherited state: a build server may ignore signals and leave descriptors open.
void resetProcessState() {
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action {};
    if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
      ::signal(signal, SIG_DFL);
    }
  }
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
}

void LaunchTest::SetUp() {
  unsetLaunchVariables();
  resetProcessState();
  const std::string reason = deviceError(directory_.path() / "probe");
  if (!reason.empty()) {
    QUILLON_SKIP("no device root can be entered: " << reason);
  }
}

void LaunchTest::makeDevice(const std::string& framework) {
  std::vector<std::string> command = {kMakeDevice, "--build", kBuild};
  if (!framework.empty()) {
    command.insert(command.end(), {"--framework", framework});
  }
  command.push_back(root_);
  const CommandResult made = run(command);
  ASSERT_EQ(made.status, 0) << made.out << made.err;
}

CommandResult LaunchTest::launch(const std::vector<std::string>& more,
                                 const std::vector<std::string>& environment) const {
  std::vector<std::string> raw = {"--raw"};
  raw.insert(raw.end(), more.begin(), more.end());
  return launchCaptured(raw, environment);
}

CommandResult LaunchTest::launchCaptured(const std::vector<std::string>& more,
                                         const std::vector<std::string>& environment) const {
  std::vector<std::string> command = {kQuillon, "launch", "--device", root_};
  command.insert(command.end(), more.begin(), more.end());
  return run(command, environment);
}

fs::path LaunchTest::at(const std::string& devicePath) const {
  return root_ / fs::path(devicePath).relative_path();
}

void LaunchTest::installClock(const std::string& manifest) {
  const fs::path folder = fresh("manifest");
  fs::create_directories(folder);
  fs::copy(kBuild / "managed/packages" / kClock, folder / kClock,
           fs::copy_options::recursive | fs::copy_options::overwrite_existing);
  write(folder / "clock.toml", manifest);
  const CommandResult installed =
      run({kQuillon, "package", "install", "--device", root_, folder / "clock.toml"});
  ASSERT_EQ(installed.status, 0) << installed.err;
}

fs::path sampleAssembly(const std::string& package, const std::string& name) {
  return kBuild / "managed/packages" / package / "bin" / name;
}

std::vector<std::string> dotnetCommand(const fs::path& assembly,
                                       const std::vector<std::string>& arguments) {
  // DOTNET/shared/Microsoft.NETCore.App/VERSION
  const fs::path framework = dotnet::findFramework()->directory;
  std::vector<std::string> command = {
      framework.parent_path().parent_path().parent_path() / "dotnet", assembly};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

void RuntimeTest::SetUp() {
  LaunchTest::SetUp();
  if (IsSkipped() || HasFatalFailure()) {
    return;
  }
  if (const auto framework = dotnet::findFramework(); !framework) {
    QUILLON_SKIP("no .NET runtime: " << framework.error().what);
  }
  if (!fs::exists(kBuild / "managed/Preload/Preload.dll")) {
    QUILLON_SKIP("the managed samples are not built: no .NET SDK");
  }
}

fs::path RuntimeTest::frameworkWithout(const std::string& file) const {
  fs::path copy = fresh("framework");
  fs::create_directory(copy);
  for (const auto& entry : fs::directory_iterator(dotnet::findFramework()->directory)) {
    if (entry.path().filename() != file) {
      fs::create_symlink(entry, copy / entry.path().filename());
    }
  }
  return copy;
}

}  // namespace quillon::test
