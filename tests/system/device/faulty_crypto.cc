// A libcrypto with injected faults for the place of the system's library: it has the functions that
// the plug-in uses, and forwards the calls to a copy of the machine's libcrypto at
// QUILLON_REAL_CRYPTO. It reads the environment at each check:
//
//   QUILLON_CRYPTO_FAULT=NAME         the function NAME returns null
//   QUILLON_CRYPTO_FAULT=NAME=RESULT  the function NAME returns RESULT
//   QUILLON_CRYPTO_MEMORY=N           N allocations succeed, all later ones fail
//
// A failing function adds an error to the queue, as in libcrypto. Programs may link the library or
// look its functions up with dlsym(3).
#include <dlfcn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace {

std::optional<long> allocationsLeft;

bool isToFail() { return allocationsLeft && --*allocationsLeft < 0; }

void* allocate(std::size_t size, const char*, int) { return isToFail() ? nullptr : malloc(size); }
void* reallocate(void* memory, std::size_t size, const char*, int) {
  return isToFail() ? nullptr : realloc(memory, size);
}
void release(void* memory, const char*, int) { free(memory); }

void* loadedLibrary() {
  void* const library = dlopen(QUILLON_REAL_CRYPTO, RTLD_NOW | RTLD_LOCAL);
  reinterpret_cast<decltype(&CRYPTO_set_mem_functions)>(dlsym(library, "CRYPTO_set_mem_functions"))(
      allocate, reallocate, release);
  return library;
}

template <typename Function>
Function* real(const char* name) {
  static void* const library = loadedLibrary();
  return reinterpret_cast<Function*>(dlsym(library, name));
}

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

// Returns the result that a function must return instead of its own.
std::optional<int> faultOf(const std::string& function) {
  const std::string fault = variable("QUILLON_CRYPTO_FAULT");
  const std::size_t equals = fault.find('=');
  if (fault.substr(0, equals) != function) {
    return std::nullopt;
  }
  ERR_new();
  ERR_set_error(ERR_LIB_USER, 77, nullptr);
  return equals == std::string::npos ? 0 : std::atoi(fault.c_str() + equals + 1);
}

// The same for functions that return a pointer.
template <typename Type>
Type made(int result) {
  if constexpr (std::is_pointer_v<Type>) {
    return nullptr;
  } else {
    return result;
  }
}

}  // namespace

#define FAULTY(type, name, parameters, arguments)                     \
  type name parameters {                                              \
    if (const auto fault = faultOf(#name)) return made<type>(*fault); \
    return real<decltype(name)>(#name) arguments;                     \
  }
#define HANDED_ON(type, name, parameters, arguments) \
  type name parameters { return real<decltype(name)>(#name) arguments; }

extern "C" {

// Every check calls this first.
int ERR_set_mark() {
  const int result = real<decltype(ERR_set_mark)>("ERR_set_mark")();
  const std::string memory = variable("QUILLON_CRYPTO_MEMORY");
  if (!memory.empty()) {
    allocationsLeft = std::stol(memory);
  }
  return result;
}
// Every check calls this last.
int ERR_pop_to_mark() {
  allocationsLeft.reset();
  return real<decltype(ERR_pop_to_mark)>("ERR_pop_to_mark")();
}

HANDED_ON(void, ERR_new, (), ())
HANDED_ON(unsigned long, ERR_get_error, (), ())
HANDED_ON(void, EVP_PKEY_free, (EVP_PKEY * key), (key))
HANDED_ON(void, EVP_MD_CTX_free, (EVP_MD_CTX * context), (context))
void ERR_set_error(int library, int reason, const char*, ...) {
  real<decltype(ERR_set_error)>("ERR_set_error")(library, reason, nullptr);
}

FAULTY(int, OPENSSL_init_crypto, (uint64_t options, const OPENSSL_INIT_SETTINGS* settings),
       (options, settings))
FAULTY(EVP_PKEY*, PEM_read_PUBKEY, (FILE * file, EVP_PKEY** key, pem_password_cb* ask, void* data),
       (file, key, ask, data))
FAULTY(const EVP_MD*, EVP_get_digestbyname, (const char* name), (name))
FAULTY(EVP_MD_CTX*, EVP_MD_CTX_new, (), ())
FAULTY(int, EVP_DigestInit_ex, (EVP_MD_CTX * context, const EVP_MD* digest, ENGINE* engine),
       (context, digest, engine))
FAULTY(int, EVP_DigestVerifyInit,
       (EVP_MD_CTX * context, EVP_PKEY_CTX** keys, const EVP_MD* digest, ENGINE* engine,
        EVP_PKEY* key),
       (context, keys, digest, engine, key))
FAULTY(int, EVP_DigestUpdate, (EVP_MD_CTX * context, const void* bytes, size_t size),
       (context, bytes, size))
FAULTY(int, EVP_DigestVerifyFinal,
       (EVP_MD_CTX * context, const unsigned char* signature, size_t size),
       (context, signature, size))
}
