// Runs a program and keeps what it wrote.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace quillon::test {

struct Finished {
  int status = -1;  // exit status; 128 + signal
  std::string out;
  std::string err;
};

class Program {
 public:
  explicit Program(std::vector<std::string> command) : command_(std::move(command)) {}
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // The environment is this process's without any QUILLON_ variable, and these.
  Program& with(const std::string& variable, const std::string& value);

  void start();
  // Waits until standard output holds `text`, at most ten seconds; false after that.
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

// Starts and finishes.
Finished run(const std::vector<std::string>& command,
             const std::map<std::string, std::string>& variables = {});

std::string contentsOf(const std::string& path);
void writeFile(const std::string& path, const std::string& contents);
std::vector<std::string> linesOf(const std::string& text);

}  // namespace quillon::test
