// Stands in for the full quillon program: prints what a program inherits across exec(2).
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "quillon/base/directory_entries.h"
#include "quillon/base/files.h"

namespace {

void printDescriptors() {
  const quillon::Descriptor folder(open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::vector<std::string> names = quillon::directoryEntries(folder.get());
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    if (std::stoi(name) != folder.get()) {
      std::cout << "descriptor " << name << ": "
                << std::filesystem::read_symlink("/proc/self/fd/" + name).string() << '\n';
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::cout << "file: " << quillon::executablePath().string() << '\n';
  for (int i = 0; i < argc; ++i) {
    std::cout << "argument " << i << ": " << argv[i] << '\n';
  }
  for (char** variable = environ; *variable != nullptr; ++variable) {
    std::cout << "variable " << *variable << '\n';
  }
  std::cout << "name: " << quillon::readSmallFileAt(AT_FDCWD, "/proc/self/comm")
            << "folder: " << std::filesystem::current_path().string() << '\n'
            << "umask: " << umask(0) << '\n';
  sigset_t blocked;
  sigprocmask(SIG_BLOCK, nullptr, &blocked);
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (sigismember(&blocked, signal) == 1 || action.sa_handler != SIG_DFL) {
      std::cout << "signal " << signal << ": " << sigismember(&blocked, signal) << ' '
                << (action.sa_handler == SIG_IGN) << '\n';
    }
  }
  printDescriptors();
  return 0;
}
