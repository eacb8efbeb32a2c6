// Child processes that end abnormally, and their output.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace quillon::test {

struct Ending {
  int exitStatus = -1;  // -1 if a signal ended the process
  int signal = 0;
  std::string text;  // text written to the standard-error pipe, if it was read
};

bool operator==(const Ending& left, const Ending& right);
std::ostream& operator<<(std::ostream& stream, const Ending& ending);

inline Ending ended(int status, const std::string& text = "") { return {status, 0, text}; }
inline Ending killed(int signal, const std::string& text = "") { return {-1, signal, text}; }

// Exit status of a child whose body returned.
constexpr int kSurvived = 42;

// Starts a child that runs `body`. SIGALRM ends it after a minute.
pid_t start(const std::function<void()>& body);

// Waits until a child ends.
Ending endOf(pid_t child);

// Runs `body` in a child and waits until it ends.
Ending endingOf(const std::function<void()>& body);

// Does the same with a standard-error capture pipe that the test reads instead of the plug-in's
// reader.
Ending endingWithPipe(const std::function<void()>& body);

// Reads from an address that is not mapped.
void fault();

}  // namespace quillon::test
