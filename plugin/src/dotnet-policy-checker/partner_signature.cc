#include "plugin/src/dotnet-policy-checker/partner_signature.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <new>
#include <optional>

#include "platform/vconf.h"
#include "plugin/src/dotnet-policy-checker/crypto_library.h"
#include "plugin/src/dotnet-policy-checker/partner_signature_check.h"
#include "plugin/src/dotnet-policy-checker/partner_signature_file.h"
#include "quillon_tv_plugin.h"
#include "util/log/log.h"
#include "util/malloc_text.h"

namespace {

constexpr char kNoRequest[] = "Failed to open original message file";
constexpr std::size_t kPathSize = 4096;

using PathText = std::array<char, kPathSize>;
using DuidText = std::array<char, QUILLON_PARTNER_DUID_SIZE>;

// Truncates a longer path.
PathText joined(const char* directory, const char* name) {
  PathText path;
  static_cast<void>(snprintf(path.data(), path.size(), "%s/%s", directory, name));
  return path;
}

bool isReadable(const PathText& path) { return access(path.data(), R_OK) == 0; }

// Reads the first field of the request into `duid`, which is always NUL-terminated. Returns false
// if the field is too long.
bool readDuid(FILE* request, DuidText& duid) {
  duid.fill('\0');
  std::size_t length = 0;
  for (int byte; (byte = fgetc(request)) != EOF && byte != ':'; ++length) {
    if (length == duid.size() - 1) {
      return false;
    }
    duid[length] = static_cast<char>(byte);
  }
  return true;
}

}  // namespace

bool check_signature(const char* mountPath) try {
  QLOG_SCOPE();
  if (mountPath == nullptr) {
    QLOG_ERROR("Invalid mount path info...");
    return false;
  }
  const PathText signature = joined(mountPath, QUILLON_PARTNER_SIGNATURE);
  const PathText request = joined(mountPath, QUILLON_PARTNER_REQUEST);
  if (!isReadable(signature) || !isReadable(request)) {
    return false;
  }
  return verify_signature_file(QUILLON_PARTNER_PUBLIC_KEY, signature.data(), request.data());
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  return false;
}

bool verify_signature_file(const char* publicKeyPath, const char* signaturePath,
                           const char* requestPath) {
  QLOG_SCOPE();
  if (verify_signature(publicKeyPath, signaturePath, requestPath) != 1) {
    QLOG_ERROR("verification fail : signature is not valid");
    return false;
  }
  if (verify_duid(requestPath) != 1) {
    QLOG_ERROR("verfication fail : duid is not valid");
    return false;
  }
  if (verify_date(requestPath) != 1) {
    QLOG_ERROR("verfication fail : date is not valid");
    return false;
  }
  QLOG_INFO("signature allow file access");
  return true;
}

int verify_signature(const char* publicKeyPath, const char* signaturePath,
                     const char* requestPath) {
  QLOG_SCOPE();
  const std::optional<CryptoLibrary> crypto = loadCryptoLibrary();
  if (!crypto) {
    return 0;
  }
  SignatureCheck check(*crypto);
  const char* failure = check.readPublicKey(publicKeyPath);
  if (failure == nullptr) {
    failure = check.readSignature(signaturePath);
  }
  if (failure == nullptr) {
    failure = check.readRequest(requestPath);
  }
  if (failure == nullptr && check.isRequestEmpty()) {
    QLOG_ERROR("Failed to read original message file");  // an empty message is verified too
  }
  if (failure == nullptr) {
    failure = check.digestRequest();
  }
  if (failure != nullptr) {
    QLOG_ERROR("%s", failure);
    return 0;
  }
  const int result = check.verify();
  if (result == 1) {
    QLOG_INFO("Signature verification OK");
    return 1;
  }
  if (result == 0) {
    QLOG_ERROR("Signature verification fail...");
  } else {
    QLOG_ERROR("Error Verifying Data : %d", result);
  }
  return 0;
}

int verify_duid(const char* requestPath) {
  QLOG_SCOPE();
  const MallocText deviceId(vconf_get_str(QUILLON_PARTNER_DUID_KEY));
  if (deviceId == nullptr) {
    QLOG_ERROR("%s", kNoRequest);
    return 0;
  }
  const PartnerFile request = openPartnerFile(requestPath);
  if (request == nullptr) {
    QLOG_ERROR("%s", kNoRequest);
    return 0;
  }
  DuidText duid;
  const bool fits = readDuid(request.get(), duid);
  if (fits && strcmp(deviceId.get(), duid.data()) == 0) {
    QLOG_INFO("duid comparision is success");
    return 1;
  }
  QLOG_ERROR("duid comparision is fail... %s,%s", deviceId.get(), duid.data());
  return 0;
}

int verify_date(const char*) {
  QLOG_SCOPE();
  return 1;
}
