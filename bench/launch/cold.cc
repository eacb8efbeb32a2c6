#include "bench/launch/cold.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <random>
#include <string>

#include "bench/launch/launch_tables.h"
#include "bench/launch/setup.h"
#include "bench/launch/site.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"
#include "quillon/dotnet/runtime_lookup.h"

namespace quillon::bench {
namespace {

namespace fs = std::filesystem;

constexpr char kDropCaches[] = "/proc/sys/vm/drop_caches";
constexpr std::array kRows = {kStockHost, kBareHost, kDirectLaunch, kPreparedMessage};
constexpr int kWarmUps = 2;
constexpr double kAim = 0.7;

// Clean pages only can be dropped, so files are written first.
Expected<void> dropCaches() {
  sync();
  const Descriptor file(open(kDropCaches, O_WRONLY | O_CLOEXEC));
  if (file && writeAll(file.get(), "3\n")) {
    return {};
  }
  return fail("the page cache cannot be dropped", "run the benchmark as root");
}

// Copies what `dotnet APP.dll` and a launch need of .NET, and makes it the .NET of this process and
// its children.
Expected<void> copyDotnet(const fs::path& copy) {
  ASSIGN_OR_RETURN(const auto framework, dotnet::findFramework());
  const fs::path root = framework.directory.parent_path().parent_path().parent_path();
  const fs::path shared = framework.directory.lexically_relative(root);
  std::error_code error;
  for (const fs::path& part : {fs::path("dotnet"), fs::path("host"), shared}) {
    fs::create_directories((copy / part).parent_path(), error);
    fs::copy(root / part, copy / part, fs::copy_options::recursive, error);
    if (error) {
      return fail("cannot copy '" + (root / part).string() + "': " + error.message(),
                  "make room in '" + copy.string() + "'");
    }
  }
  setenv("QUILLON_DOTNET_ROOT", copy.c_str(), 1);
  return {};
}

class Cold {
 public:
  Cold(const ColdOptions& options, const std::vector<Setup>& setups);
  [[nodiscard]] Expected<void> run();

 private:
  struct Row {
    std::vector<size_t> contenders;  // one of each build
    Measured measured;
  };

  void addRows(const Setup& setup, bool older);
  [[nodiscard]] Expected<void> measure(Row& row, bool keep);
  [[nodiscard]] Expected<Run> launch(size_t contender);

  const ColdOptions& options_;
  const std::vector<Setup>& setups_;
  std::vector<Contender> contenders_;
  std::vector<Row> rows_;
  std::vector<std::unique_ptr<Place>> places_;  // without a launch pad, whose processes map files
  std::mt19937 random_{std::random_device{}()};
};

Cold::Cold(const ColdOptions& options, const std::vector<Setup>& setups)
    : options_(options), setups_(setups) {
  for (size_t i = 0; i < setups.size(); ++i) {
    addRows(setups[i], i > 0);
  }
  for (const Setup& setup : setups) {
    places_.push_back(std::make_unique<Place>(
        contenders_, setup.device, std::vector<fs::path>{setup.work, setup.build, setup.ownBuild},
        Service()));
  }
}

void Cold::addRows(const Setup& setup, bool older) {
  for (Contender& contender : contendersOf(setup, setup.applications.front())) {
    if (std::find(kRows.begin(), kRows.end(), contender.name) == kRows.end()) {
      continue;
    }
    contender.site = older ? 1 : 0;
    if (!older) {
      rows_.push_back({{contenders_.size()}, {contender.name}});
      if (contender.name == kDirectLaunch) {
        rows_.back().measured.aims = {{kStockHost, kAim}};
      }
    } else if (contender.usesBuild) {
      const auto row = std::find_if(rows_.begin(), rows_.end(), [&](const Row& one) {
        return one.measured.name == contender.name;
      });
      row->contenders.push_back(contenders_.size());
    }
    contenders_.push_back(std::move(contender));
  }
}

Expected<Run> Cold::launch(size_t contender) {
  const Contender& what = contenders_[contender];
  if (what.pool == Pool::kUnused) {
    RETURN_IF_FAILED(dropCaches());
    return places_[what.site]->run(contender, Task::kTime);
  }
  const Site site(setups_[what.site], contenders_, std::chrono::duration<double>(options_.wait));
  RETURN_IF_FAILED(site.launchPad().start({contender}));
  RETURN_IF_FAILED(site.launchPad().fill());
  RETURN_IF_FAILED(dropCaches());
  return site.launchPad().run(contender, what, Task::kTime);
}

Expected<void> Cold::measure(Row& row, bool keep) {
  std::shuffle(row.contenders.begin(), row.contenders.end(), random_);
  for (const size_t contender : row.contenders) {
    ASSIGN_OR_RETURN(const Run run, launch(contender));
    if (!run.ready) {
      return fail("'" + row.measured.name + "' did not come to its output",
                  "try it without --cold");
    }
    if (keep) {
      (contenders_[contender].site == 0 ? row.measured.seconds : row.measured.older)
          .push_back(run.seconds);
    }
  }
  return {};
}

Expected<void> Cold::run() {
  for (int round = -kWarmUps; round < options_.rounds; ++round) {
    std::vector<Row*> order;
    for (Row& row : rows_) {
      order.push_back(&row);
    }
    std::shuffle(order.begin(), order.end(), random_);
    for (Row* const row : order) {
      RETURN_IF_FAILED(measure(*row, round >= 0));
    }
  }
  std::vector<Measured> measured;
  for (const Row& row : rows_) {
    measured.push_back(row.measured);
  }
  printMachine(setups_.front(), options_.rounds);
  printGroup("cold: page cache dropped", measured);
  return {};
}

}  // namespace

bool canDropCaches() { return access(kDropCaches, W_OK) == 0; }

Expected<void> measureCold(const ColdOptions& options, const fs::path& work) {
  RETURN_IF_FAILED(copyDotnet(work / "dotnet"));
  std::vector<Setup> setups;
  ASSIGN_OR_RETURN(Setup setup,
                   makeSetup(executablePath().parent_path().parent_path(), work / "cold"));
  setups.push_back(std::move(setup));
  if (!options.against.empty()) {
    ASSIGN_OR_RETURN(Setup older, makeSetup(options.against, work / "cold-older"));
    setups.push_back(std::move(older));
  }
  return Cold(options, setups).run();
}

}  // namespace quillon::bench
