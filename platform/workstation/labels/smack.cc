#include "platform/smack.h"

#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>

namespace {

// Without the NUL.
constexpr size_t kMaxLabelLength = 255;

const char* attributeOf(smack_label_type type) {
  switch (type) {
    case SMACK_LABEL_ACCESS:
      return "security.SMACK64";
    case SMACK_LABEL_EXEC:
      return "security.SMACK64EXEC";
    case SMACK_LABEL_MMAP:
      return "security.SMACK64MMAP";
    case SMACK_LABEL_TRANSMUTE:
      return "security.SMACK64TRANSMUTE";
  }
  return nullptr;
}

int invalid() {
  errno = EINVAL;
  return -1;
}

// Without the Smack security module, labels have no effect. A user who may not set one then loses
// nothing, so that is no failure.
int deniedOrSuccess() {
  constexpr char kSmackFileSystem[] = "/sys/fs/smackfs";
  const int cause = errno;
  const bool isEnforced = access(kSmackFileSystem, F_OK) == 0;
  errno = cause;
  return isEnforced || (cause != EPERM && cause != ENOTSUP) ? -1 : 0;
}

template <typename Set>
int setLabel(Set set, const char* path, const char* label, smack_label_type type) {
  const char* attribute = attributeOf(type);
  if (path == nullptr || label == nullptr || attribute == nullptr) {
    return invalid();
  }
  const size_t length = std::strlen(label);
  if (length == 0 || length > kMaxLabelLength) {
    return invalid();
  }
  return set(path, attribute, label, length, 0) == 0 ? 0 : deniedOrSuccess();
}

int noLabelOrError() { return errno == ENODATA || errno == ENOTSUP ? 0 : -1; }

template <typename Get>
int getLabel(Get get, const char* path, char** label, smack_label_type type) {
  const char* attribute = attributeOf(type);
  if (path == nullptr || label == nullptr || attribute == nullptr) {
    return invalid();
  }
  *label = nullptr;
  std::array<char, kMaxLabelLength + 1> value{};
  const ssize_t length = get(path, attribute, value.data(), kMaxLabelLength);
  if (length < 0) {
    return noLabelOrError();
  }
  *label = strndup(value.data(), static_cast<size_t>(length));
  return *label == nullptr ? -1 : 0;
}

}  // namespace

int smack_setlabel(const char* path, const char* label, smack_label_type type) {
  return setLabel(setxattr, path, label, type);
}

int smack_lsetlabel(const char* path, const char* label, smack_label_type type) {
  return setLabel(lsetxattr, path, label, type);
}

int smack_getlabel(const char* path, char** label, smack_label_type type) {
  return getLabel(getxattr, path, label, type);
}

int smack_lgetlabel(const char* path, char** label, smack_label_type type) {
  return getLabel(lgetxattr, path, label, type);
}
