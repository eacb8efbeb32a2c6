// The private key that partner packages are signed with.
#pragma once

#include <openssl/evp.h>

#include <filesystem>
#include <memory>
#include <string>

#include "quillon/base/failure.h"

namespace quillon::partner {

class SigningKey {
 public:
  // Reads an RSA key of 2048 bits in PEM, the one kind whose signatures the plug-in takes. Asks for
  // no pass phrase; an encrypted key fails. Every failure names the file and what to do.
  [[nodiscard]] static Expected<SigningKey> read(const std::filesystem::path& file);

  // A signature with SHA-256 and the key type's default scheme.
  [[nodiscard]] Expected<std::string> sign(const std::string& message) const;

 private:
  using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)>;
  SigningKey(Key key) : key_(std::move(key)) {}

  Key key_;
};

}  // namespace quillon::partner
