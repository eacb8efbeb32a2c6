#include "quillon/host/plugin/assembly_validation.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

#include "quillon/host/assemblies/assembly_table.h"
#include "quillon/host/plugin/answer_watch.h"
#include "quillon/host/plugin/validator_remedies.h"
#include "quillon_tv_plugin.h"
#include "workstation/last_errors.h"

namespace quillon::host {
namespace {

namespace fs = std::filesystem;

// What leads to the same file is asked about once, under the first name; but the name of a link
// stays, since the plug-in refuses it.
void addOnce(std::vector<std::string>& assemblies, const fs::path& path) {
  std::error_code error;
  const fs::path folder = fs::canonical(path.parent_path(), error);
  const std::string plain = error ? path.string() : (folder / path.filename()).string();
  if (std::find(assemblies.begin(), assemblies.end(), plain) == assemblies.end()) {
    assemblies.push_back(plain);
  }
}

Failure unlistable(const fs::path& folder, const std::error_code& error) {
  return {"cannot list the folder '" + folder.string() + "': " + error.message(),
          "make it readable, so that its assemblies can be validated", kLibraryRefused};
}

// The assemblies of a folder by name; with `depth` 1 those of its folders too, after its own.
// A folder that is not there has none; one that cannot be listed is a failure, since its assemblies
// would go unasked.
Expected<void> addFolder(std::vector<std::string>& assemblies, const fs::path& folder, int depth) {
  std::vector<fs::path> files;
  std::vector<fs::path> folders;
  std::error_code error;
  std::error_code ignored;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (entry->is_directory(ignored)) {
      folders.push_back(entry->path());
    } else if (!simpleNameOf(entry->path().string()).empty()) {
      files.push_back(entry->path());
    }
  }
  if (error && error != std::errc::no_such_file_or_directory &&
      error != std::errc::not_a_directory) {
    return tl::unexpected(unlistable(folder, error));
  }
  std::sort(files.begin(), files.end());
  std::sort(folders.begin(), folders.end());
  for (const fs::path& file : files) addOnce(assemblies, file);
  if (depth == 0) return {};
  for (const fs::path& below : folders) {
    RETURN_IF_FAILED(addFolder(assemblies, below, depth - 1));
  }
  return {};
}

Failure noValidator(const std::string& why, const char* remedy = kStartValidator) {
  return {"cannot ask a validator: " + why, remedy, kValidatorState};
}

// Waits however long it takes.
void lock(int pipe, int kind) {
  while (flock(pipe, kind) != 0 && errno == EINTR) {
  }
}

// The request pipe, open as long as this launch's turn lasts.
class Turn {
 public:
  Turn() : pipe_(open(QUILLON_DLL_REQUEST_PIPE, O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC)) {}
  ~Turn() {
    if (pipe_ >= 0) close(pipe_);
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  int pipe() const { return pipe_; }

  // Fails where no process reads the pipe, and so none would answer.
  Expected<void> take() const {
    if (pipe_ < 0) {
      const std::string why = errno == ENXIO ? "none runs any more, only its pipes are there"
                              : errno == ENOENT
                                  ? "none runs in this device root"
                                  : QUILLON_DLL_REQUEST_PIPE ": " + std::string(strerror(errno));
      return tl::unexpected(noValidator(why));
    }
    struct stat status {};
    if (fstat(pipe_, &status) != 0 || !S_ISFIFO(status.st_mode)) {
      return tl::unexpected(noValidator("'" QUILLON_DLL_REQUEST_PIPE "' is no pipe"));
    }
    waitForTurn();
    letEarlierAnswersGo();
    return {};
  }

 private:
  void waitForTurn() const {
    const AnswerWatch watch(pipe_,
                            {"waiting for another launch, whose turn it is to ask the validator",
                             "this one goes on when that one has its answers"},
                            {"the validator ended before this launch's turn", kStartValidator});
    lock(pipe_, LOCK_EX);
  }

  // A launch that was interrupted may have left an answer under way, which this one would take for
  // its own. The validator locks the answer pipe until it has taken such an answer back. Where
  // there is no pipe to open, the plug-in will say so.
  void letEarlierAnswersGo() const {
    const int answers =
        open(QUILLON_DLL_ANSWER_PIPE, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (answers < 0) return;
    const AnswerWatch watch(pipe_,
                            {"waiting until the validator takes back an answer that nobody read",
                             "it does so after ten seconds at most"},
                            {"the validator ended before this launch's turn", kStartValidator});
    lock(answers, LOCK_SH);
    close(answers);
  }

  int pipe_;
};

// The plug-in refuses what it cannot resolve without asking; and what went away since it was
// listed.
std::optional<Failure> unresolvable(const std::string& assembly) {
  std::error_code error;
  static_cast<void>(fs::canonical(assembly, error));
  if (!error) return std::nullopt;
  return Failure{"cannot resolve the assembly '" + assembly + "': " + error.message(),
                 "see that it and the folders above it are there and can be reached",
                 kLibraryRefused};
}

// errors  what the platform log's last errors were before the question; a new one is the plug-in's
Failure refusalOf(const std::string& assembly, const Turn& turn,
                  const std::vector<std::string>& errors) {
  std::error_code ignored;
  if (fs::is_symlink(assembly, ignored)) {
    return {"the assembly '" + assembly + "' is a symbolic link, which is refused unasked",
            "put the file itself in its place", kLibraryRefused};
  }
  if (auto failure = unresolvable(assembly)) return *failure;
  if (!isServed(turn.pipe())) {
    return noValidator("it ended before it was asked about '" + assembly + "'");
  }
  if (workstation::lastErrorMessages() != errors) {
    // It runs, so its pipes are at fault, and a second one would not start.
    return noValidator(workstation::lastErrorMessage(), kRestartValidator);
  }
  return {"the validator refused the assembly '" + assembly + "'", kChangePolicy, kLibraryRefused};
}

}  // namespace

Expected<std::vector<std::string>> assembliesOf(const LaunchTarget& target) {
  std::vector<std::string> assemblies;
  addOnce(assemblies, target.assembly);
  for (const std::string& folder : target.folders()) {
    RETURN_IF_FAILED(addFolder(assemblies, folder, 1));
  }
  return assemblies;
}

Expected<void> validateAssemblies(const PluginCalls& plugin, const LaunchTarget& target) {
  const Turn turn;
  RETURN_IF_FAILED(turn.take());
  const auto assemblies = assembliesOf(target);
  if (!assemblies) return tl::unexpected(assemblies.error());
  for (const std::string& assembly : *assemblies) {
    const std::vector<std::string> errors = workstation::lastErrorMessages();
    const AnswerWatch watch(
        turn.pipe(),
        {"waiting for the validator's answer about '" + assembly + "'",
         "see the terminal that it runs in"},
        {"the validator ended without an answer about '" + assembly + "'", kStartValidator});
    if (!plugin.validate(assembly)) return tl::unexpected(refusalOf(assembly, turn, errors));
  }
  return {};
}

}  // namespace quillon::host
