#include "quillon/partner/sign.h"

#include <algorithm>
#include <initializer_list>
#include <system_error>

#include "quillon/partner/new_file.h"
#include "quillon/partner/signing_key.h"
#include "quillon_tv_plugin.h"

namespace quillon::partner {
namespace {

namespace fs = std::filesystem;

constexpr char kFieldEnd = ':';

bool isControl(char character) {
  constexpr unsigned char kSpace = 0x20;
  constexpr unsigned char kDelete = 0x7f;
  const auto byte = static_cast<unsigned char>(character);
  return byte < kSpace || byte == kDelete;
}

Expected<void> requireDuid(const std::string& duid) {
  if (duid.empty()) {
    return fail("the device id is empty", "give the id of the device: --duid ID");
  }
  if (duid.size() >= QUILLON_PARTNER_DUID_SIZE) {
    return fail("the device id has " + std::to_string(duid.size()) + " bytes",
                "the plug-in takes ids of at most " +
                    std::to_string(QUILLON_PARTNER_DUID_SIZE - 1) + " bytes");
  }
  if (duid.find(kFieldEnd) != std::string::npos) {
    return fail("the device id '" + duid + "' contains ':', which ends it in the request",
                "give only the id, and additional text with --note");
  }
  if (std::any_of(duid.begin(), duid.end(), isControl)) {
    return fail("the device id contains a line break or another control character",
                "give the id as stored in the configuration store of the device");
  }
  return {};
}

Expected<void> requirePlace(const SignOptions& options) {
  std::error_code error;
  if (!fs::is_directory(options.directory, error)) {
    return fail("there is no folder '" + options.directory.string() + "'", "create it first");
  }
  for (const char* name : {QUILLON_PARTNER_REQUEST, QUILLON_PARTNER_SIGNATURE}) {
    const fs::path file = options.directory / name;
    if (!options.replace && fs::exists(fs::symlink_status(file, error))) {
      return fail("'" + file.string() + "' exists already",
                  "choose another folder, or give --replace");
    }
  }
  return {};
}

// Writes the signature first, so that an incomplete package has no request, or an old one.
Expected<void> writePackage(const fs::path& directory, const std::string& request,
                            const std::string& signature) {
  NewFile signatureFile(directory / QUILLON_PARTNER_SIGNATURE);
  NewFile requestFile(directory / QUILLON_PARTNER_REQUEST);
  return signatureFile.write(signature)
      .and_then([&] { return requestFile.write(request); })
      .and_then([&] { return signatureFile.publish(); })
      .and_then([&] { return requestFile.publish(); });
}

}  // namespace

Expected<void> sign(const SignOptions& options) {
  RETURN_IF_FAILED(requireDuid(options.duid));
  RETURN_IF_FAILED(requirePlace(options));
  const std::string request = options.duid + kFieldEnd + options.note;
  return SigningKey::read(options.key)
      .and_then([&](const SigningKey& key) { return key.sign(request); })
      .and_then([&](const std::string& signature) {
        return writePackage(options.directory, request, signature);
      });
}

}  // namespace quillon::partner
