#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <map>

#include "tests/support/program.h"
#include "tests/support/skip.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/terminal.h"

namespace quillon::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::SizeIs;
using Json = nlohmann::json;
using Variables = std::map<std::string, std::string>;

class LogTest : public ::testing::Test {
 protected:
  Finished probe(std::vector<std::string> steps, const Variables& variables = {}) {
    steps.insert(steps.begin(), LOG_PROBE);
    return run(steps, variables);
  }
  std::vector<Json> records() {
    std::vector<Json> all;
    for (const std::string& line : linesOf(contentsOf(file))) {
      all.push_back(Json::parse(line));
    }
    return all;
  }

  TemporaryDirectory folder;
  const std::string file = (folder.path() / "log").string();
};

const std::vector<std::string> kThreeLevels = {"log:3:T:debug\n", "log:4:T:info\n",
                                               "log:6:T:error\n"};

// A client of the launch pad without the library hands over the log that the library would.
TEST_F(LogTest, IsTheSameWithoutTheLibrary) {
  for (const Variables& set :
       std::vector<Variables>{{},
                              {{"QUILLON_LOG", "terminal"}},
                              {{"QUILLON_LOG", "none"}},
                              {{"QUILLON_LOG", "file:" + file}},
                              {{"QUILLON_LOG", "json:" + file}, {"QUILLON_LOG_LEVEL", "error"}},
                              {{"QUILLON_LOG_LEVEL", "info"}}}) {
    const std::vector<std::string> lines = linesOf(probe({"config"}, set).out);
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0], lines[1]);
  }
  EXPECT_THAT(probe({"config"}, {{"QUILLON_LOG", "file:" + file}}).out,
              HasSubstr("file 0 0 " + file + " closed on exec high\n"));
}

TEST_F(LogTest, NeedsTheLibraryForTheJournalAndToReportASetting) {
  for (const Variables& set :
       std::vector<Variables>{{{"QUILLON_LOG", "journal"}},
                              {{"QUILLON_LOG", "paper"}},
                              {{"QUILLON_LOG_LEVEL", "loud"}},
                              {{"QUILLON_LOG", "file:/no/such/folder/log"}}}) {
    EXPECT_THAT(probe({"config"}, set).out, HasSubstr("\nlibrary needed\n")) << set.begin()->second;
  }
}

TEST_F(LogTest, WritesOnlyErrorsToTheTerminalWhenNothingIsSet) {
  const Finished ran = probe(kThreeLevels);
  EXPECT_THAT(ran.err, MatchesRegex("E/T\\([0-9]+,[0-9]+\\): error\n"));
  EXPECT_EQ(ran.out, "");
}

TEST_F(LogTest, WritesTheApplicationsOutputToTheTerminalAsWellWhenNothingIsSet) {
  EXPECT_THAT(probe({"log:3:T:debug\n", "output:printed"}).err,
              MatchesRegex("D/T\\([0-9,]+\\): log.cc: stdOutRedirect\\(44\\) > printed\n"));
  for (const Variables& set :
       {Variables{{"QUILLON_LOG_LEVEL", "error"}}, Variables{{"QUILLON_LOG", "none"}},
        Variables{{"QUILLON_LOG", "terminal"}, {"QUILLON_LOG_LEVEL", "info"}}}) {
    EXPECT_EQ(probe({"output:printed"}, set).err, "") << set.begin()->second;
  }
}

TEST_F(LogTest, WritesEverythingWhenATargetIsSet) {
  EXPECT_THAT(linesOf(probe(kThreeLevels, {{"QUILLON_LOG", "terminal"}}).err), SizeIs(3));
}

TEST_F(LogTest, FiltersByLevel) {
  const std::map<std::string, size_t> expected = {{"debug", 3}, {"info", 2}, {"error", 1}};
  for (const auto& [level, count] : expected) {
    EXPECT_THAT(linesOf(probe(kThreeLevels, {{"QUILLON_LOG_LEVEL", level}}).err), SizeIs(count))
        << level;
    const Variables both = {{"QUILLON_LOG", "terminal"}, {"QUILLON_LOG_LEVEL", level}};
    EXPECT_THAT(linesOf(probe(kThreeLevels, both).err), SizeIs(count)) << level;
  }
}

TEST_F(LogTest, WritesNothingForNone) {
  const Finished ran = probe(kThreeLevels, {{"QUILLON_LOG", "none"}});
  EXPECT_EQ(ran.err, "");
  EXPECT_EQ(ran.status, 0);
}

TEST_F(LogTest, OmitsColoursIfStandardErrorIsNotATerminal) {
  EXPECT_THAT(probe({"log:6:T:\x1b[31mred\x1b[0m \x1b[2Kkept\n"}).err,
              EndsWith("): red \x1b[2Kkept\n"));
}

// The application's output is often several lines long.
TEST_F(LogTest, BeginsEachLineOnTheTerminalAlike) {
  const std::string start = "D/T\\([0-9,]+\\): log.cc: stdOutRedirect\\(44\\) > ";
  EXPECT_THAT(probe({"output:one\ntwo\n\nfour"}).err,
              MatchesRegex(start + "one\n" + start + "two\n" + start + "\n" + start + "four\n"));
  EXPECT_THAT(probe({"log:6:T:plain\nlines\n"}).err,
              MatchesRegex("E/T\\([0-9,]+\\): plain\nE/T\\([0-9,]+\\): lines\n"));
}

TEST_F(LogTest, ShowsTheLastStateOfAProgressLineOnTheTerminal) {
  const std::string start = "D/T\\([0-9,]+\\): log.cc: stdOutRedirect\\(44\\) > ";
  EXPECT_THAT(probe({"output:10%\r20%\r30%\r"}).err, MatchesRegex(start + "30%\n"));
  EXPECT_THAT(probe({"output:a\r\nb\r\n"}).err,
              MatchesRegex(start + "a\n" + start + "b\n" + start + "\n"));
  probe({"output:10%\r20%\r"}, {{"QUILLON_LOG", "json:" + file}});
  EXPECT_THAT(records().at(0)["text"].get<std::string>(), HasSubstr("10%\r20%\r"));
}

TEST_F(LogTest, ColoursEachLineByItselfOnATerminal) {
  Terminal terminal({LOG_PROBE, "output:one\ntwo"}, {"TERM=xterm"});
  EXPECT_EQ(terminal.finish(), 0);
  EXPECT_THAT(terminal.output(),
              MatchesRegex(".*> \x1b\\[0mone\x1b\\[0m\r\nD/T.*> \x1b\\[0mtwo\x1b\\[0m\r\n"));
}

TEST_F(LogTest, KeepsTextAfterANulByte) {
  const std::string expected = std::string("ab\0ab\n", 6);
  EXPECT_THAT(probe({"nul:ab"}, {{"QUILLON_LOG", "terminal"}}).err, EndsWith(expected));
  probe({"nul:ab"}, {{"QUILLON_LOG", "file:" + file}});
  EXPECT_THAT(contentsOf(file), EndsWith(expected));
  std::filesystem::remove(file);
  probe({"nul:ab"}, {{"QUILLON_LOG", "json:" + file}});
  EXPECT_EQ(records().at(0)["text"], expected);
}

TEST_F(LogTest, KeepsWritingToTheTerminalAfterDescriptorTwoIsReplaced) {
  EXPECT_THAT(probe({"replace-stderr", "log:6:T:still here\n"}).err, HasSubstr("still here\n"));
}

TEST_F(LogTest, WritesFileLinesWithTimeAndOneLineBreak) {
  probe({"log:6:TAG:with break\n", "log:4:TAG:without", "log:9:TAG:two\nlines\n"},
        {{"QUILLON_LOG", "file:" + file}});
  const std::string stamp = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} ";
  const std::string process = "\\([0-9]+,[0-9]+\\): ";
  EXPECT_THAT(contentsOf(file),
              MatchesRegex(stamp + "E/TAG" + process + "with break\n" + stamp + "I/TAG" + process +
                           "without\n" + stamp + "\\?/TAG" + process + "two\nlines\n"));
}

TEST_F(LogTest, WritesTheTimeInUtc) {
  probe({"log:6:T:x"}, {{"QUILLON_LOG", "file:" + file}, {"TZ", "Asia/Tokyo"}});
  const time_t now = time(nullptr);
  tm utc{};
  gmtime_r(&now, &utc);
  char day_and_hour[32];
  strftime(day_and_hour, sizeof day_and_hour, "%Y-%m-%d %H:", &utc);
  if (utc.tm_min == 0 && utc.tm_sec < 10) {
    QUILLON_SKIP("the hour changed a moment ago");
  }
  EXPECT_EQ(contentsOf(file).substr(0, 14), day_and_hour);
}

TEST_F(LogTest, WritesExactJson) {
  const std::string text =
      "a \"b\" \\ \t\x01\x7f \x1b[36mcolour\x1b[0m \xc3\xa9 \xf0\x9f\x93\xba\n";
  probe({"log:3:T\"G:" + text}, {{"QUILLON_LOG", "json:" + file}});
  const auto all = records();
  ASSERT_THAT(all, SizeIs(1));
  EXPECT_EQ(all[0]["text"], text);
  EXPECT_EQ(all[0]["tag"], "T\"G");
  EXPECT_EQ(all[0]["priority"], 3);
  EXPECT_EQ(all[0]["id"], 0);
  EXPECT_EQ(all[0]["pid"], all[0]["tid"]);
  EXPECT_LT(std::abs(all[0]["time_us"].get<int64_t>() / 1'000'000 - time(nullptr)), 10);
}

TEST_F(LogTest, ReplacesBytesThatAreNotUtf8) {
  // A lone byte, an overlong form, a surrogate, a value beyond the last plane, a truncated
  // sequence.
  probe({"log:3:T:\xff|\xc0\xaf|\xed\xa0\x80|\xf4\x90\x80\x80|\xe2\x82"},
        {{"QUILLON_LOG", "json:" + file}});
  const std::string r = "\xef\xbf\xbd";
  EXPECT_EQ(records().at(0)["text"],
            r + "|" + r + r + "|" + r + r + r + "|" + r + r + r + r + "|" + r + r);
}

TEST_F(LogTest, WritesTextsOfAnyLength) {
  for (const size_t length : {0, 1, 511, 512, 513, 4096, 1'000'000}) {
    probe({"long:" + std::to_string(length)}, {{"QUILLON_LOG", "json:" + file}});
    EXPECT_EQ(records().back()["text"], std::string(length, 'y')) << length;
  }
}

TEST_F(LogTest, ReportsInvalidValuesInOneLineEachAndUsesDefaults) {
  const Finished ran =
      probe(kThreeLevels, {{"QUILLON_LOG", "printer"}, {"QUILLON_LOG_LEVEL", "x"}});
  EXPECT_THAT(linesOf(ran.err),
              ElementsAre("quillon: QUILLON_LOG='printer' is not understood; it takes terminal, "
                          "journal, file:PATH, json:PATH or none; going on with errors on the "
                          "terminal",
                          "quillon: QUILLON_LOG_LEVEL='x' is not understood; it takes debug, info "
                          "or error; going on with error",
                          EndsWith("): error")));
}

TEST_F(LogTest, ReportsAFileThatCannotBeOpenedAndUsesTheTerminal) {
  const Finished ran = probe(kThreeLevels, {{"QUILLON_LOG", "file:/nowhere/log"}});
  EXPECT_THAT(linesOf(ran.err),
              ElementsAre("quillon: QUILLON_LOG: cannot open the log file '/nowhere/log': No such "
                          "file or directory; going on with errors on the terminal",
                          EndsWith("): error")));
}

TEST_F(LogTest, ReportsThatNoJournalListens) {
  if (access("/run/systemd/journal/socket", F_OK) == 0) {
    QUILLON_SKIP("a journal listens here");
  }
  EXPECT_THAT(linesOf(probe({}, {{"QUILLON_LOG", "journal"}}).err),
              ElementsAre("quillon: QUILLON_LOG=journal: no journal listens at "
                          "/run/systemd/journal/socket; going on with errors on the terminal"));
}

TEST_F(LogTest, WritesCompleteRecordsWhenProcessesAndThreadsShareAFile) {
  constexpr int kProcesses = 8;
  std::vector<std::unique_ptr<Program>> programs;
  for (int i = 0; i < kProcesses; ++i) {
    programs.push_back(
        std::make_unique<Program>(std::vector<std::string>{LOG_PROBE, "threads:4:100"}));
    programs.back()->with("QUILLON_LOG", "json:" + file).start();
  }
  for (const auto& program : programs) {
    EXPECT_EQ(program->finish().status, 0);
  }
  std::map<std::pair<int, int>, int> perThread;
  for (const Json& record : records()) {
    const int next = perThread[{record["pid"], record["tid"]}]++;
    EXPECT_EQ(std::stoi(record["text"].get<std::string>()), next);
  }
  EXPECT_THAT(perThread, SizeIs(kProcesses * 4));
  for (const auto& [thread, count] : perThread) {
    EXPECT_EQ(count, 100);
  }
}

TEST_F(LogTest, LogsInChildrenOfAProcessWithBusyThreads) {
  const Finished ran = probe({"forks:400"}, {{"QUILLON_LOG", "none"}});
  EXPECT_EQ(ran.status, 0);
  EXPECT_THAT(linesOf(ran.out), SizeIs(400));
  EXPECT_THAT(ran.out, Not(HasSubstr("failed")));
}

TEST_F(LogTest, KeepsTheMessageOfTheLastErrorForEverySink) {
  const std::string line = "log:6:QUILLON:a.cc: f(3) > \x1b[31mCannot go on: 7 > 5\x1b[0m\n";
  for (const char* sink : {"none", "terminal"}) {
    const Finished ran =
        probe({line, "log:4:T:later info\n", "last-error"}, {{"QUILLON_LOG", sink}});
    EXPECT_EQ(ran.out, "Cannot go on: 7 > 5\n") << sink;
  }
  EXPECT_EQ(probe({"last-error"}).out, "\n");
}

TEST_F(LogTest, KeepsTheLast16Errors) {
  std::vector<std::string> steps;
  std::string last16;
  for (int i = 0; i < 18; ++i) {
    steps.push_back("log:6:T:a.cc: f(3) > " + std::to_string(i));
    last16 += i < 2 ? "" : std::to_string(i) + "\n";
  }
  steps.insert(steps.end(), {"log:4:T:info", "last-errors"});
  EXPECT_EQ(probe(steps, {{"QUILLON_LOG", "none"}}).out, last16);
  EXPECT_EQ(probe({"last-errors"}).out, "");
}

TEST_F(LogTest, PreservesErrnoAndFormatsIt) {
  const Finished ran = probe({"errno"}, {{"QUILLON_TRACE", file}});
  EXPECT_EQ(ran.out, "kept\n");
  EXPECT_THAT(ran.err, HasSubstr("Argument list too long"));
}

}  // namespace
}  // namespace quillon::test
