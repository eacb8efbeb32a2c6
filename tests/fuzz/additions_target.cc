// The reader of what .NET's own host answered about an application: bytes of a child process, or of
// a file in a device root.
#include "quillon/resolution/additions.h"
#include "tests/fuzz/target.h"

FUZZ_TARGET(additions) {
  const auto additions = quillon::resolution::parseAdditions(bytes);
  if (!additions) {
    return;
  }
  for (const std::string& path : additions->assemblies) {
    FUZZ_REQUIRE(quillon::resolution::isPlainPath(path));
  }
  for (const std::string& folder : additions->nativeFolders) {
    FUZZ_REQUIRE(quillon::resolution::isPlainPath(folder));
  }
  const std::string text = quillon::resolution::format(*additions);
  FUZZ_REQUIRE(quillon::resolution::parseAdditions(text) == additions);
}
