#include "bench/launch/words.h"

#include <unistd.h>

namespace quillon::bench {

std::vector<char*> pointersTo(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  for (const std::string& word : words) {
    pointers.push_back(const_cast<char*>(word.c_str()));
  }
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> environmentOf(const Contender& contender) {
  std::vector<std::string> all = contender.environment;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    all.emplace_back(*variable);
  }
  return all;
}

}  // namespace quillon::bench
