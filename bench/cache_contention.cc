// Counts readers of a cache file that get a list that no writer wrote, while several processes
// write the file at the same time through the same temporary name.
//
// The writers do not wait for the disk, so their steps interleave more often than those of real
// launches.
#include <CLI/CLI.hpp>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <util/zq_utils/cache_file.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "tests/support/temporary_directory.h"

extern "C" {

void sync() {}
int fsync(int /*descriptor*/) { return 0; }

}  // extern "C"

namespace {

constexpr char kName[] = "TPA.txt";

struct Options {
  int writers = 8;
  int readers = 4;
  int seconds = 10;
  std::size_t entries = 200;
  std::string contents = "different";
};

struct Counts {
  std::atomic<long> writes{0};
  std::atomic<long> reads{0};
  std::atomic<long> absent{0};
  std::atomic<long> torn{0};
  std::atomic<long> wrong{0};
};

// Lists of different writers differ in every entry, and in length by one entry in ten.
std::string listOf(int writer, std::size_t commonEntries) {
  std::string list;
  const std::size_t entries = commonEntries * static_cast<std::size_t>(10 + writer) / 10;
  for (std::size_t entry = 0; entry < entries; ++entry) {
    list += (list.empty() ? "" : ":") + std::string("/usr/share/dotnet.velora/framework") +
            std::to_string(writer) + "/Velora.Assembly" + std::to_string(entry) + ".dll";
  }
  return list;
}

class Contention {
 public:
  Contention(const Options& chosen, Counts& shared) : options(chosen), counts(shared) {
    const int kinds = options.contents == "equal" ? 1 : options.writers;
    for (int kind = 0; kind < kinds; ++kind) {
      lists.push_back(listOf(kind, options.entries));
    }
  }

  void run() {
    end = std::chrono::steady_clock::now() + std::chrono::seconds(options.seconds);
    for (int writer = 0; writer < options.writers; ++writer) {
      start([this, writer] { write(writer); });
    }
    for (int reader = 0; reader < options.readers; ++reader) {
      start([this] { read(); });
    }
    while (wait(nullptr) > 0) {
    }
  }

 private:
  template <typename Step>
  void start(const Step& step) {
    if (fork() == 0) {
      while (std::chrono::steady_clock::now() < end) {
        step();
      }
      _exit(0);
    }
  }

  void write(int writer) {
    const std::string& list = lists[static_cast<std::size_t>(writer) % lists.size()];
    writeStringToFile(folder(), kName, "[START]" + list + "[END]");
    ++counts.writes;
  }

  void read() {
    const std::string path = folder() + kName;
    ++counts.reads;
    if (access(path.c_str(), F_OK) != 0) {
      ++counts.absent;
      return;
    }
    const std::string content = readFileToString(path);
    if (isCrashed(content)) {
      ++counts.torn;
    } else if (!isOneOfTheLists(content.substr(7, content.size() - 12))) {
      ++counts.wrong;
    }
  }

  bool isOneOfTheLists(const std::string& list) const {
    return std::find(lists.begin(), lists.end(), list) != lists.end();
  }

  std::string folder() const { return directory.path().string() + "/"; }

  Options options;
  Counts& counts;
  std::vector<std::string> lists;
  quillon::test::TemporaryDirectory directory;
  std::chrono::steady_clock::time_point end;
};

Counts& sharedCounts() {
  void* memory =
      mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::bad_alloc();
  }
  return *new (memory) Counts;
}

void report(const Options& options, const Counts& counts) {
  std::printf("%s contents, %d writers, %d readers, %d s\n", options.contents.c_str(),
              options.writers, options.readers, options.seconds);
  std::printf("  writes %ld, reads %ld\n", counts.writes.load(), counts.reads.load());
  std::printf("  of the reads: no file %ld, torn and so rebuilt %ld, whole but nobody's %ld\n",
              counts.absent.load(), counts.torn.load(), counts.wrong.load());
  if (counts.wrong > 0) {
    std::printf("  one wrong list in %ld reads\n", counts.reads / counts.wrong);
  }
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Readers and writers of one cache file");
  app.add_option("--writers", options.writers)->check(CLI::PositiveNumber);
  app.add_option("--readers", options.readers)->check(CLI::PositiveNumber);
  app.add_option("--seconds", options.seconds)->check(CLI::PositiveNumber);
  app.add_option("--entries", options.entries)->check(CLI::PositiveNumber);
  app.add_option("--contents", options.contents)->check(CLI::IsMember({"equal", "different"}));
  CLI11_PARSE(app, argc, argv);
  Counts& counts = sharedCounts();
  Contention(options, counts).run();
  report(options, counts);
  // Different contents may mix. Equal contents never result in a wrong list.
  return options.contents == "equal" && counts.wrong > 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
