// Runs a program on a terminal of its own.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace quillon::test {

class Terminal {
 public:
  // Starts the program with the terminal as its controlling one and as its standard streams.
  // `environment` ("NAME=VALUE") is added to this process's.
  Terminal(const std::vector<std::string>& command, const std::vector<std::string>& environment);
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // Types a text, as a user at the keyboard does.
  void type(const std::string& text) const;
  // Waits until the terminal shows `text`. Returns false if it does not within 30 seconds.
  bool waitForOutput(const std::string& text);
  // Waits for the end. Returns the exit status, or 128 + signal.
  int finish();
  // Whether the terminal echoes and edits lines, as it does at first.
  bool isCooked() const;
  // All that the terminal got so far.
  const std::string& output() const { return output_; }

 private:
  bool readMore(int timeoutMs);

  pid_t process_ = -1;
  int master_ = -1;
  std::string output_;
};

}  // namespace quillon::test
