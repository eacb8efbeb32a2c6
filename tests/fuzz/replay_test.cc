// Runs every fuzz target with its committed corpus. Needs no fuzzing compiler.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/fuzz/line_mutator.h"
#include "tests/fuzz/target.h"
#include "tests/support/recording_platform.h"

namespace quillon::fuzz {
namespace {

namespace fs = std::filesystem;

struct Entry {
  const char* name;
  Target target;
};

constexpr Entry kTargets[] = {
#define DECLARE_FUZZ_TARGET(name) {#name, name##_target},
#include "fuzz_targets.inc"
#undef DECLARE_FUZZ_TARGET
};

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// In a buffer of exactly their size, so that a sanitizer reports a read beyond the end.
void give(const std::string& bytes, Target target) {
  const auto exact = std::make_unique<char[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), exact.get());
  test::platform().reset();
  target({exact.get(), bytes.size()});
}

class FuzzCorpus : public ::testing::TestWithParam<Entry> {};

TEST_P(FuzzCorpus, SatisfiesTheRequirementsOfItsTarget) {
  const fs::path folder = fs::path(QUILLON_FUZZ_CORPUS) / GetParam().name;
  ASSERT_TRUE(fs::is_directory(folder)) << "the target has no corpus: " << folder;
  std::size_t inputs = 0;
  for (const auto& input : fs::directory_iterator(folder)) {
    SCOPED_TRACE(input.path().string());
    EXPECT_NO_THROW(give(contentOf(input.path()), GetParam().target));
    ++inputs;
  }
  EXPECT_GE(inputs, 2U) << folder;
}

TEST_P(FuzzCorpus, IsNotNeededForTheEmptyInput) { give("", GetParam().target); }

INSTANTIATE_TEST_SUITE_P(Target, FuzzCorpus, ::testing::ValuesIn(kTargets),
                         [](const auto& entry) { return std::string(entry.param.name); });

TEST(FuzzCorpora, EachBelongToATarget) {
  std::set<std::string> names;
  for (const Entry& entry : kTargets) {
    names.insert(entry.name);
  }
  for (const auto& folder : fs::directory_iterator(QUILLON_FUZZ_CORPUS)) {
    EXPECT_TRUE(names.contains(folder.path().filename().string())) << folder.path();
  }
}

TEST(FuzzRequirement, ReportsItsPositionAndCondition) {
  EXPECT_NO_THROW(FUZZ_REQUIRE(1 + 1 == 2));
  try {
    FUZZ_REQUIRE(1 + 1 == 3);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const Violation& violation) {
    const std::string text = violation.what();
    EXPECT_NE(text.find("replay_test.cc:"), text.npos) << text;
    EXPECT_NE(text.find("does not hold: 1 + 1 == 3"), text.npos) << text;
  }
}

TEST(LineMutator, MakesInputsOfTheLinesThatItKnows) {
  const std::vector<std::string> grammar = {"id = \"a\"", "[x]"};
  std::set<std::string> inputs;
  std::set<std::string> lines;
  for (std::uint32_t seed = 0; seed < 500; ++seed) {
    const std::string mutated = mutateLines("n 1\nt text", grammar, seed);
    EXPECT_EQ(mutated, mutateLines("n 1\nt text", grammar, seed));
    inputs.insert(mutated);
    for (const std::string& line : linesOf(mutated)) {
      lines.insert(line);
    }
  }
  EXPECT_GT(inputs.size(), 100U);
  for (const char* line : {"n 1", "t text", "id = \"a\"", "[x]", "n text", "id = 1", "n \"a\""}) {
    EXPECT_TRUE(lines.contains(line)) << line;
  }
  for (const std::string& line : linesOf(mutateLines("", {"only"}, 1))) {
    EXPECT_EQ(line, "only");
  }
}

TEST(FuzzInput, ConsistsOfLinesAndTheRest) {
  Input input("a\n\nb\nc\nd");
  EXPECT_EQ(input.line(), "a");
  EXPECT_EQ(input.line(), "");
  EXPECT_EQ(input.line(), "b");
  EXPECT_EQ(input.rest(), "c\nd");
  EXPECT_EQ(input.line(), "c");
  EXPECT_EQ(input.line(), "d");
  EXPECT_TRUE(input.atEnd());
  EXPECT_EQ(input.line(), "");
}

}  // namespace
}  // namespace quillon::fuzz
