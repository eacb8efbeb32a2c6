#include "tests/support/signing_key.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <functional>
#include <stdexcept>

#include "tests/support/sanitized.h"

namespace quillon::test {
namespace {

void require(bool done, const char* what) {
  if (!done) {
    throw std::runtime_error(what);
  }
}

std::string writtenBy(const std::function<int(BIO*)>& write) {
  const std::unique_ptr<BIO, int (*)(BIO*)> memory(BIO_new(BIO_s_mem()), BIO_free);
  require(write(memory.get()) == 1, "cannot write a key");
  char* text = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &text);
  return {text, static_cast<std::size_t>(size)};
}

const unsigned char* bytesOf(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

SigningKey::SigningKey(EVP_PKEY* key) : key_(key) { require(key != nullptr, "cannot make a key"); }

SigningKey SigningKey::rsa(unsigned int bits) {
  const std::unique_ptr<EVP_PKEY_CTX, void (*)(EVP_PKEY_CTX*)> context(
      EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr), EVP_PKEY_CTX_free);
  // Several short primes are found much faster than two long ones. The public key looks the same.
  const int primes = bits >= 4096 ? 4 : isEmulated() ? 3 : 2;
  EVP_PKEY* key = nullptr;
  require(EVP_PKEY_keygen_init(context.get()) == 1 &&
              EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), static_cast<int>(bits)) == 1 &&
              EVP_PKEY_CTX_set_rsa_keygen_primes(context.get(), primes) == 1,
          "cannot ask for a key");
  EVP_PKEY_generate(context.get(), &key);
  return SigningKey(key);
}

SigningKey SigningKey::ec() { return SigningKey(EVP_EC_gen("P-256")); }

SigningKey SigningKey::ed25519() {
  return SigningKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
}

std::string SigningKey::publicPem() const {
  return writtenBy([this](BIO* memory) { return PEM_write_bio_PUBKEY(memory, key_.get()); });
}

std::string SigningKey::privatePem() const {
  return writtenBy([this](BIO* memory) {
    return PEM_write_bio_PKCS8PrivateKey(memory, key_.get(), nullptr, nullptr, 0, nullptr, nullptr);
  });
}

std::string SigningKey::encryptedPublicPem(const std::string& passPhrase) const {
  return writtenBy([&](BIO* memory) {
    return PEM_ASN1_write_bio(reinterpret_cast<i2d_of_void*>(i2d_PUBKEY), PEM_STRING_PUBLIC, memory,
                              key_.get(), EVP_aes_128_cbc(), bytesOf(passPhrase),
                              static_cast<int>(passPhrase.size()), nullptr, nullptr);
  });
}

std::string SigningKey::encryptedPrivatePem(const std::string& passPhrase) const {
  return writtenBy([&](BIO* memory) {
    return PEM_write_bio_PKCS8PrivateKey(memory, key_.get(), EVP_aes_128_cbc(), passPhrase.data(),
                                         static_cast<int>(passPhrase.size()), nullptr, nullptr);
  });
}

std::string SigningKey::sign(const std::string& message) const {
  const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(EVP_MD_CTX_new(),
                                                                   EVP_MD_CTX_free);
  const EVP_MD* digest = EVP_PKEY_is_a(key_.get(), "ED25519") == 1 ? nullptr : EVP_sha256();
  std::string signature(1024, '\0');
  std::size_t size = signature.size();
  require(EVP_DigestSignInit(context.get(), nullptr, digest, nullptr, key_.get()) == 1 &&
              EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()),
                             &size, bytesOf(message), message.size()) == 1,
          "cannot sign");
  signature.resize(size);
  return signature;
}

}  // namespace quillon::test
