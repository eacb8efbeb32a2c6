// The words that shells offer while a command line is typed.
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

#include "tests/system/commands/command_fixture.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

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

}  // namespace
}  // namespace quillon::test
