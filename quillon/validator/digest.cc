#include "quillon/validator/digest.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"

namespace quillon::validator {
namespace {

constexpr std::size_t kPieceSize = 65536;

using Context = std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)>;

class File {
 public:
  // O_NONBLOCK, so that open(2) of a FIFO does not wait for a writer.
  explicit File(const std::string& path)
      : descriptor_(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)) {
    const int kept = errno;
    fstat(descriptor_.get(), &status_);
    errno = kept;
  }

  bool isOpen() const { return static_cast<bool>(descriptor_); }
  bool isRegular() const { return S_ISREG(status_.st_mode); }
  bool isTooLarge() const { return static_cast<std::size_t>(status_.st_size) > kMaxAssemblySize; }
  ssize_t readSome(std::array<unsigned char, kPieceSize>& piece) const {
    ssize_t length = 0;
    do {
      length = read(descriptor_.get(), piece.data(), piece.size());
    } while (length < 0 && errno == EINTR);
    return length;
  }

 private:
  Descriptor descriptor_;
  struct stat status_ {};
};

std::string hexOf(const unsigned char* bytes, unsigned int count) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (unsigned int i = 0; i < count; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

tl::unexpected<Failure> cannotRead(const std::string& file) {
  return fail("cannot read '" + file + "': " + std::strerror(errno));
}

Expected<std::string> digestOf(const File& file, const std::string& name) {
  const Context context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  bool works = context != nullptr && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1;
  std::array<unsigned char, kPieceSize> piece;
  ssize_t length = 0;
  while (works && (length = file.readSome(piece)) > 0) {
    works = EVP_DigestUpdate(context.get(), piece.data(), static_cast<std::size_t>(length)) == 1;
  }
  if (length < 0) {
    return cannotRead(name);
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
  unsigned int size = 0;
  if (!works || EVP_DigestFinal_ex(context.get(), digest.data(), &size) != 1) {
    return fail("the crypto library returned no digest of '" + name + "'");
  }
  return hexOf(digest.data(), size);
}

}  // namespace

Expected<std::string> sha256Of(const std::string& path) {
  const File file(path);
  if (!file.isOpen()) {
    return cannotRead(path);
  }
  if (!file.isRegular()) {
    return fail("'" + path + "' is not a regular file");
  }
  if (file.isTooLarge()) {
    return fail("'" + path + "' is " + fileErrorText(EFBIG, kMaxAssemblySize));
  }
  return digestOf(file, path);
}

}  // namespace quillon::validator
