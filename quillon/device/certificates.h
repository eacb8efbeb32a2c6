// The certificate authorities that applications in a device root trust. The plug-in names one of
// two files in SSL_CERT_FILE: device_paths::kUpdatedCertificates if it exists, else
// device_paths::kPlatformCertificates.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "quillon/base/failure.h"

namespace quillon::device {

// Size limit in bytes of a file of certificates.
inline constexpr std::size_t kMaxCertificates = std::size_t{16} << 20;

// The file of the authorities that this machine trusts: that of SSL_CERT_FILE, else the one of its
// distribution. An empty path if there is none.
[[nodiscard]] std::filesystem::path machineCertificates();

// Returns the certificates in a text in PEM form. Leaves out everything else, private keys for
// example.
[[nodiscard]] std::vector<std::string> certificatesIn(const std::string& text);

// Adds authorities to those that applications trust. Call inside a device root. Returns how many of
// them applications did not trust before.
[[nodiscard]] Expected<std::size_t> addAuthorities(const std::vector<std::string>& certificates);

}  // namespace quillon::device
