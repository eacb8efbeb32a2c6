// Certificates in a file of trusted authorities. Input: the file.
#include <algorithm>

#include "quillon/device/certificates.h"
#include "tests/fuzz/target.h"

namespace {

constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view kEnd = "-----END CERTIFICATE-----\n";

}  // namespace

FUZZ_TARGET(certificates) {
  const auto certificates = quillon::device::certificatesIn(std::string(bytes));
  std::size_t from = 0;
  std::string joined;
  for (const std::string& certificate : certificates) {
    FUZZ_REQUIRE(certificate.starts_with(kBegin) && certificate.ends_with(kEnd));
    const std::string_view whole = certificate;
    const std::string_view body =
        whole.substr(kBegin.size(), whole.size() - kBegin.size() - kEnd.size());
    FUZZ_REQUIRE(body.find('-') == body.npos && body.find('\0') == body.npos);
    // In the order of the file. The dashes at the end of one may begin the next one.
    from = bytes.find(whole.substr(0, whole.size() - 1), from);
    FUZZ_REQUIRE(from != bytes.npos);
    ++from;
    joined += certificate;
  }
  FUZZ_REQUIRE(quillon::device::certificatesIn(joined) == certificates);
}
