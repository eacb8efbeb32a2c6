// Counts launches with a wrong exit status because an abort was handled before the text that
// precedes it.
//
// The plug-in decides on an abort by texts on standard error, which its own thread reads. Each
// round launches the sample application on the real runtime. The application writes such a text and
// aborts immediately. The program counts wrong exit statuses, and ends whose cause is not in the
// log.
#include <CLI/CLI.hpp>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/temporary_directory.h"

namespace {

using Words = std::vector<std::string>;

constexpr char kQuillon[] = QUILLON_BUILD_DIRECTORY "/bin/quillon";
constexpr char kManifest[] =
    QUILLON_BUILD_DIRECTORY "/managed/packages/org.velora.sample.ending.toml";
constexpr char kDecided[] = "Ignore Coredump was setted. Terminate normally";

struct Options {
  int rounds = 100;
  int load = 0;
  std::string plugin = QUILLON_BUILD_DIRECTORY "/lib/libquillon-tv-plugin.so";
  std::string only;  // a case; empty: all
  std::string keep;  // a folder for what wrong launches left; empty: nowhere
};

// The application's actions, its end if the plug-in has read the text, and the texts in the log.
struct Case {
  const char* name;
  Words actions;
  int status;  // as waitpid returns it
  Words texts;
};

const std::vector<Case>& cases() {
  static const std::vector<Case> all = {
      {"exception", {"throw", "in some.dll"}, 0, {"InvalidOperationException", kDecided}},
      {"fail-fast", {"fail-fast", "in some.dll"}, 0, {"Process terminated.", kDecided}},
      {"double free",
       {"say", "in some.dll", "native", "double-free"},
       SIGABRT,
       {"double free or corruption", "<<< onSigabrt >>>"}},
  };
  return all;
}

struct Counts {
  int wrongEnd = 0;
  int untold = 0;
};

[[noreturn]] void become(const Words& command, const std::string& output) {
  if (freopen((output + "/out").c_str(), "w", stdout) == nullptr ||
      freopen((output + "/err").c_str(), "w", stderr) == nullptr) {
    _exit(126);
  }
  const rlimit noCore{0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  setenv("QUILLON_LOG", ("json:" + output + "/log").c_str(), 1);
  std::vector<char*> arguments;
  for (const std::string& word : command) {
    arguments.push_back(const_cast<char*>(word.c_str()));
  }
  arguments.push_back(nullptr);
  execv(arguments[0], arguments.data());
  _exit(127);
}

int run(const Words& command, const std::string& output) {
  const pid_t child = fork();
  if (child == 0) {
    become(command, output);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? WTERMSIG(status) : status;  // without the core flag
}

std::string contentOf(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// Processes that keep all processors busy as long as the object lives.
class Load {
 public:
  explicit Load(int processes) {
    for (int i = 0; i < processes; ++i) {
      const pid_t child = fork();
      if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (std::atomic<unsigned> turns{0};; ++turns) {
        }
      }
      children_.push_back(child);
    }
  }
  ~Load() {
    for (const pid_t child : children_) {
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
    }
  }
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;

 private:
  std::vector<pid_t> children_;
};

class Race {
 public:
  explicit Race(const Options& options) : options_(options) {
    must({kQuillon, "device", "init", device()});
    must({kQuillon, "package", "install", "--device", device(), kManifest});
  }

  Counts measure(const Case& which) const {
    Words command = {kQuillon,
                     "launch",
                     "--device",
                     device(),
                     "--plugin",
                     options_.plugin,
                     "org.velora.sample.ending",
                     "--"};
    command.insert(command.end(), which.actions.begin(), which.actions.end());
    Counts counts;
    for (int round = 0; round < options_.rounds; ++round) {
      const std::string log = output() + "/log";
      std::remove(log.c_str());
      const int status = run(command, output());
      const bool isUntold = !tells(contentOf(log), which.texts);
      counts.wrongEnd += status == which.status ? 0 : 1;
      counts.untold += isUntold ? 1 : 0;
      if (status != which.status || isUntold) {
        keep(std::string(which.name) + "." + std::to_string(round), status);
      }
    }
    return counts;
  }

 private:
  void must(const Words& command) const {
    if (run(command, output()) != 0) {
      throw std::runtime_error(contentOf(output() + "/err"));
    }
  }

  // Copies the output and the log of a launch, and writes its wait status.
  void keep(const std::string& name, int status) const {
    if (options_.keep.empty()) {
      return;
    }
    const std::filesystem::path folder = std::filesystem::path(options_.keep) / name;
    std::filesystem::create_directories(folder);
    for (const char* file : {"out", "err", "log"}) {
      std::error_code missing;
      std::filesystem::copy_file(output() + "/" + file, folder / file, missing);
    }
    std::ofstream(folder / "status") << status << "\n";
  }

  static bool tells(const std::string& log, const Words& texts) {
    for (const std::string& text : texts) {
      if (log.find(text) == std::string::npos) {
        return false;
      }
    }
    return true;
  }

  std::string output() const { return directory_.path().string(); }
  std::string device() const { return output() + "/device"; }

  const Options& options_;
  quillon::test::TemporaryDirectory directory_;
};

// Whether every round of every case had the expected end and log.
bool measureAll(const Options& options) {
  const Race race(options);
  const Load load(options.load);
  std::printf("%d launches a row, %d busy processes beside them\n", options.rounds, options.load);
  std::fflush(stdout);  // otherwise the forked children would print it again
  bool good = true;
  for (const Case& which : cases()) {
    if (!options.only.empty() && options.only != which.name) {
      continue;
    }
    const Counts counts = race.measure(which);
    std::printf("  %-12s ended in the wrong way %d, not told in the log %d\n", which.name,
                counts.wrongEnd, counts.untold);
    std::fflush(stdout);
    good = good && counts.wrongEnd == 0 && counts.untold == 0;
  }
  return good;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Aborts that follow the text that decides about them");
  app.add_option("--rounds", options.rounds)->check(CLI::PositiveNumber);
  app.add_option("--load", options.load, "busy processes beside the launches")
      ->check(CLI::NonNegativeNumber);
  app.add_option("--plugin", options.plugin, "the plug-in to launch with");
  app.add_option("--only", options.only, "one row: exception, fail-fast or double free");
  app.add_option("--keep", options.keep, "a folder for the logs of wrong launches");
  CLI11_PARSE(app, argc, argv);
  try {
    return measureAll(options) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& problem) {
    std::fputs(problem.what(), stderr);
    return EXIT_FAILURE;
  }
}
