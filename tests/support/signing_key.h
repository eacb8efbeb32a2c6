// Key pairs for signatures in tests, generated at run time.
#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>

namespace quillon::test {

class SigningKey {
 public:
  static SigningKey rsa(unsigned int bits = 2048);
  static SigningKey ec();
  static SigningKey ed25519();

  [[nodiscard]] std::string publicPem() const;
  [[nodiscard]] std::string privatePem() const;
  // Encrypted with a pass phrase of at least 4 bytes.
  [[nodiscard]] std::string encryptedPublicPem(const std::string& passPhrase) const;
  [[nodiscard]] std::string encryptedPrivatePem(const std::string& passPhrase) const;

  // A signature with SHA-256 and the key type's default scheme.
  [[nodiscard]] std::string sign(const std::string& message) const;

 private:
  struct Free {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  };
  explicit SigningKey(EVP_PKEY* key);

  std::unique_ptr<EVP_PKEY, Free> key_;
};

}  // namespace quillon::test
