#include "tools/crypto/crypto_library.h"

#include <dlfcn.h>
#include <openssl/opensslv.h>

#include <string>

namespace quillon {
namespace {

constexpr char kRemedy[] = "install OpenSSL 3";

Expected<CryptoLibrary> load() {
  const std::string file = "libcrypto.so." + std::to_string(OPENSSL_SHLIB_VERSION);
  void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return fail(dlerror(), kRemedy);
  const char* missing = nullptr;
  const auto find = [&](const char* name, auto& function) {
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(library, name));
    if (function == nullptr) missing = name;
  };
  CryptoLibrary crypto{};
  find("ERR_peek_last_error", crypto.ERR_peek_last_error);
  find("ERR_reason_error_string", crypto.ERR_reason_error_string);
  find("EVP_DigestFinal_ex", crypto.EVP_DigestFinal_ex);
  find("EVP_DigestInit_ex", crypto.EVP_DigestInit_ex);
  find("EVP_DigestSign", crypto.EVP_DigestSign);
  find("EVP_DigestSignInit", crypto.EVP_DigestSignInit);
  find("EVP_DigestUpdate", crypto.EVP_DigestUpdate);
  find("EVP_MD_CTX_free", crypto.EVP_MD_CTX_free);
  find("EVP_MD_CTX_new", crypto.EVP_MD_CTX_new);
  find("EVP_PKEY_free", crypto.EVP_PKEY_free);
  find("EVP_PKEY_get0_type_name", crypto.EVP_PKEY_get0_type_name);
  find("EVP_PKEY_get_bits", crypto.EVP_PKEY_get_bits);
  find("EVP_PKEY_get_size", crypto.EVP_PKEY_get_size);
  find("EVP_PKEY_is_a", crypto.EVP_PKEY_is_a);
  find("EVP_sha256", crypto.EVP_sha256);
  find("PEM_read_PrivateKey", crypto.PEM_read_PrivateKey);
  if (missing != nullptr) return fail(file + " has no " + missing, kRemedy);
  return crypto;
}

}  // namespace

Expected<const CryptoLibrary*> cryptoLibrary() {
  static const Expected<CryptoLibrary> library = load();
  if (!library) return tl::unexpected(library.error());
  return &*library;
}

}  // namespace quillon
