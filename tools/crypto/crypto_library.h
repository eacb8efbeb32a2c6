// The functions of OpenSSL's libcrypto that the tool calls. They are looked up where a command
// needs them: linked, the library would cost every launch more than a millisecond.
#pragma once

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <workstation/failure.h>

namespace quillon {

// Each member is the function of its name, of which openssl's manual has a page.
struct CryptoLibrary {
  decltype(&::ERR_peek_last_error) ERR_peek_last_error;
  decltype(&::ERR_reason_error_string) ERR_reason_error_string;
  decltype(&::EVP_DigestFinal_ex) EVP_DigestFinal_ex;
  decltype(&::EVP_DigestInit_ex) EVP_DigestInit_ex;
  decltype(&::EVP_DigestSign) EVP_DigestSign;
  decltype(&::EVP_DigestSignInit) EVP_DigestSignInit;
  decltype(&::EVP_DigestUpdate) EVP_DigestUpdate;
  decltype(&::EVP_MD_CTX_free) EVP_MD_CTX_free;
  decltype(&::EVP_MD_CTX_new) EVP_MD_CTX_new;
  decltype(&::EVP_PKEY_free) EVP_PKEY_free;
  decltype(&::EVP_PKEY_get0_type_name) EVP_PKEY_get0_type_name;
  decltype(&::EVP_PKEY_get_bits) EVP_PKEY_get_bits;
  decltype(&::EVP_PKEY_get_size) EVP_PKEY_get_size;
  decltype(&::EVP_PKEY_is_a) EVP_PKEY_is_a;
  decltype(&::EVP_sha256) EVP_sha256;
  decltype(&::PEM_read_PrivateKey) PEM_read_PrivateKey;
};

// Loads the library of the version that the tool was built for; it stays loaded. Every call answers
// the same. The failure says what is missing.
[[nodiscard]] Expected<const CryptoLibrary*> cryptoLibrary();

}  // namespace quillon
