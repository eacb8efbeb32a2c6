#include "quillon/dotnet/command_output.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "quillon/base/files.h"
#include "quillon/base/process.h"

namespace quillon::dotnet {
namespace {

// Redirects standard output to `output`, and discards standard error.
int spawn(const std::vector<std::string>& words, int output, pid_t& child) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) {
    arguments.push_back(const_cast<char*>(word.c_str()));
  }
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  const int error =
      posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

}  // namespace

Expected<std::string> commandOutput(const std::vector<std::string>& words) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return fail("cannot make a pipe: " + std::string(std::strerror(errno)));
  }
  pid_t child = -1;
  const int error = spawn(words, ends[1], child);
  close(ends[1]);
  std::string text = error == 0 ? readAll(ends[0]) : std::string();
  close(ends[0]);
  if (error != 0) {
    return fail("it cannot be run: " + std::string(std::strerror(error)));
  }
  const int status = waitForEnd(child);
  if (WIFSIGNALED(status)) {
    return fail("it was ended by signal " + std::to_string(WTERMSIG(status)));
  }
  if (WEXITSTATUS(status) != 0) {
    return fail("it ended with status " + std::to_string(WEXITSTATUS(status)));
  }
  return text;
}

}  // namespace quillon::dotnet
