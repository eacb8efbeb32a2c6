// The manual pages that the build makes.
#include <gmock/gmock.h>

#include <filesystem>
#include <regex>

#include "quillon/base/files.h"
#include "tests/support/program.h"
#include "tests/support/temporary_directory.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const fs::path kManual = QUILLON_MANUAL_FOLDER;

// Empty if there is no such page.
std::string page(const std::string& name) {
  constexpr std::size_t kLimit = 1 << 20;
  const auto section = "man" + name.substr(name.size() - 1);
  return readWholeFile(kManual / section / name, kLimit).value_or("");
}

TEST(Manual, HasAPageForEachCommand) {
  for (const std::string& line : linesOf(run({QUILLON_COMMAND, "__complete", ""}).out)) {
    const std::string command = line.substr(0, line.find('\t'));
    const std::string section = command == "launchpad" ? ".8" : ".1";
    EXPECT_THAT(page("quillon-" + command + section), StartsWith(".TH ")) << command;
  }
  EXPECT_THAT(page("quillon.1"), StartsWith(".TH \"QUILLON\" 1 "));
}

TEST(Manual, LeavesOutInternalCommands) {
  EXPECT_THAT(page("quillon-launchpad.8"), HasSubstr("quillon launchpad status"));
  EXPECT_THAT(page("quillon-launchpad.8"), Not(HasSubstr("worker")));
}

// The keys that the program names when it refuses a manifest.
std::vector<std::string> keysOf(const std::string& table) {
  const TemporaryDirectory folder;
  writeFile(folder.path() / "x.toml", table + "\nnothing = 1\n");
  const Finished refused = run({QUILLON_COMMAND, "package", "install", "--device",
                                folder.path() / "none", folder.path() / "x.toml"});
  std::smatch keys;
  EXPECT_TRUE(std::regex_search(refused.err, keys, std::regex("the keys here are ([a-z, ]+)")))
      << refused.err;
  std::vector<std::string> words;
  const std::string list = keys[1];
  const std::regex word("[a-z]+");
  for (std::sregex_iterator each(list.begin(), list.end(), word), end; each != end; ++each) {
    words.push_back(each->str());
  }
  return words;
}

TEST(Manual, NamesEveryKeyOfAManifest) {
  const std::string text = page("quillon-package.5");
  const size_t applications = text.find(".SS [[application]]");
  for (const std::string& key : keysOf("[package]\nid = 'x'\nversion = '1'")) {
    EXPECT_THAT(text.substr(0, applications), HasSubstr(".TP\n\\fB" + key + "\\fR\n"));
  }
  for (const std::string& key :
       keysOf("[package]\nid = 'x'\nversion = '1'\n[[application]]\nid = 'x'\nexec = 'x'")) {
    EXPECT_THAT(text.substr(applications), HasSubstr(".TP\n\\fB" + key + "\\fR\n"));
  }
}

}  // namespace
}  // namespace quillon::test
