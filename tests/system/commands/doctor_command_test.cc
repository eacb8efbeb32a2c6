#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>

#include "quillon/base/exit_status.h"
#include "tests/system/commands/command_fixture.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class DoctorCommandTest : public CommandTest {
 protected:
  // Launches need a framework, but no command that the tests run reads it.
  void SetUp() override {
    CommandTest::SetUp();
    if (!IsSkipped() && !HasFatalFailure()) {
      useFramework(device());
    }
  }
  void useFramework(const std::string& device) {
    writeFile((folder() / "runtime/libcoreclr.so").string(), "");
    const Finished made =
        quillon({"device", "init", device, "--framework", (folder() / "runtime").string()});
    ASSERT_EQ(made.status, 0) << made.err;
  }
  std::vector<std::string> lines() { return linesOf(quillon({"doctor"}).out); }
  static auto finding(const std::string& level, const std::string& subject,
                      const std::string& text) {
    return Contains(AllOf(StartsWith(level), HasSubstr(" " + subject + " "), HasSubstr(text)));
  }
};

TEST_F(DoctorCommandTest, FindsNothingInANewDeviceRoot) {
  const Finished healthy = quillon({"doctor"});
  EXPECT_EQ(healthy.status, 0) << healthy.out;
  EXPECT_THAT(linesOf(healthy.out), finding("ok", "device root", device()));
  EXPECT_THAT(linesOf(healthy.out), finding("ok", "namespaces", "can be entered"));
  EXPECT_THAT(linesOf(healthy.out), finding("ok", "registry", "0 packages"));
  EXPECT_THAT(linesOf(healthy.out), finding("ok", "caches", "current"));
  EXPECT_THAT(linesOf(healthy.out), finding("ok", "permissions", "writable"));
  EXPECT_THAT(linesOf(healthy.out), finding("ok", "zones", "none runs"));
  EXPECT_THAT(linesOf(healthy.out), finding("ok", "launch pad", "does not run"));
  EXPECT_THAT(linesOf(healthy.out), finding("ok", "leftovers", "no error files"));
  EXPECT_THAT(healthy.out, Not(HasSubstr("error  ")));
}

TEST_F(DoctorCommandTest, NamesAMissingDeviceRoot) {
  const std::string missing = (folder() / "missing").string();
  const Finished sick = quillon({"doctor", "--device", missing});
  EXPECT_EQ(sick.status, kNoDeviceRoot);
  EXPECT_THAT(linesOf(sick.out), finding("error", "device root",
                                         "there is no folder '" + missing +
                                             "'; create one: quillon device init " + missing));
}

TEST_F(DoctorCommandTest, NamesAFrameworkThatIsGone) {
  const std::string framework = (folder() / "framework").string();
  writeFile(framework + "/libcoreclr.so", "");
  ASSERT_EQ(quillon({"device", "init", device(), "--framework", framework}).status, 0);
  fs::remove_all(framework);
  EXPECT_EQ(quillon({"doctor"}).status, kNoRuntime);
  EXPECT_THAT(lines(), finding("error", "device root",
                               "is gone; find it again: quillon device init " + device()));
}

TEST_F(DoctorCommandTest, NamesAFrameworkWithoutARuntime) {
  ASSERT_EQ(quillon({"device", "init", device(), "--framework", "none"}).status, 0);
  const Finished sick = quillon({"doctor"});
  EXPECT_EQ(sick.status, kNoRuntime);
  EXPECT_THAT(linesOf(sick.out), finding("error", "device root",
                                         "holds no libcoreclr.so; install a .NET runtime, then: "
                                         "quillon device init " +
                                             device()));
}

TEST_F(DoctorCommandTest, NamesFlagFilesThatDiffer) {
  EXPECT_THAT(lines(), finding("ok", "flags", "the same"));
  writeFile(device() + "/opt/etc/dotnet_flag.ini", "[other]\n");
  const Finished slow = quillon({"doctor"});
  EXPECT_EQ(slow.status, 0);
  EXPECT_THAT(linesOf(slow.out), finding("warning", "flags", "differ, so that every launch"));
  const std::string command = slow.out.substr(slow.out.find("cp " + device()));
  ASSERT_EQ(run({"/bin/sh", "-c", command.substr(0, command.find('\n'))}).status, 0);
  EXPECT_THAT(lines(), finding("ok", "flags", "the same"));
}

TEST_F(DoctorCommandTest, NamesLargeLogs) {
  const std::string log = device() + "/opt/usr/share/quillon/logs/clock.log";
  writeFile(log, "");
  fs::resize_file(log, std::uintmax_t{65} << 20);
  const Finished large = quillon({"doctor"});
  EXPECT_EQ(large.status, 0);
  EXPECT_THAT(linesOf(large.out), finding("warning", "logs", "have 65 MiB; empty them: find "));
  const std::string command = large.out.substr(large.out.find("find " + device()));
  ASSERT_EQ(run({"/bin/sh", "-c", command.substr(0, command.find('\n'))}).status, 0);
  EXPECT_EQ(fs::file_size(log), 0U);
  EXPECT_THAT(lines(), finding("ok", "logs", "1 file of detached applications with 0 MiB"));
}

// Otherwise a command of a remedy would work on other files.
TEST_F(DoctorCommandTest, QuotesThePathsOfItsCommands) {
  const std::string odd = (folder() / "sp ace'q" / "d v").string();
  useFramework(odd);
  writeFile(odd + "/tmp/core.1", "x");
  writeFile(odd + "/opt/etc/dotnet_flag.ini", "[other]\n");
  const Finished found = quillon({"doctor", "--device", odd});
  int commands = 0;
  for (const std::string& line : linesOf(found.out)) {
    if (line.starts_with("warning")) {
      const std::string command = line.substr(line.rfind(": ") + 2);
      EXPECT_EQ(run({"/bin/sh", "-c", command}).status, 0) << command;
      ++commands;
    }
  }
  EXPECT_EQ(commands, 2) << found.out;
  EXPECT_FALSE(fs::exists(odd + "/tmp/core.1"));
  const Finished again = quillon({"doctor", "--device", odd});
  EXPECT_THAT(again.out, Not(HasSubstr("warning")));
  fs::remove_all(odd + "/opt/usr/home/owner/share/dotnet");
  const std::string broken = quillon({"doctor", "--device", odd}).out;
  const size_t command = broken.find("quillon device init ");
  ASSERT_NE(command, broken.npos) << broken;
  const std::string arguments =
      broken.substr(command + 7, broken.find('\n', command) - command - 7);
  EXPECT_EQ(run({"/bin/sh", "-c", QUILLON_COMMAND + arguments + " --framework none"}).status, 0);
  EXPECT_TRUE(fs::exists(odd + "/opt/usr/home/owner/share/dotnet"));
}

TEST_F(DoctorCommandTest, NamesAMissingFolder) {
  fs::remove_all(device() + "/opt/usr/home/owner/share/dotnet");
  EXPECT_EQ(quillon({"doctor"}).status, kServiceFailed);
  EXPECT_THAT(lines(), finding("error", "permissions",
                               "No such file or directory; make it: quillon device init"));
}

TEST_F(DoctorCommandTest, NamesADamagedRegistry) {
  writeFile(device() + "/opt/usr/share/quillon/packages.db", "damaged");
  EXPECT_EQ(quillon({"doctor"}).status, kServiceFailed);
  EXPECT_THAT(lines(), finding("error", "registry",
                               "; remove it and install the packages again: rm " + device() +
                                   "/opt/usr/share/quillon/packages.db"));
}

TEST_F(DoctorCommandTest, NamesOutdatedCachesAndMissingFiles) {
  writeFile((folder() / "out/c.dll").string(), "");
  writeFile((folder() / "clock.toml").string(),
            "[package]\nid = 'clock'\nversion = '2'\nfiles = 'out'\n"
            "[[application]]\nid = 'clock'\nexec = 'c.dll'\n");
  ASSERT_EQ(quillon({"package", "install", (folder() / "clock.toml").string()}).status, 0);
  fs::remove(device() + "/opt/usr/apps/clock/c.dll");
  const std::string cache = device() + "/opt/usr/home/owner/share/dotnet/CoBA.txt";
  writeFile(cache, "[START][END]");
  fs::last_write_time(cache, fs::file_time_type::clock::now() - std::chrono::hours(1));
  EXPECT_EQ(quillon({"doctor"}).status, 0);
  EXPECT_THAT(lines(), finding("warning", "caches",
                               "; remove it: quillon cache clear --device " + device()));
  EXPECT_THAT(lines(), finding("warning", "registry",
                               "'/opt/usr/apps/clock/c.dll' of 'clock' is missing; install it "
                               "again, or remove it: quillon package remove clock --device " +
                                   device()));
}

TEST_F(DoctorCommandTest, NamesTheSizeOfErrorFilesAndDumps) {
  writeFile(device() + "/tmp/dotnet_error.1.2.log", std::string(1500, 'x'));
  writeFile(device() + "/tmp/coredump.77", std::string(1000, 'x'));
  writeFile(device() + "/tmp/core.txt.d/file", "another's");
  const Finished before = quillon({"doctor"});
  EXPECT_EQ(before.status, 0);
  EXPECT_THAT(linesOf(before.out),
              finding("warning", "leftovers", "2 error files and dumps with 3 KiB; remove them: "));
  const std::string command = before.out.substr(before.out.find("find " + device()));
  ASSERT_EQ(run({"/bin/sh", "-c", command.substr(0, command.find('\n'))}).status, 0);
  EXPECT_THAT(lines(), finding("ok", "leftovers", "no error files"));
  EXPECT_TRUE(fs::exists(device() + "/tmp/core.txt.d/file"));
}

TEST_F(DoctorCommandTest, PrintsJson) {
  const auto findings = nlohmann::json::parse(quillon({"doctor", "--json"}).out);
  const auto root = std::find_if(findings.begin(), findings.end(), [](const auto& finding) {
    return finding["subject"] == "device root";
  });
  ASSERT_NE(root, findings.end());
  EXPECT_EQ((*root)["level"], "ok");
  EXPECT_TRUE((*root)["remedy"].is_null());
}

}  // namespace
}  // namespace quillon::test
