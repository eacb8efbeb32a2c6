// The partner key file. A signature is accepted only with the key that made it, and nothing prompts
// for a pass phrase. Input: the key file.
#include <openssl/pem.h>

#include <memory>

#include "tests/fuzz/partner_sample.h"

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

int noPassPhrase(char*, int, int, void*) { return -1; }

Key keyOf(std::string_view pem) {
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(
      BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free);
  return Key(PEM_read_bio_PUBKEY(memory.get(), nullptr, noPassPhrase, nullptr), EVP_PKEY_free);
}

}  // namespace

FUZZ_TARGET(partner_key) {
  static const std::string signature = partnerSignature();
  static const Key made = keyOf(kPartnerKey);
  const bool isVerified = verified(bytes, signature, kPartnerRequest) == 1;
  FUZZ_REQUIRE(isVerified || !bytes.starts_with(kPartnerKey));
  if (isVerified) {
    const Key key = keyOf(bytes);
    FUZZ_REQUIRE(key != nullptr && EVP_PKEY_eq(key.get(), made.get()) == 1);
  }
}
