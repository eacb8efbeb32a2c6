// One verification of a signature over a file, step by step:
//
//   SignatureCheck check(crypto);
//   if (const char* failure = check.readPublicKey(path)) ...   // and so on, in this order
//   check.verify() == 1
//
// The steps that can fail return the message that says so, a constant text; null is success.
// Errors that the crypto library queues are taken off its queue when the object ends, and none that
// was queued before. The thread that makes the object must also end it, since that queue is the
// thread's.
#pragma once

#include <quillon_tv_plugin.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <memory>

#include "plugin/src/dotnet-policy-checker/crypto_library.h"

class SignatureCheck {
 public:
  // The functions of `crypto` are copied.
  explicit SignatureCheck(const CryptoLibrary& crypto);

  // Reads a public key in PEM, of any type. Asks nobody for a pass phrase: an encrypted key fails.
  const char* readPublicKey(const char* path);

  // Reads the first 256 bytes of a file that must have as many.
  const char* readSignature(const char* path);

  // Reads the whole file.
  const char* readRequest(const char* path);

  // Nothing could be read of the request; it is verified as an empty message.
  bool isRequestEmpty() const { return requestSize_ == 0; }

  // Prepares the verification and digests the request, which is released.
  const char* digestRequest();

  // What EVP_DigestVerifyFinal answers. 1 alone means that the signature is good; an error is
  // negative.
  int verify();

 private:
  // Puts the crypto library's error queue back as it was. The queue is a ring of 15, of which a
  // check takes up to 6 for the moment: where more than 9 wait already, the oldest ones go.
  class KeptErrors {
   public:
    explicit KeptErrors(const CryptoLibrary& crypto) : crypto_(crypto) { crypto_.ERR_set_mark(); }
    // An empty queue takes no mark, and is emptied again.
    ~KeptErrors() { crypto_.ERR_pop_to_mark(); }
    KeptErrors(const KeptErrors&) = delete;
    KeptErrors& operator=(const KeptErrors&) = delete;

   private:
    const CryptoLibrary& crypto_;
  };
  struct FreeBytes {
    void operator()(unsigned char* bytes) const { std::free(bytes); }
  };

  const CryptoLibrary crypto_;
  const KeptErrors errors_{crypto_};  // ends after everything that may add to them
  std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> key_{nullptr, crypto_.EVP_PKEY_free};
  std::array<unsigned char, QUILLON_PARTNER_SIGNATURE_SIZE> signature_{};
  std::unique_ptr<unsigned char, FreeBytes> request_;
  std::size_t requestSize_ = 0;
  std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context_{nullptr, crypto_.EVP_MD_CTX_free};
};
