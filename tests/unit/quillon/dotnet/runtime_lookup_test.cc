#include "quillon/dotnet/runtime_lookup.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <string>

#include "quillon/dotnet/command_output.h"

namespace quillon::dotnet {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

// An isolated machine: the environment variables are unset, and PATH contains only a folder of the
// test.
class RuntimeLookup : public ::testing::Test {
 protected:
  RuntimeLookup() : folder_((fs::temp_directory_path() / "quillon-XXXXXX").string()) {
    if (::mkdtemp(folder_.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), folder_);
    }
    for (const char* name : {"QUILLON_DOTNET_ROOT", "DOTNET_ROOT", "PATH"}) {
      const char* value = std::getenv(name);
      before_[name] = value == nullptr ? std::nullopt : std::optional<std::string>(value);
      ::unsetenv(name);
    }
    ::setenv("PATH", (folder_ + "/bin").c_str(), 1);
  }
  ~RuntimeLookup() override {
    for (const auto& [name, value] : before_) {
      value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
    }
    std::error_code error;
    fs::remove_all(folder_, error);
  }

  fs::path frameworkIn(const std::string& root, const std::string& version) const {
    return fs::path(folder_) / root / "shared/Microsoft.NETCore.App" / version;
  }

  void install(const std::string& root, const std::string& version) const {
    fs::create_directories(frameworkIn(root, version));
    std::ofstream(frameworkIn(root, version) / "libcoreclr.so") << "runtime";
  }

  void set(const char* variable, const std::string& root) const {
    ::setenv(variable, (folder_ + "/" + root).c_str(), 1);
  }

  // Installs a `dotnet` command that runs `script`.
  void installCommand(const std::string& script) const {
    const fs::path command = fs::path(folder_) / "bin/dotnet";
    fs::create_directories(command.parent_path());
    std::ofstream(command) << "#!/bin/sh\n" << script << '\n';
    fs::permissions(command, fs::perms(0755));
  }

  // Installs a `dotnet` command that lists the runtimes in `root`.
  void installLister(const std::string& root, const std::string& version) const {
    installCommand(
        "test \"$*\" = --list-runtimes || exit 9\n"
        "echo 'Microsoft.AspNetCore.App 99.0.0 [/nowhere]'\n"
        "echo 'Microsoft.NETCore.App " +
        version + " [" + frameworkIn(root, "").parent_path().string() + "]'");
  }

  std::string folder_;

 private:
  std::map<std::string, std::optional<std::string>> before_;
};

TEST_F(RuntimeLookup, TakesTheNewestReleaseOfAFolder) {
  for (const char* version : {"10.0.2", "10.0.12", "9.0.30", "11.0.0-preview.1"}) {
    install("root", version);
  }
  set("QUILLON_DOTNET_ROOT", "root");
  const auto found = findFramework();
  ASSERT_TRUE(found) << found.error().what;
  EXPECT_EQ(found->version, "10.0.12");
  EXPECT_EQ(found->directory, frameworkIn("root", "10.0.12"));
  EXPECT_EQ(found->foundThrough, "QUILLON_DOTNET_ROOT");
}

TEST_F(RuntimeLookup, TakesAPreviewIfThereIsNoRelease) {
  install("root", "11.0.0-preview.1");
  install("root", "11.0.0-preview.2");
  set("DOTNET_ROOT", "root");
  EXPECT_EQ(findFramework()->version, "11.0.0-preview.2");
}

TEST_F(RuntimeLookup, SearchesThePlacesInOrder) {
  install("chosen", "8.0.1");
  install("root", "9.0.1");
  install("listed", "10.0.1");
  set("QUILLON_DOTNET_ROOT", "chosen");
  set("DOTNET_ROOT", "root");
  installLister("listed", "10.0.1");
  EXPECT_EQ(findFramework()->version, "8.0.1");
  ::unsetenv("QUILLON_DOTNET_ROOT");
  EXPECT_EQ(findFramework()->foundThrough, "DOTNET_ROOT");
  ::setenv("DOTNET_ROOT", "", 1);
  const auto listed = findFramework();
  ASSERT_TRUE(listed) << listed.error().what;
  EXPECT_EQ(listed->directory, frameworkIn("listed", "10.0.1"));
  EXPECT_EQ(listed->foundThrough, "dotnet --list-runtimes");
}

TEST_F(RuntimeLookup, AChosenFolderWithoutARuntimeIsAnError) {
  install("root", "9.0.1");
  set("DOTNET_ROOT", "root");
  set("QUILLON_DOTNET_ROOT", "empty");
  const auto found = findFramework();
  ASSERT_FALSE(found);
  EXPECT_THAT(found.error().what, HasSubstr("Microsoft.NETCore.App with libcoreclr.so"));
  EXPECT_THAT(found.error().what, HasSubstr("QUILLON_DOTNET_ROOT='" + folder_ + "/empty'"));
  EXPECT_THAT(found.error().what, Not(HasSubstr(" DOTNET_ROOT")));
  EXPECT_THAT(found.error().remedy, HasSubstr("unset it"));
}

TEST_F(RuntimeLookup, IgnoresADotnetRootWithoutARuntime) {
  install("listed", "10.0.1");
  installLister("listed", "10.0.1");
  set("DOTNET_ROOT", "empty");
  EXPECT_EQ(findFramework()->foundThrough, "dotnet --list-runtimes");
}

TEST_F(RuntimeLookup, ReportsWhatWasFoundInstead) {
  fs::create_directories(frameworkIn("root", "10.0.1"));
  set("DOTNET_ROOT", "root");
  const auto found = findFramework();
  ASSERT_FALSE(found);
  EXPECT_THAT(found.error().what, HasSubstr("10.0.1 without libcoreclr.so"));
  EXPECT_THAT(found.error().what,
              HasSubstr("'dotnet --list-runtimes' (it cannot be run: No such file or directory)"));
  EXPECT_THAT(found.error().remedy, HasSubstr("QUILLON_DOTNET_ROOT"));
}

TEST_F(RuntimeLookup, ReportsACommandThatFails) {
  installCommand("exit 3");
  EXPECT_THAT(findFramework().error().what, HasSubstr("it ended with status 3"));
  installCommand("kill -9 $$");
  EXPECT_THAT(findFramework().error().what, HasSubstr("it was ended by signal 9"));
  installCommand("echo nonsense; echo 'Microsoft.NETCore.App'; echo 'Microsoft.NETCore.App 1 ]['");
  EXPECT_THAT(findFramework().error().what, HasSubstr("(no Microsoft.NETCore.App)"));
}

TEST_F(RuntimeLookup, IgnoresListedRuntimesThatAreMissing) {
  installLister("gone", "10.0.1");
  EXPECT_THAT(findFramework().error().what, HasSubstr("10.0.1 without libcoreclr.so"));
}

// The output exceeds the capacity of a pipe, and the words contain special characters of a shell.
TEST(CommandOutput, IsCompleteAndUsesNoShell) {
  const auto much = commandOutput({"/usr/bin/head", "-c", "300000", "/dev/zero"});
  ASSERT_TRUE(much);
  EXPECT_EQ(much->size(), 300000U);
  EXPECT_EQ(commandOutput({"/bin/echo", "$HOME; `id`"}).value(), "$HOME; `id`\n");
}

}  // namespace
}  // namespace quillon::dotnet
