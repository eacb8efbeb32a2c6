// Replaces this process by a command.
#pragma once

#include <unistd.h>

#include <string>
#include <vector>

namespace quillon::test {

// Executes `command`, a program, which execvp(3) finds, and its arguments. Ends the process with
// status 127 if that fails.
[[noreturn]] inline void execute(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  for (const std::string& word : command) {
    arguments.push_back(const_cast<char*>(word.c_str()));
  }
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  _exit(127);
}

}  // namespace quillon::test
