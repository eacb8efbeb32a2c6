// Assembly discovery beside a bare walk of the same directories.
#include <plugin-util/assembly_discovery.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench/paired_rounds.h"
#include "bench/raw_walk.h"
#include "tests/support/temporary_directory.h"
#include "tools/runtime/runtime_lookup.h"

namespace {

using quillon::bench::runPaired;
using Walk = std::size_t (*)(const std::vector<std::string>& directories);

void discoverBeside(benchmark::State& state, const std::vector<std::string>& directories,
                    Walk walk) {
  runPaired(
      state,
      [&] {
        std::string tpa;
        addAssembliesFromDirectories(directories, tpa);
        benchmark::DoNotOptimize(tpa.data());
      },
      [&] { benchmark::DoNotOptimize(walk(directories)); });
  state.counters["files"] = static_cast<double>(quillon::bench::walkKeepingNothing(directories));
}

void ofTheFramework(benchmark::State& state, Walk walk) {
  const auto framework = quillon::findFramework();
  if (!framework) {
    state.SkipWithError(framework.error().what.c_str());
    return;
  }
  discoverBeside(state, {framework->directory.string()}, walk);
}

// `count` folders of `files` assemblies each, no name twice.
std::vector<std::string> makeFolders(const std::filesystem::path& parent, int count, int files) {
  std::vector<std::string> folders;
  for (int folder = 0; folder < count; ++folder) {
    const auto path = parent / ("folder" + std::to_string(folder));
    std::filesystem::create_directory(path);
    for (int file = 0; file < files; ++file) {
      const std::string number = std::to_string(folder * files + file);
      std::ofstream(path / ("Velora.Sample.Assembly" + number + ".dll"));
    }
    folders.push_back(path.string());
  }
  return folders;
}

void ofMadeFolders(benchmark::State& state, Walk walk) {
  const quillon::test::TemporaryDirectory parent;
  const auto folders = makeFolders(parent.path(), static_cast<int>(state.range(0)),
                                   static_cast<int>(state.range(1)));
  discoverBeside(state, folders, walk);
}

void benchmarks() {
  using benchmark::RegisterBenchmark;
  const std::pair<const char*, Walk> walks[] = {
      {"a_walk_that_keeps_names", quillon::bench::walkKeepingNames},
      {"a_walk_that_keeps_nothing", quillon::bench::walkKeepingNothing}};
  for (const auto& [name, walk] : walks) {
    const std::string beside = std::string("/beside_") + name;
    RegisterBenchmark(("discovery_of_the_framework" + beside).c_str(), ofTheFramework, walk)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
    RegisterBenchmark(("discovery_of_made_folders" + beside).c_str(), ofMadeFolders, walk)
        ->ArgNames({"folders", "files"})
        ->Args({20, 500})
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmarks();
  return quillon::bench::runAll(argc, argv);
}
