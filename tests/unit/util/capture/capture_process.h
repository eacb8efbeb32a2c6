// Runs captures in child processes, because a capture cannot be stopped.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace quillon::test {

// The results of a child process.
struct Captured {
  std::string ending;              // "signal 6" or "status 3"; empty on success
  std::vector<std::string> lines;  // log lines, "PRIORITY message", without trace lines
  std::vector<std::string> texts;  // the same lines as logged, from "file: function" on
  std::vector<std::string> trace;  // names of the traced functions
  std::vector<std::string> calls;  // see ScriptedCalls
  std::string errorFile;           // path of the error file
  std::string errorText;           // content of the error file, which is removed
  bool managedException = false;   // the crash flags
  bool memoryIssue = false;
  std::map<std::string, std::string> notes;  // values that the body recorded

  // Returns the messages of captured output.
  [[nodiscard]] std::vector<std::string> output() const;
  [[nodiscard]] std::vector<std::string> errors() const;
  [[nodiscard]] std::string note(const std::string& name) const;
};

using Notes = std::map<std::string, std::string>;

// Runs `body` in a child process, then closes every write end, waits until the readers have ended,
// and returns the results. The child is killed after a minute. At the start of the child,
// descriptors 1 and 2 are pipes that no one reads.
Captured inCaptureProcess(const std::function<void(Notes&)>& body);

// Writes the complete text to a descriptor, in as few writes as possible.
void put(int descriptor, const std::string& text);

// Returns a name that is the same for all descriptors of an open file or pipe, or "" if the
// descriptor is closed.
std::string fileBehind(int descriptor);

// Returns the names of the threads of this process, sorted.
std::vector<std::string> threadNames();

// Waits until no thread of this process has this name.
void awaitEndOf(const std::string& thread);

}  // namespace quillon::test
