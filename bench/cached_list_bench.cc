// Compares reading the cached list with a plain read of its file.
#include <fcntl.h>
#include <plugin-util/assembly_discovery.h>
#include <plugin-util/cached_list.h>
#include <sys/stat.h>
#include <unistd.h>
#include <util/zq_utils/cache_file.h>

#include <string>

#include "bench/paired_rounds.h"
#include "quillon/dotnet/runtime_lookup.h"
#include "tests/support/temporary_directory.h"

namespace {

constexpr std::size_t kMarkers = sizeof "[START][END]" - 1;

// The steps of a launch with a complete cache file: existence, read, check, milestone, cut.
std::string cachedList(const std::string& path) {
  const CachedList list = {path.c_str(), "[quillon-tv-plugin] TPA Cache file was crashed.",
                           "[quillon-tv-plugin] Get TPA by cache file"};
  return readCachedListOr(list, [] { return std::string("rebuilt"); });
}

std::string plainRead(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status {};
  fstat(file, &status);
  std::string content(static_cast<std::size_t>(status.st_size), '\0');
  content.resize(static_cast<std::size_t>(read(file, content.data(), content.size())));
  close(file);
  return content;
}

void readBeside(benchmark::State& state, const std::string& payload) {
  const quillon::test::TemporaryDirectory directory;
  const std::string path = (directory.path() / "list").string();
  writeStringToFile(directory.path().string() + "/", "list", "[START]" + payload + "[END]");
  if (cachedList(path) != payload || plainRead(path).size() != payload.size() + kMarkers) {
    state.SkipWithError("the file does not read back");
    return;
  }
  quillon::bench::runPaired(
      state, [&] { benchmark::DoNotOptimize(cachedList(path)); },
      [&] { benchmark::DoNotOptimize(plainRead(path)); });
  state.counters["bytes"] = static_cast<double>(payload.size() + kMarkers);
}

void ofTheFramework(benchmark::State& state) {
  const auto framework = quillon::dotnet::findFramework();
  if (!framework) {
    state.SkipWithError(framework.error().what.c_str());
    return;
  }
  std::string list;
  addAssembliesFromDirectories({framework->directory.string()}, list);
  readBeside(state, list);
}

void ofMadeList(benchmark::State& state) {
  std::string list;
  while (list.size() < static_cast<std::size_t>(state.range(0))) {
    list += "/usr/share/dotnet.velora/netcoreapp/Velora.Sample.Assembly.dll:";
  }
  readBeside(state, list);
}

BENCHMARK(ofTheFramework)
    ->Name("cached_list_of_the_framework/beside_a_plain_read")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(ofMadeList)
    ->Name("cached_list_made/beside_a_plain_read")
    ->ArgName("bytes")
    ->Arg(1024)
    ->Arg(512 * 1024)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) { return quillon::bench::runAll(argc, argv); }
