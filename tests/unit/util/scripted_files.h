// The cache writer's file calls, between the code under test and the C library.
//
// The test program defines fopen, rename and so on itself. Each call goes on to the C library,
// except that sync does nothing while calls are noted, and that rename fails where the test told it
// to.
#pragma once

#include <string>
#include <vector>

namespace quillon::test {

struct ScriptedFiles {
  bool active = false;  // whether calls are noted
  int renameError = 0;  // an errno value that rename fails with
  std::vector<std::string>
      calls;  // "function file-name", and for fsync the bytes in the file by then
};

ScriptedFiles& files();

// Notes the calls of its scope.
class NotedFiles {
 public:
  explicit NotedFiles(int renameError = 0) { files() = {true, renameError, {}}; }
  ~NotedFiles() { files().active = false; }
  NotedFiles(const NotedFiles&) = delete;
  NotedFiles& operator=(const NotedFiles&) = delete;
};

}  // namespace quillon::test
