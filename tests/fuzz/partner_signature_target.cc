// The partner signature file. Only the signature of exactly this request is accepted. Input: the
// file's size, the request ("=" for the signed request), and bytes that are XORed with the good
// signature.
#include <algorithm>
#include <charconv>

#include "tests/fuzz/partner_sample.h"

namespace {

constexpr std::size_t kMaxFileSize = 1024;

std::size_t sizeFrom(std::string_view text) {
  std::size_t size = 0;
  std::from_chars(text.data(), text.data() + text.size(), size);
  return std::min(size, kMaxFileSize);
}

}  // namespace

FUZZ_TARGET(partner_signature) {
  static const std::string good = partnerSignature();
  Input input(bytes);
  std::string signature = good;
  signature.resize(sizeFrom(input.line()));
  const std::string_view asked = input.line();
  const std::string_view request = asked == "=" ? kPartnerRequest : asked;
  const std::string_view change = input.rest();
  for (std::size_t i = 0; i < std::min(signature.size(), change.size()); ++i) {
    signature[i] = static_cast<char>(signature[i] ^ change[i]);
  }
  const bool isGood = request == kPartnerRequest && signature.starts_with(good);
  FUZZ_REQUIRE(verified(kPartnerKey, signature, request) == (isGood ? 1 : 0));
}
