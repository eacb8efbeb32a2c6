#include "quillon/validator/requester.h"

#include <signal.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <string>

namespace quillon::validator {
namespace {

// PF_EXITING of the kernel's include/linux/sched.h. The kernel sets it before it closes descriptors
// and releases locks.
constexpr unsigned long kExiting = 0x4;

// Returns field 9 of /proc/PID/stat (proc(5)), or 0 if it cannot be read. Field 2 is the program's
// name in parentheses, which may contain any character.
unsigned long kernelFlagsOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string line;
  std::getline(file, line);
  const std::size_t name = line.rfind(')');
  if (name == std::string::npos) {
    return 0;
  }
  std::istringstream rest(line.substr(name + 1));
  std::string skipped;
  for (int field = 3; field < 9; ++field) {
    rest >> skipped;
  }
  unsigned long flags = 0;
  rest >> flags;
  return flags;
}

}  // namespace

bool hasEnded(pid_t process) {
  if (kill(process, 0) != 0 && errno == ESRCH) {
    return true;
  }
  return (kernelFlagsOf(process) & kExiting) != 0;
}

}  // namespace quillon::validator
