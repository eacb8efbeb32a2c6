// The functions of OpenSSL's libcrypto that a signature check calls.
//
// The library is loaded at run time: few launches check a signature, and linking the library would
// cost every launch more time and memory than the rest of the plug-in.
#pragma once

#include <openssl/evp.h>
#include <openssl/pem.h>

#include <optional>

// Each member points to the function of the same name, which OpenSSL's manual documents.
struct CryptoLibrary {
  int (*ERR_set_mark)();
  int (*ERR_pop_to_mark)();
  EVP_PKEY* (*PEM_read_PUBKEY)(FILE*, EVP_PKEY**, pem_password_cb*, void*);
  void (*EVP_PKEY_free)(EVP_PKEY*);
  int (*OPENSSL_init_crypto)(uint64_t, const OPENSSL_INIT_SETTINGS*);
  const EVP_MD* (*EVP_get_digestbyname)(const char*);
  EVP_MD_CTX* (*EVP_MD_CTX_new)();
  void (*EVP_MD_CTX_free)(EVP_MD_CTX*);
  int (*EVP_DigestInit_ex)(EVP_MD_CTX*, const EVP_MD*, ENGINE*);
  int (*EVP_DigestVerifyInit)(EVP_MD_CTX*, EVP_PKEY_CTX**, const EVP_MD*, ENGINE*, EVP_PKEY*);
  int (*EVP_DigestUpdate)(EVP_MD_CTX*, const void*, size_t);
  int (*EVP_DigestVerifyFinal)(EVP_MD_CTX*, const unsigned char*, size_t);
};

// Loads the system's library, of the version that the plug-in was built for: the one in the folder
// of the C library, else in the folder of that name in /usr, else in the folder of the plug-in. A
// library of the same name that an application has loaded, linked, or named in LD_LIBRARY_PATH is
// not used. The library stays loaded. Returns nullopt, after an error line, if the system's library
// or one of the functions is missing.
std::optional<CryptoLibrary> loadCryptoLibrary();
