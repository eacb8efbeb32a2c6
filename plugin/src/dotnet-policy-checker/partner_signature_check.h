// One verification of a signature over a file, step by step:
//
//   SignatureCheck check;
//   if (const char* failure = check.readPublicKey(path)) ...   // and so on, in this order
//   check.verify() == 1
//
// The steps that can fail return the message that says so, a constant text; null is success.
// Errors that the crypto library queues are taken off its queue when the object ends, and none that
// was queued before. The thread that makes the object must also end it, since that queue is the
// thread's.
#pragma once

#include <openssl/evp.h>
#include <quillon_tv_plugin.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <memory>

class SignatureCheck {
 public:
  SignatureCheck();

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
  struct KeptErrors {
    KeptErrors();
    ~KeptErrors();
    KeptErrors(const KeptErrors&) = delete;
    KeptErrors& operator=(const KeptErrors&) = delete;
  };
  struct FreeKey {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  };
  struct FreeContext {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  };
  struct FreeBytes {
    void operator()(unsigned char* bytes) const { std::free(bytes); }
  };

  KeptErrors errors_;  // first: ends after everything that may add to them
  std::unique_ptr<EVP_PKEY, FreeKey> key_;
  std::array<unsigned char, QUILLON_PARTNER_SIGNATURE_SIZE> signature_{};
  std::unique_ptr<unsigned char, FreeBytes> request_;
  std::size_t requestSize_ = 0;
  std::unique_ptr<EVP_MD_CTX, FreeContext> context_;
};
