#include "plugin/src/dotnet-policy-checker/crypto_library.h"

#include <dlfcn.h>
#include <gnu/libc-version.h>
#include <link.h>
#include <openssl/opensslv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "util/log/log.h"
#include "util/zq_utils/paths.h"

extern "C" {
[[gnu::weak]] void __asan_init();
[[gnu::weak]] void __tsan_init();
}

namespace {

#define QUILLON_TEXT_OF(value) #value
#define QUILLON_FILE_OF(version) "libcrypto.so." QUILLON_TEXT_OF(version)
constexpr char kFile[] = QUILLON_FILE_OF(OPENSSL_SHLIB_VERSION);

// Whether the launcher was compiled with a sanitizer. The dynamic linker resolves the symbols when
// it loads the plug-in, before an application can define them.
bool isSanitized() { return __asan_init != nullptr || __tsan_init != nullptr; }

// Without RTLD_DEEPBIND, a library with the same functions in the global scope, such as one that
// the program is linked with, would replace the functions that libcrypto calls in itself. The
// sanitizers end a process that uses the flag.
int openMode() { return RTLD_NOW | RTLD_LOCAL | (isSanitized() ? 0 : RTLD_DEEPBIND); }

// Returns the folder of the library that defines `function`. Returns an empty string if the main
// program does, as in a launcher that is linked with the plug-in's archive: the dynamic linker
// knows only argv[0] of it, which is any text.
std::string folderOf(const void* function) {
  Dl_info library{};
  link_map* loaded = nullptr;
  const bool isFound =
      dladdr1(function, &library, reinterpret_cast<void**>(&loaded), RTLD_DL_LINKMAP) != 0;
  return isFound ? getBaseName(loaded->l_name) : std::string();
}

// Returns the path of the system's libcrypto: in the folder of the C library, in the folder of the
// same name in /usr, or in the folder of the plug-in. A process that can write to these folders
// does not need a false libcrypto. A path with a slash makes dlopen(3) ignore LD_LIBRARY_PATH and
// compare files, not names, with the loaded libraries.
std::string systemLibrary() {
  const std::string system = folderOf(reinterpret_cast<void*>(gnu_get_libc_version));
  const std::string own = folderOf(reinterpret_cast<void*>(loadCryptoLibrary));
  for (const std::string& folder : {system, "/usr" + system, own}) {
    std::string path = concatPath(folder, kFile);
    if (startWith(folder, "/") && access(path.c_str(), F_OK) == 0) {
      return path;
    }
  }
  return concatPath(system, kFile);
}

bool isSameFile(const char* left, const char* right) {
  struct stat one {};
  struct stat other {};
  return stat(left, &one) == 0 && stat(right, &other) == 0 && one.st_dev == other.st_dev &&
         one.st_ino == other.st_ino;
}

// Tests the result of dlopen(3), because a loaded library whose name is that path also satisfies
// it.
bool isLoadedFrom(void* library, const std::string& path) {
  link_map* loaded = nullptr;
  return dlinfo(library, RTLD_DI_LINKMAP, &loaded) == 0 && isSameFile(loaded->l_name, path.c_str());
}

template <typename Function>
bool find(void* library, const char* name, Function*& function) {
  function = reinterpret_cast<Function*>(dlsym(library, name));
  return function != nullptr;
}

bool findAll(void* library, CryptoLibrary& crypto) {
  return find(library, "ERR_set_mark", crypto.ERR_set_mark) &&
         find(library, "ERR_pop_to_mark", crypto.ERR_pop_to_mark) &&
         find(library, "PEM_read_PUBKEY", crypto.PEM_read_PUBKEY) &&
         find(library, "EVP_PKEY_free", crypto.EVP_PKEY_free) &&
         find(library, "OPENSSL_init_crypto", crypto.OPENSSL_init_crypto) &&
         find(library, "EVP_get_digestbyname", crypto.EVP_get_digestbyname) &&
         find(library, "EVP_MD_CTX_new", crypto.EVP_MD_CTX_new) &&
         find(library, "EVP_MD_CTX_free", crypto.EVP_MD_CTX_free) &&
         find(library, "EVP_DigestInit_ex", crypto.EVP_DigestInit_ex) &&
         find(library, "EVP_DigestVerifyInit", crypto.EVP_DigestVerifyInit) &&
         find(library, "EVP_DigestUpdate", crypto.EVP_DigestUpdate) &&
         find(library, "EVP_DigestVerifyFinal", crypto.EVP_DigestVerifyFinal);
}

}  // namespace

std::optional<CryptoLibrary> loadCryptoLibrary() {
  const std::string path = systemLibrary();
  void* const library = dlopen(path.c_str(), openMode());
  if (library != nullptr && !isLoadedFrom(library, path)) {
    QLOG_ERROR_OF("verify_signature",
                  "Failed to load the crypto library: another library has the name %s",
                  path.c_str());
    return std::nullopt;
  }
  CryptoLibrary crypto{};
  if (library == nullptr || !findAll(library, crypto)) {
    QLOG_ERROR_OF("verify_signature", "Failed to load the crypto library: %s", dlerror());
    return std::nullopt;
  }
  return crypto;
}
