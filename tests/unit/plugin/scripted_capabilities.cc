#include "tests/unit/plugin/scripted_capabilities.h"

#include <sys/capability.h>

#include <cstdlib>

namespace quillon::test {

ScriptedCapabilities& capabilities() {
  static ScriptedCapabilities instance;
  return instance;
}

}  // namespace quillon::test

using quillon::test::capabilities;

extern "C" {

cap_t cap_init(void) {
  return capabilities().failInit ? nullptr : static_cast<cap_t>(std::malloc(1));
}

int cap_set_proc(cap_t set) {
  ++capabilities().sets;
  capabilities().setWasNull = set == nullptr;
  return capabilities().failSet || set == nullptr ? -1 : 0;
}

int cap_free(void* set) {
  ++capabilities().frees;
  std::free(set);
  return 0;
}

}  // extern "C"
