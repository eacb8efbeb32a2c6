#include "quillon/host/assemblies/assembly_table.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <system_error>

namespace quillon::host {
namespace {

namespace fs = std::filesystem;

constexpr std::array<std::string_view, 2> kExtensions = {".dll", ".exe"};
constexpr std::string_view kNativeSuffix = ".ni";

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

bool endsWith(std::string_view text, std::string_view lowerSuffix) {
  return text.size() >= lowerSuffix.size() &&
         lowerCase(text.substr(text.size() - lowerSuffix.size())) == lowerSuffix;
}

std::string_view fileNameOf(std::string_view path) { return path.substr(path.rfind('/') + 1); }

std::string_view directoryOf(std::string_view path) {
  return path.substr(0, std::min(path.rfind('/'), path.size()));
}

// The name without ".dll" or ".exe"; empty if it has neither extension.
std::string_view stem(std::string_view fileName) {
  for (std::string_view extension : kExtensions) {
    if (endsWith(fileName, extension)) {
      return fileName.substr(0, fileName.size() - extension.size());
    }
  }
  return {};
}

bool isNative(std::string_view path) { return endsWith(stem(fileNameOf(path)), kNativeSuffix); }

bool replaces(const std::string& later, const std::string& earlier) {
  return isNative(later) && !isNative(earlier) && directoryOf(later) == directoryOf(earlier);
}

std::string realPathOf(const std::string& path) {
  std::error_code ignored;
  return fs::weakly_canonical(path, ignored).string();
}

std::vector<std::string> fileNamesOf(const std::string& directory) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    names.push_back(entry->path().filename().string());
  }
  // Directories have no order. The runtime tries NAME.dll before NAME.exe, so sort by name.
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

std::string simpleNameOf(std::string_view path) {
  std::string_view name = stem(fileNameOf(path));
  if (endsWith(name, kNativeSuffix)) {
    name.remove_suffix(kNativeSuffix.size());
  }
  return std::string(name);
}

void AssemblyTable::addTrusted(const std::vector<std::string>& paths) {
  trusted_.reserve(trusted_.size() + paths.size());
  for (const std::string& path : paths) {
    addOneTrusted(path);
  }
}

void AssemblyTable::addOneTrusted(const std::string& path) {
  const std::string name = simpleNameOf(path);
  if (path.front() != '/') {
    rejections_.push_back({path, "the path is relative"});
  } else if (name.empty()) {
    rejections_.push_back({path, "the name ends neither in .dll nor in .exe"});
  } else {
    const auto [entry, isNew] = trustedIndex_.emplace(lowerCase(name), trusted_.size());
    if (isNew) {
      trusted_.push_back(path);
    } else {
      resolveConflict(entry->second, name, path);
    }
  }
}

void AssemblyTable::resolveConflict(size_t index, const std::string& name,
                                    const std::string& path) {
  std::string& chosen = trusted_[index];
  if (chosen == path) {
    return;
  }
  if (replaces(path, chosen)) {
    addShadow({name, chosen, path});
    chosen = path;
  } else {
    addShadow({name, path, chosen});
  }
}

// A file may be found twice: a shared folder is searched for trusted assemblies and is in APP_PATHS
// too.
void AssemblyTable::addShadow(const Shadow& shadow) {
  const bool isKnown = std::any_of(shadows_.begin(), shadows_.end(), [&](const Shadow& known) {
    return known.loser == shadow.loser;
  });
  if (!isKnown) {
    shadows_.push_back(shadow);
  }
}

void AssemblyTable::addFolder(const std::string& directory, const std::string& displayPath) {
  for (const std::string& name : fileNamesOf(directory)) {
    if (simpleNameOf(name).empty()) {
      continue;
    }
    addFile((fs::path(displayPath) / name).string(),
            realPathOf((fs::path(directory) / name).string()));
  }
}

void AssemblyTable::addFile(const std::string& path, const std::string& realPath) {
  const std::string name = simpleNameOf(path);
  const std::string key = lowerCase(name);
  const auto trusted = trustedIndex_.find(key);
  if (trusted != trustedIndex_.end()) {
    const std::string& winner = trusted_[trusted->second];
    if (realPathOf(winner) != realPath) {
      addShadow({name, path, winner});
    }
    return;
  }
  const auto [entry, isNew] = folderWinners_.emplace(key, Winner{path, realPath});
  if (!isNew && entry->second.realPath != realPath) {
    addShadow({name, path, entry->second.path});
  }
}

}  // namespace quillon::host
