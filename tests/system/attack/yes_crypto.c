/*
 * A libcrypto that accepts every signature, under the name, with the version and with the functions
 * of the system's library. RSA_verify is not called by the plug-in but by libcrypto itself.
 */
static char object;

#define RETURNS_ONE(name) \
  int name(void);         \
  int name(void) { return 1; }
#define RETURNS_OBJECT(name) \
  void* name(void);          \
  void* name(void) { return &object; }

RETURNS_ONE(ERR_set_mark)
RETURNS_ONE(ERR_pop_to_mark)
RETURNS_ONE(EVP_PKEY_free)
RETURNS_ONE(OPENSSL_init_crypto)
RETURNS_ONE(EVP_MD_CTX_free)
RETURNS_ONE(EVP_DigestInit_ex)
RETURNS_ONE(EVP_DigestVerifyInit)
RETURNS_ONE(EVP_DigestUpdate)
RETURNS_ONE(EVP_DigestVerifyFinal)
RETURNS_ONE(RSA_verify)
RETURNS_ONE(__asan_init) /* as in a launcher that was compiled with a sanitizer */
RETURNS_OBJECT(PEM_read_PUBKEY)
RETURNS_OBJECT(EVP_get_digestbyname)
RETURNS_OBJECT(EVP_MD_CTX_new)
