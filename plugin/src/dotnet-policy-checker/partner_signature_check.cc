#include "plugin/src/dotnet-policy-checker/partner_signature_check.h"

#include <openssl/crypto.h>

#include <algorithm>

#include "plugin/src/dotnet-policy-checker/partner_signature_file.h"

namespace {

// Pass phrase callback (PEM_read(3), pem_password_cb). Without it the library would prompt on the
// terminal.
int refusePassPhrase(char*, int, int, void*) { return -1; }

}  // namespace

SignatureCheck::SignatureCheck(const CryptoLibrary& crypto) : crypto_(crypto) {}

const char* SignatureCheck::readPublicKey(const char* path) {
  const PartnerFile file = openPartnerFile(path);
  if (file == nullptr) {
    return "Failed to open public key file";
  }
  key_.reset(crypto_.PEM_read_PUBKEY(file.get(), nullptr, refusePassPhrase, nullptr));
  return key_ != nullptr ? nullptr : "Unable to decode public key from the file";
}

const char* SignatureCheck::readSignature(const char* path) {
  const PartnerFile file = openPartnerFile(path);
  if (file == nullptr) {
    return "Failed to open signature file";
  }
  const std::size_t read = fread(signature_.data(), 1, signature_.size(), file.get());
  return read == signature_.size()
             ? nullptr
             : "The signature file size is not 256 bytes, corrupted signature file";
}

const char* SignatureCheck::readRequest(const char* path) {
  const PartnerFile file = openPartnerFile(path);
  if (file == nullptr) {
    return "Failed to open original message file";
  }
  const std::optional<std::size_t> size = sizeOf(file.get());
  if (size) {
    // malloc(0) may return null.
    const std::size_t room = std::max<std::size_t>(*size, 1);
    request_.reset(static_cast<unsigned char*>(std::malloc(room)));
  }
  if (request_ == nullptr) {
    return "Failed to malloc original message buffer";
  }
  requestSize_ = fread(request_.get(), 1, *size, file.get());
  return nullptr;
}

const char* SignatureCheck::digestRequest() {
  context_.reset(crypto_.EVP_MD_CTX_new());
  crypto_.OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr);
  const EVP_MD* digest = crypto_.EVP_get_digestbyname("sha256");
  if (digest == nullptr) {
    return "Failed to EVP_get_digestbyname()";
  }
  if (context_ == nullptr || crypto_.EVP_DigestInit_ex(context_.get(), digest, nullptr) != 1) {
    return "Failed to EVP_DigestInit_ex()";
  }
  if (crypto_.EVP_DigestVerifyInit(context_.get(), nullptr, digest, nullptr, key_.get()) != 1) {
    return "Failed to EVP_DigestVerifyInit()";
  }
  if (crypto_.EVP_DigestUpdate(context_.get(), request_.get(), requestSize_) != 1) {
    return "Failed to EVP_DigestVerifyUpdate()";
  }
  request_.reset();
  return nullptr;
}

int SignatureCheck::verify() {
  return crypto_.EVP_DigestVerifyFinal(context_.get(), signature_.data(), signature_.size());
}
