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
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "bench/launch/launch_pad.h"
#include "bench/launch/launch_tables.h"
#include "bench/launch/place.h"
#include "bench/launch/setup.h"
#include "quillon/base/files.h"
#include "tests/support/temporary_directory.h"

namespace quillon::bench {
namespace {

namespace fs = std::filesystem;

struct Options {
  int rounds = 100;
  int warmUps = 3;
  int memoryRounds = 5;
  // The runtime compiles hot methods of its start-up in the background, when no new method was
  // called for a tenth of a second.
  double wait = 0.25;
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

class Bench {
 public:
  Bench(const Options& options, const Setup& setup);
  // Runs the benchmark and prints the tables. Returns false, after a message, if a contender does
  // not work. Fails if a measurement would be wrong.
  [[nodiscard]] Expected<bool> run();

 private:
  struct Group {
    Application application;
    size_t first;  // of its contenders
    size_t end;
    size_t resolution;
    size_t timedCalls;
    std::vector<Measured> measured;
    std::vector<double> resolutions;
    std::vector<std::pair<std::string, std::vector<double>>> calls;
  };

  void addGroup(const Application& application);
  const Place& placeOf(size_t contender) const;
  [[nodiscard]] Expected<void> startLaunchPad();
  [[nodiscard]] Expected<Run> runIn(size_t contender, Task task);
  [[nodiscard]] Expected<void> measureRounds();
  [[nodiscard]] Expected<void> measureRound(bool keep);
  [[nodiscard]] Expected<void> measureOne(Group& group, size_t contender, bool keep);
  [[nodiscard]] Expected<void> measureMemory();
  [[nodiscard]] Expected<void> measureMemoryOf(Group& group, size_t contender);
  [[nodiscard]] Expected<void> measureLaunchPad();
  static void recordCalls(Group& group, const Run& run);
  bool hasRun(size_t contender, const Run& run);
  void print() const;

  const Options& options_;
  const Setup& setup_;
  std::vector<Contender> contenders_;
  std::vector<Group> groups_;
  std::vector<bool> failed_;
  std::unique_ptr<Place> machine_;
  std::unique_ptr<Place> device_;
  std::unique_ptr<LaunchPad> launchPad_;
  std::vector<Measured> preparation_ = {{"a process that waits"}, {"the launch pad"}};
  std::mt19937 random_{std::random_device{}()};
};

Bench::Bench(const Options& options, const Setup& setup) : options_(options), setup_(setup) {
  for (const Application& application : setup.applications) {
    addGroup(application);
  }
  failed_.resize(contenders_.size());
  machine_ = std::make_unique<Place>(contenders_, fs::path(), std::vector<fs::path>(), Service());
  device_ = std::make_unique<Place>(contenders_, setup.device,
                                    std::vector<fs::path>{setup.work, setup.build},
                                    launchPadFor(setup.quillon(), setup.device));
  launchPad_ = std::make_unique<LaunchPad>(*device_, setup.device,
                                           std::chrono::duration<double>(options.wait));
}

void Bench::addGroup(const Application& application) {
  Group group{application, contenders_.size(), 0, 0, 0, {}, {}, {}};
  for (Contender& contender : contendersOf(setup_, application)) {
    group.measured.push_back({contender.name, {}, {}, contender.aims});
    contenders_.push_back(std::move(contender));
  }
  group.end = contenders_.size();
  group.resolution = contenders_.size();
  contenders_.push_back(stockResolutionOf(setup_, application));
  group.timedCalls = contenders_.size();
  contenders_.push_back(pluginCallsOf(setup_, application));
  groups_.push_back(std::move(group));
}

const Place& Bench::placeOf(size_t contender) const {
  return contenders_[contender].inside ? *device_ : *machine_;
}

// Whether a contender works. Reports a failing contender once; the tables then omit it.
bool Bench::hasRun(size_t contender, const Run& run) {
  const bool timesItself = std::any_of(groups_.begin(), groups_.end(), [&](const Group& group) {
    return contender == group.resolution || contender == group.timedCalls;
  });
  if (run.ready || (timesItself && run.text[0] != '\0')) {
    return true;
  }
  if (!failed_[contender]) {
    std::fprintf(stderr, "bench: '%s' did not come to its output\n",
                 contenders_[contender].name.c_str());
  }
  failed_[contender] = true;
  return false;
}

void Bench::recordCalls(Group& group, const Run& run) {
  std::istringstream lines(run.text.data());
  std::string name;
  for (double microseconds = 0; lines >> name >> microseconds;) {
    const auto known = std::find_if(group.calls.begin(), group.calls.end(),
                                    [&](const auto& one) { return one.first == name; });
    if (known == group.calls.end()) {
      group.calls.push_back({name, {microseconds}});
    } else {
      known->second.push_back(microseconds);
    }
  }
}

Expected<void> Bench::startLaunchPad() {
  std::vector<size_t> prepared;
  for (size_t i = 0; i < contenders_.size(); ++i) {
    if (contenders_[i].pool != Pool::kUnused) {
      prepared.push_back(i);
    }
  }
  return launchPad_->start(prepared);
}

Expected<Run> Bench::runIn(size_t contender, Task task) {
  if (contenders_[contender].pool == Pool::kUnused) {
    return placeOf(contender).run(contender, task);
  }
  return launchPad_->run(contender, contenders_[contender], task);
}

Expected<void> Bench::measureOne(Group& group, size_t contender, bool keep) {
  if (failed_[contender]) {
    return {};
  }
  ASSIGN_OR_RETURN(const Run run, runIn(contender, Task::kTime));
  if (!hasRun(contender, run) || !keep) {
    return {};
  }
  if (contender == group.resolution) {
    group.resolutions.push_back(std::atof(run.text.data()));
  } else if (contender == group.timedCalls) {
    recordCalls(group, run);
  } else {
    group.measured[contender - group.first].seconds.push_back(run.seconds);
  }
  return {};
}

Expected<void> Bench::measureRound(bool keep) {
  std::vector<std::pair<Group*, size_t>> order;
  for (Group& group : groups_) {
    for (size_t i = group.first; i <= group.timedCalls; ++i) {
      order.emplace_back(&group, i);
    }
  }
  std::shuffle(order.begin(), order.end(), random_);
  for (const auto& [group, contender] : order) {
    RETURN_IF_FAILED(measureOne(*group, contender, keep));
  }
  return {};
}

Expected<void> Bench::measureRounds() {
  for (int round = 0; round < options_.warmUps + options_.rounds; ++round) {
    RETURN_IF_FAILED(measureRound(round >= options_.warmUps));
  }
  return {};
}

Expected<void> Bench::measureMemoryOf(Group& group, size_t contender) {
  for (int round = 0; round < options_.memoryRounds && !failed_[contender]; ++round) {
    // Waiting processes share pages with the measured process.
    RETURN_IF_FAILED(launchPad_->fill());
    ASSIGN_OR_RETURN(const Run run, runIn(contender, Task::kMemory));
    if (run.ready) {
      group.measured[contender - group.first].memory.push_back(run.memory);
    }
  }
  return {};
}

Expected<void> Bench::measureMemory() {
  for (Group& group : groups_) {
    for (size_t i = group.first; i < group.end; ++i) {
      RETURN_IF_FAILED(measureMemoryOf(group, i));
    }
  }
  return measureLaunchPad();
}

Expected<void> Bench::measureLaunchPad() {
  for (int round = 0; round < options_.memoryRounds; ++round) {
    ASSIGN_OR_RETURN(const Preparation prepared, launchPad_->prepare());
    for (const Memory& waiting : prepared.waiting) {
      preparation_[0].memory.push_back(waiting);
    }
    preparation_[1].memory.push_back(prepared.launchPad);
  }
  return {};
}

void Bench::print() const {
  printMachine(setup_, options_.rounds);
  for (const Group& group : groups_) {
    printTimes(group.application.title, group.measured);
    printAims(group.application.title, group.measured);
    printCalls(group.application.title, group.calls, group.resolutions);
    printMemory(group.application.title, group.measured);
  }
  printMemory("prepared ahead", preparation_);
}

Expected<bool> Bench::run() {
  RETURN_IF_FAILED(startLaunchPad());
  RETURN_IF_FAILED(measureRounds());
  RETURN_IF_FAILED(measureMemory());
  print();
  return std::find(failed_.begin(), failed_.end(), true) == failed_.end();
}

int tell(const Failure& failure) {
  std::fprintf(stderr, "bench: %s; %s\n", failure.what.c_str(), failure.remedy.c_str());
  return 1;
}

int runBench(const Options& options) {
  cleanEnvironment();
  const test::TemporaryDirectory work;
  const fs::path program = executablePath();
  const auto setup = makeSetup(program.parent_path().parent_path(), work.path());
  if (!setup) {
    return tell(setup.error());
  }
  const auto whole = Bench(options, *setup).run();
  if (!whole) {
    return tell(whole.error());
  }
  return *whole ? 0 : 1;
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
  CLI11_PARSE(app, argc, argv);
  return quillon::bench::runBench(options);
}
