// Captures in processes of their own: a capture has no stop.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace quillon::test {

// What came of a process.
struct Captured {
  std::string ending;              // "signal 6", "status 3"; empty when all went well
  std::vector<std::string> lines;  // "PRIORITY message" of the log, without trace lines
  std::vector<std::string> texts;  // the same as they were logged, from "file: function" on
  std::vector<std::string> trace;  // names of functions traced
  std::vector<std::string> calls;  // see ScriptedCalls
  std::string errorFile;           // path of the error file
  std::string errorText;           // its content; the file is removed
  bool managedException = false;   // the flags
  bool memoryIssue = false;
  std::map<std::string, std::string> notes;  // what the body noted

  // Messages of captured output.
  [[nodiscard]] std::vector<std::string> output() const;
  [[nodiscard]] std::vector<std::string> errors() const;
  [[nodiscard]] std::string note(const std::string& name) const;
};

using Notes = std::map<std::string, std::string>;

// Runs `body` in a child process, then closes every write end, waits until the readers have ended,
// and tells what there was. A minute at most. The process's descriptors 1 and 2 are pipes that lead
// nowhere when it begins.
Captured inCaptureProcess(const std::function<void(Notes&)>& body);

// The whole text to a descriptor, in as few writes as it takes.
void put(int descriptor, const std::string& text);

// Descriptors of the same open file or pipe have the same name; "" where it is closed.
std::string fileBehind(int descriptor);

// The names of this process's threads, sorted.
std::vector<std::string> threadNames();

}  // namespace quillon::test
