#include "tests/system/device_root/inside.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <system_error>

#include "tests/support/skip.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

std::string readAll(int input) {
  std::string text;
  std::array<char, 4096> buffer{};
  for (ssize_t count; (count = ::read(input, buffer.data(), buffer.size())) > 0;) {
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return text;
}

int runShell(const std::string& script) {
  ::execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
  return 127;
}

fs::path makeTemporary(const fs::path& parent) {
  std::string path = (parent / "quillon-XXXXXX").string();
  if (::mkdtemp(path.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), path);
  }
  ::chmod(path.c_str(), 0755);
  return path;
}

}  // namespace

Outcome inChild(const std::function<int()>& body) {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) {
    return {};
  }
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(ends[1], STDOUT_FILENO);
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[0]);
    ::close(ends[1]);
    const int status = body();
    std::cout.flush();
    ::_exit(status);
  }
  ::close(ends[1]);
  Outcome outcome{-1, readAll(ends[0])};
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  outcome.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  return outcome;
}

Outcome inside(const fs::path& root, const std::string& script,
               const device::EnterOptions& options) {
  return inChild([&] {
    if (auto entered = device::enter(root, options); !entered) {
      std::cout << entered.error().what << "; " << entered.error().remedy;
      return static_cast<int>(entered.error().status);
    }
    return runShell(script);
  });
}

void write(const fs::path& file, const std::string& content) {
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << content;
}

// A process may end while its file in /proc is read, which operator<< does not throw.
std::string read(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream content;
  content << stream.rdbuf();
  return content.str();
}

const std::string& whyNot() {
  static const std::string kReason = [] {
    const fs::path root = makeTemporary("/var/tmp");
    const auto made = device::init(root, {});
    const Outcome outcome = inside(root, "true");
    fs::remove_all(root);
    return outcome.status == kNoNamespace ? outcome.output : std::string();
  }();
  return kReason;
}

DeviceRootTest::DeviceRootTest(fs::path parent) : root_(fresh(parent)) {}

DeviceRootTest::~DeviceRootTest() {
  for (const fs::path& folder : folders_) {
    std::error_code error;
    fs::remove_all(folder, error);
  }
}

fs::path DeviceRootTest::fresh(const fs::path& parent) {
  folders_.push_back(makeTemporary(parent));
  return folders_.back();
}

void DeviceRootTest::SetUp() {
  if (!whyNot().empty()) {
    QUILLON_SKIP("no device root can be entered here: " << whyNot());
  }
  const auto made = device::init(root_, {});
  ASSERT_TRUE(made) << made.error().what;
}

}  // namespace quillon::test
