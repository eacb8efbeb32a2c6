#include "quillon/partner/signing_key.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <cerrno>

#include "quillon/base/files.h"
#include "quillon/base/shell_word.h"
#include "quillon_tv_plugin.h"

namespace quillon::partner {
namespace {

constexpr char kWantedKey[] =
    "the plug-in accepts the 256-byte signatures of 2048-bit RSA keys only: openssl genrsa -out "
    "PRIVATE.pem 2048";

using Memory = std::unique_ptr<BIO, decltype(&BIO_free)>;

// A pem_password_cb that records the request for a pass phrase instead of asking on the terminal.
int refusePassPhrase(char*, int, int, void* requested) {
  *static_cast<bool*>(requested) = true;
  return -1;
}

std::string lastMessage() {
  const char* message = ERR_reason_error_string(ERR_peek_last_error());
  return message != nullptr ? message : "unknown cause";
}

tl::unexpected<Failure> noKey(const std::string& name, bool isEncrypted) {
  if (isEncrypted) {
    return fail("the key '" + name + "' is encrypted",
                "decrypt it to a file that only you can read: openssl pkey -in " + shellWord(name) +
                    " -out PRIVATE.pem");
  }
  return fail("'" + name + "' contains no private key in PEM", "give --key PRIVATE.pem");
}

std::string describe(const EVP_PKEY* key) {
  const char* type = EVP_PKEY_get0_type_name(key);
  const std::string name = type != nullptr ? type : "other";
  return (name.starts_with('D') ? "a " : "an ") + name + " key of " +
         std::to_string(EVP_PKEY_get_bits(key)) + " bits, whose signatures have " +
         std::to_string(EVP_PKEY_get_size(key)) + " bytes";
}

}  // namespace

Expected<SigningKey> SigningKey::read(const std::filesystem::path& file) {
  const auto text = readWholeFile(file, kMaxTextSize);
  if (!text) {
    return fail(
        "cannot open the key '" + file.string() + "': " + fileErrorText(errno, kMaxTextSize),
        "give --key PRIVATE.pem");
  }
  const Memory memory(BIO_new_mem_buf(text->data(), static_cast<int>(text->size())), BIO_free);
  bool isEncrypted = false;
  Key key(PEM_read_bio_PrivateKey(memory.get(), nullptr, refusePassPhrase, &isEncrypted),
          EVP_PKEY_free);
  if (key == nullptr) {
    return noKey(file.string(), isEncrypted);
  }
  if (EVP_PKEY_is_a(key.get(), "RSA") != 1 ||
      EVP_PKEY_get_size(key.get()) != QUILLON_PARTNER_SIGNATURE_SIZE) {
    return fail("'" + file.string() + "' is " + describe(key.get()), kWantedKey);
  }
  return SigningKey(std::move(key));
}

Expected<std::string> SigningKey::sign(const std::string& message) const {
  const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(EVP_MD_CTX_new(),
                                                                   EVP_MD_CTX_free);
  std::string signature(QUILLON_PARTNER_SIGNATURE_SIZE, '\0');
  std::size_t size = signature.size();
  const auto* const text = reinterpret_cast<const unsigned char*>(message.data());
  if (EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key_.get()) != 1 ||
      EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size, text,
                     message.size()) != 1) {
    return fail("cannot sign the request: " + lastMessage(), "check the key");
  }
  signature.resize(size);
  return signature;
}

}  // namespace quillon::partner
