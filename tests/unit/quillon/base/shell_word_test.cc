#include "quillon/base/shell_word.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>

namespace quillon {
namespace {

// What a shell makes of a word.
std::string readByShell(const std::string& word) {
  FILE* const shell = popen(("printf %s " + word).c_str(), "r");
  std::array<char, 256> output{};
  const size_t length = fread(output.data(), 1, output.size(), shell);
  pclose(shell);
  return {output.data(), length};
}

TEST(ShellWord, KeepsPlainPathsAsTheyAre) {
  EXPECT_EQ(shellWord("/opt/my-app_1.0/bin"), "/opt/my-app_1.0/bin");
}

TEST(ShellWord, IsReadByAShellAsTheText) {
  for (const std::string text : {"", "a b", "it's", "''", "$HOME", "a;b", "`id`", "*", "~/x",
                                 "a\\b", "\"", "#x", "a\tb", "\u00e4", "!", "(x)", "<x>|&"}) {
    EXPECT_EQ(readByShell(shellWord(text)), text);
  }
}

}  // namespace
}  // namespace quillon
