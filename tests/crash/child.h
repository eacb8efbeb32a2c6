// Child processes that die, and what they said before.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace quillon::test {

struct Ending {
  int exitStatus = -1;  // -1 where a signal ended it
  int signal = 0;
  std::string text;  // what it wrote to its standard-error pipe, where that was read
};

bool operator==(const Ending& left, const Ending& right);
std::ostream& operator<<(std::ostream& stream, const Ending& ending);

inline Ending ended(int status, const std::string& text = "") { return {status, 0, text}; }
inline Ending killed(int signal, const std::string& text = "") { return {-1, signal, text}; }

// Status of a child whose body returned.
constexpr int kSurvived = 42;

// Starts a child that runs `body`. One that hangs is ended by SIGALRM after a minute.
pid_t start(const std::function<void()>& body);

// Waits for the end of a child.
Ending endOf(pid_t child);

// Runs `body` in a child.
Ending endingOf(const std::function<void()>& body);

// The same, with a standard-error capture pipe that the test reads, and no reader of the plug-in's.
Ending endingWithPipe(const std::function<void()>& body);

// A read of memory that is not there.
void fault();

}  // namespace quillon::test
