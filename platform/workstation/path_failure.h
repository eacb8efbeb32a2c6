// The failure of a system call on a device path.
#pragma once

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "quillon/base/failure.h"

namespace quillon::workstation {

inline constexpr const char* kWritableRemedy =
    "check that the device root is writable and has space";

// "<what> '<path>': <meaning of errno>"
inline tl::unexpected<Failure> failAt(const std::string& what, const std::filesystem::path& path,
                                      const char* remedy = kWritableRemedy) {
  const int error = errno;
  return fail(what + " '" + path.string() + "': " + std::strerror(error), remedy);
}

}  // namespace quillon::workstation
