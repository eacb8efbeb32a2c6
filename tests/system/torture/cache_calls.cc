#include "tests/system/torture/cache_calls.h"

#include <sys/syscall.h>

#include <algorithm>
#include <map>

#include "device_paths.h"

namespace quillon::torture {
namespace {

// System calls that take a path, and the index of that argument.
const std::map<std::uint64_t, std::size_t>& pathArguments() {
  static const std::map<std::uint64_t, std::size_t> arguments = {
#ifdef SYS_access
      {SYS_access, 0},     {SYS_open, 0},       {SYS_stat, 0},      {SYS_lstat, 0},
      {SYS_rename, 0},     {SYS_unlink, 0},     {SYS_readlink, 0},
#endif
      {SYS_openat, 1},     {SYS_newfstatat, 1}, {SYS_statx, 1},     {SYS_faccessat, 1},
      {SYS_faccessat2, 1}, {SYS_renameat, 1},   {SYS_renameat2, 1}, {SYS_unlinkat, 1},
      {SYS_readlinkat, 1}};
  return arguments;
}

constexpr std::uint64_t kDescriptorCalls[] = {SYS_read,   SYS_write, SYS_readv,
                                              SYS_writev, SYS_lseek, SYS_fstat,
                                              SYS_fsync,  SYS_close, SYS_newfstatat};

bool isInCacheDirectory(const std::string& path) {
  return path.starts_with(device_paths::kCacheDirectory);
}

}  // namespace

bool CacheCalls::concerns(const SystemCall& call) const {
  if (call.number == SYS_sync) {
    return true;
  }
  const auto path = pathArguments().find(call.number);
  if (path != pathArguments().end() && isInCacheDirectory(call.textAt(path->second))) {
    return true;
  }
  return std::ranges::find(kDescriptorCalls, call.number) != std::end(kDescriptorCalls) &&
         descriptors.contains(call.arguments[0]);
}

void CacheCalls::returned(const SystemCall& call, std::int64_t result) {
  if (call.number == SYS_close) {
    descriptors.erase(call.arguments[0]);
  } else if (call.number == SYS_openat && result >= 0 && isInCacheDirectory(call.textAt(1))) {
    descriptors.insert(static_cast<std::uint64_t>(result));
  }
}

}  // namespace quillon::torture
