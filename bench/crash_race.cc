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
      counts.wrongEnd += run(command, output()) == which.status ? 0 : 1;
      counts.untold += tells(contentOf(log), which.texts) ? 0 : 1;
    }
    return counts;
  }

 private:
  void must(const Words& command) const {
    if (run(command, output()) != 0) {
      throw std::runtime_error(contentOf(output() + "/err"));
    }
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
  CLI11_PARSE(app, argc, argv);
  try {
    return measureAll(options) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& problem) {
    std::fputs(problem.what(), stderr);
    return EXIT_FAILURE;
  }
}
