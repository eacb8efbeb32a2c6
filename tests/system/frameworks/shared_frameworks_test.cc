// Applications that use another shared framework of the machine than Microsoft.NETCore.App.
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "quillon/base/exit_status.h"
#include "quillon/dotnet/host_lookup.h"
#include "quillon/dotnet/runtime_lookup.h"
#include "tests/support/skip.h"
#include "tests/system/frameworks/application_device.h"
#include "tests/system/launch/running_zone.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kWeb[] = "org.velora.test.web";

class SharedFrameworks : public ApplicationTest {
 protected:
  void SetUp() override {
    ApplicationTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    root_ = dotnet::rootOfFramework(dotnet::findFramework()->directory);
    if (!fs::exists(root_ / "shared/Microsoft.AspNetCore.App")) {
      QUILLON_SKIP("this machine has no Microsoft.AspNetCore.App");
    }
    package(kWeb, "Web");
  }
  // The configuration file in the package, before it is installed.
  fs::path config() const { return fresh(kWeb) / "bin/Web.runtimeconfig.json"; }
  fs::path dotnetRoot() const { return root_; }

 private:
  fs::path root_;
};

TEST_F(SharedFrameworks, AreThoseThatDotnetChooses) {
  install(kWeb, "Web.dll");
  const CommandResult stock = dotnet(kWeb, "Web.dll", {"one", "two"});
  ASSERT_EQ(stock.status, 2) << stock.err;
  for (const std::string& type : kAllTypes) {
    const CommandResult launched = direct(kWeb, {"one", "two"}, type);
    EXPECT_EQ(launched.status, 2) << type << launched.err;
    EXPECT_EQ(launched.out, stock.out) << type;
    EXPECT_EQ(launched.err, "") << type;
  }
}

TEST_F(SharedFrameworks, WorkInAPreparedProcess) {
  install(kWeb, "Web.dll");
  const CommandResult stock = dotnet(kWeb, "Web.dll");
  for (const std::string& type : kAllTypes) {
    const CommandResult launched = prepared(kWeb, {}, type);
    EXPECT_EQ(launched.status, 0) << type << launched.err;
    EXPECT_EQ(launched.out, stock.out) << type;
  }
}

TEST_F(SharedFrameworks, AreVisibleInAZone) {
  install(kWeb, "Web.dll");
  const RunningZone zone(root());
  ASSERT_NE(zone.holder(), "") << zone.started().err;
  const CommandResult launched = direct(kWeb, {}, "dotnet");
  EXPECT_EQ(launched.out, dotnet(kWeb, "Web.dll").out) << launched.err;
}

TEST_F(SharedFrameworks, AreInThePlan) {
  install(kWeb, "Web.dll");
  const auto plan = nlohmann::json::parse(launch({kWeb, "--plan", "--json"}).out);
  ASSERT_EQ(plan["additions"]["frameworks"].size(), 1U);
  EXPECT_EQ(plan["additions"]["frameworks"][0]["name"], "Microsoft.AspNetCore.App");
  const std::string directory = plan["additions"]["frameworks"][0]["directory"];
  EXPECT_EQ(fs::path(directory).parent_path(), dotnetRoot() / "shared/Microsoft.AspNetCore.App");
  EXPECT_TRUE(plan["missing"].is_null()) << plan["missing"];
  const std::string trusted = plan["properties"]["TRUSTED_PLATFORM_ASSEMBLIES"];
  EXPECT_THAT(trusted, HasSubstr(directory + "/Microsoft.AspNetCore.dll"));
  const std::string text = launch({kWeb, "--plan"}).out;
  EXPECT_THAT(text, HasSubstr("assemblies of Microsoft.AspNetCore.App "));
}

// The name of an assembly in the plug-in's list stands for the device's file.
TEST_F(SharedFrameworks, AreShadowedByThePluginsList) {
  const fs::path own = at("/usr/share/dotnet.velora/framework/Microsoft.AspNetCore.dll");
  write(own, "the device's");
  install(kWeb, "Web.dll");
  const auto plan = nlohmann::json::parse(launch({kWeb, "--plan", "--json"}).out);
  const std::string trusted = plan["properties"]["TRUSTED_PLATFORM_ASSEMBLIES"];
  EXPECT_THAT(trusted, HasSubstr("/usr/share/dotnet.velora/framework/Microsoft.AspNetCore.dll"));
  EXPECT_THAT(trusted, Not(HasSubstr("AspNetCore.App/10.0.12/Microsoft.AspNetCore.dll")));
  EXPECT_THAT(plan["shadowed"].dump(), HasSubstr("\"Microsoft.AspNetCore\""));
}

TEST_F(SharedFrameworks, AreNamedWithARemedyIfMissing) {
  replaceIn(config(), "Microsoft.AspNetCore.App", "Velora.Missing.App");
  const CommandResult installed = install(kWeb, "Web.dll");
  EXPECT_THAT(installed.err, HasSubstr("cannot be launched yet"));
  const CommandResult launched = direct(kWeb);
  EXPECT_EQ(launched.status, kNoRuntime);
  EXPECT_THAT(launched.err, HasSubstr("needs the framework Velora.Missing.App 10.0.0, which this "
                                      "machine does not have; install it"));
  start(1);
  EXPECT_EQ(launch({kWeb}).status, kNoRuntime);
  const auto plan = nlohmann::json::parse(launch({kWeb, "--plan", "--json"}).out);
  EXPECT_THAT(plan["missing"]["what"].get<std::string>(), HasSubstr("Velora.Missing.App"));
}

// A .NET folder of this test, in a folder that the device root hides. Its frameworks come and go.
class OwnDotnet : public SharedFrameworks {
 protected:
  void SetUp() override {
    SharedFrameworks::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    const fs::path base = dotnet::findFramework()->directory;
    makeLinks(base, own() / "shared/Microsoft.NETCore.App" / base.filename());
    fs::create_symlink(dotnetRoot() / "host", own() / "host");
    makeDevice((own() / "shared/Microsoft.NETCore.App" / base.filename()).string());
    install(kWeb, "Web.dll");
  }
  fs::path own() const { return fresh("dotnet"); }
  void addWebFramework() const {
    const fs::path web = "shared/Microsoft.AspNetCore.App";
    for (const auto& version : fs::directory_iterator(dotnetRoot() / web)) {
      makeLinks(version, own() / web / version.path().filename());
    }
  }

 private:
  static void makeLinks(const fs::path& files, const fs::path& folder) {
    fs::create_directories(folder);
    for (const auto& entry : fs::directory_iterator(files)) {
      fs::create_symlink(entry.path(), folder / entry.path().filename());
    }
  }
};

TEST_F(OwnDotnet, IsAskedAgainAfterAFrameworkWasAdded) {
  EXPECT_EQ(direct(kWeb).status, kNoRuntime);
  start(1);
  EXPECT_EQ(launch({kWeb}).status, kNoRuntime);
  addWebFramework();
  // The launch pad itself does not ask.
  const CommandResult declined = launch({"--verbose", kWeb});
  EXPECT_EQ(declined.status, 0) << declined.err;
  EXPECT_THAT(declined.err, HasSubstr("has to ask .NET's host"));
  EXPECT_THAT(declined.out, HasSubstr("hello from " + own().string()));
  ASSERT_TRUE(eventually([&] { return launch({kWeb}).status == 0 && !processes("ready").empty(); }))
      << status() << errors();
  const int before = served();
  EXPECT_THAT(launch({kWeb}).out, HasSubstr("hello from " + own().string()));
  EXPECT_EQ(served(), before + 1);
}

TEST_F(OwnDotnet, IsNotAskedAgainWithoutAChange) {
  addWebFramework();
  ASSERT_EQ(direct(kWeb).status, 0);
  const auto time = fs::last_write_time(answerOf(kWeb, "Web.dll"));
  ASSERT_EQ(direct(kWeb).status, 0);
  EXPECT_EQ(fs::last_write_time(answerOf(kWeb, "Web.dll")), time);
}

TEST_F(OwnDotnet, IsAskedAgainAfterTheApplicationChanged) {
  addWebFramework();
  ASSERT_EQ(direct(kWeb).status, 0);
  replaceIn(at("/opt/usr/apps/org.velora.test.web/bin/Web.runtimeconfig.json"),
            "Microsoft.AspNetCore.App", "Velora.Missing.App");
  EXPECT_EQ(direct(kWeb).status, kNoRuntime);
}

TEST_F(SharedFrameworks, AreForgottenWithThePackage) {
  install(kWeb, "Web.dll");
  EXPECT_TRUE(fs::exists(answerOf(kWeb, "Web.dll")));
  EXPECT_EQ(run({std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon", "package", "remove",
                 "--device", root(), kWeb})
                .status,
            0);
  EXPECT_FALSE(fs::exists(answerOf(kWeb, "Web.dll").parent_path()));
}

// A file that anybody else wrote is as good as none.
TEST_F(SharedFrameworks, AreAskedForAgainIfTheAnswerIsDamaged) {
  install(kWeb, "Web.dll");
  const std::string good = contentOf(answerOf(kWeb, "Web.dll"));
  for (const std::string& damaged : std::vector<std::string>{
           std::string(), good.substr(0, good.size() / 2), "quillon-resolution 2\n" + good,
           "quillon-resolution 1\nassembly relative.dll\nend\n", std::string(100, '\0')}) {
    write(answerOf(kWeb, "Web.dll"), damaged);
    EXPECT_EQ(direct(kWeb).status, 0);
    EXPECT_EQ(contentOf(answerOf(kWeb, "Web.dll")), good);
  }
}

}  // namespace
}  // namespace quillon::test
