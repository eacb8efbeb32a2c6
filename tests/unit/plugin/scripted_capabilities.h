// A replacement for libcap: counts the calls and fails on demand. The capabilities of the process
// do not change.
#pragma once

namespace quillon::test {

struct ScriptedCapabilities {
  bool failInit = false;
  bool failSet = false;
  int sets = 0;
  int frees = 0;
  bool setWasNull = false;
};

ScriptedCapabilities& capabilities();

}  // namespace quillon::test
