// Compares assembly discovery with a plain walk of the same directories.
#include <plugin-util/assembly_discovery.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bench/paired_rounds.h"
#include "bench/raw_walk.h"
#include "quillon/dotnet/runtime_lookup.h"
#include "tests/support/temporary_directory.h"

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
  const auto framework = quillon::dotnet::findFramework();
  if (!framework) {
    state.SkipWithError(framework.error().what.c_str());
    return;
  }
  discoverBeside(state, {framework->directory.string()}, walk);
}

// Folders of assemblies with unique names. The destructor removes them.
class MadeFolders {
 public:
  MadeFolders(int count, int files) {
    for (int folder = 0; folder < count; ++folder) {
      const auto path = parent.path() / ("folder" + std::to_string(folder));
      std::filesystem::create_directory(path);
      for (int file = 0; file < files; ++file) {
        const std::string number = std::to_string(folder * files + file);
        std::ofstream(path / ("Velora.Sample.Assembly" + number + ".dll"));
      }
      paths.push_back(path.string());
    }
  }

  const std::vector<std::string>& all() const { return paths; }

 private:
  quillon::test::TemporaryDirectory parent;
  std::vector<std::string> paths;
};

struct Size {
  int folders;
  int files;
};

void registerBenchmarks(const MadeFolders& made, Size size) {
  using benchmark::RegisterBenchmark;
  const std::pair<const char*, Walk> walks[] = {
      {"a_walk_that_keeps_names", quillon::bench::walkKeepingNames},
      {"a_walk_that_keeps_nothing", quillon::bench::walkKeepingNothing}};
  const std::string folders = "discovery_of_" + std::to_string(size.folders) + "_folders_of_" +
                              std::to_string(size.files) + "_files";
  for (const auto& [name, walk] : walks) {
    const std::string beside = std::string("/beside_") + name;
    RegisterBenchmark(("discovery_of_the_framework" + beside).c_str(), ofTheFramework, walk)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
    RegisterBenchmark((folders + beside).c_str(), discoverBeside, made.all(), walk)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
  }
}

}  // namespace

// With the last argument "--tiny" the folders are small, to test that the program runs.
int main(int argc, char** argv) {
  const bool tiny = argc > 1 && std::string_view(argv[argc - 1]) == "--tiny";
  const Size size = tiny ? Size{2, 20} : Size{20, 500};
  const MadeFolders made(size.folders, size.files);
  registerBenchmarks(made, size);
  return quillon::bench::runAll(tiny ? argc - 1 : argc, argv);
}
