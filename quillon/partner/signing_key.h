// The private key to sign partner packages with.
#pragma once

#include <openssl/evp.h>

#include <filesystem>
#include <memory>
#include <string>

#include "quillon/base/failure.h"

namespace quillon::partner {

class SigningKey {
 public:
  // Reads a 2048-bit RSA key in PEM, the only kind of key whose signatures the plug-in accepts.
  // Fails for an encrypted key, without asking for a pass phrase. Every failure names the file.
  [[nodiscard]] static Expected<SigningKey> read(const std::filesystem::path& file);

  // Returns a signature with SHA-256 and the key type's default scheme.
  [[nodiscard]] Expected<std::string> sign(const std::string& message) const;

 private:
  using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)>;
  SigningKey(Key key) : key_(std::move(key)) {}

  Key key_;
};

}  // namespace quillon::partner
