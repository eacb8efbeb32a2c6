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
#include <string>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/host/assemblies/assembly_table.h"
#include "quillon/host/plugin/validator_remedies.h"
#include "quillon/host/plugin/validator_watchdog.h"
#include "quillon_tv_plugin.h"
#include "workstation/last_errors.h"

namespace quillon::host {
namespace {

namespace fs = std::filesystem;

// Adds a path unless another path of the same file is in the list. Keeps the path of a symbolic
// link to a file as a separate entry, because the plug-in refuses links.
void addUnique(std::vector<std::string>& assemblies, const fs::path& path) {
  std::error_code error;
  const fs::path folder = fs::canonical(path.parent_path(), error);
  const std::string resolved = error ? path.string() : (folder / path.filename()).string();
  if (std::find(assemblies.begin(), assemblies.end(), resolved) == assemblies.end()) {
    assemblies.push_back(resolved);
  }
}

Failure listingFailed(const fs::path& folder, const std::error_code& error) {
  return {"cannot list the folder '" + folder.string() + "': " + error.message(),
          "make it readable, so that its assemblies can be validated", kLibraryRefused};
}

// Adds the assemblies of a folder by name, then, if `depth` is 1, those of the folders in it. Adds
// none if the folder does not exist. Fails if it cannot be listed, because its assemblies would not
// be validated.
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
    return tl::unexpected(listingFailed(folder, error));
  }
  std::sort(files.begin(), files.end());
  std::sort(folders.begin(), folders.end());
  for (const fs::path& file : files) {
    addUnique(assemblies, file);
  }
  if (depth == 0) {
    return {};
  }
  for (const fs::path& below : folders) {
    RETURN_IF_FAILED(addFolder(assemblies, below, depth - 1));
  }
  return {};
}

Expected<std::vector<std::string>> listAssemblies(const LaunchTarget& target,
                                                  const std::vector<std::string>& selected) {
  std::vector<std::string> assemblies;
  addUnique(assemblies, target.assembly);
  for (const std::string& folder : target.folders()) {
    RETURN_IF_FAILED(addFolder(assemblies, folder, 1));
  }
  for (const std::string& path : selected) {
    addUnique(assemblies, path);
  }
  return assemblies;
}

Failure noValidator(const std::string& why, const char* remedy = kStartValidator) {
  return {"cannot ask a validator: " + why, remedy, kValidatorState};
}

Descriptor openPipe(const char* path, int direction) {
  return Descriptor(open(path, direction | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
}

// Waits without a time limit.
void lock(int pipe, int operation) {
  while (flock(pipe, operation) != 0 && errno == EINTR) {
  }
}

// The turn of this launch. It holds the lock of the request pipe until it is destroyed.
class ValidationTurn {
 public:
  ValidationTurn() : pipe_(openPipe(QUILLON_DLL_REQUEST_PIPE, O_WRONLY)) {}

  int pipe() const { return pipe_.get(); }

  // Waits for the turn. Fails if no validator reads the request pipe. Call first, right after the
  // constructor, whose open(2) sets errno.
  Expected<void> take() const {
    if (!pipe_) {
      const std::string why = errno == ENXIO ? "none runs any more, only its pipes are there"
                              : errno == ENOENT
                                  ? "none runs in this device root"
                                  : QUILLON_DLL_REQUEST_PIPE ": " + std::string(strerror(errno));
      return tl::unexpected(noValidator(why));
    }
    struct stat status {};
    if (fstat(pipe_.get(), &status) != 0 || !S_ISFIFO(status.st_mode)) {
      return tl::unexpected(noValidator("'" QUILLON_DLL_REQUEST_PIPE "' is no pipe"));
    }
    lockRequestPipe();
    waitForEarlierAnswers();
    return {};
  }

 private:
  void lockRequestPipe() const {
    const ValidatorWatchdog watchdog(
        pipe(),
        {"waiting for another launch, whose turn it is to ask the validator",
         "this one goes on when that one has its answers"},
        {"the validator ended before this launch's turn", kStartValidator});
    lock(pipe(), LOCK_EX);
  }

  // The validator may be sending the answer to a launch that was interrupted, which this launch
  // would read as its own. The validator locks the answer pipe until it has withdrawn the answer.
  // If the pipe cannot be opened, the plug-in reports that later.
  void waitForEarlierAnswers() const {
    const Descriptor answers = openPipe(QUILLON_DLL_ANSWER_PIPE, O_RDONLY);
    if (!answers) {
      return;
    }
    const ValidatorWatchdog watchdog(
        pipe(),
        {"waiting until the validator takes back an answer that nobody read",
         "it does so after ten seconds at most"},
        {"the validator ended before this launch's turn", kStartValidator});
    lock(answers.get(), LOCK_SH);
  }

  Descriptor pipe_;
};

// The failure if a path cannot be resolved, for example because the file was removed after it was
// listed. The plug-in refuses such a path without a request to the validator.
std::optional<Failure> resolutionFailure(const std::string& assembly) {
  std::error_code error;
  static_cast<void>(fs::canonical(assembly, error));
  if (!error) {
    return std::nullopt;
  }
  return Failure{"cannot resolve the assembly '" + assembly + "': " + error.message(),
                 "see that it and the folders above it are there and can be reached",
                 kLibraryRefused};
}

// Why plugin_validate_dll refused an assembly.
//
// errors  the last errors in the platform log before the call; the plug-in logged newer ones
Failure refusalOf(const std::string& assembly, const ValidationTurn& turn,
                  const std::vector<std::string>& errors) {
  std::error_code ignored;
  if (fs::is_symlink(assembly, ignored)) {
    return {"the assembly '" + assembly + "' is a symbolic link, which is refused unasked",
            "put the file itself in its place", kLibraryRefused};
  }
  if (auto failure = resolutionFailure(assembly)) {
    return *failure;
  }
  if (!hasReader(turn.pipe())) {
    return noValidator("it ended before it was asked about '" + assembly + "'");
  }
  if (workstation::lastErrorMessages() != errors) {
    // The validator runs, so its pipes are damaged. A second validator would not start.
    return noValidator(workstation::lastErrorMessage(), kRestartValidator);
  }
  return {"the validator refused the assembly '" + assembly + "'", kChangePolicy, kLibraryRefused};
}

}  // namespace

Expected<void> validateAssemblies(const PluginCalls& plugin, const LaunchTarget& target,
                                  const std::vector<std::string>& selected) {
  const ValidationTurn turn;
  RETURN_IF_FAILED(turn.take());
  ASSIGN_OR_RETURN(const std::vector<std::string> assemblies, listAssemblies(target, selected));
  for (const std::string& assembly : assemblies) {
    const std::vector<std::string> errors = workstation::lastErrorMessages();
    const ValidatorWatchdog watchdog(
        turn.pipe(),
        {"waiting for the validator's answer about '" + assembly + "'",
         "see the terminal that it runs in"},
        {"the validator ended without an answer about '" + assembly + "'", kStartValidator});
    if (!plugin.validate(assembly)) {
      return tl::unexpected(refusalOf(assembly, turn, errors));
    }
  }
  return {};
}

}  // namespace quillon::host
