// Compares the two ways in which a launch pad makes its processes: by fork, and by exec (--fresh).
//
// Each way has a launch pad of its own, with a device root of its own. Each round replaces the
// processes of both, one launch pad after the other, in random order.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/launch/launch_pad.h"
#include "bench/launch/place.h"
#include "bench/launch/setup.h"
#include "bench/quantile.h"
#include "quillon/base/files.h"
#include "tests/support/temporary_directory.h"

namespace quillon::bench {
namespace {

namespace fs = std::filesystem;

constexpr double kMilliseconds = 1e3;
constexpr std::chrono::duration<double> kWait{0.25};  // before the memory is read

// The values of each round, the mean over the launch pad's processes.
struct Values {
  std::vector<double> seconds;
  std::vector<double> pssKib;
  std::vector<double> privateKib;
  std::vector<double> launchPadKib;
};

class Way {
 public:
  Way(Setup setup, const std::vector<std::string>& options)
      : setup_(std::move(setup)),
        place_(nothing_, setup_.device, {setup_.work, setup_.build},
               launchPadFor(setup_.quillon(), setup_.device, options)),
        launchPad_(place_, setup_, kWait) {}

  [[nodiscard]] Expected<void> start() const { return launchPad_.start({}); }

  [[nodiscard]] Expected<void> measure() {
    ASSIGN_OR_RETURN(const Preparation prepared, launchPad_.prepare());
    const auto count = static_cast<double>(prepared.waiting.size());
    double pss = 0;
    double own = 0;
    for (const WaitingProcess& process : prepared.waiting) {
      pss += static_cast<double>(process.memory.pssKib);
      own += static_cast<double>(process.memory.privateKib);
    }
    values_.seconds.push_back(prepared.seconds / count);
    values_.pssKib.push_back(pss / count);
    values_.privateKib.push_back(own / count);
    values_.launchPadKib.push_back(static_cast<double>(prepared.launchPad.pssKib));
    return {};
  }

  [[nodiscard]] const Values& values() const { return values_; }

 private:
  const Setup setup_;
  const std::vector<Contender> nothing_;
  const Place place_;
  const LaunchPad launchPad_;
  Values values_;
};

void printRow(const char* name, const Way& fork, const Way& fresh,
              std::vector<double> Values::*field, double scale) {
  const std::vector<double>& one = fork.values().*field;
  const std::vector<double>& other = fresh.values().*field;
  std::vector<double> ratios;
  for (size_t i = 0; i < one.size(); ++i) {
    ratios.push_back(other[i] / one[i]);
  }
  std::printf("%-40s %9.1f %9.1f %7.3f %7.3f %7.3f\n", name, median(one) * scale,
              median(other) * scale, median(ratios), quantile(ratios, 0.1), quantile(ratios, 0.9));
}

void print(const Way& fork, const Way& fresh) {
  std::printf("%-40s %9s %9s %7s %7s %7s\n", "each prepared process", "fork", "--fresh", "ratio",
              "p10", "p90");
  printRow("time to prepare it, ms", fork, fresh, &Values::seconds, kMilliseconds);
  printRow("its memory, PSS KiB", fork, fresh, &Values::pssKib, 1);
  printRow("its private memory, KiB", fork, fresh, &Values::privateKib, 1);
  printRow("the launch pad's memory, PSS KiB", fork, fresh, &Values::launchPadKib, 1);
}

Expected<void> measure(Way& fork, Way& fresh, int rounds) {
  std::mt19937 random{std::random_device{}()};
  std::vector<Way*> order = {&fork, &fresh};
  for (int round = 0; round < rounds; ++round) {
    std::shuffle(order.begin(), order.end(), random);
    for (Way* const way : order) {
      RETURN_IF_FAILED(way->measure());
    }
  }
  return {};
}

Expected<void> runBench(int rounds) {
  const test::TemporaryDirectory work;
  const fs::path build = executablePath().parent_path().parent_path();
  fs::create_directory(work.path() / "fork");
  fs::create_directory(work.path() / "fresh");
  ASSIGN_OR_RETURN(Setup one, makeSetup(build, work.path() / "fork"));
  ASSIGN_OR_RETURN(Setup other, makeSetup(build, work.path() / "fresh"));
  Way fork(std::move(one), {"--type", "inhouse"});
  Way fresh(std::move(other), {"--type", "inhouse", "--fresh"});
  RETURN_IF_FAILED(fork.start());
  RETURN_IF_FAILED(fresh.start());
  RETURN_IF_FAILED(measure(fork, fresh, rounds));
  std::printf("%d rounds in random order\n", rounds);
  print(fork, fresh);
  return {};
}

}  // namespace
}  // namespace quillon::bench

int main(int argc, char** argv) {
  int rounds = 50;
  CLI::App app{"Compares the ways to prepare a process of the launch pad, side by side."};
  app.add_option("--rounds", rounds, "Rounds")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  const auto done = quillon::bench::runBench(rounds);
  if (!done) {
    std::fprintf(stderr, "bench: %s; %s\n", done.error().what.c_str(), done.error().remedy.c_str());
    return 1;
  }
  return 0;
}
