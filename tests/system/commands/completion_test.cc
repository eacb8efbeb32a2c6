// The words that shells offer while a command line is typed.
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <ostream>
#include <regex>
#include <set>
#include <sstream>
#include <utility>

#include "tests/system/commands/command_fixture.h"
#include "tests/system/commands/command_list.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAreArray;

using Words = std::vector<std::string>;

class Completion : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    writeFile(folder() / "clock.toml",
              "[package]\nid = 'org.example.clock'\nversion = '1'\n"
              "[[application]]\nid = 'org.example.hand'\nexec = 'Hand.dll'\n"
              "[[application]]\nid = 'org.example.face'\nexec = 'Face.dll'\n");
    ASSERT_EQ(quillon({"package", "install", folder() / "clock.toml"}).status, 0);
    ASSERT_EQ(quillon({"config", "set", "db/menu/network", "1"}).status, 0);
  }

  // The words without their descriptions.
  Words complete(Words words) {
    words.insert(words.begin(), "__complete");
    const Finished completed = quillon(words);
    EXPECT_EQ(completed.status, 0);
    EXPECT_EQ(completed.err, "");
    Words names;
    for (const std::string& line : linesOf(completed.out)) {
      names.push_back(line.substr(0, line.find('\t')));
    }
    return names;
  }
};

TEST_F(Completion, OffersCommands) {
  EXPECT_THAT(complete({""}), Contains("launch"));
  EXPECT_THAT(complete({"launchp"}), ElementsAre("launchpad"));
  EXPECT_THAT(complete({"package", "in"}), ElementsAre("install", "info"));
  EXPECT_THAT(complete({"partner", ""}), ElementsAre("sign", "verify"));
  EXPECT_THAT(complete({"launchpad", ""}), Not(Contains("worker")));
}

TEST_F(Completion, OffersOptionsWithTheirDescriptions) {
  EXPECT_THAT(complete({"launch", "--ti"}),
              ElementsAre("--tiered-compilation", "--tiered-pgo", "--timeline"));
  EXPECT_EQ(quillon({"__complete", "launch", "--raw"}).out,
            "--raw\tKeep the application's output out of the log\n");
}

TEST_F(Completion, OffersWhatTheDeviceRootHas) {
  EXPECT_THAT(complete({"launch", ""}), ElementsAre("org.example.hand", "org.example.face"));
  EXPECT_THAT(complete({"launch", "--raw", "--id", "org.example.f"}),
              ElementsAre("org.example.face"));
  EXPECT_THAT(complete({"package", "remove", ""}), ElementsAre("org.example.clock"));
  EXPECT_THAT(complete({"config", "get", "db/menu"}), ElementsAre("db/menu/network"));
  EXPECT_THAT(complete({"launch", "--device", "/no/such/root", ""}), IsEmpty());
  EXPECT_THAT(complete({"package", "remove", "--device", device(), ""}),
              ElementsAre("org.example.clock"));
}

TEST_F(Completion, OffersTheValuesOfOptions) {
  EXPECT_THAT(complete({"launch", "--tiered-pgo", ""}), ElementsAre("on", "off"));
  EXPECT_THAT(complete({"launch", "--type", "in"}), ElementsAre("inhouse", "inhouseapitest"));
}

// The shell completes the names of files instead.
TEST_F(Completion, OffersNothingInPlaceOfFilesAndTheApplicationsArguments) {
  EXPECT_THAT(complete({"package", "install", ""}), IsEmpty());
  EXPECT_THAT(complete({"launch", "--device", ""}), IsEmpty());
  EXPECT_THAT(complete({"launch", "org.example.hand", "--", "-"}), IsEmpty());
  EXPECT_THAT(complete({"run", "App.dll", "--"}), IsEmpty());
  EXPECT_THAT(complete({"launch", "org.example.hand", ""}), IsEmpty());
}

// The options in a help text. "or --NAME" is an option in the row of an argument.
Words optionsOf(const std::string& help) {
  const std::regex option("(?:\\n  |\\n  -h, |; or )(--[a-z][a-z-]*)");
  Words names;
  for (std::sregex_iterator each(help.begin(), help.end(), option), end; each != end; ++each) {
    names.push_back(each->str(1));
  }
  return names;
}

// The options that have a value, each with the value's placeholder.
std::vector<std::pair<std::string, std::string>> optionsWithValues(const std::string& help) {
  const std::regex option(R"(\n  (--[a-z][a-z-]*) ([^ \n]+))");
  std::vector<std::pair<std::string, std::string>> found;
  for (std::sregex_iterator each(help.begin(), help.end(), option), end; each != end; ++each) {
    found.emplace_back(each->str(1), each->str(2));
  }
  return found;
}

// The placeholder of the first argument in a usage line; empty without an argument.
std::string firstArgument(const std::string& usage) {
  const std::regex argument(R"( \[?([A-Z][A-Za-z.]*)[\].]*)");
  for (std::sregex_iterator each(usage.begin(), usage.end(), argument), end; each != end; ++each) {
    if (each->str(1) != "OPTIONS") {
      return each->str(1) == "COMMAND" || each->str(1) == "ARGUMENTS" ? "" : each->str(1);
    }
  }
  return "";
}

// Placeholders of file names, new names, numbers and texts, which have no list of values.
const std::set<std::string> kWithoutValues = {
    "APP.dll",  "COMMAND", "DIR",   "FILE", "FILE.html", "FOLDER",      "ID",
    "MANIFEST", "N",       "NAME",  "PAGE", "PATH",      "PRIVATE.pem", "PUBLIC.pem",
    "POLICY",   "TEXT",    "TRACE", "UID",  "VALUE"};

// Every place of a command line that has a list of values: the words before it, and the
// placeholder of the value.
std::vector<std::pair<Words, std::string>> placesOfValues() {
  std::vector<std::pair<Words, std::string>> places;
  const auto add = [&](Words words, const std::string& placeholder) {
    if (!placeholder.empty() && !kWithoutValues.contains(placeholder)) {
      places.emplace_back(std::move(words), placeholder);
    }
  };
  for (const Command& command : allCommands()) {
    add(command.words, firstArgument(command.usage()));
    for (const auto& [option, placeholder] : optionsWithValues(command.help)) {
      Words words = command.words;
      words.push_back(option);
      add(words, placeholder);
    }
  }
  return places;
}

// Runs shells that have read their completion file, with a command line whose last word is typed.
class CompletionInShells : public Completion {
 protected:
  // The output of a script. The command is on its search path.
  std::string outputOf(const std::string& shell, const std::string& option,
                       const std::string& script) {
    const std::string commands = std::filesystem::path(QUILLON_COMMAND).parent_path();
    const Finished finished =
        run({shell, option, "-c", script}, {{"QUILLON_DEVICE", device()},
                                            {"HOME", folder()},
                                            {"FILES", QUILLON_COMPLETION_FOLDER},
                                            {"PATH", commands + ":" + std::getenv("PATH")}});
    EXPECT_EQ(finished.err, "");
    return finished.out;
  }
  static bool isInstalled(const std::string& shell) {
    return run({"sh", "-c", "command -v " + shell + " >/dev/null"}).status == 0;
  }
};

TEST_F(CompletionInShells, WorksInBash) {
  EXPECT_EQ(outputOf("bash", "--norc",
                     "source $FILES/quillon.bash\n"
                     "COMP_WORDS=(quillon launch org.example.h) COMP_CWORD=2\n"
                     "_quillon; echo \"${COMPREPLY[@]}\""),
            "org.example.hand\n");
}

// With functions in the place of those that only an interactive zsh has.
TEST_F(CompletionInShells, WorksInZsh) {
  if (!isInstalled("zsh")) {
    QUILLON_SKIP("needs zsh");
  }
  const std::string complete =
      "_call_program() { shift; eval \"$@\"; }\n"
      "_files() { print files; }\n"
      "compadd() { print -l -- \"$@[5,-1]\" $described; }\n"
      "complete() { local -a words=(\"$@\"); local CURRENT=$#words; source $FILES/_quillon; }\n"
      "complete quillon ";
  EXPECT_EQ(outputOf("zsh", "-f", complete + "launch org.example.h"),
            "org.example.hand\norg.example.hand\n");
  EXPECT_EQ(outputOf("zsh", "-f", complete + "launch --raw"),
            "--raw\n--raw  -- Keep the application's output out of the log\n");
  EXPECT_EQ(outputOf("zsh", "-f", complete + "package install ''"), "files\n");
}

TEST_F(CompletionInShells, WorksInFish) {
  if (!isInstalled("fish")) {
    QUILLON_SKIP("needs fish");
  }
  const auto complete = [&](const std::string& typed) {
    return outputOf("fish", "--no-config",
                    "source $FILES/quillon.fish; complete --do-complete 'quillon " + typed + "'");
  };
  EXPECT_EQ(complete("launch org.example.h"), "org.example.hand\n");
  EXPECT_EQ(complete("launch --raw"), "--raw\tKeep the application's output out of the log\n");
  EXPECT_EQ(complete("package install " + folder().string() + "/cl"),
            folder().string() + "/clock.toml\n");
}

// How a shell reads its completion file, and a function that prints the words that it offers for
// the last of its arguments. Descriptions are left out.
struct Shell {
  std::string name;
  std::string option;
  std::string functions;
};

void PrintTo(const Shell& shell, std::ostream* out) { *out << shell.name; }

const std::vector<Shell>& shells() {
  static const std::vector<Shell> all = {
      {"bash", "--norc",
       "source $FILES/quillon.bash\n"
       "offered() { COMP_WORDS=(quillon \"$@\") COMP_CWORD=$#; _quillon\n"
       "  printf '%s\\n' \"${COMPREPLY[@]}\"; }\n"},
      {"zsh", "-f",
       "_call_program() { shift; eval \"$@\"; }\n"
       "_files() { }\n"
       "compadd() { print -l -- \"$@[5,-1]\"; }\n"
       "offered() { local -a words=(quillon \"$@\"); local CURRENT=$#words\n"
       "  source $FILES/_quillon; }\n"},
      {"fish", "--no-config",
       "source $FILES/quillon.fish\n"
       "function offered; complete --do-complete \"quillon $argv\" | string split -f 1 \\t; "
       "end\n"}};
  return all;
}

class CompletionInEveryShell : public CompletionInShells,
                               public ::testing::WithParamInterface<Shell> {
 protected:
  void SetUp() override {
    CompletionInShells::SetUp();
    if (!IsSkipped() && !isInstalled(GetParam().name)) {
      QUILLON_SKIP("needs " << GetParam().name);
    }
  }

  // Returns what the shell offers for the last word of each line. No word needs quotes.
  std::vector<Words> offered(const std::vector<Words>& lines) {
    std::string script = GetParam().functions;
    for (const Words& line : lines) {
      script += "offered";
      for (const std::string& word : line) {
        script += word.empty() ? " ''" : " " + word;
      }
      script += "\necho .\n";
    }
    std::vector<Words> found(1);
    for (const std::string& line : linesOf(outputOf(GetParam().name, GetParam().option, script))) {
      if (line == ".") {
        found.emplace_back();
      } else if (!line.empty()) {
        found.back().push_back(line);
      }
    }
    found.pop_back();
    return found;
  }
};

TEST_P(CompletionInEveryShell, OffersTheOptionsOfEachHelp) {
  std::vector<Words> lines;
  for (const Command& command : allCommands()) {
    lines.push_back(command.words);
    lines.back().emplace_back("--");
  }
  const std::vector<Words> found = offered(lines);
  ASSERT_EQ(found.size(), allCommands().size());
  for (size_t i = 0; i < found.size(); ++i) {
    const Command& command = allCommands()[i];
    EXPECT_THAT(found[i], UnorderedElementsAreArray(optionsOf(command.help))) << command.name();
  }
}

TEST_P(CompletionInEveryShell, OffersTheCommandsOfEachHelp) {
  std::vector<Words> lines;
  std::vector<Words> expected;
  for (const Command& command : allCommands()) {
    if (!command.commands().empty()) {
      lines.push_back(command.words);
      lines.back().emplace_back();
      expected.push_back(command.commands());
    }
  }
  const std::vector<Words> found = offered(lines);
  ASSERT_EQ(found.size(), expected.size());
  for (size_t i = 0; i < found.size(); ++i) {
    EXPECT_THAT(found[i], UnorderedElementsAreArray(expected[i]));
  }
}

TEST_P(CompletionInEveryShell, OffersTheValuesOfEachPlaceholder) {
  const Finished started = quillon({"zone", "start", "garden"});
  ASSERT_EQ(started.status, 0) << started.err;
  const std::map<std::string, Words> values = {
      {"APPID", {"org.example.face", "org.example.hand"}},
      {"PACKAGE", {"org.example.clock"}},
      {"KEY", {"db/menu/network"}},
      {"GROUP", {"db/menu/network"}},
      {"ZONE", {"garden"}},
      {"TYPE", {"inhouse", "inhouseapitest", "dotnet", "normal"}},
      {"on|off", {"on", "off"}}};
  const auto places = placesOfValues();
  std::vector<Words> lines;
  for (const auto& [words, placeholder] : places) {
    lines.push_back(words);
    lines.back().emplace_back();
  }
  const std::vector<Words> found = offered(lines);
  EXPECT_EQ(quillon({"zone", "stop", "garden"}).status, 0);
  ASSERT_EQ(found.size(), places.size());
  std::set<std::string> seen;
  for (size_t i = 0; i < found.size(); ++i) {
    const std::string& placeholder = places[i].second;
    ASSERT_TRUE(values.contains(placeholder)) << placeholder;
    EXPECT_THAT(found[i], UnorderedElementsAreArray(values.at(placeholder)))
        << testing::PrintToString(places[i].first);
    seen.insert(placeholder);
  }
  EXPECT_EQ(seen.size(), values.size());
}

INSTANTIATE_TEST_SUITE_P(, CompletionInEveryShell, testing::ValuesIn(shells()),
                         [](const auto& shell) { return shell.param.name; });

}  // namespace
}  // namespace quillon::test
