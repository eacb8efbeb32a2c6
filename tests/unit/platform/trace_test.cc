#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <map>
#include <memory>

#include "tests/support/program.h"
#include "tests/support/temporary_directory.h"

namespace quillon::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Json = nlohmann::json;

class TraceTest : public ::testing::Test {
 protected:
  Finished probe(std::vector<std::string> steps) {
    steps.insert(steps.begin(), LOG_PROBE);
    return run(steps, {{"QUILLON_TRACE", file}, {"QUILLON_LOG", "none"}});
  }
  // Trace viewers accept a missing closing bracket; the JSON parser does not.
  Json events() {
    std::string text = contentsOf(file);
    EXPECT_TRUE(text.starts_with("[\n")) << text;
    const size_t comma = text.rfind(',');
    return Json::parse(comma == std::string::npos ? text + "]" : text.substr(0, comma) + "]");
  }
  std::vector<std::string> phases() {
    std::vector<std::string> all;
    for (const Json& event : events()) {
      all.push_back(event["ph"].get<std::string>() + event.value("name", std::string()));
    }
    return all;
  }

  TemporaryDirectory folder;
  const std::string file = (folder.path() / "trace.json").string();
};

TEST_F(TraceTest, WritesSpansAndMarkersInOrder) {
  probe({"begin:outer %d \"x\"", "marker:milestone", "begin:inner", "end", "end"});
  EXPECT_THAT(phases(), ElementsAre("Bouter %d \"x\"", "imilestone", "Binner", "E", "E"));
  double before = 0;
  for (const Json& event : events()) {
    EXPECT_GE(event["ts"].get<double>(), before);
    before = event["ts"];
    EXPECT_EQ(event["pid"], event["tid"]);
  }
  EXPECT_EQ(events()[1]["cat"], "marker");
}

TEST_F(TraceTest, WritesNoEndWithoutABegin) {
  probe({"end", "begin:only", "end", "end"});
  EXPECT_THAT(phases(), ElementsAre("Bonly", "E"));
}

TEST_F(TraceTest, AForkedChildDoesNotEndItsParentsSpans) {
  probe({"fork-in-span"});
  EXPECT_THAT(phases(), ElementsAre("Bparent's", "Bchild's", "E", "E"));
}

TEST_F(TraceTest, WritesAnEmptyArrayForAProcessWithoutEvents) {
  probe({});
  EXPECT_THAT(events(), IsEmpty());
}

TEST_F(TraceTest, BeginsTheArrayInAnExistingEmptyFile) {
  writeFile(file, "");
  probe({"marker:m"});
  EXPECT_THAT(phases(), ElementsAre("im"));
}

TEST_F(TraceTest, ManyProcessesShareAFile) {
  std::vector<std::unique_ptr<Program>> programs;
  for (int i = 0; i < 8; ++i) {
    std::vector<std::string> command = {LOG_PROBE};
    for (int j = 0; j < 100; ++j) {
      command.insert(command.end(), {"begin:s", "end"});
    }
    programs.push_back(std::make_unique<Program>(command));
    programs.back()->with("QUILLON_TRACE", file).start();
  }
  for (const auto& program : programs) {
    EXPECT_EQ(program->finish().status, 0);
  }
  std::map<int, int> perProcess;
  for (const Json& event : events()) {
    ++perProcess[event["pid"]];
  }
  EXPECT_THAT(perProcess, SizeIs(8));
  for (const auto& [process, count] : perProcess) {
    EXPECT_EQ(count, 200);
  }
}

TEST_F(TraceTest, ReportsAFileThatCannotBeWritten) {
  const Finished ran = run({LOG_PROBE, "begin:x", "end"}, {{"QUILLON_TRACE", "/nowhere/t"}});
  EXPECT_EQ(ran.err,
            "quillon: QUILLON_TRACE: cannot write the trace file '/nowhere/t': No such file or "
            "directory; going on without a trace\n");
  EXPECT_EQ(ran.status, 0);
}

TEST_F(TraceTest, EveryPrctlReachesTheKernel) {
  EXPECT_EQ(probe({"name:DN_example"}).out, "DN_example\n");
  EXPECT_EQ(probe({"bad-prctl"}).out, "-1 1\n-1 1\n");
}

}  // namespace
}  // namespace quillon::test
