// Policies of the validator. Input: the policy file.
#include <algorithm>
#include <charconv>

#include "quillon/validator/policy.h"
#include "tests/fuzz/memory_file.h"
#include "tests/fuzz/target.h"

namespace {

namespace fs = std::filesystem;

void requirePaths(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    FUZZ_REQUIRE(path.front() == '/');
    FUZZ_REQUIRE(path == "/" || path.back() != '/');
    FUZZ_REQUIRE(fs::path(path).lexically_normal() == path);
    FUZZ_REQUIRE(path.find('\0') == path.npos);
  }
}

// The message has the form "FILE:LINE: what", and the file has such a line.
void requirePlace(std::string_view failure, const std::string& file, std::string_view bytes) {
  FUZZ_REQUIRE(failure.starts_with(file + ":"));
  failure.remove_prefix(file.size() + 1);
  long line = 0;
  const auto end = std::from_chars(failure.data(), failure.data() + failure.size(), line).ptr;
  FUZZ_REQUIRE(line >= 1 && line <= std::count(bytes.begin(), bytes.end(), '\n') + 1);
  failure.remove_prefix(static_cast<std::size_t>(end - failure.data()));
  FUZZ_REQUIRE(failure.starts_with(": "));
}

}  // namespace

FUZZ_TARGET(validator_policy) {
  static MemoryFile file("");
  file.replace(bytes);
  const auto policy = quillon::validator::readPolicy(file.path());
  if (!policy) {
    requirePlace(policy.error().what, file.path(), bytes);
    FUZZ_REQUIRE(!policy.error().remedy.empty());
    return;
  }
  FUZZ_REQUIRE(!policy->allowsByDefault || bytes.find("allow") != bytes.npos ||
               bytes.find('\\') != bytes.npos);  // or it is written with an escape
  requirePaths(policy->deniedPaths);
  requirePaths(policy->allowedPaths);
  for (const std::string& digest : policy->allowedDigests) {
    FUZZ_REQUIRE(digest.size() == 64);
    FUZZ_REQUIRE(digest.find_first_not_of("0123456789abcdef") == digest.npos);
  }
}
