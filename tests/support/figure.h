// The figures of a long run: one line of standard output for each.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace quillon::test {

// Prints "figure: WHAT | VALUE | GOAL | met", or "missed".
inline void printFigure(const std::string& what, const std::string& value, const std::string& goal,
                        bool met) {
  std::printf("figure: %s | %s | %s | %s\n", what.c_str(), value.c_str(), goal.c_str(),
              met ? "met" : "missed");
  std::fflush(stdout);
}

// The length of a run that an environment variable can make longer.
inline std::size_t lengthOf(const char* variable, std::size_t usual) {
  const char* wanted = std::getenv(variable);
  return wanted == nullptr ? usual : static_cast<std::size_t>(std::atoll(wanted));
}

}  // namespace quillon::test
