// A partner's public key and a request that it signed. The private key was generated for this
// sample and deleted.
#pragma once

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <string>
#include <string_view>

#include "plugin/src/dotnet-policy-checker/partner_signature.h"
#include "tests/fuzz/memory_file.h"
#include "tests/fuzz/target.h"

// The C library's own functions, which a sanitizer does not replace.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void __libc_free(void* memory);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace quillon::fuzz {

// libcrypto allocates hundreds of times for each key, which takes most of the time with the address
// sanitizer. The sanitizer does not watch this library of the distribution anyway.
inline const int kFastAllocation = CRYPTO_set_mem_functions(
    [](std::size_t size, const char*, int) { return __libc_malloc(size); },
    [](void* memory, std::size_t size, const char*, int) { return __libc_realloc(memory, size); },
    [](void* memory, const char*, int) { __libc_free(memory); });

inline constexpr std::string_view kPartnerKey =
    "-----BEGIN PUBLIC KEY-----\n"
    "MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEAwJz5IytzjjEkzI1s5CKK\n"
    "6NUOn/6WHzvIUSukH/kFa16rHhKPdekTv50IziLddHpvKkPNEAsy7+fTJwkD6D86\n"
    "XOA4EEKBd05/lP5FBxRjApMRYPRYvL8XlL+poWLjHCQAH4dQRwbbXLfnmIsglwft\n"
    "7QQrjS416T8ZbrhSyLBT3DFCo0h8nuFg5KXVb0TUgAjLR3sNXKnvL72UiWjAJ+WF\n"
    "tI/+bIy+h8m1VfAqfXJ6PJvkGAOdLO1GHqxPkgE8sh3fN8Y7YvQ5izrrHXg4TKYL\n"
    "CBuOjQL3NIkzsUtexZwm38sZV799gL/VH84s6kZ7FFkO8EtpiaGcHN6ig0PHfT9J\n"
    "/wIDAQAB\n"
    "-----END PUBLIC KEY-----\n";

inline constexpr std::string_view kPartnerRequest = "device-1:2026-11-21";

// The signature of that request, in base64.
inline constexpr std::string_view kPartnerSignature =
    "X42J52evE8dPgVQnzqddNToxK7gi9UL7P1vwDaWaCvZXthhEo/lb/SylDYCXOA4LjePAkamuxZKn"
    "OU/3Va/np8aW+bX+09M6LcgKEPRoZ//58lqiiT2p1eQaLTtcwUjlM5U8kiaSNMLkCRWZe9cXHHla"
    "VBjwzO3+p5pFiXwXkzvY32xJ/AefKKli9QawoBd3v4vcT0YYRic+m3XE/0Uc/cUU6q1tCZwUlVpZ"
    "dlBf9P7098jQgssqGIaj7CraF03OuIfL5KEq6wc+y0eMPeQCO+ircFv5i/gnaGx5FtZSE2AJks9I"
    "r5NGfxBxPI1XPzMQC4WOb30NH5Nn/ees/aA3Rw==";

inline std::string partnerSignature() {
  constexpr std::size_t kSize = 256;
  const std::string text(kPartnerSignature);
  std::string bytes(text.size(), '\0');
  EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                  reinterpret_cast<const unsigned char*>(text.data()),
                  static_cast<int>(text.size()));
  bytes.resize(kSize);
  return bytes;
}

// The result of verify_signature for these files. Requires that the call leaves the crypto
// library's error queue unchanged; the queue holds an unrelated error during the call.
inline int verified(std::string_view key, std::string_view signature, std::string_view request) {
  static MemoryFile keyFile("");
  static MemoryFile signatureFile("");
  static MemoryFile requestFile("");
  keyFile.replace(key);
  signatureFile.replace(signature);
  requestFile.replace(request);
  ERR_clear_error();
  ERR_raise(ERR_LIB_USER, 1);
  const unsigned long before = ERR_peek_error();
  const int result = verify_signature(keyFile.path().c_str(), signatureFile.path().c_str(),
                                      requestFile.path().c_str());
  FUZZ_REQUIRE(ERR_get_error() == before);
  FUZZ_REQUIRE(ERR_get_error() == 0);
  return result;
}

}  // namespace quillon::fuzz
