#include "quillon/launchpad/worker/environment.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace quillon::launchpad {
namespace {

// valueOf  returns the value of a variable of `after`
template <typename Environment, typename ValueOf>
EnvironmentChanges differences(const Environment& before, const Environment& after,
                               const ValueOf& valueOf) {
  EnvironmentChanges changes;
  for (const auto& [name, value] : before) {
    if (after.find(name) == after.end()) {
      changes[name] = std::nullopt;
    }
  }
  for (const auto& variable : after) {
    const auto old = before.find(variable.first);
    const bool isSame = old != before.end() && old->second == variable.second;
    if (!isSame) {
      changes[variable.first] = valueOf(variable);
    }
  }
  return changes;
}

}  // namespace

EnvironmentEntries currentEntries() {
  EnvironmentEntries entries;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const char* const text = *entry;
    const char* const end = std::strchr(text, '=');
    // Without a name or a "=", getenv(3) does not find an entry.
    if (end != nullptr && end != text) {
      entries.emplace(std::string(text, end), text);
    }
  }
  return entries;
}

Variables currentVariables() {
  Variables variables;
  for (const auto& [name, entry] : currentEntries()) {
    variables.emplace(name, entry + name.size() + 1);
  }
  return variables;
}

EnvironmentChanges changesSince(const EnvironmentEntries& before) {
  return differences(before, currentEntries(), [](const auto& variable) {
    return variable.second + variable.first.size() + 1;
  });
}

EnvironmentChanges changesBetween(const Variables& before, const Variables& after) {
  return differences(before, after, [](const auto& variable) { return variable.second; });
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

}  // namespace quillon::launchpad
