#include "quillon/device/certificates.h"

#include <fcntl.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "device_paths.h"
#include "quillon/base/files.h"
#include "quillon/base/folders.h"

namespace quillon::device {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view kEnd = "-----END CERTIFICATE-----";

// Debian and Arch, Fedora and RHEL, SUSE, Alpine.
constexpr const char* kMachineFiles[] = {"/etc/ssl/certs/ca-certificates.crt",
                                         "/etc/pki/tls/certs/ca-bundle.crt",
                                         "/etc/ssl/ca-bundle.pem", "/etc/ssl/cert.pem"};

// Whether a character may be in a text in base64.
bool isOfBase64(unsigned char letter) {
  return std::isalnum(letter) != 0 || std::isspace(letter) != 0 ||
         std::string_view("+/=").find(static_cast<char>(letter)) != std::string_view::npos;
}

tl::unexpected<Failure> cannotWrite(int error) {
  return fail(std::string("cannot write '") + device_paths::kUpdatedCertificates +
                  "' in the device root: " + std::strerror(error),
              "let the owner of the device root run this");
}

}  // namespace

fs::path machineCertificates() {
  std::error_code error;
  const char* const chosen = std::getenv("SSL_CERT_FILE");
  if (chosen != nullptr && fs::is_regular_file(chosen, error)) {
    return chosen;
  }
  const auto* const found =
      std::find_if(std::begin(kMachineFiles), std::end(kMachineFiles),
                   [&](const char* file) { return fs::is_regular_file(file, error); });
  return found != std::end(kMachineFiles) ? *found : "";
}

std::vector<std::string> certificatesIn(const std::string& text) {
  std::vector<std::string> certificates;
  for (size_t at = text.find(kBegin); at != text.npos; at = text.find(kBegin, at + 1)) {
    const std::string_view body = std::string_view(text).substr(at + kBegin.size());
    const auto end = std::find_if_not(body.begin(), body.end(), isOfBase64);
    if (body.substr(static_cast<size_t>(end - body.begin())).starts_with(kEnd)) {
      const size_t length = static_cast<size_t>(end - body.begin()) + kBegin.size() + kEnd.size();
      certificates.push_back(text.substr(at, length) + "\n");
    }
  }
  return certificates;
}

Expected<size_t> addAuthorities(const std::vector<std::string>& certificates) {
  const fs::path file = device_paths::kUpdatedCertificates;
  auto trusted = readWholeFile(file, kMaxCertificates);
  if (!trusted) {
    trusted = readWholeFile(device_paths::kPlatformCertificates, kMaxCertificates);
  }
  std::string all = trusted.value_or("");
  size_t added = 0;
  for (const std::string& certificate : certificates) {
    if (all.find(certificate) == all.npos) {
      all += certificate;
      ++added;
    }
  }
  if (added == 0) {
    return added;
  }
  const Descriptor folder =
      openFolderWithoutLinks(AT_FDCWD, file.parent_path(), MissingFolder::kMake);
  if (!folder || !replaceFile(folder.get(), file.filename(), all)) {
    return cannotWrite(errno);
  }
  return added;
}

}  // namespace quillon::device
