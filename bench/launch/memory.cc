#include "bench/launch/memory.h"

#include <fstream>
#include <sstream>
#include <string>

namespace quillon::bench {

Memory memoryOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
  Memory memory;
  for (std::string line; std::getline(file, line);) {
    std::istringstream fields(line);
    std::string name;
    long kib = 0;
    fields >> name >> kib;
    if (name == "Pss:") {
      memory.pssKib = kib;
    }
    if (name == "Private_Clean:" || name == "Private_Dirty:") {
      memory.privateKib += kib;
    }
  }
  return memory;
}

}  // namespace quillon::bench
