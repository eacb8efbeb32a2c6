#include "util/zq_utils/process.h"

#include <sys/prctl.h>

#include <array>

#include "util/zq_utils/file_status.h"

void setCmdName(const std::string& name) {
  if (name.empty()) {
    return;
  }
  // The size of a thread name in the kernel, including the NUL.
  std::array<char, 16> kept{};
  name.copy(kept.data(), kept.size() - 1);
  prctl(PR_SET_NAME, kept.data());
}

bool isReleaseVersion() { return pathExists("/etc/release"); }
