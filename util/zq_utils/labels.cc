#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "platform/smack.h"
#include "util/log/log.h"
#include "util/malloc_text.h"
#include "util/zq_utils/files.h"

namespace {

// Returns null if the file has no label or the label cannot be read.
MallocText readLabel(const std::string& path, bool isSymlink) {
  char* label = nullptr;
  const auto get = isSymlink ? smack_lgetlabel : smack_getlabel;
  // A call that fails may leave any value in the label.
  return MallocText(get(path.c_str(), &label, SMACK_LABEL_ACCESS) == 0 ? label : nullptr);
}

void copyLabel(const std::string& source, const std::string& destination, bool isSymlink) {
  const MallocText label = readLabel(source, isSymlink);
  if (label == nullptr) {
    return;
  }
  const auto set = isSymlink ? smack_lsetlabel : smack_setlabel;
  if (set(destination.c_str(), label.get(), SMACK_LABEL_ACCESS) != 0) {
    std::fprintf(stderr, "Fail to set smack label\n");
  }
}

void copyOwner(const std::string& source, const std::string& destination, bool isSymlink) {
  struct stat status;
  if (stat(source.c_str(), &status) != 0) {
    return;
  }
  const auto change = isSymlink ? lchown : chown;
  if (change(destination.c_str(), status.st_uid, status.st_gid) != 0) {
    std::fprintf(stderr, "Failed to change owner and group name\n");
  }
}

}  // namespace

bool setSmack(const std::string& path, const std::string& label) {
  if (smack_setlabel(path.c_str(), label.c_str(), SMACK_LABEL_ACCESS) != 0) {
    QLOG_ERROR("Fail to set smack label\n : %s : %s", path.c_str(), label.c_str());
    return false;
  }
  return true;
}

void updateAssemblyInfo(const std::string& source, const std::string& destination, bool isSymlink) {
  copyLabel(source, destination, isSymlink);
  copyOwner(source, destination, isSymlink);
}
