#include "quillon/host/runtime/runtime_config.h"

#include <gmock/gmock.h>

#include <fstream>

#include "quillon/base/files.h"
#include "tests/support/temporary_directory.h"

namespace quillon::host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

class RuntimeConfigFile : public ::testing::Test {
 protected:
  Expected<RuntimeConfig> read(const std::string& text) const {
    std::ofstream(directory_.path() / "App.runtimeconfig.json") << text;
    return readRuntimeConfig(directory_.path() / "App.dll");
  }
  std::string version(const std::string& deps) const {
    std::ofstream(directory_.path() / "Microsoft.NETCore.App.deps.json") << deps;
    return frameworkVersionOf(directory_.path());
  }
  test::TemporaryDirectory directory_;
};

TEST_F(RuntimeConfigFile, ReturnsPropertiesAsStringsInOrder) {
  const auto config = read(R"({"runtimeOptions": {"configProperties": {
      "b": true, "a": "text", "n": 12 /* a comment */ }}})");
  ASSERT_TRUE(config.has_value());
  EXPECT_THAT(config->properties,
              ElementsAre(Pair("b", "true"), Pair("a", "text"), Pair("n", "12")));
}

TEST_F(RuntimeConfigFile, ReadsTheWantedVersionInBothForms) {
  EXPECT_EQ(read(R"({"runtimeOptions": {"framework":
                 {"name": "Microsoft.NETCore.App", "version": "8.0.1"}}})")
                ->frameworkVersion,
            "8.0.1");
  EXPECT_EQ(read(R"({"runtimeOptions": {"frameworks": [{"name": "Other", "version": "1"},
                 {"name": "Microsoft.NETCore.App", "version": "9.0.0"}]}})")
                ->frameworkVersion,
            "9.0.0");
}

TEST_F(RuntimeConfigFile, NamesTheOtherFrameworks) {
  const auto several = read(R"({"runtimeOptions": {"frameworks": [{"name": "One"}, 2, {"name": 3},
                       {"name": "Microsoft.NETCore.App", "version": "9.0.0"}, {"name": "Two"}]}})");
  EXPECT_THAT(several->otherFrameworks, ElementsAre("One", "Two"));
  const auto one = read(R"({"runtimeOptions": {"framework": {"name": "One", "version": "1"}}})");
  EXPECT_THAT(one->otherFrameworks, ElementsAre("One"));
  EXPECT_EQ(one->frameworkVersion, "");
}

TEST_F(RuntimeConfigFile, MayBeMissingOrHaveNoSettings) {
  EXPECT_THAT(readRuntimeConfig(directory_.path() / "None.dll")->properties, IsEmpty());
  for (const char* text : {"{}", R"({"runtimeOptions": 1})",
                           R"({"runtimeOptions": {"framework": {"name": 3}, "frameworks": 4}})",
                           R"({"runtimeOptions": {"configProperties": 5}})",
                           R"({"runtimeOptions": {"configProperties": ["a"]}})"}) {
    const auto config = read(text);
    ASSERT_TRUE(config.has_value()) << text;
    EXPECT_EQ(config->frameworkVersion, "") << text;
    EXPECT_THAT(config->properties, IsEmpty()) << text;
  }
}

TEST_F(RuntimeConfigFile, IsNamedByTheFailureIfItIsNotJson) {
  for (const char* text : {"", "{", "[]", "\xff"}) {
    const auto config = read(text);
    ASSERT_FALSE(config.has_value()) << text;
    EXPECT_THAT(config.error().what, HasSubstr("App.runtimeconfig.json"));
  }
}

std::string property(const std::string& value) {
  return R"({"runtimeOptions": {"configProperties": {"a": )" + value + "}}}";
}

TEST_F(RuntimeConfigFile, MayBeNestedUpTo64Levels) {
  const auto nested = [](int levels) {
    return property(std::string(levels, '[') + std::string(levels, ']'));
  };
  EXPECT_TRUE(read(nested(61)).has_value());  // property() has three levels
  const auto config = read(nested(62));
  ASSERT_FALSE(config.has_value());
  EXPECT_THAT(config.error().what,
              HasSubstr("App.runtimeconfig.json' is nested deeper than 64 levels"));
  EXPECT_FALSE(read(nested(80'000)).has_value());
}

TEST_F(RuntimeConfigFile, MayHaveUpTo4096Values) {
  const auto withValues = [](int count) {
    std::string more = "0";
    for (int i = 4; i < count; ++i) {  // property() has four values
      more += ", \"" + std::to_string(i) + "\": 0";
    }
    return property(more);
  };
  EXPECT_TRUE(read(withValues(4096)).has_value());
  const auto config = read(withValues(4097));
  ASSERT_FALSE(config.has_value());
  EXPECT_THAT(config.error().what, HasSubstr("has more than 4096 values"));
}

TEST_F(RuntimeConfigFile, MayHaveUpToOneMebibyte) {
  const std::string text = property("0");
  const std::string padding(kMaxTextSize - text.size(), ' ');
  EXPECT_TRUE(read(text + padding).has_value());
  const auto config = read(text + padding + ' ');
  ASSERT_FALSE(config.has_value());
  EXPECT_THAT(config.error().what, HasSubstr("cannot be read: larger than 1 MiB"));
}

TEST_F(RuntimeConfigFile, ReadsTheFrameworksVersionFromItsDependencyFile) {
  EXPECT_EQ(version(R"({"targets": {".NETCoreApp,Version=v10.0": {},
                ".NETCoreApp,Version=v10.0/linux-x64":
                {"Microsoft.NETCore.App.Runtime.linux-x64/10.0.12": {}}}})"),
            "10.0.12");
  EXPECT_EQ(version("{}"), "");
  EXPECT_EQ(version("no json"), "");
  EXPECT_EQ(frameworkVersionOf("/nonexistent"), "");
}

}  // namespace
}  // namespace quillon::host
