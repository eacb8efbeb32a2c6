// Verifies one signature over a file, step by step:
//
//   SignatureCheck check(crypto);
//   if (const char* failure = check.readPublicKey(path)) ...   // the other steps in this order
//   check.verify() == 1
//
// Steps that can fail return null on success and otherwise an error message, which is a constant
// string. When the object is destroyed, it removes the errors that the steps added to the crypto
// library's error queue; errors from before remain. That queue is per thread, so the thread that
// creates the object must also destroy it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdlib>
#include <memory>

#include "plugin/src/dotnet-policy-checker/crypto_library.h"
#include "quillon_tv_plugin.h"

class SignatureCheck {
 public:
  // Copies the functions of `crypto`.
  explicit SignatureCheck(const CryptoLibrary& crypto);

  // Reads a public key in PEM format, of any type. Never prompts for a pass phrase, so an encrypted
  // key fails.
  const char* readPublicKey(const char* path);

  // Reads the first 256 bytes of the file. Fails if the file is shorter.
  const char* readSignature(const char* path);

  // Reads the whole file.
  const char* readRequest(const char* path);

  // Returns true if no bytes could be read from the request. It is then verified as an empty
  // message.
  bool isRequestEmpty() const { return requestSize_ == 0; }

  // Prepares the verification and digests the request, then frees the request.
  const char* digestRequest();

  // Returns the result of EVP_DigestVerifyFinal. Only 1 means that the signature is valid; errors
  // are negative.
  int verify();

 private:
  // Restores the error queue of the crypto library. The queue is a ring of 15 entries, and a check
  // temporarily uses up to 6 of them. If the queue already has more than 9 entries, the oldest ones
  // are lost.
  class ErrorQueueMark {
   public:
    explicit ErrorQueueMark(const CryptoLibrary& crypto) : crypto_(crypto) {
      crypto_.ERR_set_mark();
    }
    // An empty queue cannot hold a mark; ERR_pop_to_mark then empties the queue, which has the same
    // effect.
    ~ErrorQueueMark() { crypto_.ERR_pop_to_mark(); }
    ErrorQueueMark(const ErrorQueueMark&) = delete;
    ErrorQueueMark& operator=(const ErrorQueueMark&) = delete;

   private:
    const CryptoLibrary& crypto_;
  };
  struct FreeBytes {
    void operator()(unsigned char* bytes) const { std::free(bytes); }
  };

  const CryptoLibrary crypto_;
  const ErrorQueueMark errors_{crypto_};  // destroyed after all members that may add errors
  std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> key_{nullptr, crypto_.EVP_PKEY_free};
  std::array<unsigned char, QUILLON_PARTNER_SIGNATURE_SIZE> signature_{};
  std::unique_ptr<unsigned char, FreeBytes> request_;
  std::size_t requestSize_ = 0;
  std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context_{nullptr, crypto_.EVP_MD_CTX_free};
};
