// What holds for every command of the program, also for those that are added later: the commands
// are read from the program's own help.
#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <utility>

#include "quillon/base/exit_status.h"
#include "tests/support/program.h"
#include "tests/support/temporary_directory.h"
#include "tests/system/commands/command_list.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

using Words = std::vector<std::string>;

constexpr char kDevice[] = "--device DIR";

// Commands that work outside of device roots, or whose argument is one.
const std::set<std::string> kWithoutDeviceOption = {"device init",  "device shell",   "package new",
                                                    "partner sign", "partner verify", "timeline"};

TEST(EveryCommand, IsFound) {
  Words names;
  for (const Command& command : allCommands()) {
    names.push_back(command.name());
  }
  EXPECT_THAT(names, Contains("launch"));
  EXPECT_THAT(names, Contains("package install"));
  EXPECT_THAT(names, Contains("launchpad status"));
  EXPECT_THAT(names, Contains("validator"));
}

TEST(EveryCommand, HasAHelpThatFitsAScreen) {
  constexpr size_t kRows = 40;
  constexpr size_t kColumns = 80;
  for (const Command& command : allCommands()) {
    SCOPED_TRACE(command.name());
    const Words lines = linesOf(command.help);
    EXPECT_LE(lines.size(), kRows);
    for (const std::string& line : lines) {
      EXPECT_LE(line.size(), kColumns) << line;
    }
    EXPECT_THAT(command.help, HasSubstr("\nusage: quillon"));
    EXPECT_THAT(command.help, Not(HasSubstr("{")));
  }
}

TEST(EveryCommand, DescribesEachOptionInOneLine) {
  const Finished launch = run({QUILLON_COMMAND, "launch", "--help"});
  EXPECT_THAT(launch.out, HasSubstr("\n  APPID "));
  EXPECT_THAT(launch.out, HasSubstr("; or --id\n"));
  EXPECT_THAT(launch.out, Not(HasSubstr("\n  --id ")));
  EXPECT_THAT(launch.out,
              HasSubstr("--writable PATH               Path that stays writable; may be "
                        "repeated\n"));
  EXPECT_THAT(launch.out, HasSubstr("--tiered-pgo on|off           Profile"));
  EXPECT_THAT(run({QUILLON_COMMAND, "launchpad", "--help"}).out,
              HasSubstr("--size N          Prepared processes per type, 1 to 64; default: 2\n"));
  EXPECT_THAT(run({QUILLON_COMMAND, "partner", "sign", "--help"}).out, HasSubstr("; required\n"));
}

// A page without the marks of man(7).
std::string manualOf(const std::string& command) {
  Words words = {QUILLON_COMMAND, "__manual"};
  if (!command.empty()) {
    words.push_back(command);
  }
  std::string page;
  for (const std::string& line : linesOf(run(words).out)) {
    page += std::regex_replace(line, std::regex(R"(\\f[BR]|\\(?=-)|\\&)"), "") + "\n";
  }
  return page;
}

// The name and the text of a line of the help that describes an option, an argument or a command.
std::pair<std::string, std::string> rowOf(const std::string& line) {
  const size_t gap = line.find("  ", 2);
  return gap == std::string::npos
             ? std::pair<std::string, std::string>()
             : std::pair(line.substr(2, gap - 2), line.substr(line.find_first_not_of(' ', gap)));
}

TEST(EveryCommand, IsDescribedByTheManualAsByItsHelp) {
  for (const Command& command : allCommands()) {
    SCOPED_TRACE(command.name());
    const std::string page = manualOf(command.words.empty() ? "" : command.words.front());
    EXPECT_THAT(page, HasSubstr("quillon" + command.usage().substr(sizeof "usage: quillon" - 1)));
    const std::string rows = command.help.substr(0, command.help.find("\nVariables:"));
    for (const std::string& line : linesOf(rows)) {
      if (const auto [name, text] = rowOf(line); line.starts_with("  ") && !name.empty()) {
        EXPECT_THAT(page, HasSubstr(".TP\n" + name + "\n" + text + "\n"));
      }
    }
  }
}

class EveryCommandWithADevice : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(at("MANIFEST"), "[package]\nid = 'x'\nversion = '1'\n");
    writeFile(at("FILE"), "-----BEGIN CERTIFICATE-----\nAA==\n-----END CERTIFICATE-----\n");
    writeFile(at("APP.dll"), "");
    writeFile(at("POLICY"), "default = \"deny\"\n");
    writeFile(at("FILE"), "-----BEGIN CERTIFICATE-----\nYWJj\n-----END CERTIFICATE-----\n");
  }
  [[nodiscard]] std::string at(const std::string& name) const {
    return (folder_.path() / name).string();
  }

  // A value of the argument that the usage names; empty for other words of the usage.
  [[nodiscard]] std::string valueOf(std::string word) const {
    std::erase_if(word, [](char letter) { return letter == '[' || letter == ']'; });
    if (word == "MANIFEST" || word == "POLICY" || word == "APP.dll" || word == "FILE") {
      return at(word);
    }
    const bool isArgument =
        std::all_of(word.begin(), word.end(), [](char c) { return std::isupper(c) != 0; }) &&
        word != "OPTIONS" && word != "COMMAND" && word != "ARGUMENTS";
    return isArgument ? "x" : "";
  }

  // Runs the command with a value for each of its arguments.
  [[nodiscard]] Finished runWith(const Command& command, const Words& options,
                                 const std::map<std::string, std::string>& variables) const {
    Words words = options;
    std::istringstream usage(command.usage());
    for (std::string word; usage >> word;) {
      if (const std::string value = valueOf(word); !value.empty()) {
        words.push_back(value);
      }
    }
    return run(commandLine(command, words), variables);
  }

 private:
  TemporaryDirectory folder_;
};

TEST_F(EveryCommandWithADevice, TakesItFromTheOptionThenFromTheVariable) {
  for (const Command& command : allCommands()) {
    SCOPED_TRACE(command.name());
    if (!command.runs() || kWithoutDeviceOption.contains(command.name())) {
      continue;
    }
    ASSERT_THAT(command.help, HasSubstr(kDevice));
    EXPECT_THAT(command.help, HasSubstr("Device root; default: $QUILLON_DEVICE or yours"));

    const Finished option =
        runWith(command, {"--device", at("option")}, {{"QUILLON_DEVICE", at("variable")}});
    EXPECT_NE(option.status, 0);
    EXPECT_THAT(option.err + option.out, HasSubstr(at("option")));
    EXPECT_THAT(option.err + option.out, Not(HasSubstr(at("variable"))));

    const Finished variable = runWith(command, {}, {{"QUILLON_DEVICE", at("variable")}});
    EXPECT_THAT(variable.err + variable.out, HasSubstr(at("variable")));

    const Finished refused = runWith(command, {}, {{"HOME", ""}, {"XDG_DATA_HOME", ""}});
    EXPECT_EQ(refused.status, kUsage);
    EXPECT_EQ(refused.err,
              "quillon: no device root is given; give --device DIR or set QUILLON_DEVICE\n");
    if (command.name() == "run" || command.name() == "launchpad") {
      continue;  // makes the user's device root
    }
    const std::map<std::string, std::string> home = {{"HOME", at("home")}, {"XDG_DATA_HOME", ""}};
    const Finished own = runWith(command, {}, home);
    EXPECT_NE(own.status, 0);
    EXPECT_THAT(own.err + own.out, HasSubstr(at("home") + "/.local/share/quillon/device"));
  }
}

TEST_F(EveryCommandWithADevice, HasTheOption) {
  for (const Command& command : allCommands()) {
    const bool mayLackIt = !command.runs() || kWithoutDeviceOption.contains(command.name());
    EXPECT_EQ(command.help.find(kDevice) == std::string::npos, mayLackIt) << command.name();
  }
}

}  // namespace
}  // namespace quillon::test
