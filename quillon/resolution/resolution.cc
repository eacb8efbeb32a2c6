#include "quillon/resolution/resolution.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "device_paths.h"
#include "quillon/base/files.h"
#include "quillon/base/folders.h"
#include "quillon/base/shell_word.h"
#include "quillon/device/device_root.h"
#include "quillon/host/assemblies/assembly_image.h"
#include "quillon/resolution/host_question.h"
#include "quillon/resolution/machine_host.h"

namespace quillon::resolution {
namespace {

namespace fs = std::filesystem;

// Beside the package registry. The path of an assembly's answer is this folder and its own path.
constexpr char kAnswers[] = "/opt/usr/share/quillon/resolutions";

constexpr std::string_view kHeader = "quillon-resolution 1\n";
constexpr std::string_view kDepends = "depends ";
constexpr std::string_view kEnd = "end\n";
constexpr char kBaseFramework[] = "Microsoft.NETCore.App";
constexpr char kWebFramework[] = "Microsoft.AspNetCore.App";
constexpr char kDesktopFramework[] = "Microsoft.WindowsDesktop.App";

// Larger than every dependency file of a real application by far; limits the memory of the host.
constexpr size_t kMaxDependencyFile = size_t{16} << 20;

fs::path fileOf(const std::string& assembly) { return kAnswers + assembly; }

std::string besideAssembly(const std::string& assembly, const char* extension) {
  return fs::path(assembly).replace_extension(extension).string();
}

std::string dependencyFileOf(const std::string& assembly) {
  return besideAssembly(assembly, ".deps.json");
}

// Size and modification time of a file; "-" without one. Not the inode, whose number an overlay may
// change.
std::string identityOf(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return "-";
  }
  return std::to_string(status.st_size) + "," + std::to_string(status.st_mtim.tv_sec) + "." +
         std::to_string(status.st_mtim.tv_nsec);
}

std::string_view minorVersion(std::string_view version) {
  return version.substr(0, version.find('.', version.find('.') + 1));
}

// Every policy of the host accepts the device's framework if it differs in its patch version only.
bool hasQuestion(const Subject& subject) {
  const host::RuntimeConfig& config = subject.config;
  if (subject.frameworkVersion.empty() ||
      (config.frameworkVersion.empty() && config.otherFrameworks.empty())) {
    return false;
  }
  std::error_code ignored;
  return !config.otherFrameworks.empty() ||
         minorVersion(config.frameworkVersion) != minorVersion(subject.frameworkVersion) ||
         fs::exists(dependencyFileOf(subject.assembly), ignored);
}

struct Answer {
  std::vector<std::pair<std::string, std::string>> dependencies;  // path and identity
  Additions additions;
};

std::string format(const Answer& answer) {
  std::string text(kHeader);
  for (const auto& [path, identity] : answer.dependencies) {
    text.append(kDepends).append(identity).append(1, ' ').append(path).append(1, '\n');
  }
  return text.append(format(answer.additions)).append(kEnd);
}

bool removePrefix(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) {
    return false;
  }
  text.remove_prefix(prefix.size());
  return true;
}

std::optional<Answer> parseAnswer(std::string_view text) {
  if (!removePrefix(text, kHeader) || !text.ends_with(kEnd)) {
    return std::nullopt;
  }
  text.remove_suffix(kEnd.size());
  Answer answer;
  while (removePrefix(text, kDepends)) {
    const std::string_view line = text.substr(0, text.find('\n'));
    const size_t space = line.find(' ');
    if (line.size() == text.size() || space == std::string_view::npos) {
      return std::nullopt;
    }
    answer.dependencies.emplace_back(line.substr(space + 1), line.substr(0, space));
    text.remove_prefix(line.size() + 1);
  }
  auto additions = parseAdditions(text);
  if (!additions) {
    return std::nullopt;
  }
  answer.additions = std::move(*additions);
  return answer;
}

bool isCurrent(const Answer& answer) {
  return std::all_of(
      answer.dependencies.begin(), answer.dependencies.end(),
      [](const auto& dependency) { return identityOf(dependency.first) == dependency.second; });
}

// A folder changes when a version of a framework is added or removed.
std::set<std::string> dependenciesOf(const Subject& subject,
                                     const std::optional<dotnet::Host>& host) {
  std::set<std::string> paths = {
      dependencyFileOf(subject.assembly), host::runtimeConfigOf(subject.assembly).string(),
      besideAssembly(subject.assembly, ".runtimeconfig.dev.json"), device_paths::kNetcoreapp};
  if (host) {
    const fs::path shared = host->root / "shared";
    paths.insert(shared.string());
    for (const std::string& name : subject.config.otherFrameworks) {
      if (fs::path(name).filename() == name && isPlainPath("/" + name)) {
        paths.insert((shared / name).string());
      }
    }
  }
  return paths;
}

// A device root of another user is not writable. The next launch asks again then.
void store(const std::string& assembly, const Answer& answer) {
  const fs::path file = fileOf(assembly);
  const Descriptor folder =
      openFolderWithoutLinks(AT_FDCWD, file.parent_path(), MissingFolder::kMake);
  if (folder) {
    [[maybe_unused]] const bool isStored =
        replaceFile(folder.get(), file.filename(), format(answer));
  }
}

// Fails, with a warning, if another attempt may have another result.
Expected<Additions> ask(const Subject& subject, const std::optional<dotnet::Host>& host) {
  Additions additions;
  std::error_code error;
  if (!host && !subject.config.otherFrameworks.empty()) {
    additions.missing = {subject.config.otherFrameworks.front(), "", ""};
  }
  if (!host || !host::requireExecutableAssembly(subject.assembly)) {
    return additions;
  }
  const auto size = fs::file_size(dependencyFileOf(subject.assembly), error);
  if (!error && size > kMaxDependencyFile) {
    additions.warning = "has a dependency file of more than 16 MiB";
    return additions;
  }
  return askHost(*host, subject.assembly, subject.frameworkVersion);
}

std::string installRemedy(const SharedFramework& framework) {
  if (framework.name == kDesktopFramework) {
    return "it exists on Windows only; build the application without it";
  }
  if (framework.name == kBaseFramework) {
    return "install it, then: quillon device init " + shellWord(device::current().value_or(""));
  }
  if (framework.name == kWebFramework) {
    return "install the ASP.NET Core runtime of the device's .NET version on this machine, or "
           "publish the application self-contained";
  }
  return "install it into the 'shared' folder of this machine's .NET";
}

// An answer names assemblies that the application trusts, so only the user of this process or the
// owner of the application may decide about it. Another user can put a file in its place if a
// folder above it lets others write.
bool isTrusted(const RegularFile& file, const std::string& assembly) {
  struct stat application {};
  return !file.isWritableForOthers &&
         (file.owner == geteuid() ||
          (stat(assembly.c_str(), &application) == 0 && application.st_uid == file.owner));
}

std::optional<Answer> readAnswer(const fs::path& path, const std::string& assembly) {
  const RegularFile file = openRegularFile(path, kMaxTextSize);
  if (!file.descriptor || !isTrusted(file, assembly)) {
    return std::nullopt;
  }
  return parseAnswer(readContent(file).value_or(""));
}

}  // namespace

std::optional<StoredAnswer> findAnswer(const Subject& subject) {
  if (!hasQuestion(subject)) {
    return StoredAnswer{{}, {dependencyFileOf(subject.assembly)}};
  }
  const fs::path file = fileOf(subject.assembly);
  auto answer = readAnswer(file, subject.assembly);
  if (!answer || !isCurrent(*answer)) {
    return std::nullopt;
  }
  StoredAnswer stored{std::move(answer->additions), {file.string()}};
  for (auto& [path, identity] : answer->dependencies) {
    stored.files.push_back(std::move(path));
  }
  return stored;
}

Additions askAndStore(const Subject& subject) {
  const auto host = machineHost();
  Answer answer;
  // Before the question, so that a change during it is noticed.
  for (const std::string& path : dependenciesOf(subject, host)) {
    answer.dependencies.emplace_back(path, identityOf(path));
  }
  auto additions = ask(subject, host);
  if (!additions) {
    answer.additions.warning = additions.error().what;
    return std::move(answer.additions);
  }
  answer.additions = std::move(*additions);
  // Without a host, there is nothing yet whose change would show that it can be asked.
  if (host || !answer.additions.missing) {
    store(subject.assembly, answer);
  }
  return std::move(answer.additions);
}

Additions renewAnswer(const std::string& assembly) {
  const auto config = host::readRuntimeConfig(assembly);
  const std::string version = host::frameworkVersionOf(device_paths::kNetcoreapp);
  if (!config || !hasQuestion({assembly, *config, version})) {
    return {};
  }
  return askAndStore({assembly, *config, version});
}

void forgetAnswers(const std::string& folder) {
  std::error_code ignored;
  fs::remove_all(fileOf(folder), ignored);
}

Expected<void> requireFrameworks(const Additions& additions) {
  if (!additions.missing) {
    return {};
  }
  const SharedFramework& missing = *additions.missing;
  const std::string version = missing.version.empty() ? "" : " " + missing.version;
  return fail(kNoRuntime, {"the application needs the framework " + missing.name + version +
                               ", which this machine does not have",
                           installRemedy(missing)});
}

std::optional<Failure> warningAbout(const std::string& applicationId, const Additions& additions) {
  if (additions.warning.empty()) {
    return std::nullopt;
  }
  return Failure{"application '" + applicationId + "' " + additions.warning,
                 "build it for the device's .NET version and install it again"};
}

}  // namespace quillon::resolution
