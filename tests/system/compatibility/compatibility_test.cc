// Real applications in a device root, compared with `dotnet APP.dll`: each prints the same and ends
// the same, directly and through a launch pad, or docs/compatibility.md says what differs.
#include <gmock/gmock.h>
#include <signal.h>

#include <cstdlib>
#include <map>
#include <regex>

#include "quillon/dotnet/runtime_lookup.h"
#include "tests/support/skip.h"
#include "tests/system/compatibility/conversation.h"
#include "tests/system/compatibility/page.h"
#include "tests/system/compatibility/rows.h"
#include "tests/system/launch/ordinary_user.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

using Words = std::vector<std::string>;

const fs::path kCorpus = QUILLON_CORPUS;
const fs::path kPublished = kCorpus / "published";
constexpr char kQuillon[] = QUILLON_BUILD_DIRECTORY "/bin/quillon";
const Words kTypes = {"inhouse", "inhouseapitest", "dotnet", "normal"};
constexpr char kPackage[] = "org.velora.corpus";
constexpr char kDirectPrefix[] = "quillon: launched directly, not by the launch pad: ";

// Writes the page when all tests have ended, if the environment asks for it.
class Page : public ::testing::Environment {
 public:
  static Page& instance() {
    // gtest deletes it.
    static Page* const page = static_cast<Page*>(::testing::AddGlobalTestEnvironment(new Page));
    return *page;
  }

  [[nodiscard]] bool isWritten() const { return isWritten_; }
  void add(const std::string& row, const std::string& line) { lines_[row] = line; }

  void TearDown() override {
    std::vector<std::string> lines;
    for (const Row& row : compatibilityRows()) {
      if (const auto line = lines_.find(row.name); line != lines_.end()) {
        lines.push_back(line->second);
      }
    }
    if (isWritten_ && lines.size() == compatibilityRows().size()) {
      writePage(lines);
    }
  }

 private:
  // Read here, because the tests unset the launcher's variables.
  const bool isWritten_ = std::getenv("QUILLON_WRITE_COMPATIBILITY") != nullptr;
  std::map<std::string, std::string> lines_;
};

Page& kPage = Page::instance();

class Compatibility : public LaunchpadTest, public ::testing::WithParamInterface<Row> {
 protected:
  void SetUp() override {
    if (fs::exists(kCorpus / "unavailable")) {
      QUILLON_SKIP("the corpus is not built: " << contentOf(kCorpus / "unavailable"));
    }
    LaunchpadTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    signal(SIGPIPE, [](int) {});  // a program may end before it has read its input
    install();
    start(1);
  }

  // Makes a package of the published application.
  void install() {
    fs::copy(kPublished / row_.folder, files_, fs::copy_options::recursive);
    if (!row_.runtimeConfig.empty()) {
      fs::path config = files_ / row_.executable;
      write(config.replace_extension("runtimeconfig.json"), row_.runtimeConfig);
    }
    const fs::path manifest = fresh("corpus.toml");
    write(manifest, "[package]\nid = \"" + std::string(kPackage) +
                        "\"\nversion = \"1\"\n"
                        "privileges = [\"/privilege/internal/default/platform\"]\n"
                        "files = \"files\"\n[[application]]\nid = \"" +
                        kPackage + "\"\nexec = \"" + row_.executable + "\"\n");
    const CommandResult installed =
        run({kQuillon, "package", "install", "--device", root(), manifest});
    ASSERT_EQ(installed.status, 0) << installed.err;
  }

  CommandResult runUnderDotnet() {
    const fs::path dotnet = fs::canonical(QUILLON_DOTNET);
    Words command = {files_ / row_.executable};
    if (row_.executable.ends_with(".dll")) {
      command.insert(command.begin(), dotnet);
    }
    const fs::path home = fresh("home");
    const fs::path temporary = fresh("temporary");
    fs::create_directory(home);
    fs::create_directory(temporary);
    return converse(command, temporary,
                    {"HOME=" + home.string(), "TMPDIR=" + temporary.string(),
                     "DOTNET_ROOT=" + dotnet.parent_path().string()});
  }

  CommandResult launchAs(const std::string& type) {
    Words command = {kQuillon, "launch", "--device", root(), "--raw", "--type", type};
    if (!row_.onTerminal) {
      command.emplace_back("--verbose");
    }
    command.insert(command.end(), {kPackage, "--"});
    // In a device root this home directory is read-only.
    return converse(command, root() / "tmp",
                    {"HOME=" + kCorpus.string(), "QUILLON_LOG=none", kRuntimeSanitizerOptions});
  }

  // Runs the application under dotnet and launches it as each of the types, and returns the line of
  // the table.
  std::string compareAll(const Words& types) {
    const CommandResult stock = runUnderDotnet();
    EXPECT_EQ(stock.status, row_.status) << stock.out << stock.err;
    EXPECT_THAT(stock.out, HasSubstr(row_.prints)) << stock.err;
    const Cells cells = launchAll(stock, types);
    const bool isEqual = cells.direct == kEqual && cells.prepared == kEqual;
    EXPECT_EQ(isEqual, row_.difference.empty())
        << "direct: " << cells.direct << "\nprepared: " << cells.prepared;
    return tableLine({row_.application, std::to_string(stock.status), cells.direct, cells.prepared,
                      row_.difference});
  }

  static void expectOnPage(const std::string& line) {
    EXPECT_THAT(linesOfPage(), ::testing::Contains(line))
        << "docs/compatibility.md has another line; scripts/compatibility writes it anew";
  }

  const Row& row() const { return row_; }

 private:
  // Cells of the table for launches of all types, direct and prepared.
  struct Cells {
    std::string direct;
    std::string prepared;
  };
  Cells launchAll(const CommandResult& stock, const Words& types) {
    std::vector<TypeResult> direct;
    std::vector<TypeResult> prepared;
    for (const std::string& type : types) {
      direct.push_back({type, cell(stock, launchAs(type))});  // no process is ready for it
      const bool isRefused = direct.back().cell.starts_with("refused");
      EXPECT_TRUE(isRefused || awaitProcesses("ready", direct.size())) << status() << errors();
      prepared.push_back({type, preparedCell(stock, type)});
    }
    Cells cells = {merge(direct), merge(prepared)};
    if (cells.prepared == cells.direct && cells.direct != kEqual) {
      cells.prepared = "the same";
    }
    return cells;
  }

  CommandResult converse(Words command, const fs::path& temporaryFiles, Words environment) {
    command.insert(command.end(), row_.arguments.begin(), row_.arguments.end());
    environment.emplace_back("CORPUS_VARIABLE=set");
    const auto trace = [&](pid_t process) { return traceOf(process, temporaryFiles); };
    CommandResult result =
        hold({command, environment, kPublished / row_.folder, row_.steps, row_.onTerminal, trace});
    result.out = std::regex_replace(result.out, std::regex("process [0-9]+"), "process N");
    return result;
  }

  // Attaches dotnet-trace to a process whose diagnostic socket is in that folder.
  std::string traceOf(pid_t process, const fs::path& temporaryFiles) const {
    const fs::path file = fresh("trace");
    const CommandResult traced =
        run({QUILLON_DOTNET, kPublished / "dotnet-trace/dotnet-trace.dll", "collect",
             "--process-id", std::to_string(process), "--duration", "00:00:00:01", "--format",
             "NetTrace", "--output", file},
            {"TMPDIR=" + temporaryFiles.string(), "HOME=" + fresh("").string()});
    const bool isTrace = contentOf(file).starts_with("Nettrace");
    fs::remove(file);
    return "dotnet-trace ended with " + std::to_string(traced.status) +
           (isTrace ? "; it has written a trace\n" : "; it has written no trace\n");
  }

  // On a terminal a launch says why it is direct.
  static CommandResult withoutReason(CommandResult launched) {
    if (const size_t at = launched.out.find(kDirectPrefix); at != std::string::npos) {
      launched.out.erase(at, launched.out.find('\n', at) + 1 - at);
    }
    return launched;
  }

  // Without what depends on the machine and the test.
  std::string cell(const CommandResult& stock, const CommandResult& launched) const {
    const std::string text = std::regex_replace(compare(stock, withoutReason(launched)),
                                                std::regex(root().string()), "DEVICE");
    return std::regex_replace(text, std::regex(dotnet::findFramework()->version), "VERSION");
  }

  std::string preparedCell(const CommandResult& stock, const std::string& type) {
    const int before = served();
    const CommandResult launched = launchAs(type);
    std::string text = cell(stock, launched);
    if (served() == before && !text.starts_with("refused")) {
      const size_t at = launched.err.find(kDirectPrefix);
      const std::string reason =
          at == std::string::npos
              ? ""
              : launched.err.substr(at + sizeof kDirectPrefix - 1,
                                    launched.err.find('\n', at) - at - sizeof kDirectPrefix + 1);
      text += ", launched directly: " + reason;
    }
    return text;
  }

  const Row& row_ = GetParam();
  const fs::path files_ = fresh("files");
};

TEST_P(Compatibility, RunsAsUnderDotnet) {
  const std::string line = compareAll(row().oneType ? Words{"inhouse"} : kTypes);
  kPage.add(row().name, line);
  if (!kPage.isWritten()) {
    expectOnPage(line);
  }
}

using OrdinaryUsersCompatibility = AsOrdinaryUser<Compatibility>;

TEST_P(OrdinaryUsersCompatibility, IsThatOfRoot) { expectOnPage(compareAll({"inhouse"})); }

std::string nameOf(const ::testing::TestParamInfo<Row>& row) { return row.param.name; }

INSTANTIATE_TEST_SUITE_P(Rows, Compatibility, ::testing::ValuesIn(compatibilityRows()), nameOf);
INSTANTIATE_TEST_SUITE_P(Rows, OrdinaryUsersCompatibility, ::testing::ValuesIn(compatibilityRows()),
                         nameOf);

TEST(CompatibilityPage, HasOneLineForEachRow) {
  EXPECT_EQ(linesOfPage().size(), compatibilityRows().size());
}

}  // namespace
}  // namespace quillon::test
