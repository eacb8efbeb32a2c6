#include "launcher/launchpad/environment.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace quillon::launchpad {

Variables currentVariables() {
  Variables variables;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const size_t end = text.find('=');
    if (end != std::string::npos) variables.emplace(text.substr(0, end), text.substr(end + 1));
  }
  return variables;
}

EnvironmentChanges changesBetween(const Variables& before, const Variables& after) {
  EnvironmentChanges changes;
  for (const auto& [name, value] : before) {
    if (after.find(name) == after.end()) changes[name] = std::nullopt;
  }
  for (const auto& [name, value] : after) {
    const auto old = before.find(name);
    if (old == before.end() || old->second != value) changes[name] = value;
  }
  return changes;
}

void replaceEnvironment(const std::vector<std::string>& entries,
                        const EnvironmentChanges& changes) {
  // Never destroyed: the environment is read until the process ends.
  static auto& texts = *new std::vector<std::string>;
  static auto& pointers = *new std::vector<char*>;
  texts = entries;
  pointers.clear();
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  environ = pointers.data();
  for (const auto& [name, value] : changes) {
    value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
  }
}

}  // namespace quillon::launchpad
