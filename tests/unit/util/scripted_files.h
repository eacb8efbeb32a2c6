// Replaces the file calls of the cache writer.
//
// The test program defines fopen, rename and the other calls. Each call is forwarded to the C
// library, with two exceptions: sync does nothing while calls are recorded, and rename fails if the
// test requests it.
#pragma once

#include <string>
#include <vector>

namespace quillon::test {

struct ScriptedFiles {
  bool active = false;             // if true, calls are recorded
  int renameError = 0;             // errno value with which rename fails
  std::vector<std::string> calls;  // "function file-name"; for fsync also the size of the file
};

ScriptedFiles& files();

// Records the calls during its lifetime.
class NotedFiles {
 public:
  explicit NotedFiles(int renameError = 0) { files() = {true, renameError, {}}; }
  ~NotedFiles() { files().active = false; }
  NotedFiles(const NotedFiles&) = delete;
  NotedFiles& operator=(const NotedFiles&) = delete;
};

}  // namespace quillon::test
