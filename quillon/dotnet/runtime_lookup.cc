#include "quillon/dotnet/runtime_lookup.h"

#include <cstdlib>
#include <optional>
#include <sstream>
#include <system_error>
#include <vector>

#include "quillon/dotnet/command_output.h"
#include "quillon/dotnet/version.h"

namespace quillon::dotnet {
namespace {

namespace fs = std::filesystem;

constexpr char kFramework[] = "Microsoft.NETCore.App";
constexpr char kRuntime[] = "libcoreclr.so";
constexpr char kChosenRoot[] = "QUILLON_DOTNET_ROOT";
constexpr char kRoot[] = "DOTNET_ROOT";
constexpr char kListCommand[] = "dotnet --list-runtimes";
constexpr char kInstallRemedy[] =
    "install the .NET runtime, or set QUILLON_DOTNET_ROOT to a .NET folder (the one that holds "
    "'dotnet' and 'shared')";

// The result of searching one place: a framework, or a clause for the failure message.
struct Answer {
  std::optional<Framework> framework;
  std::string instead;
};

bool hasRuntime(const fs::path& directory) {
  std::error_code error;
  return fs::is_regular_file(directory / kRuntime, error);
}

Answer choose(const std::vector<fs::path>& candidates, const std::string& place) {
  Answer answer;
  for (const fs::path& candidate : candidates) {
    const std::string version = candidate.filename().string();
    if (!hasRuntime(candidate)) {
      answer.instead += (answer.instead.empty() ? "" : ", ") + version + " without " + kRuntime;
    } else if (!answer.framework || isPreferred(version, answer.framework->version)) {
      answer.framework = Framework{candidate, version, place};
    }
  }
  if (candidates.empty()) {
    answer.instead = std::string("no ") + kFramework;
  }
  return answer;
}

Answer askRoot(const fs::path& root, const std::string& place) {
  std::vector<fs::path> candidates;
  std::error_code error;
  const fs::path folder = fs::absolute(root, error) / "shared" / kFramework;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    candidates.push_back(entry->path());
  }
  if (candidates.empty()) {
    return {std::nullopt, "no '" + folder.string() + "'"};
  }
  return choose(candidates, place);
}

// A line reads "Microsoft.NETCore.App 10.0.12 [/usr/share/dotnet/shared/Microsoft.NETCore.App]".
std::optional<fs::path> parseListLine(const std::string& line) {
  std::istringstream words(line);
  std::string name;
  std::string version;
  words >> name >> version;
  const std::size_t open = line.find('[');
  const std::size_t close = line.rfind(']');
  if (name != kFramework || version.empty() || open == std::string::npos ||
      close == std::string::npos || close < open) {
    return std::nullopt;
  }
  return fs::path(line.substr(open + 1, close - open - 1)) / version;
}

Answer askList() {
  const auto output = commandOutput({"dotnet", "--list-runtimes"});
  if (!output) {
    return {std::nullopt, output.error().what};
  }
  std::vector<fs::path> candidates;
  std::istringstream lines(*output);
  for (std::string line; std::getline(lines, line);) {
    if (auto candidate = parseListLine(line)) {
      candidates.push_back(std::move(*candidate));
    }
  }
  return choose(candidates, kListCommand);
}

const char* settingOf(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : nullptr;
}

std::string clauseOf(const std::string& place, const Answer& answer) {
  return place + " (" + answer.instead + ")";
}

std::string namedPlace(const char* name, const char* value) {
  return std::string(name) + "='" + value + "'";
}

tl::unexpected<Failure> nothingFound(const std::string& places, const std::string& remedy) {
  return fail(std::string("no .NET runtime: wanted ") + kFramework + " with " + kRuntime +
                  ", looked at " + places,
              remedy);
}

}  // namespace

Expected<Framework> findFramework() {
  if (const char* chosen = settingOf(kChosenRoot)) {
    const Answer answer = askRoot(chosen, kChosenRoot);
    if (answer.framework) {
      return *answer.framework;
    }
    return nothingFound(clauseOf(namedPlace(kChosenRoot, chosen), answer),
                        "set QUILLON_DOTNET_ROOT to a folder that holds 'shared/" +
                            std::string(kFramework) + "', or unset it");
  }
  std::string places;
  if (const char* root = settingOf(kRoot)) {
    const Answer answer = askRoot(root, kRoot);
    if (answer.framework) {
      return *answer.framework;
    }
    places = clauseOf(namedPlace(kRoot, root), answer) + " and ";
  }
  const Answer answer = askList();
  if (answer.framework) {
    return *answer.framework;
  }
  return nothingFound(places + clauseOf(std::string("'") + kListCommand + "'", answer),
                      kInstallRemedy);
}

}  // namespace quillon::dotnet
