#include "quillon/launchpad/worker/environment.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace quillon::launchpad {
namespace {

using Variable = std::pair<std::string_view, std::string_view>;

// The variables of the calling process, sorted, as getenv(3) finds them: without entries that lack
// a name or a "=", and of several with one name the first.
std::vector<Variable> sortedVariables() {
  std::vector<Variable> variables;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    const size_t end = text.find('=');
    if (end != text.npos && end != 0) {
      variables.emplace_back(text.substr(0, end), text.substr(end + 1));
    }
  }
  std::stable_sort(
      variables.begin(), variables.end(),
      [](const Variable& one, const Variable& other) { return one.first < other.first; });
  variables.erase(std::unique(variables.begin(), variables.end(),
                              [](const Variable& one, const Variable& other) {
                                return one.first == other.first;
                              }),
                  variables.end());
  return variables;
}

}  // namespace

Variables currentVariables() {
  const auto sorted = sortedVariables();
  return {sorted.begin(), sorted.end()};
}

EnvironmentEntries currentEntries() {
  EnvironmentEntries entries;
  for (const auto& [name, value] : sortedVariables()) {
    entries.emplace(name, name.data());
  }
  return entries;
}

EnvironmentChanges changesSince(const EnvironmentEntries& before) {
  EnvironmentChanges changes;
  for (const auto& [name, entry] : before) {
    changes[name] = std::nullopt;
  }
  for (const auto& [name, value] : sortedVariables()) {
    const auto old = before.find(std::string(name));
    if (old != before.end() && old->second == name.data()) {
      changes.erase(old->first);
    } else {
      changes[std::string(name)] = value;
    }
  }
  return changes;
}

void replaceEnvironment(std::vector<std::string> entries, const EnvironmentChanges& changes) {
  // Never destroyed: the environment may be read until the process ends.
  static auto& texts = *new std::vector<std::string>;
  static auto& pointers = *new std::vector<char*>;
  texts = std::move(entries);
  pointers.clear();
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  environ = pointers.data();
  for (const auto& [name, value] : changes) {
    value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
  }
}

void CopiedEnvironment::record() {
  const std::vector<Variable> now = sortedVariables();
  for (auto& [name, value] : copied_) {
    const auto same = std::find(now.begin(), now.end(), Variable(name, value.value_or("")));
    value = same != now.end() ? value : std::nullopt;
  }
  for (const auto& [name, value] : now) {
    copied_.try_emplace(std::string(name),
                        isRecorded_ ? std::nullopt : std::optional<std::string>(value));
  }
  isRecorded_ = true;
}

std::vector<CopiedEnvironment::Change> CopiedEnvironment::changes() const {
  std::vector<Change> changes;
  auto copied = copied_.begin();
  const auto removeUpTo = [&](std::string_view name) {
    for (; copied != copied_.end() && copied->first < name; ++copied) {
      changes.emplace_back(copied->first, std::nullopt);
    }
  };
  for (const auto& [name, value] : sortedVariables()) {
    removeUpTo(name);
    const bool isCopied = copied != copied_.end() && copied->first == name;
    if (!isCopied || copied->second != value) {
      changes.emplace_back(name, value);
    }
    copied = isCopied ? std::next(copied) : copied;
  }
  for (; copied != copied_.end(); ++copied) {
    changes.emplace_back(copied->first, std::nullopt);
  }
  return changes;
}

}  // namespace quillon::launchpad
