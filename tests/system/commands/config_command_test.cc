#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "tests/system/commands/command_fixture.h"

namespace quillon::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class ConfigCommandTest : public CommandTest {
 protected:
  std::string stored(const std::string& key) {
    return contentsOf(device() + "/opt/usr/share/quillon/config/" + key);
  }
};

TEST_F(ConfigCommandTest, SetsAndGets) {
  EXPECT_EQ(quillon({"config", "set", "a/b", "text with spaces"}).status, 0);
  EXPECT_EQ(quillon({"config", "get", "a/b"}).out, "text with spaces\n");
}

TEST_F(ConfigCommandTest, TakesADecimalNumberAsInt) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"5"}, "int 5\n"},
      {{"-5"}, "int -5\n"},
      {{"--", "-5"}, "int -5\n"},
      {{"007"}, "string 007"},
      {{"+5"}, "string +5"},
      {{"2147483648"}, "string 2147483648"},
      {{"5", "--string"}, "string 5"},
      {{"--int", "5"}, "int 5\n"},
      {{""}, "string "},
      {{"--", "--text"}, "string --text"},
  };
  for (const auto& [value, expected] : cases) {
    std::vector<std::string> arguments = {"config", "set", "k"};
    arguments.insert(arguments.end(), value.begin(), value.end());
    const Finished set = quillon(arguments);
    EXPECT_EQ(set.status, 0) << set.err;
    EXPECT_EQ(stored("k"), expected);
  }
}

TEST_F(ConfigCommandTest, RefusesInvalidValues) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"k", "x", "--int"},
       "quillon: 'x' is not a 32-bit decimal number; omit --int to set a string\n"},
      {{"k"}, "quillon: config set needs a VALUE; see quillon config set --help\n"},
      {{"k", "-x"},
       "quillon: config set does not know '-x'; write a value that begins with '-' after --\n"},
      {{"k", "1", "2"}, "quillon: config set does not know '2'; see quillon config set --help\n"},
  };
  for (const auto& [rest, message] : cases) {
    std::vector<std::string> arguments = {"config", "set"};
    arguments.insert(arguments.end(), rest.begin(), rest.end());
    const Finished set = quillon(arguments);
    EXPECT_EQ(set.status, 100);
    EXPECT_EQ(set.err, message);
  }
  EXPECT_EQ(stored("k"), "");
}

TEST_F(ConfigCommandTest, DistinguishesAMissingKeyFromAFailure) {
  const Finished absent = quillon({"config", "get", "a/b"});
  EXPECT_EQ(absent.status, 114);
  EXPECT_EQ(absent.out, "");
  EXPECT_EQ(absent.err,
            "quillon: the configuration key 'a/b' has no value; set it: quillon config set a/b "
            "VALUE\n");
  EXPECT_EQ(quillon({"config", "get", "a//b"}).status, 112);
}

TEST_F(ConfigCommandTest, NamesAGroupOfKeys) {
  ASSERT_EQ(quillon({"config", "set", "db/x", "1"}).status, 0);
  const Finished group = quillon({"config", "get", "db"});
  EXPECT_EQ(group.status, 114);
  EXPECT_EQ(group.err,
            "quillon: 'db' is not a key but a group of keys; list them: quillon config list db\n");
  const Finished set = quillon({"config", "set", "db", "1"});
  EXPECT_EQ(set.status, 112);
  EXPECT_EQ(set.err, group.err);
}

TEST_F(ConfigCommandTest, NamesAKeyInThePlaceOfAGroup) {
  ASSERT_EQ(quillon({"config", "set", "db/x", "1"}).status, 0);
  EXPECT_EQ(quillon({"config", "set", "db/x/y/z", "1"}).err,
            "quillon: 'db/x/y/z' cannot be a key, because 'db/x' is one; remove that: quillon "
            "config unset db/x\n");
  ASSERT_EQ(quillon({"config", "unset", "db/x"}).status, 0);
  EXPECT_EQ(quillon({"config", "set", "db/x/y/z", "1"}).status, 0);
}

// A launch makes the groups of the keys that it watches.
TEST_F(ConfigCommandTest, AdvisesNoValueForAKeyThatCannotHaveOne) {
  std::filesystem::create_directories(device() + "/opt/usr/share/quillon/config/db/menu");
  EXPECT_EQ(quillon({"config", "get", "db"}).err,
            "quillon: 'db' is not a key but a group of keys; list them: quillon config list db\n");
  ASSERT_EQ(quillon({"config", "set", "a/b", "1"}).status, 0);
  const Finished blocked = quillon({"config", "get", "a/b/c"});
  EXPECT_EQ(blocked.status, 114);
  EXPECT_EQ(blocked.err,
            "quillon: 'a/b/c' cannot be a key, because 'a/b' is one; remove that: quillon config "
            "unset a/b\n");
}

TEST_F(ConfigCommandTest, ListPrintsOneLineForEachKey) {
  ASSERT_EQ(quillon({"config", "set", "a", "1\n2 \x1b[31m\a"}).status, 0);
  EXPECT_EQ(quillon({"config", "list"}).out, "a string 1 2  [31m \n");
  EXPECT_EQ(quillon({"config", "get", "a"}).out, "1\n2 \x1b[31m\a\n");
}

TEST_F(ConfigCommandTest, ListRefusesWhatIsNoGroup) {
  for (const std::string group : {"../..", "/etc"}) {
    const Finished refused = quillon({"config", "list", group});
    EXPECT_EQ(refused.status, 112);
    EXPECT_THAT(refused.err, StartsWith("quillon: '" + group + "' is not a configuration key; "));
  }
}

TEST_F(ConfigCommandTest, ListsKeys) {
  EXPECT_EQ(quillon({"config", "list"}).out, "");
  EXPECT_EQ(quillon({"config", "list", "--json"}).out, "[]\n");
  ASSERT_EQ(quillon({"config", "set", "db/b/text", "a b"}).status, 0);
  ASSERT_EQ(quillon({"config", "set", "db/a/number", "-5"}).status, 0);
  ASSERT_EQ(quillon({"config", "set", "top", "5", "--string"}).status, 0);
  writeFile(device() + "/opt/usr/share/quillon/config/db/.text.Ab12Cd", "left over");
  EXPECT_EQ(quillon({"config", "list"}).out,
            "db/a/number int -5\ndb/b/text string a b\ntop string 5\n");
  EXPECT_EQ(quillon({"config", "list", "db/b"}).out, "db/b/text string a b\n");
  EXPECT_EQ(nlohmann::json::parse(quillon({"config", "list", "db", "--json"}).out),
            nlohmann::json::parse(R"([{"key": "db/a/number", "type": "int", "value": -5},
                                      {"key": "db/b/text", "type": "string", "value": "a b"}])"));
  EXPECT_EQ(quillon({"config", "list", "../.."}).out, "");
}

TEST_F(ConfigCommandTest, UnsetsAKeyAndItsEmptyGroups) {
  ASSERT_EQ(quillon({"config", "set", "db/a/number", "5"}).status, 0);
  ASSERT_EQ(quillon({"config", "set", "db/text", "x"}).status, 0);
  EXPECT_EQ(quillon({"config", "unset", "db/a/number"}).status, 0);
  EXPECT_EQ(quillon({"config", "list"}).out, "db/text string x\n");
  EXPECT_EQ(quillon({"config", "set", "db/a", "now a key"}).status, 0);
  const Finished absent = quillon({"config", "unset", "db/none"});
  EXPECT_EQ(absent.status, 114);
  EXPECT_EQ(absent.err,
            "quillon: the configuration key 'db/none' has no value; list the keys: quillon config "
            "list\n");
  EXPECT_EQ(quillon({"config", "unset", "db"}).status, 114);
}

TEST_F(ConfigCommandTest, WatchPrintsTheValueAndEachNewOne) {
  ASSERT_EQ(quillon({"config", "set", "a/b", "0"}).status, 0);
  Program watch(commandOf({"config", "watch", "a/b"}));
  watch.with("QUILLON_DEVICE", device()).start();
  std::string seen;
  for (const char* value : {"0", "1", "two"}) {
    if (*value != '0') {
      quillon({"config", "set", "a/b", value});
    }
    seen += std::string(value) + "\n";
    EXPECT_TRUE(watch.waitForOutput(seen)) << value;
  }
  watch.terminate();
  EXPECT_EQ(watch.finish().out, seen);
}

TEST_F(ConfigCommandTest, NamesAMissingDeviceRoot) {
  const Finished unnamed =
      run(commandOf({"config", "get", "k"}), {{"HOME", ""}, {"XDG_DATA_HOME", ""}});
  EXPECT_EQ(unnamed.status, 100);
  EXPECT_EQ(unnamed.err,
            "quillon: no device root is given; give --device DIR or set QUILLON_DEVICE\n");
  const Finished wrong = run(commandOf({"config", "get", "k", "--device", "/nowhere"}));
  EXPECT_EQ(wrong.status, 101);
  EXPECT_THAT(linesOf(wrong.err), ::testing::SizeIs(1));
  EXPECT_THAT(wrong.err, HasSubstr("/nowhere"));
}

TEST_F(ConfigCommandTest, RefusesUnknownArguments) {
  const Finished usage = quillon({"config", "get"});
  EXPECT_EQ(usage.status, 100);
  EXPECT_EQ(usage.err,
            "quillon: KEY is required: key, such as db/dotnet/velora_api_path; see quillon "
            "config get "
            "--help\n");
  EXPECT_EQ(quillon({"frobnicate"}).status, 100);
  EXPECT_EQ(quillon({}).status, 100);
  EXPECT_EQ(quillon({"--help"}).status, 0);
  EXPECT_THAT(quillon({"--help"}).out, HasSubstr("config"));
  EXPECT_THAT(quillon({"--version"}).out, StartsWith("quillon "));
}

}  // namespace
}  // namespace quillon::test
