// The words that shells offer while a command line is typed.
#include <gmock/gmock.h>

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

// Runs a shell that has read its completion file, with a command line whose last word is typed.
TEST_F(Completion, WorksInBash) {
  const Finished bash = run({"bash", "-c",
                             "source " QUILLON_COMPLETION_FOLDER "/quillon.bash\n"
                             "COMP_WORDS=(" QUILLON_COMMAND " launch org.example.h) COMP_CWORD=2\n"
                             "_quillon; echo \"${COMPREPLY[@]}\""},
                            {{"QUILLON_DEVICE", device()}});
  EXPECT_EQ(bash.out, "org.example.hand\n") << bash.err;
}

}  // namespace
}  // namespace quillon::test
