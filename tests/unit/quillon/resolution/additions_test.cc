#include "quillon/resolution/additions.h"

#include <gmock/gmock.h>

#include "quillon/resolution/hostfxr.h"

namespace quillon::resolution {
namespace {

using ::testing::Pair;

Additions sample() {
  Additions additions;
  additions.frameworks = {{"Microsoft.AspNetCore.App", "10.0.1", "/dotnet/shared/Web/10.0.1"}};
  additions.assemblies = {"/dotnet/shared/Web/10.0.1/Web.dll", "/app/runtimes/linux/lib/One.dll"};
  additions.nativeFolders = {"/app/runtimes/linux/native folder"};
  additions.warning = "it was built for another one";
  return additions;
}

TEST(AdditionsText, KeepsEverything) {
  EXPECT_EQ(parseAdditions(format(sample())), sample());
  EXPECT_EQ(parseAdditions(format(Additions())), Additions());
  Additions missing;
  missing.missing = SharedFramework{"Velora.App", "1.0.0", ""};
  EXPECT_EQ(parseAdditions(format(missing)), missing);
}

TEST(AdditionsText, LeavesOutPathsThatTheRuntimeCannotTake) {
  Additions additions;
  additions.assemblies = {"/app/a:b.dll", "/app/two\nlines.dll", "relative.dll", "/app/x.so"};
  additions.nativeFolders = {"/app/a:b", "/app/../etc", "/app/./x"};
  EXPECT_EQ(parseAdditions(format(additions)), Additions());
}

TEST(AdditionsText, IsRefusedInAnyOtherForm) {
  for (const char* text :
       {"unknown line\n", "assembly relative.dll\n", "assembly /app/../etc/x.dll\n",
        "assembly /app/a:b.dll\n", "assembly /app/x.so\n", "native relative\n", "\n", "assembly\n",
        "framework OnlyAName\n", "framework A 1.0\n", "framework A 1.0 relative\n",
        "missing A 1.0 /folder\n", "missing A\n", "warning with \x1b[31mcolour\n"}) {
    EXPECT_EQ(parseAdditions(text), std::nullopt) << text;
  }
}

TEST(AdditionsText, NamesTheSourceOfEachPath) {
  const Additions additions = sample();
  EXPECT_EQ(sourceOf(additions, additions.assemblies[0]), "Microsoft.AspNetCore.App 10.0.1");
  EXPECT_EQ(sourceOf(additions, additions.assemblies[1]), "the application's dependency file");
  EXPECT_EQ(sourceOf(additions, "/dotnet/shared/Web/10.0.10/Web.dll"),
            "the application's dependency file");
}

TEST(AdditionsText, IsDescribedInAFewWords) {
  EXPECT_EQ(describe(Additions()), "");
  EXPECT_EQ(
      describe(sample()),
      "Microsoft.AspNetCore.App 10.0.1, 1 selected assembly, 1 native folder, with a warning");
}

TEST(MissingFramework, IsReadFromTheHostsMessage) {
  const auto missing = missingFrameworkIn(
      "You must install or update .NET to run this application.\nArchitecture: x64\n"
      "Framework: 'Microsoft.AspNetCore.App', version '9.0.0' (x64)\n.NET location: /dotnet\n");
  ASSERT_TRUE(missing.has_value());
  EXPECT_THAT(*missing, Pair("Microsoft.AspNetCore.App", "9.0.0"));
  for (const char* other : {"", "Framework: '", "Framework: 'A'", "version '1'",
                            "Framework: '', version ''", "Framework: 'A', version '"}) {
    EXPECT_EQ(missingFrameworkIn(other), std::nullopt) << other;
  }
}

}  // namespace
}  // namespace quillon::resolution
