#include "plugin/src/dotnet-policy-checker/crypto_library.h"

#include <dlfcn.h>
#include <openssl/opensslv.h>

namespace {

#define QUILLON_TEXT_OF(value) #value
#define QUILLON_FILE_OF(version) "libcrypto.so." QUILLON_TEXT_OF(version)
constexpr char kFile[] = QUILLON_FILE_OF(OPENSSL_SHLIB_VERSION);

template <typename Function>
bool find(void* library, const char* name, Function*& function) {
  function = reinterpret_cast<Function*>(dlsym(library, name));
  return function != nullptr;
}

}  // namespace

std::optional<CryptoLibrary> loadCryptoLibrary() {
  void* const library = dlopen(kFile, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    return std::nullopt;
  }
  CryptoLibrary crypto{};
  const bool whole = find(library, "ERR_set_mark", crypto.ERR_set_mark) &&
                     find(library, "ERR_pop_to_mark", crypto.ERR_pop_to_mark) &&
                     find(library, "PEM_read_PUBKEY", crypto.PEM_read_PUBKEY) &&
                     find(library, "EVP_PKEY_free", crypto.EVP_PKEY_free) &&
                     find(library, "OPENSSL_init_crypto", crypto.OPENSSL_init_crypto) &&
                     find(library, "EVP_get_digestbyname", crypto.EVP_get_digestbyname) &&
                     find(library, "EVP_MD_CTX_new", crypto.EVP_MD_CTX_new) &&
                     find(library, "EVP_MD_CTX_free", crypto.EVP_MD_CTX_free) &&
                     find(library, "EVP_DigestInit_ex", crypto.EVP_DigestInit_ex) &&
                     find(library, "EVP_DigestVerifyInit", crypto.EVP_DigestVerifyInit) &&
                     find(library, "EVP_DigestUpdate", crypto.EVP_DigestUpdate) &&
                     find(library, "EVP_DigestVerifyFinal", crypto.EVP_DigestVerifyFinal);
  return whole ? std::optional(crypto) : std::nullopt;
}
