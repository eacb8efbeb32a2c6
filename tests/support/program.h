// Runs a program and collects its output.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace quillon::test {

struct Finished {
  int status = -1;  // exit status, or 128 + signal
  std::string out;
  std::string err;
};

class Program {
 public:
  explicit Program(std::vector<std::string> command) : command_(std::move(command)) {}
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // Adds a variable to the environment, which is this process's without QUILLON_ variables.
  Program& with(const std::string& variable, const std::string& value);

  void start();
  // Waits until standard output contains `text`. Returns false after ten seconds.
  bool waitForOutput(const std::string& text);
  void terminate();
  Finished finish();

 private:
  [[noreturn]] void become();
  std::vector<std::string> command_;
  std::map<std::string, std::string> variables_;
  int process_ = -1;
  int outFd_ = -1;
  int errFd_ = -1;
};

// Starts a program and waits for its end.
Finished run(const std::vector<std::string>& command,
             const std::map<std::string, std::string>& variables = {});

std::string contentsOf(const std::string& path);
void writeFile(const std::string& path, const std::string& contents);
std::vector<std::string> linesOf(const std::string& text);

}  // namespace quillon::test
