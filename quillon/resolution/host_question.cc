#include "quillon/resolution/host_question.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "device_paths.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"
#include "quillon/base/process.h"
#include "quillon/host/assemblies/path_list.h"
#include "quillon/resolution/dotnet_view.h"
#include "quillon/resolution/hostfxr.h"

namespace quillon::resolution {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kMaxWait{5000};

// Turns the paths of the host's answer into those of the device.
class Paths {
 public:
  Paths(const std::string& assembly, fs::path view) : view_(std::move(view)) {
    std::error_code ignored;
    folder_ = fs::path(assembly).parent_path();
    realFolder_ = fs::canonical(folder_, ignored);
    realView_ = fs::canonical(view_, ignored);
  }

  // The device's path of a folder. Links of the view are resolved, and the application's folder
  // gets back the name that the launch uses.
  [[nodiscard]] fs::path ofFolder(const fs::path& folder) const {
    std::error_code error;
    if (isBelow(folder.string(), view_.string()) || isBelow(folder.string(), realView_.string())) {
      return fs::canonical(folder, error);
    }
    if (isBelow(folder.string(), realFolder_.string())) {
      return (folder_ / folder.lexically_relative(realFolder_)).lexically_normal();
    }
    return folder;
  }

  // Whether the launch finds the files of this folder anyway.
  [[nodiscard]] bool isKnown(const fs::path& folder) const {
    return folder.empty() || folder == device_paths::kNetcoreapp || withoutSlash(folder) == folder_;
  }

  static fs::path withoutSlash(const fs::path& folder) {
    return folder.has_filename() ? folder : folder.parent_path();
  }

 private:
  fs::path view_;
  fs::path realView_;
  fs::path folder_;
  fs::path realFolder_;
};

std::vector<fs::path> entriesOf(const host::RuntimeProperties& properties, const char* name,
                                char separator) {
  std::vector<fs::path> entries;
  for (const auto& [key, value] : properties) {
    if (key == name) {
      const std::vector<std::string> list = host::splitList(value, separator);
      entries.insert(entries.end(), list.begin(), list.end());
    }
  }
  return entries;
}

// The dependency file of each framework is "DIRECTORY/VERSION/NAME.deps.json".
std::vector<SharedFramework> frameworksIn(const host::RuntimeProperties& properties,
                                          const Paths& paths) {
  constexpr std::string_view kSuffix = ".deps.json";
  std::vector<SharedFramework> frameworks;
  for (const fs::path& file : entriesOf(properties, "APP_CONTEXT_DEPS_FILES", ';')) {
    const std::string name = file.filename().string();
    const fs::path folder = paths.ofFolder(file.parent_path());
    if (!paths.isKnown(folder) && name.ends_with(kSuffix)) {
      frameworks.push_back({name.substr(0, name.size() - kSuffix.size()),
                            folder.filename().string(), folder.string()});
    }
  }
  return frameworks;
}

Additions additionsIn(const host::RuntimeProperties& properties, const Paths& paths) {
  Additions additions;
  additions.frameworks = frameworksIn(properties, paths);
  for (const fs::path& file : entriesOf(properties, "TRUSTED_PLATFORM_ASSEMBLIES", ':')) {
    const fs::path folder = paths.ofFolder(file.parent_path());
    if (!paths.isKnown(folder)) {
      additions.assemblies.push_back((folder / file.filename()).string());
    }
  }
  // The host lists them in no particular order.
  std::sort(additions.assemblies.begin(), additions.assemblies.end());
  for (const fs::path& entry : entriesOf(properties, "NATIVE_DLL_SEARCH_DIRECTORIES", ':')) {
    const fs::path folder = paths.ofFolder(Paths::withoutSlash(entry));
    if (!paths.isKnown(folder)) {
      additions.nativeFolders.push_back(folder.string());
    }
  }
  return additions;
}

std::string inOneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < ' '; }, ' ');
  text.erase(std::unique(text.begin(), text.end(),
                         [](char one, char other) { return one == ' ' && other == ' '; }),
             text.end());
  text.erase(text.find_last_not_of(' ') + 1);
  constexpr size_t kMaxLength = 400;
  return text.size() > kMaxLength ? text.substr(0, kMaxLength) + " ..." : text;
}

// The application runs with the newest frameworks if its own settings allow none of this machine: a
// device has one version.
Additions resolve(const Hostfxr& hostfxr, const std::string& assembly, const fs::path& view) {
  const Paths paths(assembly, view);
  const auto own = hostfxr.initialize(assembly, view, RollForward::kOwnSettings);
  if (own.status >= 0) {
    return additionsIn(own.properties, paths);
  }
  Additions additions;
  if (own.status != kHostFrameworkMissing) {
    additions.warning = "is refused by dotnet: " + inOneLine(own.messages);
    return additions;
  }
  const auto newest = hostfxr.initialize(assembly, view, RollForward::kLatestMajor);
  const auto wanted = missingFrameworkIn(own.messages);
  if (newest.status >= 0) {
    additions = additionsIn(newest.properties, paths);
    additions.warning = "was built for " +
                        (wanted ? wanted->first + " " + wanted->second : "an older .NET") +
                        " and allows no newer major version: the device runs it, dotnet would not";
    return additions;
  }
  const auto missing = missingFrameworkIn(newest.messages);
  if (missing) {
    additions.missing = {missing->first, missing->second, {}};
  } else {
    additions.warning = "is refused by dotnet: " + inOneLine(newest.messages);
  }
  return additions;
}

// The answer depends on no variable of this process.
void isolate(pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) {
    _exit(EXIT_FAILURE);
  }
  clearenv();
  const rlimit none{};
  setrlimit(RLIMIT_CORE, &none);
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int standard = STDIN_FILENO; standard <= STDERR_FILENO; ++standard) {
    dup2(nothing, standard);
  }
}

[[noreturn]] void runChild(const dotnet::Host& host, const std::string& assembly,
                           const fs::path& view, int output) {
  const auto hostfxr = Hostfxr::load(host.library);
  if (!hostfxr) {
    _exit(EXIT_FAILURE);
  }
  const bool isWritten = writeAll(output, format(resolve(*hostfxr, assembly, view)));
  _exit(isWritten ? EXIT_SUCCESS : EXIT_FAILURE);
}

// Reads to the end of the pipe. Returns false if that takes too long or is too much.
bool readAnswer(int pipe, std::string& text) {
  const auto end = Clock::now() + kMaxWait;
  std::array<char, 4096> part;
  while (text.size() <= kMaxTextSize) {
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
    pollfd readable{pipe, POLLIN, 0};
    const int ready = left.count() > 0 ? poll(&readable, 1, static_cast<int>(left.count())) : 0;
    if (ready == 0) {
      return false;
    }
    const ssize_t length = ready > 0 ? read(pipe, part.data(), part.size()) : -1;
    if (length == 0) {
      return true;
    }
    if (length < 0 && errno != EINTR) {
      return false;
    }
    text.append(part.data(), static_cast<size_t>(std::max<ssize_t>(length, 0)));
  }
  return false;
}

std::string warningOf(const std::string& why) {
  return "has dependencies that .NET's host cannot resolve: the host " + why;
}

Additions withoutAnswer(const std::string& why) {
  Additions additions;
  additions.warning = warningOf(why);
  return additions;
}

tl::unexpected<Failure> cannotStart() {
  return fail(warningOf(std::string("cannot be started: ") + std::strerror(errno)));
}

}  // namespace

Expected<Additions> askHost(const dotnet::Host& host, const std::string& assembly,
                            const std::string& version) {
  const auto view = DotnetView::make(host.root, version);
  if (!view) {
    return fail(warningOf("cannot be asked: " + view.error().what));
  }
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return cannotStart();
  }
  const Descriptor input(ends[0]);
  Descriptor output(ends[1]);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) {
    isolate(parent);
    runChild(host, assembly, view->folder(), output.get());
  }
  if (child < 0) {
    return cannotStart();
  }
  output.reset();
  std::string text;
  const bool isComplete = readAnswer(input.get(), text);
  if (!isComplete) {
    kill(child, SIGKILL);
  }
  const int status = waitForEnd(child);
  if (!isComplete) {
    return fail(warningOf("takes too long or writes too much"));
  }
  if (WIFSIGNALED(status)) {
    return withoutAnswer("was ended by signal " + std::to_string(WTERMSIG(status)));
  }
  auto additions = parseAdditions(text);
  if (WEXITSTATUS(status) != EXIT_SUCCESS || !additions) {
    return withoutAnswer("does not work on this machine");
  }
  return std::move(*additions);
}

}  // namespace quillon::resolution
