// Applications with files for several operating systems, of which their dependency file states
// which is for which ("runtimes/RID/lib", "runtimes/RID/native").
#include <fcntl.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "quillon/base/exit_status.h"
#include "tests/system/frameworks/application_device.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr char kAssets[] = "org.velora.test.assets";

// As the SDK writes it for a portable publish of an application with such a package.
constexpr char kDependencies[] = R"({
  "runtimeTarget": {"name": ".NETCoreApp,Version=v10.0", "signature": ""},
  "targets": {".NETCoreApp,Version=v10.0": {
    "Assets/1.0.0": {
      "dependencies": {"Selected": "1.0.0"},
      "runtime": {"Assets.dll": {}}},
    "Selected/1.0.0": {
      "runtime": {"lib/net8.0/Selected.dll": {"assemblyVersion": "1.0.0.0", "fileVersion": "1.0.0.0"}},
      "runtimeTargets": {
        "runtimes/linux/lib/net8.0/Selected.dll":
          {"rid": "linux", "assetType": "runtime", "assemblyVersion": "1.0.0.0", "fileVersion": "1.0.0.0"},
        "runtimes/win/lib/net8.0/Selected.dll":
          {"rid": "win", "assetType": "runtime", "assemblyVersion": "1.0.0.0", "fileVersion": "1.0.0.0"},
        "runtimes/linux/native/libsample_asset.so":
          {"rid": "linux", "assetType": "native", "fileVersion": "0.0.0.0"}}}}},
  "libraries": {
    "Assets/1.0.0": {"type": "project", "serviceable": false, "sha512": ""},
    "Selected/1.0.0": {"type": "package", "serviceable": true, "sha512": "", "path": "selected/1.0.0"}}
})";

class SelectedFiles : public ApplicationTest {
 protected:
  void SetUp() override {
    ApplicationTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    const fs::path bin = package(kAssets, "Assets") / "bin";
    write(bin / "Assets.deps.json", kDependencies);
    fs::create_directories(bin / "runtimes/linux/lib/net8.0");
    fs::create_directories(bin / "runtimes/linux/native");
    fs::copy(fs::path(QUILLON_APPLICATIONS) / "SelectedForLinux/Selected.dll",
             bin / "runtimes/linux/lib/net8.0/Selected.dll");
    fs::copy(fs::path(QUILLON_APPLICATIONS) / "native/libsample_asset.so",
             bin / "runtimes/linux/native/libsample_asset.so");
    install(kAssets, "Assets.dll");
  }
  // What `dotnet` prints, with the folder of the installed package.
  std::string expected() const {
    const CommandResult stock = dotnet(kAssets, "Assets.dll");
    EXPECT_EQ(stock.status, 0) << stock.err;
    std::string text = stock.out;
    const std::string folder = fresh(kAssets).string();
    text.replace(text.find(folder), folder.size(), "/opt/usr/apps/" + std::string(kAssets));
    return text;
  }
};

TEST_F(SelectedFiles, AreThoseThatDotnetSelects) {
  EXPECT_THAT(expected(), HasSubstr("the library for linux\n"));
  EXPECT_THAT(expected(), HasSubstr("native: 42\n"));
  for (const std::string& type : kAllTypes) {
    const CommandResult launched = direct(kAssets, {}, type);
    EXPECT_EQ(launched.out, expected()) << type << launched.err;
    EXPECT_EQ(launched.status, 0);
  }
}

TEST_F(SelectedFiles, AreThoseOfAPreparedProcess) {
  for (const std::string& type : kAllTypes) {
    const CommandResult launched = prepared(kAssets, {}, type);
    EXPECT_EQ(launched.out, expected()) << type << launched.err;
  }
}

TEST_F(SelectedFiles, AreThoseOfAFreshPreparedProcess) {
  start(1, 0, {"--fresh"});
  EXPECT_EQ(prepared(kAssets).out, expected());
}

TEST_F(SelectedFiles, AreInThePlanWithTheirSource) {
  const std::string bin = "/opt/usr/apps/" + std::string(kAssets) + "/bin";
  const auto additions =
      nlohmann::json::parse(launch({kAssets, "--plan", "--json"}).out)["additions"];
  EXPECT_THAT(additions["assemblies"],
              ElementsAre(nlohmann::json{{"path", bin + "/runtimes/linux/lib/net8.0/Selected.dll"},
                                         {"source", "the application's dependency file"}}));
  EXPECT_THAT(additions["nativeDirectories"],
              ElementsAre(nlohmann::json{{"path", bin + "/runtimes/linux/native"},
                                         {"source", "the application's dependency file"}}));
}

// quillon validator with a policy that refuses the files below a folder.
class RefusingValidator {
 public:
  RefusingValidator(const fs::path& device, const fs::path& folder, const std::string& refused)
      : output_(folder / "validator.out") {
    write(folder / "policy.toml", "default = \"allow\"\ndeny-paths = [\"" + refused + "\"]\n");
    const std::string policy = folder / "policy.toml";
    process_ = fork();
    if (process_ == 0) {
      dup2(open(output_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDOUT_FILENO);
      setenv("QUILLON_LOG", "none", 1);
      const std::string quillon = std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon";
      execl(quillon.c_str(), "quillon", "validator", "--device", device.c_str(), policy.c_str(),
            nullptr);
      _exit(127);
    }
    EXPECT_TRUE(eventually([&] { return contentOf(output_).find("ready") != std::string::npos; }));
  }
  ~RefusingValidator() {
    kill(process_, SIGINT);
    waitpid(process_, nullptr, 0);
  }
  RefusingValidator(const RefusingValidator&) = delete;
  RefusingValidator& operator=(const RefusingValidator&) = delete;

 private:
  fs::path output_;
  pid_t process_ = -1;
};

TEST_F(SelectedFiles, AreValidatedBeforeALaunch) {
  const std::string folder = "/opt/usr/apps/" + std::string(kAssets) + "/bin/runtimes";
  const RefusingValidator validator(root(), fresh("validator"), folder);
  const CommandResult refused = launch({"--validate", kAssets});
  EXPECT_EQ(refused.status, kLibraryRefused);
  EXPECT_THAT(refused.err, HasSubstr(folder + "/linux/lib/net8.0/Selected.dll"));
}

}  // namespace
}  // namespace quillon::test
