// Child processes that die, and what they said before.
#pragma once

#include <functional>
#include <string>

namespace quillon::test {

struct Ending {
  int exitStatus = -1;  // -1 where a signal ended it
  int signal = 0;
  std::string text;  // what it wrote to its standard-error pipe
};

bool operator==(const Ending& left, const Ending& right);
std::ostream& operator<<(std::ostream& stream, const Ending& ending);

inline Ending ended(int status, const std::string& text = "") { return {status, 0, text}; }
inline Ending killed(int signal, const std::string& text = "") { return {-1, signal, text}; }

// Status of a child whose body returned.
constexpr int kSurvived = 42;

// Runs `body` in a child process. Its standard-error capture pipe is one that the test reads, with no
// reader of the plug-in's. A child that hangs is ended by SIGALRM after a minute.
Ending endingOf(const std::function<void()>& body);

// The same without any reading, the pipe included.
Ending endingWithoutPipe(const std::function<void()>& body);

// A read of memory that is not there.
void fault();

}  // namespace quillon::test
