// Replaces file calls of util/.
//
// The test program defines fopen, rename and the other calls. Each call is forwarded to the C
// library, with these exceptions: sync does nothing while calls are recorded, and rename fails,
// fstat reports another size and readlink finds another program if the test requests it.
//
// On a 32-bit machine lstat64 of libboost_filesystem is not replaced, because the headers give
// lstat and lstat64 the same symbol there.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quillon::test {

struct ScriptedFiles {
  bool active = false;                // if true, calls are recorded
  int renameError = 0;                // errno value with which rename fails
  std::vector<std::string> calls;     // "function file-name"; for fsync also the size of the file
  std::optional<off_t> reportedSize;  // by fstat
  std::string program;                // of this process, as readlink finds it; empty: the real one
  bool wasInherited = false;  // a descriptor that fstat got is open in programs that are executed
  std::function<void(const std::string& path)> onFile;  // called once, when the library that
                                                        // copies has found a regular file
};

ScriptedFiles& files();

// Records the calls during its lifetime.
class NotedFiles {
 public:
  explicit NotedFiles(int renameError = 0) { files() = {true, renameError, {}, {}, {}, {}, {}}; }
  ~NotedFiles() { files().active = false; }
  NotedFiles(const NotedFiles&) = delete;
  NotedFiles& operator=(const NotedFiles&) = delete;
};

}  // namespace quillon::test
