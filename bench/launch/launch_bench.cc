// Compares the ways to start a managed application: the time from the request to the application's
// first output.
//
// Each round runs every contender once, in a new random order. All run with warm caches inside one
// device root that was entered before, unless their name states otherwise. The benchmark writes
// only to its own folder.
#include <CLI/CLI.hpp>
#include <linux/close_range.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "bench/launch/cold.h"
#include "bench/launch/launch_tables.h"
#include "bench/launch/parts.h"
#include "bench/launch/place.h"
#include "bench/launch/setup.h"
#include "bench/launch/site.h"
#include "quillon/base/files.h"
#include "tests/support/temporary_directory.h"

namespace quillon::bench {
namespace {

namespace fs = std::filesystem;

struct Options {
  int rounds = 100;
  int warmUps = 3;
  int memoryRounds = 5;
  int coldRounds = 0;
  // The runtime compiles hot methods of its start-up in the background, when no new method was
  // called for a tenth of a second.
  double wait = 0.25;
  std::vector<std::string> only;          // parts of names of rows; empty for all
  std::vector<std::string> applications;  // parts of titles; empty for all
  fs::path against;                       // an older build folder; empty for none
  fs::path parts;                         // the folder for the steps of launches; empty for none
};

// Clears variables that change how a runtime starts: they would affect only some contenders.
void cleanEnvironment() {
  for (const char* name : {"QUILLON_LOG", "QUILLON_LOG_LEVEL", "QUILLON_TRACE", "DOTNET_ROOT",
                           "DOTNET_STARTUP_HOOKS", "DOTNET_TieredCompilation", "DOTNET_TieredPGO",
                           "DOTNET_ReadyToRun", "DOTNET_EnableDiagnostics", "LD_PRELOAD"}) {
    unsetenv(name);
  }
  // Contenders must not inherit descriptors or ignored signals from a build server.
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  for (int signal = 1; signal < NSIG; ++signal) {
    ::signal(signal, SIG_DFL);
  }
}

// A contender, the same one of the older build, and their values.
struct Row {
  size_t contender;
  std::optional<size_t> older;
  Measured measured;
};

// The rows of one application.
struct Group {
  std::string title;
  std::vector<Row> rows;
};

// Values in the order of `kinds`, for each kind the memory of its processes.
void recordMemory(std::vector<Measured>& kinds, const std::string& name, const Memory& memory) {
  auto kind = std::find_if(kinds.begin(), kinds.end(),
                           [&](const Measured& one) { return one.name == name; });
  if (kind == kinds.end()) {
    kind = kinds.insert(kinds.end(), {name});
  }
  kind->memory.push_back(memory);
}

void recordCalls(Calls& calls, const Run& run) {
  std::istringstream lines(run.text.data());
  std::string name;
  for (double microseconds = 0; lines >> name >> microseconds;) {
    const auto known = std::find_if(calls.begin(), calls.end(),
                                    [&](const auto& one) { return one.first == name; });
    if (known == calls.end()) {
      calls.push_back({name, {microseconds}});
    } else {
      known->second.push_back(microseconds);
    }
  }
}

// The type and the capture of a pool's description, without the runtime's settings.
std::string shortened(const std::string& pool) {
  return "waiting: " + pool.substr(0, pool.find(',', pool.find(',') + 1));
}

std::string kindOf(const Setup& setup) {
  return std::string(setup.workers == Workers::kOwn ? ", own workers" : "") +
         (setup.build == setup.ownBuild ? "" : ", the older build");
}

bool containsAny(const std::string& text, const std::vector<std::string>& parts) {
  return parts.empty() || std::any_of(parts.begin(), parts.end(), [&](const std::string& part) {
           return text.find(part) != text.npos;
         });
}

class Bench {
 public:
  // older  the setups of the older build; their rows are timed beside those of `setups`
  Bench(const Options& options, const std::vector<Setup>& setups, const std::vector<Setup>& older);
  // Runs the benchmark and prints the tables. Returns false, after a message, if a contender does
  // not work. Fails if a measurement would be wrong.
  [[nodiscard]] Expected<bool> run();

 private:
  std::vector<Contender> selected(const Setup& setup, const Application& application) const;
  void addRows(const Setup& setup);
  void addOlder(const Setup& setup);
  void addSite(const Setup& setup);
  [[nodiscard]] Expected<void> startLaunchPads();
  [[nodiscard]] Expected<Run> runIn(size_t contender, Task task);
  [[nodiscard]] Expected<void> measureRounds();
  [[nodiscard]] Expected<void> measureRound(bool keep);
  [[nodiscard]] Expected<void> measureRow(Row& row, bool keep);
  [[nodiscard]] Expected<void> measureOne(Row& row, bool older, bool keep);
  [[nodiscard]] Expected<void> measureMemory();
  [[nodiscard]] Expected<void> measureMemoryOf(Row& row);
  [[nodiscard]] Expected<void> measureLaunchPads();
  bool hasRun(size_t contender, const Run& run);
  void exclude(size_t contender, const std::string& why);
  void print() const;

  const Options& options_;
  std::vector<Setup> setups_;
  std::vector<Contender> contenders_;
  std::vector<Group> groups_;
  std::vector<bool> failed_;
  std::unique_ptr<Place> machine_;
  std::vector<std::unique_ptr<Site>> sites_;
  std::vector<Measured> preparation_;
  std::mt19937 random_{std::random_device{}()};
};

Bench::Bench(const Options& options, const std::vector<Setup>& setups,
             const std::vector<Setup>& older)
    : options_(options) {
  for (const Setup& setup : setups) {
    addRows(setup);
  }
  for (const Setup& setup : older) {
    addOlder(setup);
  }
  failed_.resize(contenders_.size());
  machine_ = std::make_unique<Place>(contenders_, fs::path(), std::vector<fs::path>(), Service());
  for (const Setup& setup : setups_) {
    sites_.push_back(
        std::make_unique<Site>(setup, contenders_, std::chrono::duration<double>(options.wait)));
  }
}

std::vector<Contender> Bench::selected(const Setup& setup, const Application& application) const {
  std::vector<Contender> all;
  if (!containsAny(application.title, options_.applications)) {
    return all;
  }
  for (Contender& contender : contendersOf(setup, application)) {
    if (contender.name == kStockHost || containsAny(contender.name, options_.only)) {
      contender.site = setups_.size();
      all.push_back(std::move(contender));
    }
  }
  return all;
}

void Bench::addRows(const Setup& setup) {
  for (size_t i = 0; i < setup.applications.size(); ++i) {
    if (groups_.size() <= i) {
      groups_.push_back({setup.applications[i].title, {}});
    }
    for (Contender& contender : selected(setup, setup.applications[i])) {
      groups_[i].rows.push_back(
          {contenders_.size(), std::nullopt, {contender.name, {}, {}, {}, {}, {}, contender.aims}});
      contenders_.push_back(std::move(contender));
    }
  }
  setups_.push_back(setup);
}

void Bench::addOlder(const Setup& setup) {
  for (size_t i = 0; i < setup.applications.size(); ++i) {
    for (Contender& contender : selected(setup, setup.applications[i])) {
      for (Row& row : groups_[i].rows) {
        if (contender.usesBuild && row.measured.name == contender.name) {
          row.older = contenders_.size();
          contenders_.push_back(contender);
        }
      }
    }
  }
  setups_.push_back(setup);
}

// Reports a contender that does not work once; the tables omit its further values.
void Bench::exclude(size_t contender, const std::string& why) {
  if (!failed_[contender]) {
    std::fprintf(stderr, "bench: '%s' of %s %s\n", contenders_[contender].name.c_str(),
                 setups_[contenders_[contender].site].build.c_str(), why.c_str());
  }
  failed_[contender] = true;
}

bool Bench::hasRun(size_t contender, const Run& run) {
  if (run.ready || (contenders_[contender].timesItself && run.text[0] != '\0')) {
    return true;
  }
  exclude(contender, "did not come to its output");
  return false;
}

Expected<void> Bench::startLaunchPads() {
  for (size_t site = 0; site < sites_.size(); ++site) {
    std::vector<size_t> prepared;
    for (size_t i = 0; i < contenders_.size(); ++i) {
      if (contenders_[i].site == site && contenders_[i].pool != Pool::kUnused) {
        prepared.push_back(i);
      }
    }
    RETURN_IF_FAILED(sites_[site]->launchPad().start(prepared));
  }
  return {};
}

Expected<Run> Bench::runIn(size_t contender, Task task) {
  const Contender& what = contenders_[contender];
  const Site& site = *sites_[what.site];
  if (what.pool != Pool::kUnused) {
    return site.launchPad().run(contender, what, task);
  }
  return (what.inside ? site.place() : *machine_).run(contender, task);
}

// A row of the older build may fail, for example because its launch pad understands other messages.
Expected<void> Bench::measureOne(Row& row, bool older, bool keep) {
  const size_t contender = older ? *row.older : row.contender;
  if (failed_[contender]) {
    return {};
  }
  const Expected<Run> run = runIn(contender, Task::kTime);
  if (!run && older) {
    exclude(contender, "failed: " + run.error().what);
    return {};
  }
  RETURN_IF_FAILED(run);
  if (!hasRun(contender, *run) || !keep) {
    return {};
  }
  if (contenders_[contender].timesItself) {
    recordCalls(older ? row.measured.olderCalls : row.measured.calls, *run);
  } else {
    (older ? row.measured.older : row.measured.seconds).push_back(run->seconds);
  }
  return {};
}

// Runs the same row of both builds one after the other, so that the machine is in the same state.
Expected<void> Bench::measureRow(Row& row, bool keep) {
  std::vector<bool> builds = {false};
  if (row.older) {
    builds.push_back(true);
  }
  std::shuffle(builds.begin(), builds.end(), random_);
  for (const bool older : builds) {
    RETURN_IF_FAILED(measureOne(row, older, keep));
  }
  return {};
}

Expected<void> Bench::measureRound(bool keep) {
  std::vector<Row*> order;
  for (Group& group : groups_) {
    for (Row& row : group.rows) {
      order.push_back(&row);
    }
  }
  std::shuffle(order.begin(), order.end(), random_);
  for (Row* const row : order) {
    RETURN_IF_FAILED(measureRow(*row, keep));
  }
  return {};
}

Expected<void> Bench::measureRounds() {
  for (int round = 0; round < options_.warmUps + options_.rounds; ++round) {
    RETURN_IF_FAILED(measureRound(round >= options_.warmUps));
  }
  return {};
}

// Not on a terminal: it has no end of input, and its end may kill the application by SIGHUP, and
// with it the process that has requested the launch.
Expected<void> Bench::measureMemoryOf(Row& row) {
  if (contenders_[row.contender].timesItself || contenders_[row.contender].onTerminal) {
    return {};
  }
  for (int round = 0; round < options_.memoryRounds && !failed_[row.contender]; ++round) {
    // Waiting processes share pages with the measured process.
    RETURN_IF_FAILED(sites_[contenders_[row.contender].site]->launchPad().fill());
    ASSIGN_OR_RETURN(const Run run, runIn(row.contender, Task::kMemory));
    if (run.ready) {
      row.measured.memory.push_back(run.memory);
    }
  }
  return {};
}

Expected<void> Bench::measureMemory() {
  for (Group& group : groups_) {
    for (Row& row : group.rows) {
      RETURN_IF_FAILED(measureMemoryOf(row));
    }
  }
  return measureLaunchPads();
}

Expected<void> Bench::measureLaunchPads() {
  for (const auto& site : sites_) {
    const std::string kind = kindOf(site->setup());
    for (int round = 0; round < options_.memoryRounds; ++round) {
      ASSIGN_OR_RETURN(const Preparation prepared, site->launchPad().prepare());
      for (const WaitingProcess& waiting : prepared.waiting) {
        recordMemory(preparation_, shortened(waiting.pool) + kind, waiting.memory);
      }
      recordMemory(preparation_, "the launch pad" + kind, prepared.launchPad);
    }
  }
  return {};
}

void Bench::print() const {
  printMachine(setups_.front(), options_.rounds);
  for (const Group& group : groups_) {
    std::vector<Measured> rows;
    for (const Row& row : group.rows) {
      rows.push_back(row.measured);
    }
    printGroup(group.title, rows);
  }
  printMemory("prepared ahead", preparation_);
}

Expected<bool> Bench::run() {
  RETURN_IF_FAILED(startLaunchPads());
  RETURN_IF_FAILED(measureRounds());
  RETURN_IF_FAILED(measureMemory());
  print();
  return std::find(failed_.begin(), failed_.end(), true) == failed_.end();
}

int tell(const Failure& failure) {
  std::fprintf(stderr, "bench: %s; %s\n", failure.what.c_str(), failure.remedy.c_str());
  return 1;
}

// One setup for each kind of launch pad that the build has.
Expected<std::vector<Setup>> makeSetups(const fs::path& build, const fs::path& work) {
  std::vector<Setup> setups;
  ASSIGN_OR_RETURN(Setup generic, makeSetup(build, work / "generic"));
  setups.push_back(std::move(generic));
  if (hasOwnWorkers(build)) {
    ASSIGN_OR_RETURN(Setup own, makeSetup(build, work / "own", Workers::kOwn));
    setups.push_back(std::move(own));
  }
  return setups;
}

Expected<void> runCold(const Options& options, const fs::path& work) {
  if (options.coldRounds == 0) {
    return {};
  }
  if (!canDropCaches()) {
    std::fprintf(stderr, "bench: no cold launches: only root may drop the page cache\n");
    return {};
  }
  const fs::path against = options.against.empty() ? fs::path() : fs::absolute(options.against);
  return measureCold({options.coldRounds, options.wait, against}, work);
}

Expected<bool> runBench(const Options& options) {
  cleanEnvironment();
  const test::TemporaryDirectory work;
  const fs::path build = executablePath().parent_path().parent_path();
  ASSIGN_OR_RETURN(const std::vector<Setup> setups, makeSetups(build, work.path()));
  if (!options.parts.empty()) {
    RETURN_IF_FAILED(measureParts({options.rounds, options.wait, options.parts}, setups));
    return true;
  }
  std::vector<Setup> older;
  if (!options.against.empty()) {
    fs::create_directory(work.path() / "older");
    ASSIGN_OR_RETURN(older, makeSetups(fs::absolute(options.against), work.path() / "older"));
  }
  ASSIGN_OR_RETURN(const bool whole, options.rounds == 0 ? Expected<bool>(true)
                                                         : Bench(options, setups, older).run());
  RETURN_IF_FAILED(runCold(options, work.path()));
  return whole;
}

}  // namespace
}  // namespace quillon::bench

int main(int argc, char** argv) {
  quillon::bench::Options options;
  CLI::App app{"Times the ways to start a managed application, side by side."};
  app.add_option("--rounds", options.rounds, "Rounds that count")->capture_default_str();
  app.add_option("--warm-ups", options.warmUps, "Rounds before them")->capture_default_str();
  app.add_option("--memory-rounds", options.memoryRounds, "Looks at each one's memory")
      ->capture_default_str();
  app.add_option("--wait", options.wait, "Seconds that prepared processes have waited")
      ->capture_default_str();
  app.add_option("--only", options.only, "Rows whose names contain TEXT, and dotnet APP.dll")
      ->type_name("TEXT");
  app.add_option("--application", options.applications, "Applications whose titles contain TEXT")
      ->type_name("TEXT");
  app.add_option("--against", options.against,
                 "Build folder of an older version. Times its rows in the same rounds")
      ->check(CLI::ExistingDirectory);
  app.add_option(
         "--parts", options.parts,
         "Only write where launches go, to launch-speed.md and launch-parts.svg of a folder")
      ->check(CLI::ExistingDirectory)
      ->type_name("DOCS");
  app.add_option("--cold", options.coldRounds,
                 "Rounds of cold launches: root drops the page cache before each")
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  const auto whole = quillon::bench::runBench(options);
  return whole ? (*whole ? 0 : 1) : quillon::bench::tell(whole.error());
}
