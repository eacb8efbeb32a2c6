// A libcap of the test's own: counts calls, and fails them on demand. The process keeps what it
// has.
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
