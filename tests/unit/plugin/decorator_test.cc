#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "plugin/include-internal/dpc-path-manager.h"
#include "tests/support/recording_platform.h"
#include "tests/support/temporary_directory.h"
#include "tests/unit/plugin/fake_strategy.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

class Decorators : public PlatformTest {
 protected:
  FakeStrategy wrapped_;
};

TEST_F(Decorators, ForwardEveryOperationAfterOneDebugLine) {
  Decorator decorator(&wrapped_);
  EXPECT_THAT(platform().lines(), ElementsAre("3 Decorator"));
  struct Case {
    const char* name;
    std::function<void()> call;
    const char* seen;
  };
  for (const Case& c : std::vector<Case>{
           {"Initialize", [&] { decorator.Initialize(); }, "Initialize()"},
           {"Preload", [&] { decorator.Preload(); }, "Preload()"},
           {"SetAppInfo", [&] { decorator.SetAppInfo("id", "path"); }, "SetAppInfo(id, path)"},
           {"GetDllPath", [&] { EXPECT_EQ(decorator.GetDllPath(), "dll"); }, "GetDllPath()"},
           {"GetExtraDllPath", [&] { EXPECT_EQ(decorator.GetExtraDllPath(), "extra"); },
            "GetExtraDllPath()"},
           {"GetTPA", [&] { EXPECT_EQ(decorator.GetTPA(), "tpa"); }, "GetTPA()"},
           {"Finalize", [&] { decorator.Finalize(); }, "Finalize()"}}) {
    platform().reset();
    wrapped_.calls.clear();
    wrapped_.onCall = [] { __dlog_print(0, DLOG_INFO, "TEST", "wrapped"); };
    c.call();
    ASSERT_EQ(platform().log.size(), 2U) << c.name;
    const LogRecord& line = platform().log[0];
    EXPECT_EQ(line.priority, 3);
    EXPECT_EQ(line.colour(), "\x1b[0m");
    EXPECT_EQ(line.file(), "dpc-path-manager.h");
    EXPECT_EQ(line.function(), c.name);
    EXPECT_EQ(line.message(), std::string("Decorator::") + c.name);
    EXPECT_EQ(platform().log[1].text, "wrapped");
    EXPECT_THAT(wrapped_.calls, ElementsAre(c.seen));
  }
}

TEST_F(Decorators, Stack) {
  Decorator inner(&wrapped_);
  Decorator outer(&inner);
  platform().reset();
  EXPECT_EQ(outer.GetTPA(), "tpa");
  EXPECT_THAT(platform().lines(), ElementsAre("3 Decorator::GetTPA", "3 Decorator::GetTPA"));
}

TEST_F(Decorators, DoNotOwnWhatTheyWrap) {
  bool destroyed = false;
  FakeStrategy wrapped;
  wrapped.onDestroy = [&] { destroyed = true; };
  { const Decorator decorator(&wrapped); }
  EXPECT_FALSE(destroyed);
}

TEST_F(Decorators, AotRemoverNamesThePlainAssembly) {
  AotRemoverDecorate remover(&wrapped_);
  EXPECT_THAT(platform().trace.front(),
              ::testing::HasSubstr("AotRemoverDecorate::AotRemoverDecorate(PluginStrategy*)"));
  platform().reset();
  wrapped_.tpa = "/p/A.ni.dll:/p/B.dll:/p.ni.dll/C.NI.DLL:/p/D.ni.dll";
  EXPECT_EQ(remover.GetTPA(), "/p/A.dll:/p/B.dll:/p.dll/C.NI.DLL:/p/D.dll");
  EXPECT_THAT(platform().lines(), ElementsAre("3 Decorator::GetTPA"));
  EXPECT_THAT(platform().trace.front(),
              ::testing::HasSubstr("virtual std::string AotRemoverDecorate::GetTPA()"));
}

class Apitest : public Decorators {
 protected:
  void SetUp() override {
    Decorators::SetUp();
    platform().processes[getpid()] = "org.example";
    platform().packages = {{"org.example", root_.path().string(), {}, {}}};
  }
  std::string put(const std::string& name) {
    const std::filesystem::path file = root_.path() / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << "x";
    return file.string();
  }
  std::string tpaOver(const std::string& wrappedTpa) {
    wrapped_.tpa = wrappedTpa;
    return ApitestDecorate(&wrapped_).GetTPA();
  }

  TemporaryDirectory root_;
};

TEST_F(Apitest, PutsTheApplicationsFilesInFront) {
  const std::string foo = put("bin/Velora.TV.Foo.dll");
  const std::string bar = put("lib/Velora.TV.Bar.dll");
  EXPECT_EQ(tpaOver("/p/A.dll"), bar + ":" + foo + ":/p/A.dll");
  EXPECT_THAT(platform().linesOfOperations(),
              Contains("3 GetTPA: Path : " + foo + ", Filename : Velora.TV.Foo.dll"));
  EXPECT_THAT(platform().lines(), Contains("3 Decorator::GetTPA"));
}

TEST_F(Apitest, LooksForBothMarksInTheWholePath) {
  put("bin/Velora.TV.Foo.pdb");
  put("bin/Foo.dll");
  put("bin/velora.tv.Foo.dll");
  put("bin/deeper/Velora.TV.Foo.dll");
  put("lib/deeper/Velora.TV.Bar.dll");
  put("Velora.TV.Foo.dll");
  EXPECT_EQ(tpaOver("/p/A.dll"), "/p/A.dll");
  platform().packages[0].rootPath = (root_.path() / "Velora.TV.Suite").string();
  const std::string plain = put("Velora.TV.Suite/bin/Foo.dll.bak");
  EXPECT_EQ(tpaOver("/p/A.dll"), plain + ":/p/A.dll");
}

TEST_F(Apitest, EndsWithASeparatorOverAnEmptyList) {
  const std::string foo = put("bin/Velora.TV.Foo.dll");
  EXPECT_EQ(tpaOver(""), foo + ":");
}

TEST_F(Apitest, LeavesTheListIfThePackageIsUnknown) {
  platform().processes.clear();
  EXPECT_EQ(tpaOver("/p/A.dll"), "/p/A.dll");
}

TEST_F(Apitest, TakesLinksAsFiles) {
  std::filesystem::create_directories(root_.path() / "bin");
  const std::filesystem::path link = root_.path() / "bin" / "Velora.TV.Link.dll";
  std::filesystem::create_symlink("/nowhere", link);
  EXPECT_EQ(tpaOver("/p/A.dll"), link.string() + ":/p/A.dll");
}

}  // namespace
}  // namespace quillon::test
